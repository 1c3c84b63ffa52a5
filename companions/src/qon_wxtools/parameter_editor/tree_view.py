"""Directories, workbooks and sheets at the left side of the editor."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING

import wx
from qon_companions.fonts import font
from qon_companions.i18n import _

from .edits import Edits

if TYPE_CHECKING:
    from qon_paratree import Node

_ICONS = {"directory": wx.ART_FOLDER, "workbook": wx.ART_NORMAL_FILE, "sheet": wx.ART_LIST_VIEW}


class NodeTree(wx.TreeCtrl):
    """`selected` is called with the node that was chosen."""

    def __init__(self, parent: wx.Window, edits: Edits) -> None:
        super().__init__(parent, style=wx.TR_HAS_BUTTONS | wx.TR_SINGLE | wx.TR_LINES_AT_ROOT)
        self._edits = edits
        self._items: dict[Node, wx.TreeItemId] = {}
        self.selected: Callable[[Node], object] = lambda node: None
        self.SetFont(font(11.0))
        size = self.FromDIP(wx.Size(16, 16))
        images = wx.ImageList(size.width, size.height)
        self._images = {
            kind: images.Add(wx.ArtProvider.GetBitmap(icon, wx.ART_OTHER, size))
            for kind, icon in _ICONS.items()
        }
        self.AssignImageList(images)
        self.SetName(_("Workbooks"))
        self.Bind(wx.EVT_TREE_SEL_CHANGED, self._on_select)

    def show(self, root: Node) -> None:
        """Fill the tree and select the first sheet."""
        self.DeleteAllItems()
        self._items.clear()
        self._add(None, root)
        self.ExpandAll()
        sheets = [node for node in self._items if node.kind == "sheet"]
        self.select(sheets[0] if sheets else root)

    def select(self, node: Node) -> None:
        self.SelectItem(self._items[node])
        self.EnsureVisible(self._items[node])

    def selection(self) -> Node | None:
        item = self.GetSelection()
        return self.GetItemData(item) if item.IsOk() else None

    def mark(self) -> None:
        """Show where something is changed or wrong."""
        wrong = set()
        for parameter in self._edits.refused:
            above = parameter.parent
            while above is not None:
                wrong.add(above)
                above = above.parent
        for node, item in self._items.items():
            mark = " ✗" if node in wrong else " ●" if node.changed else ""
            if self.GetItemText(item) != node.name + mark:
                self.SetItemText(item, node.name + mark)
                self.SetItemBold(item, bool(mark))

    def _add(self, above: wx.TreeItemId | None, node: Node) -> None:
        if node.kind not in self._images:
            return
        image = self._images[node.kind]
        item = self.AddRoot(node.name, image) if above is None else self.AppendItem(above, node.name, image)
        self.SetItemData(item, node)
        self._items[node] = item
        for child in node.children:
            self._add(item, child)

    def _on_select(self, event: wx.TreeEvent) -> None:
        if event.GetItem().IsOk():
            self.selected(self.GetItemData(event.GetItem()))
