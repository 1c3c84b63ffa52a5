"""`wx.CallAfter` for a station: test threads may post at any rate and the windows stay alive.

wx itself makes an event of each posted call and handles events until none is left.  Scripts of many cells post
faster than that ends: no timer, click or repaint gets its turn meanwhile.  It also lets go of the interpreter
five times in each call, which with a hundred test threads is a hundred chances to wait for all others.

Here the calls wait in one line with one event for all of them, and are made for a while at a time with the
event loop's other work in between.  Their order and meaning are those of `wx.CallAfter`.
"""

import sys
import threading
import time
from collections import deque
from collections.abc import Callable
from typing import Any

import wx
import wx.siplib

SLICE_SECONDS = 0.010
_PAUSE_MS = 1  # long enough for what else waits in the loop: input and painting

_original = wx.CallAfter


class PostedCalls:
    """Stands for `wx.CallAfter`.  Called in any thread; everything else belongs to the GUI thread."""

    def __init__(self) -> None:
        self._calls: deque[tuple[Callable[..., Any], tuple[Any, ...], dict[str, Any]]] = deque()
        self._app: wx.App | None = wx.GetApp()
        self._renewing = threading.Lock()
        self._timer: wx.Timer | None = None
        self._awake = False  # an event or the timer will make the calls that wait

    def __call__(self, callableObj: Callable[..., Any], *args: Any, **kw: Any) -> None:
        if not callable(callableObj):
            raise AssertionError("callableObj is not callable")  # noqa: TRY004 - what wx raises
        if self._app_is_gone():
            self._renew()
        self._calls.append((callableObj, args, kw))
        if not self._awake:
            self._wake()

    def _app_is_gone(self) -> bool:
        """Unlike `wx.GetApp` this does not let go of the interpreter."""
        return self._app is None or bool(wx.siplib.isdeleted(self._app))

    def _renew(self) -> None:
        """What was posted to an application that has gone is gone with it."""
        with self._renewing:
            if self._app_is_gone():
                self._calls.clear()
                self._timer = None
                self._awake = False
                self._app = wx.GetApp()

    def _wake(self) -> None:
        """Two threads may come here at once: the second event finds nothing left to do."""
        self._awake = True
        try:
            _original(self._make)
        except AssertionError:  # there is no application
            self._calls.clear()
            self._awake = False
            raise

    def _make(self) -> None:
        """Make the calls that wait, for one slice of time."""
        if self._timer is None:
            self._timer = wx.Timer()
            self._timer.Notify = self._make
        self._timer.StartOnce(_PAUSE_MS)  # goes on inside the loop of a dialog that one of the calls shows
        end = time.perf_counter() + SLICE_SECONDS
        while self._calls:
            function, args, kw = self._calls.popleft()
            try:
                function(*args, **kw)
            except Exception:  # noqa: BLE001 - told as any handler's; the next call does not suffer
                sys.excepthook(*sys.exc_info())
            if time.perf_counter() > end:
                self._timer.StartOnce(_PAUSE_MS)
                return
        self._timer.Stop()
        self._awake = False
        if self._calls:  # posted between the last look and the line above
            self._wake()


def install() -> None:
    """From now on `wx.CallAfter` of this process; a replacement that somebody else has put there stays."""
    if wx.CallAfter is _original:
        wx.CallAfter = PostedCalls()
