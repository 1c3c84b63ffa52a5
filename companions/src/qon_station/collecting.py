"""The collector of reference cycles, kept to the GUI thread.

Python collects in whatever thread happens to allocate.  In a test thread it would free objects of wx that were
dropped in a cycle while the GUI thread is at work on them, and a timer that is freed while it fires ends the process.
"""

import gc
import time
from types import TracebackType

import wx

INTERVAL_MS = 50
# New objects after which any thread collects: the GUI thread is busy for long, and memory must not grow.
MOST_NEW = 1_000_000
FULL_SHARE = 0.02  # of the time, at most, goes into collections of everything


class GuiCollector(wx.Timer):
    """While it is entered, the GUI thread collects by Python's own rules, in the loop of a modal dialog too.

    An application that has switched the collector off is left alone.
    """

    def __enter__(self) -> None:
        self._thresholds = gc.get_threshold()
        self._next_full = 0.0
        if self._thresholds[0]:
            gc.set_threshold(MOST_NEW, *self._thresholds[1:])
            self.Start(INTERVAL_MS)

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.Stop()
        gc.set_threshold(*self._thresholds)

    def Notify(self) -> None:
        generation = self._due()
        if generation < 0:
            return
        begin = time.monotonic()
        gc.collect(generation)
        if generation == 2:
            end = time.monotonic()
            self._next_full = end + (end - begin) / FULL_SHARE

    def _due(self) -> int:
        """The oldest generation whose turn it is, -1 when there is too little to look at."""
        over = [count > most for count, most in zip(gc.get_count(), self._thresholds, strict=True)]
        if not over[0] or not gc.isenabled():
            return -1
        if over[2] and time.monotonic() >= self._next_full:
            return 2
        return 1 if over[1] else 0
