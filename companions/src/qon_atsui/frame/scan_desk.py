"""Where scans arrive, whatever window has the keyboard: each is for one cell, or is told to the operator."""

from __future__ import annotations

import logging
import weakref
from collections import deque

import wx
from qon_companions import scans
from qon_companions.i18n import _

from qon_atsui.cell import questions
from qon_atsui.cell.serial_entry import marked_entry
from qon_atsui.frame.red_words import RedWords
from qon_atsui.frame.shift import Shift

log = logging.getLogger(__name__)


class ScanDesk:
    """Of one frame; scans wait in line until the keys' own event is through."""

    def __init__(self, frame: wx.Window) -> None:
        self._frame = weakref.ref(frame)
        self.shift = Shift(frame)
        self._id = frame.GetId()
        self._line: deque[tuple[str, bool]] = deque()
        self._timer = wx.Timer()
        self._timer.Notify = self._deliver
        self._words: RedWords | None = None
        self._take = self.take  # one bound method: who takes scans is known by it
        scans.watch(self._take)
        frame.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)

    def set_gap(self, milliseconds: int) -> None:
        scans.set_gap(self._take, milliseconds)

    def take(self, text: str, whole: bool = True) -> None:
        self._line.append((text, whole))
        self._timer.StartOnce(1)

    def tell(self, words: str, near: wx.Window | None = None) -> None:
        """In red, with a sound; the next scan takes it away."""
        frame = self._frame()
        if not frame:
            return
        log.warning("Told: %s", words)
        if not self._words:
            self._words = RedWords(frame)
        self._words.tell(words, near or frame)

    def _deliver(self) -> None:
        """A question may open in here; the next scan is looked at inside its loop."""
        while self._line and self._frame():
            text, whole = self._line.popleft()
            if not whole:
                words = _("\u201c{text}\u201d was scanned with a gap, its beginning is missing. Scan it again.")
                self.tell(words.format(text=text))
                continue
            try:
                self._hand_over(text)
            except Exception:
                self.tell(_("The scan \u201c{text}\u201d could not be used.").format(text=text))
                raise
            finally:
                if self._line:
                    self._timer.StartOnce(1)

    def _hand_over(self, text: str) -> None:
        if self._words:
            self._words.Hide()
        frame = self._frame()
        if frame is None or self.shift.take_scan(text) or questions.answer(text):
            return
        entry = marked_entry(frame)
        if entry is None:
            words = _("\u201c{text}\u201d was scanned, but no cell is ready. It was not used.")
            self.tell(words.format(text=text))
            return
        cell = entry.GetParent()
        if cell._ui_is_asking():
            words = _("\u201c{text}\u201d was scanned, but {cell} waits for an answer. It was not used.")
            self.tell(words.format(text=text, cell=cell._ui_title()), cell)
            return
        cell._ui_take_scan(text)

    def _on_destroy(self, event: wx.WindowDestroyEvent) -> None:
        event.Skip()
        if event.GetId() == self._id:
            scans.leave(self._take)
            self._timer.Stop()
            self._line.clear()
