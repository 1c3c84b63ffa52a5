"""Break a text into lines: at blanks, within long names, and between Chinese characters, which have no blanks."""

from __future__ import annotations

import unicodedata
from collections.abc import Callable

Fits = Callable[[int, int], bool]  # whether the text between two indexes fits into a line


def wrap(text: str, fits: Fits) -> list[str]:
    """Lines that fit; what cannot be broken nicely is broken anywhere.  One paragraph, without line ends."""
    lines = []
    start = 0
    while start < len(text):
        end = _longest(text, start, fits)
        if end < len(text):
            places = (index for index in range(end, start, -1) if may_break(text, index))
            end = next((index for index in places if text[start:index].strip()), end)
        lines.append(text[start:end].rstrip())
        start = end
        while text[start : start + 1].isspace():
            start += 1
    return lines or [""]


def may_break(text: str, index: int) -> bool:
    """Whether a line may end before the character at this index, which is neither the first nor behind the last."""
    before, after = text[index - 1], text[index]
    if before.isspace() or after.isspace():
        return True
    if unicodedata.category(after) in ("Pe", "Pf", "Po") or unicodedata.category(before) in ("Ps", "Pi"):
        return False
    if before in "_/" or (before == "-" and after.isalpha()):
        return True
    return _is_wide(before) or _is_wide(after)


def _is_wide(character: str) -> bool:
    return unicodedata.east_asian_width(character) in "WF"


def _longest(text: str, start: int, fits: Fits) -> int:
    """The index behind the last character that fits into a line from `start` on; at least one does."""
    low, step = start + 1, 32
    while low + step < len(text) and fits(start, low + step):  # not the whole of a long text at once
        low, step = low + step, 2 * step
    high = min(low + step, len(text))
    while low < high:
        middle = (low + high + 1) // 2
        low, high = (middle, high) if fits(start, middle) else (low, middle - 1)
    return low
