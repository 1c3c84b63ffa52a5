"""Tells keys that a person pressed on purpose from what a barcode scanner types into whatever window is on top."""

import time

import wx

# Keys within this time after a box appeared were meant for the window below it.
GUARD_SECONDS = 0.5
# A scanner's characters and its Enter (or two: CR and LF) come closer together than this.
BURST_SECONDS = 0.15

ENTER = (wx.WXK_RETURN, wx.WXK_NUMPAD_ENTER)


class TypedKeys:
    """What was typed since the box appeared or since the last Enter."""

    def __init__(self) -> None:
        self._opened = self._last = time.monotonic()
        self._text = ""

    def opened(self) -> None:
        """The box appears now."""
        self._opened = time.monotonic()
        self._text = ""

    def add(self, character: str) -> None:
        self._text += character
        self._last = time.monotonic()

    def take(self) -> str:
        """The text in front of an Enter."""
        text, self._text = self._text.strip(), ""
        self._last = time.monotonic()
        return text

    def forget(self) -> None:
        """A key that no scanner sends: what was typed before it is of no interest."""
        self._text = ""

    def guarded(self) -> bool:
        """Whether the box is too new for a key to be meant for it."""
        return time.monotonic() - self._opened < GUARD_SECONDS

    def deliberate(self) -> bool:
        """Whether a person pressed the key that arrives now, for this box."""
        return not self.guarded() and time.monotonic() - self._last >= BURST_SECONDS


def character_of(event: wx.KeyEvent) -> str:
    """The printable character of a key event, "" for others and for combinations with Ctrl or Alt."""
    code = event.GetUnicodeKey()
    if code < wx.WXK_SPACE or code == wx.WXK_DELETE or event.HasModifiers():
        return ""
    return chr(code)
