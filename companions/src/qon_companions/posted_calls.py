"""`wx.CallAfter` for a station: test threads may post at any rate and the windows stay alive.

wx itself makes an event of each posted call and handles events until none is left.  Scripts of many cells post
faster than that ends: no timer, click or repaint gets its turn meanwhile.  It also lets go of the interpreter
five times in each call, which with a hundred test threads is a hundred chances to wait for all others.

Here the calls wait in one line with one event for all of them, and are made for a while at a time with the
event loop's other work in between.  Their order and meaning are those of `wx.CallAfter`; only a script's
question waits while a box is open (`boxes/asking.py`).

A script that prints faster than the log page can show it would fill the memory: with `MOST_WAITING` calls of its
thread in the line a test thread waits until a quarter of them was made.  That wait is a check point for abort and
pause.  The GUI thread never waits, nor does a cleanup: switching off comes before showing.
"""

import sys
import threading
import time
from collections import deque
from collections.abc import Callable
from typing import Any

import wx
import wx.siplib

from .boxes import asking
from .check_points import cell_of_thread, check_point, is_ending

SLICE_SECONDS = 0.010
_PAUSE_MS = 1  # long enough for what else waits in the loop: input and painting
MOST_WAITING = 10_000
_GO_ON_AT = MOST_WAITING * 3 // 4
_LOOK_SECONDS = 0.01

_original = wx.CallAfter


class _Poster:
    """What one test thread has posted, counted by it alone, and what of it was made, counted by the GUI thread."""

    __slots__ = ("cell", "made", "posted")

    def __init__(self, cell: Any) -> None:
        self.cell = cell
        self.posted = self.made = 0


class _OfThread(threading.local):
    """Each thread its own; None in a thread that is not a cell's."""

    def __init__(self) -> None:
        cell = cell_of_thread()
        self.poster = None if cell is None else _Poster(cell)


class PostedCalls:
    """Stands for `wx.CallAfter`.  Called in any thread; everything else belongs to the GUI thread."""

    def __init__(self) -> None:
        self._calls: deque[tuple[Callable[..., Any], tuple[Any, ...], dict[str, Any], _Poster | None]] = (
            deque()
        )
        self._of_thread = _OfThread()
        self._app: wx.App | None = wx.GetApp()
        self._renewing = threading.Lock()
        self._timer: wx.Timer | None = None
        self._awake = False  # an event or the timer will make the calls that wait

    def __call__(self, callableObj: Callable[..., Any], *args: Any, **kw: Any) -> None:
        if not callable(callableObj):
            raise AssertionError("callableObj is not callable")  # noqa: TRY004 - what wx raises
        if self._app_is_gone():
            self._renew()
        poster = self._of_thread.poster
        if poster is not None:
            if poster.posted - poster.made >= MOST_WAITING:
                self._wait(poster)
            poster.posted += 1
        self._calls.append((callableObj, args, kw, poster))
        if not self._awake:
            self._wake()

    def _wait(self, poster: _Poster) -> None:
        """Until the GUI thread has caught up, as long as there is one; raises what an abort raises."""
        cell = poster.cell
        while poster.posted - poster.made > _GO_ON_AT and not is_ending(cell):
            check_point(cell)
            if self._app_is_gone() or not threading.main_thread().is_alive():
                return
            if not self._calls:  # those that went with an earlier application are not made any more
                poster.made = poster.posted
            time.sleep(_LOOK_SECONDS)

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
            function, args, kw, poster = self._calls.popleft()
            if poster is not None:
                poster.made += 1
            try:
                if asking.has_to_wait(function):
                    continue
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
