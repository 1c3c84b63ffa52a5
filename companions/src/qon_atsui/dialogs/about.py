"""The about dialog."""

from __future__ import annotations

import importlib.metadata
import platform

import wx
from qon_companions.i18n import _

from qon_atsui.dialogs.parts import button_row, heading
from qon_atsui.fields import caption
from qon_atsui.icons import icon


def _version(distribution: str) -> str:
    try:
        return importlib.metadata.version(distribution)
    except importlib.metadata.PackageNotFoundError:
        return _("not installed as a package")


class AboutDialog(wx.Dialog):
    """What runs here, in which versions."""

    def __init__(self, parent: wx.Window | None) -> None:
        wx.Dialog.__init__(self, parent, title=_("About this station"))
        table = wx.FlexGridSizer(2, 6, 18)
        for name, version in (
            (_("Framework (qon_ats)"), _version("qon-ats")),
            (_("Companions"), _version("qon-ats-companions")),
            ("Python", platform.python_version()),
            ("wxPython", wx.version()),
            (_("System"), platform.platform()),
        ):
            table.Add(caption(self, name))
            table.Add(wx.StaticText(self, label=version))
        head = wx.BoxSizer(wx.HORIZONTAL)
        picture = wx.StaticBitmap(self, bitmap=icon("station", 48))
        head.Add(picture, 0, wx.RIGHT, 14)
        title = wx.BoxSizer(wx.VERTICAL)
        title.Add(heading(self, _("Automated test station")))
        title.Add(
            caption(self, _("Runs test scripts in cells, judges and records what they measure.")),
            0,
            wx.TOP,
            4,
        )
        head.Add(title)
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(head, 0, wx.ALL, 16)
        column.Add(table, 0, wx.LEFT | wx.RIGHT | wx.BOTTOM, 16)
        column.Add(
            button_row(self, (wx.ID_OK, _("&Close"), _("Close this window"))), 0, wx.EXPAND | wx.ALL, 12
        )
        self.SetSizerAndFit(column)
        self.CentreOnParent()
