"""The line of the main frame that counts the units of all cells."""

from __future__ import annotations

import wx
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.fields import ValueLabel

_POINTS = 13.0


class TotalsPanel(wx.Panel):
    """OK, NG and yield; the words for OK and NG may be changed by the application."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self.SetBackgroundColour(palette.SURFACE)
        self._row = wx.BoxSizer(wx.HORIZONTAL)
        self._row.AddStretchSpacer()
        self.ok_label, self.ok = self._pair("OK", _("Units that passed, all cells"))
        self.ng_label, self.ng = self._pair("NG", _("Units that failed, all cells"))
        _label, self.share = self._pair(_("Yield"), _("Share of passed units, all cells"))
        self.share.SetValue("0.00%")
        self._row.AddStretchSpacer()
        self.SetSizer(self._row)

    def _pair(self, word: str, hint: str) -> tuple[ValueLabel, ValueLabel]:
        label = ValueLabel(self, word, wx.ALIGN_RIGHT, hint)
        label.paint_as(palette.MUTED)
        label.SetFont(sizing.font(_POINTS))
        value = ValueLabel(self, "0", wx.ALIGN_LEFT, hint)
        value.SetFont(sizing.font(_POINTS, bold=True))
        height = sizing.line_height(_POINTS, bold=True) + 10
        label.SetMinSize(wx.Size(self.FromDIP(90), height))
        value.SetMinSize(wx.Size(self.FromDIP(110), height))
        self._row.Add(label, 0, wx.EXPAND | wx.LEFT, 10)
        self._row.Add(value, 0, wx.EXPAND | wx.LEFT, 10)
        return label, value
