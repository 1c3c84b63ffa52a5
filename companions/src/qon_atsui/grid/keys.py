"""Keys and clicks of a record grid: cursor keys select rows as the mouse does, Ctrl+C copies.

In wx a click selects the row and EVT_GRID_SELECT_CELL follows, but the cursor keys move a cursor and select
nothing.  Here the row is selected first, whichever way the operator took.
"""

from __future__ import annotations

import wx
import wx.grid
from qon_companions.i18n import _

from qon_atsui.texts import displayable


class GridKeys:
    """Handlers of one grid.  `Shift` and `Ctrl` keep wx's own meaning (several rows)."""

    def __init__(self, grid: wx.grid.Grid) -> None:
        self._grid = grid
        self._tip_cell = (-1, -1)
        grid.Bind(wx.EVT_KEY_DOWN, self._on_key)
        grid.Bind(wx.grid.EVT_GRID_CELL_RIGHT_CLICK, self._on_menu)
        grid.GetGridWindow().Bind(wx.EVT_MOTION, self._on_motion)

    def _on_key(self, event: wx.KeyEvent) -> None:
        key = event.GetKeyCode()
        if event.ControlDown() and key in (ord("C"), wx.WXK_INSERT):
            self.copy()
        elif event.ControlDown() and key == ord("A"):
            self._grid.SelectAll()
        elif key == wx.WXK_TAB and not event.ControlDown():
            self._leave(forward=not event.ShiftDown())
        elif event.HasAnyModifiers() or not self._move(key):
            event.Skip()

    def _leave(self, forward: bool) -> None:
        """Out of the grid, whose rows stay selected; a grid alone in its panel would come back to itself."""
        focused = wx.Window.FindFocus()
        self._grid.Navigate(int(forward))
        if wx.Window.FindFocus() in (focused, self._grid):
            self._grid.GetParent().Navigate(int(forward))

    def _move(self, key: int) -> bool:
        """Move the cursor and select its row; False for any other key."""
        grid = self._grid
        rows, columns = grid.GetNumberRows(), grid.GetNumberCols()
        row, column = grid.GetGridCursorRow(), grid.GetGridCursorCol()
        page = max(1, grid.GetGridWindow().GetClientSize().height // grid.GetDefaultRowSize() - 1)
        target = {
            wx.WXK_UP: (row - 1, column),
            wx.WXK_DOWN: (row + 1, column),
            wx.WXK_RETURN: (row + 1, column),
            wx.WXK_NUMPAD_ENTER: (row + 1, column),
            wx.WXK_PAGEUP: (row - page, column),
            wx.WXK_PAGEDOWN: (row + page, column),
            wx.WXK_HOME: (0, column),
            wx.WXK_END: (rows - 1, column),
            wx.WXK_LEFT: (row, column - 1),
            wx.WXK_RIGHT: (row, column + 1),
        }.get(key)
        if target is None:
            return False
        if rows and columns:
            if not grid.GetSelectedRows() and key in (wx.WXK_UP, wx.WXK_DOWN):
                target = (row, column)  # nothing is marked yet: start where the cursor is
            self._go(min(max(target[0], 0), rows - 1), min(max(target[1], 0), columns - 1))
        return True

    def _go(self, row: int, column: int) -> None:
        grid = self._grid
        moved = (row, column) != (grid.GetGridCursorRow(), grid.GetGridCursorCol())
        unselected = grid.GetSelectedRows() != [row]
        if unselected:
            grid.SelectRow(row)
        if moved:
            grid.SetGridCursor(row, column)
            wx.grid.Grid.MakeCellVisible(grid, row, column)
        elif unselected:
            self._announce(row, column)

    def _announce(self, row: int, column: int) -> None:
        grid = self._grid
        event = wx.grid.GridEvent(grid.GetId(), wx.grid.EVT_GRID_SELECT_CELL.typeId, grid, row, column)
        grid.GetEventHandler().ProcessEvent(event)

    # Copying.

    def copy(self) -> None:
        """The selected rows (or the cursor's) go to the clipboard as tab-separated lines."""
        grid = self._grid
        rows = sorted(grid.GetSelectedRows()) or [grid.GetGridCursorRow()]
        columns = range(grid.GetNumberCols())
        lines = [
            "\t".join(grid.GetCellValue(row, column) for column in columns)
            for row in rows
            if 0 <= row < grid.GetNumberRows()
        ]
        if lines and wx.TheClipboard.Open():
            wx.TheClipboard.SetData(wx.TextDataObject("\n".join(lines)))
            wx.TheClipboard.Close()

    def _on_menu(self, event: wx.grid.GridEvent) -> None:
        grid = self._grid
        if event.GetRow() not in grid.GetSelectedRows():
            self._go(event.GetRow(), max(0, event.GetCol()))
        menu = wx.Menu()
        entry = menu.Append(wx.ID_COPY, _("&Copy") + "\tCtrl+C")
        menu.Bind(wx.EVT_MENU, lambda _event: self.copy(), entry)
        grid.PopupMenu(menu)
        menu.Destroy()

    # What an ellipsis hides, and all digits of a number.

    def _on_motion(self, event: wx.MouseEvent) -> None:
        event.Skip()
        grid, window = self._grid, self._grid.GetGridWindow()
        cell = grid.XYToCell(*grid.CalcUnscrolledPosition(event.GetPosition()))
        row, column = cell.GetRow(), cell.GetCol()
        if (row, column) == self._tip_cell:
            return
        self._tip_cell = (row, column)
        inside = 0 <= row < grid.GetNumberRows() and 0 <= column < grid.GetNumberCols()
        text = displayable(grid.GetCellValue(row, column)) if inside else ""
        shown = grid.shown_text(row, column) if inside else ""
        width = grid.GetFullTextExtent(shown, grid.GetDefaultCellFont())[0] if shown else 0
        window.SetToolTip(text if shown != text or width > grid.GetColSize(column) - 4 else None)
