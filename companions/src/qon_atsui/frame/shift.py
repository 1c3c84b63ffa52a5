"""Once a shift the station asks who works at it, where its configuration says so."""

from __future__ import annotations

import time
import weakref

import wx
from qon_companions import session

from qon_atsui.dialogs.session import SessionDialog
from qon_atsui.keys import SessionRules

_LOOK_MS = 1000
_HOUR = 3600.0


class Shift:
    """Of one frame; GUI thread."""

    def __init__(self, frame: wx.Window) -> None:
        self._frame = weakref.ref(frame)
        self._id = frame.GetId()
        self._rules = SessionRules()
        self._dialog: SessionDialog | None = None
        self._ends = 0.0  # monotonic; when it is asked again
        self._leave = session.subscribe(self._changed)
        self._timer = wx.Timer()
        self._timer.Notify = self._look
        frame.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)

    def use(self, rules: SessionRules) -> None:
        """Those of the configuration; asked as soon as the window is up."""
        self._rules = rules
        session.use_badges(rules.badge)
        if (rules.ask_operator or rules.ask_batch) and not self._timer.IsRunning():
            self._timer.Start(_LOOK_MS)

    def take_scan(self, text: str) -> bool:
        """Whether it was a badge, or for a field of the window that asks."""
        return session.take_badge(text) or bool(self._dialog and self._dialog.take_scan(text))

    def ask(self) -> None:
        """The menu's command: by it both can be changed at any time."""
        self._show(True, True)

    def _look(self) -> None:
        frame = self._frame()
        if not frame or not frame.IsShownOnScreen() or time.monotonic() < self._ends or self._is_occupied():
            return
        if self._ends:  # nobody's work is recorded under the name of the shift before
            session.change(
                operator="" if self._rules.ask_operator else None, batch="" if self._rules.ask_batch else None
            )
        self._ends = time.monotonic() + self._rules.shift_hours * _HOUR
        self._show(self._rules.ask_operator, self._rules.ask_batch)

    def _changed(self, before: session.Session, after: session.Session) -> None:
        """Whoever comes early, or late, has a whole shift before them."""
        if after.operator and after.operator != before.operator and self._ends:
            self._ends = time.monotonic() + self._rules.shift_hours * _HOUR

    @staticmethod
    def _is_occupied() -> bool:
        """A question of a script comes first."""
        return any(isinstance(each, wx.Dialog) and each.IsModal() for each in wx.GetTopLevelWindows())

    def _show(self, operator: bool, batch: bool) -> None:
        if self._dialog:
            self._dialog.Raise()
            return
        self._dialog = SessionDialog(self._frame(), operator, batch)
        self._dialog.Show()

    def _on_destroy(self, event: wx.WindowDestroyEvent) -> None:
        event.Skip()
        if event.GetId() == self._id:
            self._timer.Stop()
            self._leave()
