"""Colours of the station's windows: one neutral family for everything, one strong shade per test state.

The engine names its colours ("green", "red", ...).  Pure screen colours glare and carry text badly, so
the widgets remember the name they were told and show the shade of this table instead.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import wx

INK = "#16212C"
MUTED = "#55626F"
SURFACE = "#FFFFFF"
CANVAS = "#E9EDF1"
LINE = "#C3CCD5"
ACCENT = "#2F5582"
ACCENT_SOFT = "#D5DFEA"


@dataclass(frozen=True)
class Shade:
    """A background and the ink that reads on it (contrast at least 5:1)."""

    ground: str
    ink: str = INK


GREEN = Shade("#2FB457", "#06140A")
RED = Shade("#C4202B", "#FFFFFF")
CYAN = Shade("#35C3D6", "#04181B")
CYAN_DIM = Shade("#8FDDE8", "#04181B")
CYAN_PALE = Shade("#BDEBF2", "#04181B")
YELLOW = Shade("#FFC61A", "#1A1400")
YELLOW_DIM = Shade("#FFE491", "#1A1400")
GRAY = Shade("#8F99A3", "#0B1117")
GRAY_DIM = Shade("#C5CBD1", "#0B1117")
NEUTRAL = Shade("#DFE5EB", INK)
SLATE = Shade("#2E4256", "#FFFFFF")
SLATE_DIM = Shade("#3B5167", "#FFFFFF")
PLAIN = Shade(SURFACE, INK)

SHADES = {"green": GREEN, "red": RED, "cyan": CYAN, "yellow": YELLOW, "gray": GRAY, "white": PLAIN}

# wx and CSS disagree about "green"; both are green to the engine.
_NAMES = {
    (0, 128, 0): "green",
    (0, 255, 0): "green",
    (255, 0, 0): "red",
    (0, 255, 255): "cyan",
    (255, 255, 0): "yellow",
    (128, 128, 128): "gray",
    (255, 255, 255): "white",
}


def as_colour(told: Any) -> wx.Colour:
    """The wx colour of a name, a hexadecimal text, a tuple or a wx.Colour."""
    colour = (
        told if isinstance(told, wx.Colour) else wx.Colour(told if isinstance(told, str) else tuple(told))
    )
    if not colour.IsOk():
        raise ValueError(f"Unknown colour {told!r}: use a colour name, '#RRGGBB' or a wx.Colour.")
    return colour


def colour_name(told: Any) -> str:
    """The engine's name of a colour, or '#RRGGBB' when it is none of the engine's six."""
    if isinstance(told, str) and told in SHADES:
        return told
    colour = as_colour(told)
    name = _NAMES.get((colour.Red(), colour.Green(), colour.Blue()))
    return name or colour.GetAsString(wx.C2S_HTML_SYNTAX)


def shade_of(name: str) -> Shade:
    """How a colour name is shown; a colour of the maker's own gets black or white ink, whichever reads."""
    known = SHADES.get(name)
    if known is not None:
        return known
    colour = as_colour(name)
    return Shade(name, INK if colour.GetLuminance() > 0.5 else "#FFFFFF")
