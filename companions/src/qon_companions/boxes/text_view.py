"""Shows a text of any length: short ones as a label, long ones in a field that scrolls."""

import wx

from qon_companions.fonts import font
from qon_companions.line_breaks import wrap

MAX_LINES = 14
WIDTH, WIDE = 520, 820  # DIP
TEXT_POINTS, HEADING_POINTS = 12.0, 15.0
# Of what is asked; the first size at which the text stays within so many lines is taken.
_FAR_POINTS = ((28.0, 4), (24.0, 5), (20.0, 7), (16.0, MAX_LINES))
FAR_WIDTH = 680  # DIP
_TRACEBACK_SIGNS = ("Traceback (most recent call last)", '  File "')


def label(
    parent: wx.Window, text: str, points: float = TEXT_POINTS, bold: bool = False, width: int = WIDTH
) -> wx.StaticText:
    """A text that is wrapped to the box's width."""
    control = wx.StaticText(parent)
    control.SetFont(font(points, bold))
    show_in(control, text, width)
    return control


def show_in(control: wx.StaticText, text: str, width: int = WIDTH) -> None:
    """Change a label's text.  Its size is measured here: GTK tells that of another font before it is shown."""
    lines = _wrapped(control, text, width).split("\n")
    control.SetLabelText("\n".join(lines))
    extents = [control.GetTextExtent(line or " ") for line in lines]
    widest = max(extent[0] for extent in extents)
    control.SetMinSize(wx.Size(widest + 4, sum(extent[1] for extent in extents) + 4))


def text_view(parent: wx.Window, text: str) -> wx.Window:
    """What a box says, as large as it fits: a label, or a read-only field from which parts can be copied."""
    if not _is_traceback(text):
        for points, lines in _FAR_POINTS:
            control = label(parent, _shown(text), points, width=FAR_WIDTH)
            if control.GetLabelText().count("\n") < lines:
                return control
            control.Destroy()
    return long_text(parent, text)


def long_text(parent: wx.Window, text: str) -> wx.TextCtrl:
    """A field of at most MAX_LINES lines, fixed-width for tracebacks."""
    fixed = _is_traceback(text)
    field = wx.TextCtrl(parent, style=wx.TE_MULTILINE | wx.TE_READONLY)
    field.SetFont(font(TEXT_POINTS - 2 if fixed else TEXT_POINTS, fixed=fixed))
    field.SetValue(text if fixed else _shown(text))
    width = WIDE if fixed else WIDTH
    lines = _wrapped(field, text, width).count("\n") + 2
    field.SetMinSize(wx.Size(field.FromDIP(width), min(lines, MAX_LINES) * field.GetCharHeight() + 12))
    field.SetInsertionPoint(0)
    return field


def _is_traceback(text: str) -> bool:
    return any(sign in text for sign in _TRACEBACK_SIGNS)


def _shown(text: str) -> str:
    """Tabs in front of lines come from the source text that a message stands in, not from its author."""
    return "\n".join(line.lstrip("\t").rstrip() for line in text.strip("\n").split("\n")).expandtabs(4)


def _wrapped(window: wx.Window, text: str, width: int) -> str:
    room = window.FromDIP(width)

    def lines(part: str) -> list[str]:
        return wrap(part, lambda start, end: window.GetTextExtent(part[start:end].rstrip())[0] <= room)

    return "\n".join(line for part in text.split("\n") for line in lines(part))
