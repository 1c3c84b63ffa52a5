"""The table of parameters on the screen: one row each, the cursor stays in the value column."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING

import wx
import wx.grid
from qon_companions.boxes.keys import ENTER
from qon_companions.fonts import font

from .edits import Edits
from .table import REMARK, VALUE, WIDTHS, ParameterTable

if TYPE_CHECKING:
    from qon_paratree import Node, ParameterNode

ROW_HEIGHT = 30  # DIP


class ParameterGrid(wx.grid.Grid):
    """`selected` is called when the cursor goes to another parameter, `typing` with each text while it is typed."""

    def __init__(self, parent: wx.Window, edits: Edits) -> None:
        super().__init__(parent)
        self.table = ParameterTable(edits)
        self.selected: Callable[[ParameterNode | None], object] = lambda node: None
        self.typing: Callable[[ParameterNode, str], object] = lambda node, text: None
        self.leave: Callable[[bool], object] = lambda forward: None
        self.SetTable(self.table, takeOwnership=True)
        self.SetRowLabelSize(0)
        self.SetColLabelAlignment(wx.ALIGN_LEFT, wx.ALIGN_CENTRE)
        self.SetLabelFont(font(10.0, bold=True))
        self.SetDefaultRowSize(self.FromDIP(ROW_HEIGHT), True)
        self.SetColLabelSize(self.FromDIP(ROW_HEIGHT))
        for column, width in enumerate(WIDTHS):
            self.SetColSize(column, self.FromDIP(width))
        self.SetSelectionMode(wx.grid.Grid.GridSelectNone)
        self.SetGridLineColour(wx.Colour("#C3CCD5"))
        self.DisableDragRowSize()
        self.Bind(wx.grid.EVT_GRID_SELECT_CELL, self._on_select)
        self.Bind(wx.grid.EVT_GRID_CELL_LEFT_DCLICK, lambda event: self.edit())
        self.Bind(wx.grid.EVT_GRID_EDITOR_CREATED, self._on_editor)
        self.Bind(wx.grid.EVT_GRID_TABBING, self._on_tab)
        self.Bind(wx.EVT_KEY_DOWN, self._on_key)
        self.Bind(wx.EVT_SIZE, self._on_size)
        self.GetGridWindow().Bind(wx.EVT_MOTION, self._on_motion)

    def show(self, rows: list[ParameterNode], base: Node) -> None:
        """List these parameters, named from `base` on."""
        self.DisableCellEditControl()
        current = self.current()
        self.table.show(rows, f"{base.path}/" if base.path else "")
        if rows:
            self.go_to(current if current in rows else rows[0])
        else:
            self.selected(None)

    def current(self) -> ParameterNode | None:
        row = self.GetGridCursorRow()
        return self.table.rows[row] if 0 <= row < len(self.table.rows) else None

    def go_to(self, node: ParameterNode) -> None:
        """Put the cursor on a parameter that is listed."""
        row = self.table.rows.index(node)
        self.SetGridCursor(row, VALUE)
        self.MakeCellVisible(row, VALUE)
        self.selected(node)

    def edit(self) -> None:
        """Open the value under the cursor; a yes/no value just changes over."""
        node = self.current()
        if node is None or self.table.lock(node):
            return
        self.SetGridCursor(self.GetGridCursorRow(), VALUE)
        if node.parameter.kind == "bool":
            self.table.SetValue(self.GetGridCursorRow(), VALUE, str(not node.value))
        else:
            self.EnableCellEditControl()

    def _on_select(self, event: wx.grid.GridEvent) -> None:
        row = event.GetRow()
        if event.GetCol() != VALUE:
            event.Veto()
            self.SetGridCursor(row, VALUE)
            return
        event.Skip()
        if row < len(self.table.rows):
            self.selected(self.table.rows[row])

    def _on_editor(self, event: wx.grid.GridEditorCreatedEvent) -> None:
        control = event.GetControl()
        if isinstance(control, wx.TextCtrl):
            control.Bind(wx.EVT_TEXT, self._on_text)

    def _on_text(self, event: wx.CommandEvent) -> None:
        event.Skip()
        node = self.current()
        if node is not None and self.IsCellEditControlShown():
            self.typing(node, event.GetString())

    def _on_tab(self, event: wx.grid.GridEvent) -> None:
        """Tab leaves the table: within it there is nowhere to go but up and down."""
        self.DisableCellEditControl()
        self.leave(not event.ShiftDown())

    def _on_key(self, event: wx.KeyEvent) -> None:
        editing = self.IsCellEditControlEnabled()
        node = self.current()
        key = event.GetKeyCode()
        toggles = key == wx.WXK_SPACE and node is not None and node.parameter.kind == "bool"
        if not editing and not event.HasModifiers() and (key in (*ENTER, wx.WXK_F2) or toggles):
            self.edit()
        else:
            event.Skip()

    def _on_size(self, event: wx.SizeEvent) -> None:
        """The remarks get the room that is left."""
        event.Skip()
        others = sum(self.GetColSize(column) for column in range(REMARK))
        scrollbar = wx.SystemSettings.GetMetric(wx.SYS_VSCROLL_X, self)
        rest = self.GetSize().width - others - max(scrollbar, 0) - 4
        self.SetColSize(REMARK, max(self.FromDIP(WIDTHS[REMARK]), rest))

    def _on_motion(self, event: wx.MouseEvent) -> None:
        """A text that does not fit into its cell stands in the tool tip."""
        event.Skip()
        place = self.XYToCell(self.CalcUnscrolledPosition(event.GetPosition()))
        tip = ""
        if place.Row >= 0 and place.Col >= 0:
            text = self.table.GetValue(place.Row, place.Col)
            tip = text if self.GetTextExtent(text)[0] > self.GetColSize(place.Col) - 8 else ""
        window = self.GetGridWindow()
        if (window.GetToolTipText() or "") != tip:
            window.SetToolTip(tip or None)
