"""The serial number entry of a cell, and the mark: which of several cells takes the next scan.

The mark moves when its cell starts, to the next ready cell by number, and by a click, Tab or F4.  When no cell is
ready the next one that is gets it.  A cell that becomes ready while another one has the mark leaves it there.
The keyboard follows the mark unless somebody is typing elsewhere; then the entry waits for its turn.
"""

from __future__ import annotations

import time
import weakref
from collections.abc import Callable

import wx
import wx.stc
from qon_companions.gui_thread import is_gui_thread

# A short number may end with CR and LF: the second must not start the cell that got the focus meanwhile.
_ECHO_SECONDS = 0.15

_entries: weakref.WeakSet[SerialEntry] = weakref.WeakSet()
# The marked entry of each window.
_marked: weakref.WeakKeyDictionary[wx.Window, weakref.ref[SerialEntry]] = weakref.WeakKeyDictionary()


class SerialEntry(wx.TextCtrl):
    """`GetValue` may be called from any thread; everything else from the GUI thread."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent, style=wx.TE_PROCESS_ENTER)
        self._copy = ""  # what other threads read
        self._clearing = False
        self._given = 0.0
        self.waits = False  # asked for the keyboard in vain
        self.after_typing: wx.Window | None = None  # where the keyboard goes when no cell is ready
        self.changed: Callable[[str], None] | None = None  # called with a text that was typed or set
        self.switched: Callable[[bool], None] | None = None  # called when enabled or disabled
        self.mark_changed: Callable[[], None] | None = (
            None  # called when this entry was marked, or another one
        )
        self.Bind(wx.EVT_TEXT, self._on_text)
        _entries.add(self)
        if marked_entry(self) is None:
            mark(self)

    @property
    def marked(self) -> bool:
        """Whether the next scan is for this cell."""
        return marked_entry(self) is self

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
        if enable and marked_entry(self) is None:
            mark(self)
        elif not enable and self.marked:
            following = _neighbours(self)
            mark(following[0] if following else None, self)
            if following:
                following[0].waits = True
                if holder is None or wx.GetTopLevelParent(holder) is not wx.GetTopLevelParent(self):
                    wx.CallAfter(settle_focus, self)  # a box had it, which asked before the start
        if focused:
            self._pass_on()
        return result

    def Disable(self) -> bool:
        return self.Enable(False)

    def SetFocus(self) -> None:
        """Asked for when a test has ended: the keyboard belongs to the mark."""
        if not self.marked:
            return
        self.waits = True
        settle_focus(self)

    def is_echo(self) -> bool:
        """Whether an Enter that arrives now is the tail of what another entry got."""
        return not self.GetValue() and time.monotonic() - self._given < _ECHO_SECONDS

    def _take(self) -> None:
        """What is typed behind a half-typed number goes on with it."""
        self.waits = False
        self._given = time.monotonic()
        super().SetFocus()
        self.SetInsertionPointEnd()

    def _pass_on(self) -> None:
        """To the marked entry, else to this cell's own buttons."""
        following = marked_entry(self)
        if following is not None:
            following._take()
        elif self.after_typing is not None:
            self.after_typing.SetFocus()

    def _on_text(self, event: wx.CommandEvent) -> None:
        self._copy = str(super().GetValue())
        if self.changed is not None and not self._clearing:
            self.changed(self._copy)
        event.Skip()


def marked_entry(window: wx.Window) -> SerialEntry | None:
    """The entry that takes the next scan, of the window that this one is in."""
    reference = _marked.get(wx.GetTopLevelParent(window))
    entry = reference() if reference is not None else None
    return entry if entry and not entry.IsBeingDeleted() else None


def mark(entry: SerialEntry | None, window: wx.Window | None = None) -> None:
    """The next scan is for this entry; None for no entry of the window."""
    at = entry or window
    if at is None:
        return
    before = marked_entry(at)
    top = wx.GetTopLevelParent(at)
    if entry is None:
        _marked.pop(top, None)
    else:
        _marked[top] = weakref.ref(entry)
    for changed in (before, entry):
        if changed is not None and before is not entry and changed.mark_changed is not None:
            changed.mark_changed()


def choose(entry: SerialEntry) -> None:
    """The operator went to this cell, by a click or the Tab key; one that is busy has no use for a scan."""
    if entry.IsThisEnabled():
        mark(entry)


def _usable(entry: SerialEntry, like: wx.Window) -> bool:
    return (
        bool(entry)
        and not entry.IsBeingDeleted()
        and bool(entry.IsThisEnabled())
        and wx.GetTopLevelParent(entry) is wx.GetTopLevelParent(like)
    )


def _neighbours(entry: SerialEntry) -> list[SerialEntry]:
    """The other usable entries of the window, in the order of the cells' numbers, from this one on and around."""
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
    """Move mark and keyboard to the next usable entry of this window (a keyboard command)."""
    start = marked_entry(window)
    usable = _neighbours(start) if start is not None else []
    following = usable[0] if usable else start
    if following is not None and _usable(following, window):
        mark(following)
        following._take()


def settle_focus(window: wx.Window) -> bool:
    """Give the keyboard to the marked entry if that waits for it and nobody types; whether it got it."""
    entry = marked_entry(window) if window else None
    if entry is None or not entry.waits or not entry.IsEnabled() or not may_take_focus(entry):
        return False
    entry._take()
    return True


def may_take_focus(entry: SerialEntry) -> bool:
    """Not while a text is typed elsewhere, a shell is in use or another window is on top."""
    holder = wx.Window.FindFocus()
    if holder is entry or holder is None:
        return True
    if not (holder.IsEnabled() and holder.IsShownOnScreen()):  # a box went, or its own test starts
        return True
    if wx.GetTopLevelParent(holder) is not wx.GetTopLevelParent(entry):
        return False
    if isinstance(holder, SerialEntry):
        return not holder.GetValue()
    if isinstance(holder, wx.stc.StyledTextCtrl):
        return bool(holder.GetReadOnly())
    return not (isinstance(holder, wx.TextCtrl) and holder.IsEditable() and holder.GetValue())
