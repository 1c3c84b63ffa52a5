"""The viewer's list of units and its filter, safe to use from a test thread.

When a unit is done its test thread reads the filter, counts the unit's row and writes it.  By the time the
GUI thread gets to the write the list may have been filtered anew or cleared, and the row may be another
unit's.  So every listing has a version: reading the filter remembers it for that thread, and a write that
belongs to an older listing is dropped; whoever listed the units again has written the finished one itself.
"""

from __future__ import annotations

import threading
from collections.abc import Callable, Sequence
from typing import Any

import wx
from qon_companions.gui_thread import is_gui_thread, post

from qon_atsui.grid.record_grid import RecordGrid


class Listing:
    """The version of what is listed; advanced by the GUI thread, remembered by each test thread."""

    def __init__(self) -> None:
        self.version = 0
        self._seen = threading.local()

    def advance(self) -> None:
        self.version += 1

    def remember(self) -> None:
        self._seen.version = self.version

    @property
    def remembered(self) -> int:
        return getattr(self._seen, "version", self.version)


class CellFilter(wx.Choice):
    """The choice of a cell. `GetStringSelection` may be called from any thread."""

    def __init__(self, parent: wx.Window, items: Sequence[str], listing: Listing) -> None:
        super().__init__(parent, choices=list(items))
        self._listing = listing
        super().SetSelection(0)
        self._copy = items[0]

    def GetStringSelection(self) -> str:
        if is_gui_thread():
            return str(super().GetStringSelection())
        self._listing.remember()  # before the text: a change in between makes the writes outdated
        return self._copy

    def SetSelection(self, n: int) -> None:
        super().SetSelection(n)
        self.refresh_copy()

    def SetStringSelection(self, string: str) -> bool:
        found = bool(super().SetStringSelection(string))
        self.refresh_copy()
        return found

    def refresh_copy(self) -> None:
        """After the selection changed: what other threads counted until now is outdated."""
        self._copy = str(super().GetStringSelection())
        self._listing.advance()


class UnitGrid(RecordGrid):
    """The list of units. `SetCellValue` and `SetCellBackgroundColour` may be called from any thread."""

    def __init__(self, parent: wx.Window, columns: Sequence[tuple[Any, ...]], listing: Listing) -> None:
        super().__init__(parent, columns)
        self._listing = listing

    def DeleteRows(self, pos: int = 0, numRows: int = 1, updateLabels: bool = True) -> bool:
        self._listing.advance()
        return super().DeleteRows(pos, numRows, updateLabels)

    def SetCellValue(self, row: Any, col: Any, *s: Any) -> None:
        if is_gui_thread():
            super().SetCellValue(row, col, *s)
        else:
            self._later(super().SetCellValue, row, col, *s)

    def SetCellBackgroundColour(self, row: int, col: int, colour: Any) -> None:
        if is_gui_thread():
            super().SetCellBackgroundColour(row, col, colour)
        else:
            self._later(super().SetCellBackgroundColour, row, col, colour)

    def _later(self, write: Callable[..., None], row: int, *rest: Any) -> None:
        post(self._write_if_current, self._listing.remembered, write, row, *rest)

    def _write_if_current(self, version: int, write: Callable[..., None], row: int, *rest: Any) -> None:
        if self and version == self._listing.version and row < self.GetNumberRows():
            write(row, *rest)
