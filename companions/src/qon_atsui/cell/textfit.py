"""Fitting a text into a box: the largest size at which the wrapped text fits.

Widths are measured once at a reference size and scaled, so trying a size costs no measuring.
"""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from functools import lru_cache

import wx
from qon_companions.line_breaks import may_break, wrap

from qon_atsui import sizing

REFERENCE = 72.0  # points at which texts are measured
LINE = 1.164  # height of a line in em
_STEP = 0.93  # from one size that is tried to the next


@dataclass(frozen=True)
class Fitted:
    """A text broken into lines, its size in points, and whether some of it had to be left out."""

    lines: tuple[str, ...]
    points: float
    cut: bool = False


def _measuring_dc() -> wx.MemoryDC:
    """Made anew each time: a drawing context must not outlive the application object."""
    dc = wx.MemoryDC(wx.Bitmap(1, 1))
    dc.SetFont(sizing.font(REFERENCE, bold=True))
    return dc


@lru_cache(maxsize=64)
def width_per_point(text: str) -> tuple[float, float]:
    """Width and line height of a bold text in pixels per point."""
    dc = _measuring_dc()
    return dc.GetTextExtent(text).width / REFERENCE, dc.GetCharHeight() / REFERENCE


def _wrapped(text: str, edges: Sequence[float], room: float) -> list[str]:
    """Lines no wider than `room` (same unit as the edges)."""
    return wrap(text, lambda start, end: edges[end - 1] - (edges[start - 1] if start else 0.0) <= room)


def _lines(paragraphs: list[tuple[str, list[float]]], room: float) -> list[str]:
    return [line for text, edges in paragraphs for line in _wrapped(text, edges, room)]


def _breaks_words(paragraphs: list[tuple[str, list[float]]], room: float) -> bool:
    """Whether some word is wider than the room, so that it would be torn apart."""
    for text, edges in paragraphs:
        start = 0
        for index in range(1, len(text) + 1):
            if index == len(text) or may_break(text, index):
                if edges[index - 1] - (edges[start - 1] if start else 0.0) > room:
                    return True
                start = index
    return False


def fit(text: str, width: float, height: float, largest: float, smallest: float) -> Fitted:
    """The largest size between the two (points) at which the text fits; cut with an ellipsis if none does."""
    dc = _measuring_dc()
    line = dc.GetCharHeight() / REFERENCE
    paragraphs = [
        (part, [edge / REFERENCE for edge in dc.GetPartialTextExtents(part)])
        for part in text.splitlines()
        if part
    ]
    tallest = height / (line * max(1, len(paragraphs)))  # sizes above need not be tried: each part is a line
    points = largest
    while points > max(smallest, tallest):
        points *= _STEP
    while points > smallest:
        lines = _lines(paragraphs, width / points)
        if len(lines) * line * points <= height and not _breaks_words(paragraphs, width / points):
            return Fitted(tuple(lines), points)
        points *= _STEP
    lines = _lines(paragraphs, width / smallest)
    room = max(1, int(height / (line * smallest)))
    if len(lines) <= room:
        return Fitted(tuple(lines), smallest)
    last = lines[room - 1]
    while last and dc.GetTextExtent(last + "\u2026").width / REFERENCE * smallest > width:
        last = last[:-1]
    return Fitted((*lines[: room - 1], last + "\u2026"), smallest, cut=True)
