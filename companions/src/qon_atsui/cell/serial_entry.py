"""The serial number entry of a cell, and who of several cells gets the keyboard.

The engine asks for the focus when a test has ended.  It gets it unless somebody is typing elsewhere; then
the entry waits for its turn.  An entry that is disabled because its test starts passes the focus on, whether Enter
or a click on the start button started it: the next scan belongs to the next cell.
"""

from __future__ import annotations

import time
import weakref
from collections.abc import Callable

import wx
import wx.stc
from qon_companions.gui_thread import is_gui_thread

# A scanner may end a number with CR and LF: the second must not start the cell that got the focus meanwhile.
_ECHO_SECONDS = 0.15

_entries: weakref.WeakSet[SerialEntry] = weakref.WeakSet()
_last_used: list[weakref.ref[SerialEntry]] = []  # at most one: the entry that had the focus last


class SerialEntry(wx.TextCtrl):
    """`GetValue` may be called from any thread; everything else from the GUI thread."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent, style=wx.TE_PROCESS_ENTER)
        self._copy = ""  # what other threads read
        self._clearing = False
        self.waits_since = 0.0  # asked for the focus in vain; 0 when it did not
        self._given = 0.0
        self.after_typing: wx.Window | None = None  # where the focus goes when no other entry wants it
        self.changed: Callable[[str], None] | None = None  # called with a text that was typed or set
        self.switched: Callable[[bool], None] | None = None  # called when enabled or disabled
        self.Bind(wx.EVT_TEXT, self._on_text)
        self.Bind(wx.EVT_SET_FOCUS, self._on_focus)
        _entries.add(self)

    def GetValue(self) -> str:
        return str(super().GetValue()) if is_gui_thread() else self._copy

    def SetValue(self, value: str) -> None:
        super().SetValue(value)
        self._copy = value

    def Clear(self) -> None:
        """The number of the last unit stays in the cell's head line."""
        self._clearing = True
        super().Clear()
        self._clearing = False
        self._copy = ""

    def Enable(self, enable: bool = True) -> bool:
        holder = wx.Window.FindFocus()
        focused = not enable and holder is not None and holder in (self, self.after_typing)
        result = bool(super().Enable(enable))
        if self.switched is not None:
            self.switched(enable)
        if focused:
            self._pass_on()
        return result

    def Disable(self) -> bool:
        return self.Enable(False)

    def SetFocus(self) -> None:
        if may_take_focus(self):
            self._take()
        elif not self.waits_since:
            self.waits_since = time.monotonic()

    def is_echo(self) -> bool:
        """Whether an Enter that arrives now is the tail of what another entry got."""
        return not self.GetValue() and time.monotonic() - self._given < _ECHO_SECONDS

    def _take(self) -> None:
        self.waits_since = 0.0
        self._given = time.monotonic()
        super().SetFocus()
        self.SelectAll()

    def _pass_on(self) -> None:
        """To the entry that waits longest, else to the next ready cell's, else to this cell's own buttons."""
        if settle_focus(self):
            return
        following = [entry for entry in _neighbours(self) if not entry.GetValue()]
        if following:
            following[0]._take()
        elif self.after_typing is not None:
            self.after_typing.SetFocus()

    def _on_text(self, event: wx.CommandEvent) -> None:
        self._copy = str(super().GetValue())
        if self.changed is not None and not self._clearing:
            self.changed(self._copy)
        event.Skip()

    def _on_focus(self, event: wx.FocusEvent) -> None:
        self.waits_since = 0.0
        _last_used[:] = [weakref.ref(self)]
        event.Skip()


def _usable(entry: SerialEntry, like: wx.Window) -> bool:
    return (
        bool(entry)
        and entry.IsEnabled()
        and entry.IsShownOnScreen()
        and wx.GetTopLevelParent(entry) is wx.GetTopLevelParent(like)
    )


def _neighbours(entry: SerialEntry) -> list[SerialEntry]:
    """The other usable entries of the window, in the order of the screen, from this one on and around."""
    others = [other for other in _entries if other is not entry and _usable(other, entry)]
    here = _place(entry)
    return sorted(others, key=lambda other: (_place(other) < here, _place(other)))


def _place(window: wx.Window) -> tuple[int, int]:
    """Where it stands in its top-level window.  The screen position would cost a question to the display each."""
    x = y = 0
    while not window.IsTopLevel():
        position = window.GetPosition()
        x, y = x + position.x, y + position.y
        window = window.GetParent()
    return y, x


def next_entry(window: wx.Window) -> None:
    """Move the focus to the next usable entry of this window (a keyboard command)."""
    holder = wx.Window.FindFocus()
    start = next(
        (entry for entry in _entries if entry and holder and holder.GetParent() is entry.GetParent()), None
    )
    if start is None:
        usable = sorted((entry for entry in _entries if _usable(entry, window)), key=_place)
    else:
        usable = _neighbours(start)
    if usable:
        usable[0]._take()


def settle_focus(window: wx.Window) -> bool:
    """Give the focus to the entry that waits longest for it, if nobody types; whether one got it."""
    waiting = [entry for entry in _entries if window and entry.waits_since and _usable(entry, window)]
    if not waiting:
        return False
    first = min(waiting, key=lambda entry: entry.waits_since)
    if not may_take_focus(first):
        return False
    first._take()
    return True


def may_take_focus(entry: SerialEntry) -> bool:
    """Not while a number is typed in another entry, a shell is in use or another window is on top."""
    holder = wx.Window.FindFocus()
    if holder is entry:
        return True
    if holder is None or not (holder.IsEnabled() and holder.IsShownOnScreen()):  # a box went, or its test starts
        return not _is_half_typed_elsewhere(entry)
    if wx.GetTopLevelParent(holder) is not wx.GetTopLevelParent(entry):
        return False
    if isinstance(holder, SerialEntry):
        return not holder.GetValue()
    if isinstance(holder, wx.stc.StyledTextCtrl):
        return bool(holder.GetReadOnly())
    return not (isinstance(holder, wx.TextCtrl) and holder.IsEditable() and holder.GetValue())


def _is_half_typed_elsewhere(entry: SerialEntry) -> bool:
    """Whether a box took the focus from another entry's number, which wants to be gone on with."""
    last = _last_used[0]() if _last_used else None
    return last is not None and last is not entry and _usable(last, entry) and bool(last.GetValue())
