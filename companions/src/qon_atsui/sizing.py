"""Fonts and lengths that follow the size of a panel."""

from __future__ import annotations

from dataclasses import dataclass
from functools import lru_cache

import wx
from qon_companions.fonts import SMALLEST_POINTS, font

__all__ = ["SMALLEST_POINTS", "Sizes", "font", "line_height"]


@lru_cache(maxsize=256)
def line_height(points: float, bold: bool = False) -> int:
    """Pixels from line to line of a font of that size."""
    dc = wx.MemoryDC(wx.Bitmap(1, 1))
    dc.SetFont(font(points, bold))
    return int(dc.GetCharHeight())


@dataclass(frozen=True)
class Sizes:
    """Font sizes in points and the gap in pixels for a cell of a given size."""

    body: float
    header: float
    entry: float
    button: float
    gap: int

    @staticmethod
    def of(width: int, height: int) -> Sizes:
        """From 236 x 170 pixels (20 cells on a small screen) to a whole 4K screen."""
        scale = min(width / 520.0, height / 430.0)
        body = min(18.0, max(SMALLEST_POINTS, 7.5 + 2.5 * scale))
        return Sizes(
            body=body,
            header=body * 1.3,
            entry=body * 1.25,
            button=body * 1.1,
            gap=max(4, round(5 * min(scale, 2.5))),
        )
