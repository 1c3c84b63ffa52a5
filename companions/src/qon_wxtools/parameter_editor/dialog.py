"""The editor's window: its parts, its commands and their keys."""

from __future__ import annotations

import os
from collections.abc import Callable
from typing import TYPE_CHECKING

import wx
from qon_companions.boxes import Box
from qon_companions.boxes.text_view import HEADING_POINTS, long_text
from qon_companions.fonts import font
from qon_companions.i18n import _
from qon_companions.parameters import BadValueError, ParameterError

from ..message_box import MB
from .detail_view import DetailView
from .edits import Edits, reason_of
from .grid_view import ParameterGrid
from .loading import CannotLoad, load
from .tree_view import NodeTree

if TYPE_CHECKING:
    from qon_paratree import Node, ParameterDirectory, ParameterNode

SIZE = (1240, 780)  # DIP
MIN_SIZE = (800, 500)
_BUTTON_HEIGHT = 40


class ParameterTreeDialog(wx.Dialog):
    """Edits the parameters of a directory and saves them there.

    `ShowModal` returns wx.ID_OK when something was saved, else wx.ID_CANCEL.
    """

    def __init__(
        self, parent: wx.Window | None = None, path: str | os.PathLike[str] | None = "app_config"
    ) -> None:
        style = wx.DEFAULT_DIALOG_STYLE | wx.RESIZE_BORDER | wx.MAXIMIZE_BOX
        super().__init__(parent, title=_("Test parameters"), style=style)
        self.SetEscapeId(wx.ID_NONE)
        self._path = path
        self._saved = False
        self.directory: ParameterDirectory | None = None
        self.edits = Edits()
        self.buttons: dict[int, wx.Button] = {}
        self.SetSizer(wx.BoxSizer(wx.VERTICAL))
        self._fit()
        self._open()
        self.Bind(wx.EVT_CLOSE, lambda event: self.close())
        self.Bind(wx.EVT_CHAR_HOOK, self._on_key)

    # Building

    def _fit(self) -> None:
        area = wx.Display(max(0, wx.Display.GetFromWindow(self))).GetClientArea()
        size = self.FromDIP(wx.Size(*SIZE))
        size.DecTo(wx.Size(area.width * 95 // 100, area.height * 92 // 100))
        self.SetMinSize(self.FromDIP(wx.Size(*MIN_SIZE)))
        self.SetSize(size)
        self.CentreOnParent()

    def _open(self) -> None:
        """Load and show the directory, or the reason why it cannot be edited."""
        self.GetSizer().Clear(delete_windows=True)
        self.buttons.clear()
        self.edits = Edits()
        try:
            self.directory = load(self._path)
        except CannotLoad as error:
            self.directory = None
            self._build_problem(str(error))
        else:
            self._build_editor(self.directory)
        self.Layout()

    def _build_problem(self, text: str) -> None:
        gap = self.FromDIP(12)
        self.GetSizer().Add(self._title(), 0, wx.LEFT | wx.RIGHT | wx.TOP, gap)
        self.GetSizer().Add(long_text(self, text), 1, wx.EXPAND | wx.ALL, gap)
        self._add_buttons(
            (wx.ID_REFRESH, _("&Read again"), _("Try again after the cause was removed"), self._open),
            (wx.ID_CLOSE, _("C&lose"), _("Close (Esc)"), self.close),
        )
        self.buttons[wx.ID_REFRESH].SetFocus()

    def _build_editor(self, directory: ParameterDirectory) -> None:
        gap = self.FromDIP(12)
        splitter = wx.SplitterWindow(self, style=wx.SP_LIVE_UPDATE)
        self.tree = NodeTree(splitter, self.edits)
        right = wx.Panel(splitter)
        self.grid = ParameterGrid(right, self.edits)
        self.details = DetailView(right)
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self.grid, 1, wx.EXPAND)
        column.Add(self.details, 0, wx.EXPAND)
        right.SetSizer(column)
        splitter.SplitVertically(self.tree, right, self.FromDIP(210))
        splitter.SetMinimumPaneSize(self.FromDIP(120))
        self.GetSizer().Add(self._head(directory), 0, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.TOP, gap)
        self.GetSizer().Add(splitter, 1, wx.EXPAND | wx.ALL, gap)
        self._add_buttons(
            (wx.ID_UNDO, _("&Undo"), _("Take the last change back (Ctrl+Z)"), self.undo),
            (wx.ID_REDO, _("Re&do"), _("Make the change again (Ctrl+Y)"), self.redo),
            (wx.ID_REVERT, _("Re&vert"), _("This parameter back to what is stored (Ctrl+R)"), self.revert),
            (wx.ID_SAVE, _("&Save"), _("Write all changes to their workbooks (Ctrl+S)"), self.save),
            (wx.ID_CLOSE, _("C&lose"), _("Close; asks when something is not saved (Esc)"), self.close),
        )
        self.tree.selected = lambda node: self._list()
        self.grid.selected = self._show_details
        self.grid.typing = self._check_while_typing
        self.grid.table.entered = lambda node: self._refresh()
        self.grid.leave = lambda forward: (self.find if not forward else self.buttons[wx.ID_SAVE]).SetFocus()
        self.tree.show(directory.root)
        self._refresh()
        self.grid.SetFocus()

    def _head(self, directory: ParameterDirectory) -> wx.Sizer:
        row = wx.BoxSizer()
        text = wx.StaticText(self, label=os.path.abspath(directory.directory), style=wx.ST_ELLIPSIZE_START)
        text.SetToolTip(os.path.abspath(directory.directory))
        text.SetFont(font(11.0))
        self.find = wx.SearchCtrl(self, size=self.FromDIP(wx.Size(240, -1)))
        self.find.SetDescriptiveText(_("Find (Ctrl+F)"))
        self.find.SetToolTip(_("Only parameters that contain this text"))
        self.find.ShowCancelButton(True)
        self.find.Bind(wx.EVT_TEXT, lambda event: self._list())
        row.Add(self._title(), 0, wx.ALIGN_CENTRE_VERTICAL | wx.RIGHT, self.FromDIP(16))
        row.Add(text, 1, wx.ALIGN_CENTRE_VERTICAL)
        row.Add(self.find, 0, wx.LEFT, self.FromDIP(12))
        return row

    def _title(self) -> wx.StaticText:
        title = wx.StaticText(self, label=self.GetTitle())
        title.SetFont(font(HEADING_POINTS, bold=True))
        return title

    def _add_buttons(self, *commands: tuple[int, str, str, Callable[[], object]]) -> None:
        gap = self.FromDIP(12)
        row = wx.BoxSizer()
        self.status = wx.StaticText(self)
        self.status.SetFont(font(11.0))
        row.Add(self.status, 1, wx.ALIGN_CENTRE_VERTICAL)
        for identity, text, tip, action in commands:
            button = wx.Button(self, label=text)
            button.SetId(identity)  # now, or the desktop would put its own label there
            button.SetMinSize(self.FromDIP(wx.Size(96, _BUTTON_HEIGHT)))
            button.SetToolTip(tip)
            button.Bind(wx.EVT_BUTTON, lambda event, action=action: action())
            self.buttons[identity] = button
            row.Add(button, 0, wx.LEFT, gap // 2)
        self.GetSizer().Add(row, 0, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.BOTTOM, gap)

    # Commands

    def undo(self) -> None:
        self._finish_typing()
        self._go_to(self.edits.undo())

    def redo(self) -> None:
        self._finish_typing()
        self._go_to(self.edits.redo())

    def revert(self) -> None:
        """The parameter under the cursor back to what is stored."""
        self._finish_typing()
        node = self.grid.current()
        if node is not None:
            self.edits.revert([node])
            self._refresh()

    def save(self) -> bool:
        """Write the workbooks; False, with the reason shown and everything kept, when that is not possible."""
        self._finish_typing()
        if self.directory is None:
            return False
        if self.edits.refused:
            node = next(iter(self.edits.refused))
            lines = [f"{node.path}: {refusal.reason}" for node, refusal in self.edits.refused.items()]
            MB.Error("\n".join(lines), title=_("Correct these values first"))
            self._go_to(node)
            return False
        try:
            written = self.directory.save()
        except (OSError, ParameterError) as error:
            MB.Error(
                _("{error}\n\nYour changes are still here.").format(error=_text_of(error)),
                title=_("Not saved"),
            )
            return False
        self._saved = self._saved or bool(written)
        self._refresh()
        return True

    def close(self) -> None:
        """End the dialog; ask first when something is not saved."""
        self._finish_typing()
        if self._unsaved():
            answer = self._ask_unsaved()
            if answer == wx.ID_CANCEL or (answer == wx.ID_SAVE and not self.save()):
                return
        result = wx.ID_OK if self._saved else wx.ID_CANCEL
        if self.IsModal():
            self.EndModal(result)
        else:
            self.Hide()

    # Showing

    def _list(self) -> None:
        """List the parameters below the chosen node that contain the searched text."""
        node = self.tree.selection()
        if node is None:
            return
        wanted = self.find.GetValue().strip().casefold()
        rows = [parameter for parameter in node.walk() if not wanted or wanted in self._searched(parameter)]
        self.grid.show(rows, node)

    def _searched(self, node: ParameterNode) -> str:
        return f"{node.path}\n{node.parameter.desc}\n{self.edits.shown(node)}".casefold()

    def _refresh(self) -> None:
        """After a change: marks, remarks, details and what is possible now."""
        self.grid.ForceRefresh()
        self.tree.mark()
        self._show_details(self.grid.current())
        assert self.directory is not None
        changed = sum(1 for node in self.directory.root.walk() if node.changed)
        refused = len(self.edits.refused)
        parts = [_("{count} changed").format(count=changed)] if changed else []
        parts += [_("{count} not accepted").format(count=refused)] if refused else []
        self.status.SetLabelText(", ".join(parts) or _("Everything is saved."))
        for identity, possible in (
            (wx.ID_UNDO, self.edits.can_undo),
            (wx.ID_REDO, self.edits.can_redo),
            (wx.ID_SAVE, self._unsaved()),
        ):
            self.buttons[identity].Enable(possible)

    def _show_details(self, node: ParameterNode | None) -> None:
        refusal = self.edits.refused.get(node) if node else None
        problem = f"✗ {refusal.reason}" if refusal else self.grid.table.lock(node) if node else ""
        self.details.show(node, self.edits.shown(node) if node else "", problem)
        self.buttons[wx.ID_REVERT].Enable(node is not None and self.edits.is_changed(node))

    def _check_while_typing(self, node: ParameterNode, text: str) -> None:
        problem = ""
        try:
            node.check(text)
        except BadValueError as error:
            problem = f"✗ {reason_of(error)}"
        self.details.show(node, text, problem)

    def _go_to(self, node: ParameterNode | None) -> None:
        """Show a parameter, wherever it is."""
        if node is not None:
            if node not in self.grid.table.rows:
                self.find.ChangeValue("")
                self.tree.select(_sheet_of(node))
                self._list()
            self.grid.go_to(node)
            self.grid.SetFocus()
        self._refresh()

    def _finish_typing(self) -> None:
        """What stands in an open field counts, whatever command comes next."""
        if self.directory is not None and self.grid.IsCellEditControlEnabled():
            self.grid.DisableCellEditControl()

    def _unsaved(self) -> bool:
        return self.directory is not None and (self.directory.changed or bool(self.edits.refused))

    def _ask_unsaved(self) -> int:
        text = _("There are changes that are not saved:\n{status}").format(status=self.status.GetLabelText())
        box = Box(self, self.GetTitle(), text, wx.ART_QUESTION)
        box.build([(wx.ID_SAVE, _("&Save")), (wx.ID_NO, _("&Discard")), (wx.ID_CANCEL, _("&Cancel"))])
        try:
            return box.ShowModal()
        finally:
            box.Destroy()

    def _on_key(self, event: wx.KeyEvent) -> None:
        commands = {"Z": self.undo, "Y": self.redo, "R": self.revert, "S": self.save, "F": self._focus_find}
        editing = self.directory is not None and self.grid.IsCellEditControlEnabled()
        key = event.GetKeyCode()
        if event.GetModifiers() == wx.MOD_CONTROL and self.directory is not None and key < 128:
            command = commands.get(chr(key).upper())
            if command and not (editing and key == ord("Z")):
                command()
                return
        if key == wx.WXK_F6 and self.directory is not None:
            (self.grid if self.tree.HasFocus() else self.tree).SetFocus()
        elif key == wx.WXK_ESCAPE and not editing:
            self._escape()
        else:
            event.Skip()

    def _escape(self) -> None:
        """First out of the search, then out of the dialog."""
        if self.directory is not None and self.find.GetValue():
            self.find.SetValue("")
            self.grid.SetFocus()
        else:
            self.close()

    def _focus_find(self) -> None:
        self.find.SetFocus()
        self.find.SelectAll()


def _sheet_of(node: ParameterNode) -> Node:
    assert node.parent is not None
    return node.parent


def _text_of(error: Exception) -> str:
    if isinstance(error, OSError) and error.filename is not None:
        return f"{os.fspath(error.filename)}: {error.strerror or type(error).__name__}"
    return str(error)
