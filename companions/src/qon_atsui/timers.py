"""One-shot timers that end with their window."""

from __future__ import annotations

import weakref
from collections.abc import Callable

import wx

from qon_atsui.handlers import relay


class OneShotTimer(wx.Timer):
    """A timer whose event goes to the owner's handler of a given name.

    Owned by its window: once the window is destroyed the timer is stopped and cannot be armed any more, since
    an event for a dead window ends the process.

    Where the owner's predicate `behind_posted_calls` holds, the event takes its turn behind the calls posted
    so far.  A due timer is served before those: without this, what a test thread posts last would be handled
    after the tick that sees the thread done, and stand over the verdict.
    """

    def __init__(self, owner: wx.Window, handler: str, behind_posted_calls: str = "") -> None:
        super().__init__(owner)
        self._ended = False
        self._owner_id = owner.GetId()
        self._owner = weakref.ref(owner)
        self._forward = relay(owner, handler)
        self._waits = behind_posted_calls
        self.before: Callable[[], None] | None = None  # called before the handler
        owner.Bind(wx.EVT_TIMER, self._on_due, self)
        owner.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)

    def StartOnce(self, milliseconds: float = -1) -> bool:
        """Arm for so many milliseconds, fractions rounded, at least 1; False once the window is gone."""
        if self._ended:
            return False
        if milliseconds >= 0:
            milliseconds = max(1, round(milliseconds))
        return bool(super().StartOnce(int(milliseconds)))

    def _on_due(self, event: wx.TimerEvent) -> None:
        if self.before is not None:
            self.before()
        waits = getattr(self._owner(), self._waits, None) if self._waits else None
        if waits is not None and waits():
            wx.CallAfter(self._forward, event.Clone())  # wx frees the one at hand on return
        else:
            self._forward(event)

    def _on_destroy(self, event: wx.WindowDestroyEvent) -> None:
        event.Skip()
        if event.GetId() == self._owner_id:  # children announce their end here too
            self._ended = True
            self.Stop()
