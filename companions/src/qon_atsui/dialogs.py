"""The dialogs of the main frame: ticker exception, about, manual operation."""

from __future__ import annotations

import importlib.metadata
import platform

import wx
from qon_companions.i18n import _

from qon_atsui import palette, sizing
from qon_atsui.fields import caption
from qon_atsui.icons import icon


def _text_box(parent: wx.Window, fixed: bool) -> wx.TextCtrl:
    """A read-only text of several lines that can be scrolled and copied."""
    box = wx.TextCtrl(parent, style=wx.TE_MULTILINE | wx.TE_READONLY | (wx.TE_DONTWRAP if fixed else 0))
    box.SetFont(sizing.font(10.0, fixed=fixed))
    return box


def _heading(parent: wx.Window, text: str) -> wx.StaticText:
    label = wx.StaticText(parent, label=text)
    label.SetFont(sizing.font(13.0, bold=True))
    label.SetForegroundColour(palette.INK)
    return label


def _buttons(dialog: wx.Dialog, *buttons: tuple[int, str, str]) -> wx.BoxSizer:
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


class TickerExceptionDialog(wx.Dialog):
    """Shows why the ticker's job failed; wx.ID_OK lets it go on, anything else stops it."""

    def __init__(self, parent: wx.Window | None) -> None:
        wx.Dialog.__init__(
            self, parent, title=_("Ticker exception"), style=wx.DEFAULT_DIALOG_STYLE | wx.RESIZE_BORDER
        )
        self.ui_exception_trace = _text_box(self, fixed=True)
        self.ui_exception_trace.SetMinSize(self.FromDIP(wx.Size(640, 260)))
        self.ui_exception_trace.SetToolTip(_("Where the exception was raised; can be selected and copied"))
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(_heading(self, _("The station's periodic job raised an exception.")), 0, wx.ALL, 12)
        column.Add(self.ui_exception_trace, 1, wx.EXPAND | wx.LEFT | wx.RIGHT, 12)
        column.Add(
            caption(self, _("A stopped ticker starts again with the menu command \u201cStart ticker\u201d.")),
            0,
            wx.ALL,
            12,
        )
        buttons = _buttons(
            self,
            (wx.ID_OK, _("&Continue"), _("Go on with the next tick")),
            (wx.ID_CANCEL, _("&Stop the ticker"), _("No further ticks until the ticker is started again")),
        )
        column.Add(buttons, 0, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.BOTTOM, 12)
        self.SetSizerAndFit(column)
        self.CentreOnParent()


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
        title.Add(_heading(self, _("Automated test station")))
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
        column.Add(_buttons(self, (wx.ID_OK, _("&Close"), _("Close this window"))), 0, wx.EXPAND | wx.ALL, 12)
        self.SetSizerAndFit(column)
        self.CentreOnParent()


class ManualOperationDialog(wx.Dialog):
    """The plain dialog for a station without one of its own: a message and a way out."""

    def __init__(self, parent: wx.Window | None) -> None:
        wx.Dialog.__init__(
            self, parent, title=_("Manual operation"), style=wx.DEFAULT_DIALOG_STYLE | wx.RESIZE_BORDER
        )
        self.ui_message = _text_box(self, fixed=False)
        self.ui_message.SetMinSize(self.FromDIP(wx.Size(520, 160)))
        self.ui_message.SetHint(
            _("This station has no manual operation of its own.")
            + "\n"
            + _("The module \u201cmanual_operation_dialog\u201d beside the start script provides it.")
        )
        self.ui_message.SetToolTip(_("Message of the application"))
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(_heading(self, _("Manual operation")), 0, wx.ALL, 12)
        column.Add(self.ui_message, 1, wx.EXPAND | wx.LEFT | wx.RIGHT, 12)
        column.Add(
            _buttons(self, (wx.ID_CANCEL, _("&Close"), _("Close this window"))), 0, wx.EXPAND | wx.ALL, 12
        )
        self.SetSizerAndFit(column)
        self.CentreOnParent()
