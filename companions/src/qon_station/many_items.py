"""Runs that record without end are told: every item is kept, and each takes memory and time at the end."""

import contextlib
import weakref
from collections.abc import Iterator
from typing import Any

import wx
from qon_companions import notices
from qon_companions.i18n import _

MANY = 1_000_000
_LOOK_MS = 1000


class _Watch(wx.Timer):
    """Looks once a second how much the runs have recorded; a test thread pays nothing for it."""

    def __init__(self, frame: Any) -> None:
        super().__init__()
        self._frame = frame
        self._told: dict[int, weakref.ref[Any]] = {}  # by cell number, the unit that was told

    def Notify(self) -> None:
        for cell in self._frame.cells if self._frame else ():
            told = self._told.get(cell.cell_number)
            count = len(cell.get_assertions())
            if told is not None and told() is not cell.uut:
                del self._told[cell.cell_number]
                notices.withdraw("items", cell.cell_number)
            elif told is None and count >= MANY and cell.uut is not None:
                self._tell(cell, count)

    def _tell(self, cell: Any, count: int) -> None:
        self._told[cell.cell_number] = weakref.ref(cell.uut)
        text = _("This test has recorded {count} items so far: does its script end?").format(
            count=f"{count:,}"
        )
        cell.logger.warning("%s", text)
        cell.set_prompt(text)
        notices.post("items", text, cell.cell_number)


@contextlib.contextmanager
def watching_items(frame: Any) -> Iterator[None]:
    """While it is open, the frame's cells are watched."""
    if not hasattr(frame, "cells"):
        yield
        return
    watch = _Watch(frame)
    watch.Start(_LOOK_MS)
    try:
        yield
    finally:
        watch.Stop()
