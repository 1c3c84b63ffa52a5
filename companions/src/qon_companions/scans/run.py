"""Tells a scanner from a person by the time between keys."""

import time
from collections.abc import Callable

# Called with the text, and whether it is the whole: no character came shortly before its first one.
Taker = Callable[[str, bool], None]

GAP_MS = 35
FEWEST_KEYS = 4
# A scanner may end a number with CR and LF: the second one belongs to the same scan.
_TAIL_MS = 150
# Nobody types a character and takes up the scanner so soon: the scan stuttered, its beginning went elsewhere.
_TORN_MS = 150
_TAB_SECONDS = 0.3
_MOST_KEYS = 8192
_WRAP = 0xFFFFFFFF  # the clock of the events has 32 bits


class Run:
    """The characters that came one close behind the other.  `ms` is the time of an event, GUI thread."""

    def __init__(self) -> None:
        self.take: Taker | None = None
        self.gap_ms = GAP_MS
        self._text = ""
        self._last = 0
        self._typed = -1  # when a character was typed that belongs to no scan
        self._torn = False
        self._ended = -1  # when a scan ended, or its tail
        self._down = -1  # the key that was pressed last, while it is
        self._tab = 0.0

    def tab_was_pressed(self) -> bool:
        return time.monotonic() - self._tab < _TAB_SECONDS

    def _belongs(self, ms: int) -> bool:
        """Whether a key is close enough behind the last one."""
        return bool(self._text) and (ms - self._last) & _WRAP <= self.gap_ms

    def _character(self, text: str, ms: int) -> None:
        if len(self._text) >= _MOST_KEYS:
            self._forget()
        if not self._text:
            self._torn = self._typed >= 0 and (ms - self._typed) & _WRAP <= _TORN_MS
        self._text += text
        self._last = ms
        self._ended = -1

    def _shift(self, ms: int) -> None:
        """The shift key of the next character is a key, too."""
        if self._belongs(ms):
            self._last = ms

    def _forget(self) -> None:
        if self._text:
            self._typed = self._last
        self._text = ""

    def _is_repeat(self, key: int) -> bool:
        """Whether the key is held down: it comes again, was not released, and no other one came."""
        before, self._down = self._down, key
        return before == key

    def _released(self, key: int) -> None:
        if key == self._down:
            self._down = -1

    def _end(self, ms: int) -> str:
        """Enter or Tab was pressed: the text when that ends a scan; `_torn` tells about its beginning."""
        text = self._text.strip() if len(self._text) >= FEWEST_KEYS and self._belongs(ms) else ""
        if text:
            self._text = ""
            self._typed = -1
            self._ended = ms
        else:
            self._forget()
        return text

    def _is_tail(self, ms: int) -> bool:
        """Whether this Enter belongs to the scan that has just ended."""
        tail = self._ended >= 0 and not self._text and (ms - self._ended) & _WRAP <= _TAIL_MS
        self._ended = ms if tail else -1
        return tail
