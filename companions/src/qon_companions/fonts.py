"""The fonts of all windows of the station."""

from __future__ import annotations

from functools import lru_cache

import wx

SMALLEST_POINTS = 9.0


@lru_cache(maxsize=256)
def font(points: float, bold: bool = False, fixed: bool = False) -> wx.Font:
    """The desktop's own face (or its fixed-width one) in a size; never below the smallest readable one."""
    if fixed:
        result = wx.Font(wx.FontInfo(10).Family(wx.FONTFAMILY_TELETYPE))
    else:
        result = wx.Font(wx.SystemSettings.GetFont(wx.SYS_DEFAULT_GUI_FONT))
    result.SetFractionalPointSize(max(SMALLEST_POINTS, round(points * 2) / 2))
    if bold:
        result.SetWeight(wx.FONTWEIGHT_BOLD)
    return result
