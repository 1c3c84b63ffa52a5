"""Keys of a program on desktops where they cannot be held back before a window sees them.

They are looked at on their way.  The Enter that ends a scan goes no further, and a text field gets back what stood
in it before the scan.
"""

import time
from collections.abc import Callable

import wx
import wx.stc

from .run import Run

_ENTER = (wx.WXK_RETURN, wx.WXK_NUMPAD_ENTER)


class WxKeys(Run):
    """Installed for the rest of the process."""

    def __init__(self) -> None:
        super().__init__()
        self._filter = _Filter(self._pressed, self._written, self._released)
        self._undo: Callable[[], None] = _nothing

    def _pressed(self, event: wx.KeyEvent) -> bool:
        """Every key comes here first; whether it goes no further."""
        ms, key = event.GetTimestamp() & 0xFFFFFFFF, event.GetKeyCode()
        if self.take is None or event.HasModifiers():
            self._forget()
        elif key in _ENTER or (key == wx.WXK_TAB and not event.ShiftDown()):
            text = self._end(ms)
            if text:
                self._undo()
                self.take(text, not self._torn)
                return True
            if key == wx.WXK_TAB:
                self._tab = time.monotonic()
            return self._is_tail(ms)
        elif key == wx.WXK_SHIFT:
            self._shift(ms)
        elif self._is_repeat(key):
            self._forget()
        return False

    def _written(self, event: wx.KeyEvent) -> None:
        """The character of a key, before it is written."""
        ms, code = event.GetTimestamp() & 0xFFFFFFFF, event.GetUnicodeKey()
        if self.take is None or event.HasModifiers() or code < wx.WXK_SPACE or not chr(code).isprintable():
            self._forget()
            return
        if not self._belongs(ms):
            self._forget()
            self._undo = _undo_of(wx.Window.FindFocus())
        self._character(chr(code), ms)


class _Filter(wx.EventFilter):
    """Sees every event of wx, so it asks for its type first."""

    def __init__(
        self,
        pressed: Callable[[wx.KeyEvent], bool],
        written: Callable[[wx.KeyEvent], None],
        released: Callable[[int], None],
    ) -> None:
        super().__init__()
        self._pressed, self._written, self._released = pressed, written, released
        wx.EvtHandler.AddFilter(self)

    def FilterEvent(self, event: wx.Event) -> int:
        kind = event.GetEventType()
        if kind == wx.wxEVT_CHAR_HOOK and self._pressed(event):
            return int(self.Event_Processed)
        if kind == wx.wxEVT_CHAR:
            self._written(event)
        elif kind == wx.wxEVT_KEY_UP:
            self._released(event.GetKeyCode())
        return int(self.Event_Skip)


def _nothing() -> None:
    pass


def _undo_of(window: wx.Window | None) -> Callable[[], None]:
    """What puts the window back to how it is now."""
    if isinstance(window, (wx.TextCtrl, wx.ComboBox)) and window.IsEditable():
        value, at = window.GetValue(), window.GetInsertionPoint()

        def put_back() -> None:
            if window:
                window.SetValue(value)
                window.SetInsertionPoint(at)

        return put_back
    if isinstance(window, wx.stc.StyledTextCtrl):
        start = window.GetCurrentPos()
        return lambda: window and window.DeleteRange(start, max(0, window.GetCurrentPos() - start))
    return _nothing
