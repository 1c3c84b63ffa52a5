"""Hands the station's notices to the windows that show them, in the GUI thread, many changes at once."""

from __future__ import annotations

import threading
import weakref

import wx
from qon_companions import notices
from qon_companions.gui_thread import post


class NoticeBoard:
    """A window that watches is told by its `_ui_notices`."""

    def __init__(self) -> None:
        self._windows: weakref.WeakSet[wx.Window] = weakref.WeakSet()
        self._lock = threading.Lock()
        self._due = False
        notices.subscribe(self._changed)

    def watch(self, window: wx.Window) -> None:
        self._due = False  # what was posted to an application that has gone never comes
        self._windows.add(window)
        window._ui_notices()

    def _changed(self) -> None:
        """Any thread."""
        with self._lock:
            due, self._due = self._due, True
        if not due:
            post(self._show)

    def _show(self) -> None:
        self._due = False  # first: a change from here on is shown once more
        for window in list(self._windows):
            if window:
                window._ui_notices()


_board: NoticeBoard | None = None


def watch(window: wx.Window) -> None:
    """From now on, until it is destroyed; it is told what holds now, too.  GUI thread."""
    global _board
    if _board is None:
        _board = NoticeBoard()
    _board.watch(window)
