"""The grid of records: fast to fill, read-only, copyable, follows its newest row.

A script produces thousands of rows per second.  Writes go into a row store; the window hears of them once
per turn of the event loop, however many there were.  GUI thread only (but see unit_list.py).
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import wx
import wx.grid

from qon_atsui import palette, sizing
from qon_atsui.grid.column_fit import ColumnFit
from qon_atsui.grid.keys import GridKeys
from qon_atsui.grid.row_store import RowStore
from qon_atsui.grid.table import StoreTable

_NOTHING = object()
_FAR_DOWN = 10**8  # scroll units; the scroll bar stops at its end


class RecordGrid(wx.grid.Grid):
    """A `wx.grid.Grid` whose cells live in a `RowStore`; all calls the engine makes on it are cheap."""

    table_type = StoreTable

    def __init__(self, parent: wx.Window, columns: Sequence[tuple[Any, ...]] = ()) -> None:
        super().__init__(parent, style=wx.WANTS_CHARS | wx.BORDER_NONE)
        self.store = RowStore()
        self._table = self.table_type(self.store)
        self._flush_due = False
        self._repaint = False
        self._show_newest = False  # at the next flush
        self._wants_newest = False  # was asked for since the grid was empty
        self.follows = True  # the newest row is kept in view
        self.always_newest = False  # also without being asked to make it visible
        self.SetTable(self._table, True, wx.grid.Grid.SelectRows)
        self._dress()
        self._columns = ColumnFit(self)
        self._keys = GridKeys(self)
        self.use_points(10.0)
        for title, *wish in columns:
            self.AppendCols(1)
            self._columns.wish(self.store.columns - 1, *wish)
            self._table.SetColLabelValue(self.store.columns - 1, title)
        self.Bind(wx.EVT_SIZE, self._on_size)
        self.Bind(wx.EVT_SCROLLWIN, self._on_scroll)
        self.Bind(wx.grid.EVT_GRID_RANGE_SELECTED, self._on_range_selected)

    def _dress(self) -> None:
        self.EnableEditing(False)
        self.EnableDragRowSize(False)
        self.SetRowLabelSize(0)
        self.SetMargins(0, 0)
        self.SetDefaultCellOverflow(False)
        self.SetDefaultCellFitMode(wx.grid.GridFitMode.Ellipsize(wx.ELLIPSIZE_END))
        self.SetDefaultCellBackgroundColour(palette.SURFACE)
        self.SetDefaultCellTextColour(palette.INK)
        self.SetBackgroundColour(palette.SURFACE)
        self.SetLabelBackgroundColour(palette.CANVAS)
        self.SetLabelTextColour(palette.MUTED)
        self.SetGridLineColour(palette.CANVAS)
        self.SetSelectionBackground(palette.ACCENT_SOFT)
        self.SetSelectionForeground(palette.INK)
        self.SetCellHighlightPenWidth(0)
        self.SetCellHighlightROPenWidth(0)
        self.SetTabBehaviour(wx.grid.Grid.Tab_Leave)
        self.ShowScrollbars(wx.SHOW_SB_DEFAULT, wx.SHOW_SB_ALWAYS)

    def use_points(self, points: float) -> None:
        """Size of the texts."""
        if points == self._table.points and self.GetDefaultRowSize() == self._row_height(points):
            return
        self._table.points = points
        self._table.forget_looks()
        self.SetDefaultCellFont(sizing.font(points))
        self.SetLabelFont(sizing.font(points, bold=True))
        self.SetDefaultRowSize(self._row_height(points), True)
        self.SetColLabelSize(self._row_height(points) + 4)
        self.SetScrollLineY(self._row_height(points))  # rows are never cut at the top
        self._columns.refit()
        self.ForceRefresh()

    @staticmethod
    def _row_height(points: float) -> int:
        return sizing.line_height(points, bold=True) + 6

    # What the engine calls.

    def GetNumberRows(self) -> int:
        return len(self.store)

    def AppendRows(self, numRows: int = 1, updateLabels: bool = True) -> bool:
        self.store.append(numRows)
        if self.always_newest:
            self._show_newest = self._wants_newest = True
        self._flush_later()
        return True

    def DeleteRows(self, pos: int = 0, numRows: int = 1, updateLabels: bool = True) -> bool:
        """The grid hears of it at once: a selection must not outlive its row."""
        if not 0 <= pos <= pos + numRows <= len(self.store):
            raise IndexError(
                f"Rows {pos} to {pos + numRows - 1} cannot be deleted: there are {len(self.store)}."
            )
        self.flush()
        self.store.delete(pos, numRows)
        self._table.known_rows = len(self.store)
        self._announce(wx.grid.GRIDTABLE_NOTIFY_ROWS_DELETED, pos, numRows)
        if not len(self.store):
            self.ClearSelection()
            self.follows = True
            self._wants_newest = False
        self.ForceRefresh()
        return True

    def ClearGrid(self) -> None:
        """Empties the cells; the rows stay, as in any grid."""
        for row in range(len(self.store)):
            for column in range(self.store.columns):
                self.store.set_text(row, column, "")
        self._flush_later(repaint=True)

    def AppendCols(self, numCols: int = 1, updateLabels: bool = True) -> bool:
        self.flush()
        self.store.add_columns(numCols)
        self._announce(wx.grid.GRIDTABLE_NOTIFY_COLS_APPENDED, numCols)
        return True

    def SetColLabelValue(self, col: int, value: str) -> None:
        super().SetColLabelValue(col, value)
        self._columns.refit()

    def SetColSize(self, col: int, width: int) -> None:
        """A wish: all columns together are fitted into the width there is, in these proportions."""
        self._columns.wish(col, width)

    def SetCellValue(self, row: Any, col: Any, s: Any = _NOTHING) -> None:
        store = self.store
        if row == store.unseen and type(s) is str:
            store.written[col] = s
            return
        if s is _NOTHING:  # called with (coordinates, text)
            (row, col), s = row, col
        store.set_text(row, col, s)
        known = row < self._table.known_rows
        if known or not self._flush_due:
            self._flush_later(repaint=known)
        elif not known:
            store.unseen = row

    def GetCellValue(self, row: Any, col: Any = None) -> str:
        return self.store.text(*(row if col is None else (row, col)))

    def shown_text(self, row: int, col: int) -> str:
        """What is to be read in the cell, where there is room for it."""
        return self._table.shown(row, col)

    def SetCellBackgroundColour(self, row: int, col: int, colour: Any) -> None:
        if row == self.store.plain and colour == "white":
            return
        if self.store.set_colour(row, col, palette.colour_name(colour)):
            self._flush_later(repaint=row < self._table.known_rows)

    def GetCellBackgroundColour(self, row: int, col: int) -> wx.Colour:
        return palette.as_colour(self.store.colour(row, col))

    def MakeCellVisible(self, row: Any, col: int = 0) -> None:
        """The newest row comes into view unless the operator looks elsewhere; other rows always do."""
        if not isinstance(row, int):
            row, col = row
        if row == len(self.store) - 1:
            self._show_newest = self._wants_newest = True
            self._flush_later()
        else:
            self.flush()
            super().MakeCellVisible(row, col)

    def SelectRow(self, row: int, addToSelected: bool = False) -> None:
        self.flush()
        super().SelectRow(row, addToSelected)

    def SetGridCursor(self, row: Any, col: Any = None) -> None:
        self.flush()
        super().SetGridCursor(*(row if col is None else (row, col)))

    def GoToCell(self, row: Any, col: Any = None) -> None:
        self.flush()
        super().GoToCell(*(row if col is None else (row, col)))

    # Telling the window.

    def _flush_later(self, repaint: bool = False) -> None:
        self._repaint = self._repaint or repaint
        if not self._flush_due:
            self._flush_due = True
            wx.CallAfter(self._flush_if_alive)

    def _flush_if_alive(self) -> None:
        if self:
            self.flush()

    def flush(self) -> None:
        """Bring the window up to date with the store."""
        self._flush_due = False
        self.store.unseen = None
        added = len(self.store) - self._table.known_rows
        if added > 0:
            self._table.known_rows = len(self.store)
            self._announce(wx.grid.GRIDTABLE_NOTIFY_ROWS_APPENDED, added)
        if self._repaint:
            self._repaint = False
            self.ForceRefresh()
        if self._show_newest:
            self._show_newest = False
            self._scroll_to_newest()

    def _scroll_to_newest(self) -> None:
        if self and self.follows and self._wants_newest:
            self.Scroll(-1, _FAR_DOWN)

    def _on_size(self, event: wx.SizeEvent) -> None:
        event.Skip()
        wx.CallAfter(self._scroll_to_newest)

    def _announce(self, *message: int) -> None:
        self.ProcessTableMessage(wx.grid.GridTableMessage(self._table, *message))

    # Following the newest row.

    def _on_scroll(self, event: wx.ScrollWinEvent) -> None:
        event.Skip()
        if event.GetOrientation() == wx.VERTICAL:
            wx.CallAfter(self._look_where)

    def _look_where(self) -> None:
        """After the operator scrolled: at the end means following again."""
        if self:
            seen = self.GetScrollPos(wx.VERTICAL) + self.GetScrollThumb(wx.VERTICAL)
            self.follows = seen >= self.GetScrollRange(wx.VERTICAL) - 1

    def _on_range_selected(self, event: wx.grid.GridRangeSelectEvent) -> None:
        event.Skip()
        if event.Selecting() and self.GetGridWindow().HasFocus():
            self.follows = False
