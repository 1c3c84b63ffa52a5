"""One box after the other: a box that is asked for while another one is open waits, unseen, for its turn.

A box that belongs to a cell leaves the station usable: other cells go on, and all tests can be aborted while it is
open.  The other ones are modal.

All of this runs in the GUI thread.  `ShowModal` turns the event loop until the answer is there, so a second call
stands above the first one on the stack, and the first cannot return before it.  Therefore whoever stands on top
shows the boxes of all others in the order they were asked for.  (Questions of scripts do not even start while
another box is open: see `asking.py`.)
"""

import time
from collections.abc import Callable
from typing import Protocol

import wx

from . import loops

# A double tap on one box must not answer the next one.
PAUSE_SECONDS = 0.3
# A scanner's characters come closer together than this; a box must not cut its text in two.
QUIET_SECONDS = 0.08
_POLL_MS = 20


class Listener(Protocol):
    """Whoever shows which cell waits for the operator."""

    def asked(self, box: "TurnDialog") -> None:
        """The box is asked for; its turn may come later."""

    def answered(self, box: "TurnDialog") -> None:
        """It has its answer; its caller may have to wait for the boxes above it."""


_asked: list["TurnDialog"] = []
listeners: list[Listener] = []
_last_answer = 0.0


class TurnDialog(wx.Dialog):
    """A dialog whose `ShowModal` waits for its turn.  It outlives its parent: then it answers wx.ID_CANCEL."""

    def __init__(self, parent: wx.Window | None, title: str, style: int = wx.DEFAULT_DIALOG_STYLE) -> None:
        super().__init__(parent, title=title, style=style)
        loops.watch()
        self.of_cell = False  # belongs to a cell: the rest of the station stays usable
        self._answer: int | None = None
        self._on_screen = False
        self._shelter: wx.Frame | None = None
        self._parents = _line_of(parent)
        for window in self._parents:
            window.Bind(wx.EVT_WINDOW_DESTROY, self._on_parent_gone)

    def ShowModal(self) -> int:
        _asked.append(self)
        self._answer = None
        try:
            for listener in listeners:
                listener.asked(self)
            while self._answer is None:
                _wait(lambda: self._answer is not None or _next() is not None)
                box = _next()
                if self._answer is None and box is not None:
                    box._show()
        finally:
            _asked.remove(self)
        loops.left()
        return self._answer

    def IsModal(self) -> bool:
        return bool(super().IsModal()) or (self._on_screen and self._answer is None)

    def EndModal(self, answer: int) -> None:
        global _last_answer
        if self._answer is None:
            self._answer = answer
            _last_answer = time.monotonic()
            for listener in listeners:
                listener.answered(self)
        if super().IsModal():
            super().EndModal(answer)
        else:
            self._on_screen = False
            self.Hide()
            wx.CallAfter(_give_back_keyboard, self._parents[-1] if self._parents else None)

    def about_to_show(self) -> None:
        """For subclasses: the box's turn has come; `others_waiting` is right now."""

    def is_shown(self) -> None:
        """For subclasses: the box is on the screen."""

    def others_waiting(self) -> list[str]:
        """Titles of the boxes that were answered and go on when this one is answered too."""
        return [box.GetTitle() for box in _asked if box is not self and box._answer is not None]

    def Destroy(self) -> bool:
        for window in self._parents:
            if window:
                window.Unbind(wx.EVT_WINDOW_DESTROY, handler=self._on_parent_gone)
        if self._shelter:
            return bool(self._shelter.Destroy())
        return bool(super().Destroy())

    def _show(self) -> None:
        self._on_screen = True
        self.about_to_show()
        if self.of_cell and not _modal_dialog():
            self.Show()
            self.Raise()
            self._is_shown()
            return
        wx.CallAfter(self._is_shown)
        try:
            answer = super().ShowModal()
        finally:
            self._on_screen = False
        if self._answer is None:  # the loop was broken off, nobody answered
            self._answer = answer or wx.ID_CANCEL
        if self._shelter:
            wx.CallAfter(_exit_without_windows)

    def _is_shown(self) -> None:
        if self and self._on_screen:
            self.is_shown()

    def _on_parent_gone(self, event: wx.WindowDestroyEvent) -> None:
        """Leave the parent before it takes this dialog along: its `ShowModal` is running, or will be."""
        event.Skip()
        gone = event.GetWindow().GetId()
        if self and not self._shelter and any(window.GetId() == gone for window in self._parents if window):
            self._parents = []
            self._shelter = wx.Frame(None, style=wx.FRAME_NO_TASKBAR)
            self.Reparent(self._shelter)
            self.EndModal(wx.ID_CANCEL)
            wx.CallAfter(_exit_without_windows)


