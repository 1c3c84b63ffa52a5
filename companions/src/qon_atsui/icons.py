"""Icons of the tool bar: outlines in one neutral colour, since colours mean states here."""

from __future__ import annotations

import wx

from qon_atsui import palette

_SIDE = 22  # DIP

# Shapes in a 24 x 24 square: `f` paths are filled, `s` paths are stroked.
_SHAPES: dict[str, tuple[tuple[str, str], ...]] = {
    "start": (("f", "M6 4 L20 12 L6 20 Z"),),
    "abort": (("f", "M6 6 H18 V18 H6 Z"),),
    "data": (("s", "M4 4 V20 H20 M7 15 L11 10 L14 13 L20 6"),),
    "clear": (("s", "M5 7 H19 M9 7 V4 H15 V7 M7 7 L8 20 H16 L17 7 M12 10 V17"),),
    "edit": (
        ("s", "M4 7 H20 M4 12 H20 M4 17 H20"),
        ("f", "M7 5 H10 V9 H7 Z M14 10 H17 V14 H14 Z M9 15 H12 V19 H9 Z"),
    ),
    "reload": (("s", "M19 12 A7 7 0 1 1 16.5 6.6"), ("f", "M20 3 L20 10 L13.5 8 Z")),
    "save": (("s", "M5 4 H16 L20 8 V20 H4 V5 Z M8 4 V9 H15 V4 M8 20 V14 H16 V20"),),
    "manual": (("s", "M12 3 V9 M12 15 V21 M3 12 H9 M15 12 H21 M9 9 H15 V15 H9 Z"),),
    "station": (("s", "M3 4 H21 V20 H3 Z"), ("s", "M7 12 L11 16 L18 8")),
}


def _svg(name: str) -> bytes:
    parts = []
    for kind, path in _SHAPES[name]:
        look = (
            f'fill="{palette.ACCENT}"'
            if kind == "f"
            else f'fill="none" stroke="{palette.ACCENT}" stroke-width="2"'
        )
        parts.append(f'<path d="{path}" {look}/>')
    return f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 24 24">{"".join(parts)}</svg>'.encode()


def icon(name: str, side: int = _SIDE) -> wx.BitmapBundle:
    """One icon in all resolutions."""
    return wx.BitmapBundle.FromSVG(_svg(name), wx.Size(side, side))


def window_icon() -> wx.Icon:
    """The icon of the station's windows."""
    return wx.Icon(icon("station", 32).GetBitmap(wx.Size(32, 32)))
