"""Keys of a GTK 3 program before any of its windows sees them: those that may be a scan wait for the next one.

GTK calls a key snooper with each key event, also of menus and of the boxes that are GTK's own.  A character waits
in a copy of its event until it is clear that nobody scans; then the copies are handed to GTK as if they came now,
and everything behind them (input methods, accelerators, mnemonics) works as ever.  What turns out to be a scan is
never handed on.
"""

import ctypes
import logging
import time
from collections import deque

import wx

from .run import Run

log = logging.getLogger(__name__)

_PRESS = 8
_SHIFT = 1
_COMMAND = 1 << 2 | 1 << 3 | 1 << 26 | 1 << 28  # Control, Alt, Super, Meta
_ENTER = {0xFF0D, 0xFF8D, 0xFE34, 0xFF0A}  # Return, of the number pad, ISO; Linefeed
_TAB = {0xFF09, 0xFF89}
_MODIFIERS = {0xFF7E, 0xFF7F, 0xFFE1, 0xFFE2, 0xFFE3, 0xFFE4, 0xFFE5, 0xFFE6, *range(0xFE01, 0xFE14)}
_LOOKS = 50  # so often the keys that are on their way are waited for


class _KeyEvent(ctypes.Structure):
    """GdkEventKey of GTK 3."""

    _fields_ = (
        ("type", ctypes.c_int),
        ("window", ctypes.c_void_p),
        ("send_event", ctypes.c_int8),
        ("time", ctypes.c_uint32),
        ("state", ctypes.c_uint),
        ("keyval", ctypes.c_uint),
        ("length", ctypes.c_int),
        ("string", ctypes.c_void_p),
        ("hardware_keycode", ctypes.c_uint16),
    )


_Snooper = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.POINTER(_KeyEvent), ctypes.c_void_p)


class GtkKeys(Run):
    """Installed for the rest of the process."""

    def __init__(self) -> None:
        super().__init__()
        self._gtk = ctypes.CDLL("libgtk-3.so.0")
        self._gdk = ctypes.CDLL("libgdk-3.so.0")
        self._gdk.gdk_event_copy.restype = ctypes.c_void_p
        self._gdk.gdk_event_copy.argtypes = [ctypes.POINTER(_KeyEvent)]
        self._gdk.gdk_event_free.argtypes = [ctypes.c_void_p]
        self._gtk.gtk_main_do_event.argtypes = [ctypes.c_void_p]
        self._gdk.gdk_keyval_to_unicode.restype = ctypes.c_uint32
        self._held: deque[tuple[int, int]] = deque()  # copies of events, each with its key
        self._taken: set[int] = set()  # keys of a scan, not released yet
        self._handing_on = False
        self._looks = 0
        self._timer: wx.Timer | None = None
        self._snooper = _Snooper(self._snoop)
        self._gtk.gtk_key_snooper_install(self._snooper, None)

    def _snoop(self, _widget: int, pointer: "ctypes._Pointer[_KeyEvent]", _data: int) -> int:
        """1 keeps the event from everything else."""
        if self._handing_on:
            self._handing_on = False
            return 0
        if self.take is None and not self._held:
            return 0
        try:
            event = pointer.contents
            held = self._pressed(pointer, event) if event.type == _PRESS else self._let_go(pointer, event)
        except Exception:  # GTK would only print it; keys must go on working
            log.exception("A key was not looked at.")
            return 0
        return int(held)

    def _pressed(self, pointer: "ctypes._Pointer[_KeyEvent]", event: _KeyEvent) -> bool:
        ms = event.time or int(time.monotonic() * 1000) & 0xFFFFFFFF  # events of programs may have none
        key, symbol = event.hardware_keycode, event.keyval
        if symbol in _MODIFIERS:
            self._shift(ms)
            return False
        command = event.state & _COMMAND
        repeat = self._is_repeat(key)
        if symbol in _ENTER or (symbol in _TAB and not event.state & _SHIFT):
            return self._ended_by(key, symbol, ms, bool(command))
        character = chr(self._gdk.gdk_keyval_to_unicode(symbol))
        if command or repeat or not character.isprintable():
            self._hand_on()
            return False
        if not self._belongs(ms):
            self._hand_on()
        self._character(character, ms)
        self._hold(pointer, key)
        return True

    def _ended_by(self, key: int, symbol: int, ms: int, command: bool) -> bool:
        text = "" if command else self._end(ms)
        if text and self.take is not None:
            self._taken.update(held for _copy, held in self._held)
            self._taken.add(key)
            while self._held:
                self._gdk.gdk_event_free(self._held.popleft()[0])
            self.take(text, not self._torn)
            return True
        if not command and not self._held and self._is_tail(ms):
            self._taken.add(key)
            return True
        self._hand_on()
        if symbol in _TAB:
            self._tab = time.monotonic()
        return False

    def _let_go(self, pointer: "ctypes._Pointer[_KeyEvent]", event: _KeyEvent) -> bool:
        key = event.hardware_keycode
        self._released(key)
        if any(held == key for _copy, held in self._held):
            self._hold(pointer, key)
            return True
        if key in self._taken:
            self._taken.discard(key)
            return True
        return False

    def _hold(self, pointer: "ctypes._Pointer[_KeyEvent]", key: int) -> None:
        self._held.append((self._gdk.gdk_event_copy(pointer), key))
        self._taken.discard(key)
        self._looks = 0
        self._wait(self.gap_ms)

    def _wait(self, ms: int) -> None:
        if self._timer is None:
            self._timer = wx.Timer()
            self._timer.Notify = self._on_time
        self._timer.StartOnce(max(1, ms))

    def _on_time(self) -> None:
        """No key came in time; but a window that was busy may find the next ones waiting."""
        self._looks += 1
        if self._looks < _LOOKS and self._gdk.gdk_events_pending():
            self._wait(1)
        else:
            self._hand_on()

    def _hand_on(self) -> None:
        """What was held back goes its way; a box may open in there and run its own loop."""
        self._forget()
        while self._held:
            copy, _key = self._held.popleft()
            self._handing_on = True
            self._gtk.gtk_main_do_event(copy)
            self._handing_on = False
            self._gdk.gdk_event_free(copy)