def box_is_open() -> bool:
    """Whether a box is open, waits for its turn, or was answered and has to wait for one above it."""
    return bool(_asked) or _is_typing()


def station_window() -> wx.Window | None:
    """The window that a box without a parent of its own belongs to: a modal dialog in use, else the main window."""
    windows = [
        window for window in wx.GetTopLevelWindows() if window.IsShown() and not window.IsBeingDeleted()
    ]
    modal = [window for window in windows if isinstance(window, wx.Dialog) and window.IsModal()]
    for window in (*reversed(modal), wx.GetApp().GetTopWindow(), wx.GetActiveWindow(), *windows):
        if window in windows and not isinstance(window, TurnDialog):
            return window
    return None


def _next() -> TurnDialog | None:
    """The box whose turn it is; None while another one is in use, and for a moment after an answer.

    A box of no cell is what the operator asked for in the station's window: it does not wait for those of cells.
    """
    waiting = [box for box in _asked if box and box._answer is None]
    shown = [box for box in waiting if box._on_screen]
    if not waiting or time.monotonic() - _last_answer < PAUSE_SECONDS or _is_typing():
        return None
    if not all(box.of_cell for box in shown):
        return None
    hidden = [box for box in waiting if not box._on_screen and not (shown and box.of_cell)]
    return hidden[0] if hidden else None


def _is_typing() -> bool:
    """wx's own dialog for a text is in use."""
    return any(
        isinstance(window, wx.TextEntryDialog) and window.IsModal() for window in wx.GetTopLevelWindows()
    )


def _modal_dialog() -> bool:
    """A box that is not modal could not be reached beside a modal dialog."""
    windows = [window for window in wx.GetTopLevelWindows() if isinstance(window, wx.Dialog)]
    return any(wx.Dialog.IsModal(window) for window in windows)


def _wait(ready: Callable[[], bool]) -> None:
    """Run the event loop until ready, and until the scanner is quiet.

    The loop that is active already is turned on: leaving one of our own would have to end it, and ending loops is
    what other dialogs do meanwhile.
    """
    loop = wx.EventLoopBase.GetActive()
    activator = None
    if loop is None:
        loop = wx.GUIEventLoop()
        activator = wx.EventLoopActivator(loop)
    keyboard = _Keyboard()
    while not (ready() and keyboard.quiet()):
        if loop.DispatchTimeout(_POLL_MS) < 0:
            loop.ProcessIdle()
        wx.GetApp().ProcessPendingEvents()
    del activator


class _Keyboard:
    """Notices that a text is being typed in the control that has the focus."""

    def __init__(self) -> None:
        self._text = self._typed()
        self._since = time.monotonic()

    def quiet(self) -> bool:
        text = self._typed()
        if text != self._text:
            self._text, self._since = text, time.monotonic()
        return not text or time.monotonic() - self._since >= QUIET_SECONDS

    def _typed(self) -> str:
        control = wx.Window.FindFocus()
        if isinstance(control, wx.TextCtrl) and control.IsEditable():
            return str(control.GetValue())
        return ""


def _line_of(window: wx.Window | None) -> list[wx.Window]:
    line = []
    while window is not None:
        line.append(window)
        window = None if window.IsTopLevel() else window.GetParent()
    return line


def _give_back_keyboard(window: wx.Window | None) -> None:
    """To the window that the box stood over: without a window manager nobody else does."""
    active = wx.GetActiveWindow()
    if window and not window.IsBeingDeleted() and not (active and active.IsShown()):
        window.Raise()


def _exit_without_windows() -> None:
    """A main window that went while a box was open could not end the main loop."""
    app = wx.GetApp()
    if app and app.GetExitOnFrameDelete() and not any(w.IsShown() for w in wx.GetTopLevelWindows()):
        app.ExitMainLoop()
