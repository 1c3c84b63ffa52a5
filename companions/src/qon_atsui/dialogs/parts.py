"""What the dialogs are made of."""

from __future__ import annotations

import wx

from qon_atsui import palette, sizing


def text_box(parent: wx.Window, fixed: bool) -> wx.TextCtrl:
    """A read-only text of several lines that can be scrolled and copied."""
    box = wx.TextCtrl(parent, style=wx.TE_MULTILINE | wx.TE_READONLY | (wx.TE_DONTWRAP if fixed else 0))
    box.SetFont(sizing.font(10.0, fixed=fixed))
    return box


def heading(parent: wx.Window, text: str) -> wx.StaticText:
    label = wx.StaticText(parent, label=text)
    label.SetFont(sizing.font(13.0, bold=True))
    label.SetForegroundColour(palette.INK)
    return label


def button_row(dialog: wx.Dialog, *buttons: tuple[int, str, str]) -> wx.BoxSizer:
    """Buttons at the right; the first is the default one, the last also answers the Escape key."""
    row = wx.BoxSizer(wx.HORIZONTAL)
    row.AddStretchSpacer()
    for index, (identity, label, hint) in enumerate(buttons):
        button = wx.Button(dialog, identity, label)
        button.SetToolTip(hint)
        row.Add(button, 0, wx.LEFT, 8)
        if index == 0:
            button.SetDefault()
            button.SetFocus()
    dialog.SetEscapeId(buttons[-1][0])
    return row
