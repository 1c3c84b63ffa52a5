"""Fitting a text into a box: the largest size at which the wrapped text fits.

Widths are measured once at a reference size and scaled, so trying a size costs no measuring.
"""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from functools import lru_cache

import wx

from qon_atsui import sizing

REFERENCE = 72.0  # points at which texts are measured
_WIDE = "\u2e80"  # from here on (CJK) a line may break after any character


@dataclass(frozen=True)
class Fitted:
    """A text broken into lines, its size in points, and whether some of it had to be left out."""

    lines: tuple[str, ...]
    points: float
    cut: bool = False


class Ruler:
    """Measures bold texts."""

    def __init__(self) -> None:
        self._dc = wx.MemoryDC(wx.Bitmap(1, 1))
        self._dc.SetFont(sizing.font(REFERENCE, bold=True))
        self.line = self._dc.GetCharHeight() / REFERENCE

    def edges(self, text: str) -> list[float]:
        """Right edge of each character, in pixels per point."""
        return [edge / REFERENCE for edge in self._dc.GetPartialTextExtents(text)] if text else []

    def width(self, text: str, points: float) -> float:
        return float(self._dc.GetTextExtent(text).width / REFERENCE * points)


@lru_cache(maxsize=1)
def bold_ruler() -> Ruler:
    """The one ruler all bands share; GUI thread only."""
    return Ruler()


def _may_break(text: str, index: int) -> bool:
    """Whether a line may end before the character at `index`."""
    return text[index] == " " or text[index - 1] in " -_/" or text[index] >= _WIDE or text[index - 1] >= _WIDE


def wrap(text: str, edges: Sequence[float], room: float) -> list[str]:
    """Lines no wider than `room` (same unit as the edges); a word that is too long breaks anywhere."""
    lines: list[str] = []
    start = 0
    while start < len(text):
        origin = edges[start - 1] if start else 0.0
        end = start
        while end < len(text) and edges[end] - origin <= room:
            end += 1
        end = max(end, start + 1)
        if end < len(text):
            breaks = [i for i in range(end, start, -1) if _may_break(text, i)]
            end = breaks[0] if breaks else end
        lines.append(text[start:end].strip())
        start = end
        while start < len(text) and text[start] == " ":
            start += 1
    return lines or [""]


def _lines(paragraphs: list[tuple[str, list[float]]], room: float) -> list[str]:
    return [line for text, edges in paragraphs for line in wrap(text, edges, room)]


def _breaks_words(paragraphs: list[tuple[str, list[float]]], room: float) -> bool:
    """Whether some word is wider than the room, so that it would be torn apart."""
    for text, edges in paragraphs:
        start = 0
        for index in range(1, len(text) + 1):
            if index == len(text) or _may_break(text, index):
                if edges[index - 1] - (edges[start - 1] if start else 0.0) > room:
                    return True
                start = index
    return False


def fit(ruler: Ruler, text: str, width: float, height: float, largest: float, smallest: float) -> Fitted:
    """The largest size between the two (points) at which the text fits; cut with an ellipsis if none does."""
    paragraphs = [(line, ruler.edges(line)) for line in text.splitlines()] or [("", [])]
    smallest = min(smallest, largest)
    points, step = largest, 0.93
    while points > smallest:
        lines = _lines(paragraphs, width / points)
        if len(lines) * ruler.line * points <= height and not _breaks_words(paragraphs, width / points):
            return Fitted(tuple(lines), points)
        points *= step
    lines = _lines(paragraphs, width / smallest)
    room = max(1, int(height / (ruler.line * smallest)))
    if len(lines) <= room:
        return Fitted(tuple(lines), smallest)
    kept = lines[:room]
    while kept[-1] and ruler.width(kept[-1] + "\u2026", smallest) > width:
        kept[-1] = kept[-1][:-1]
    kept[-1] += "\u2026"
    return Fitted(tuple(kept), smallest, cut=True)
