"""One-shot timers that end with their window."""

from __future__ import annotations

import wx

from qon_atsui.handlers import relay


class OneShotTimer(wx.Timer):
    """A timer whose event goes to the owner's handler of a given name.

    Owned by its window: once the window is destroyed the timer is stopped and cannot be armed any more, since
    an event for a dead window ends the process.
    """

    def __init__(self, owner: wx.Window, handler: str) -> None:
        super().__init__(owner)
        self._ended = False
        self._owner_id = owner.GetId()
        owner.Bind(wx.EVT_TIMER, relay(owner, handler), self)
        owner.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)

    def StartOnce(self, milliseconds: float = -1) -> bool:
        """Arm for so many milliseconds, fractions rounded, at least 1; False once the window is gone."""
        if self._ended:
            return False
        if milliseconds >= 0:
            milliseconds = max(1, round(milliseconds))
        return bool(super().StartOnce(int(milliseconds)))

    def _on_destroy(self, event: wx.WindowDestroyEvent) -> None:
        event.Skip()
        if event.GetId() == self._owner_id:  # children announce their end here too
            self._ended = True
            self.Stop()
