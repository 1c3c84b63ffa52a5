"""What the operator sees when the ticker fails."""

from __future__ import annotations

import logging
import sys

import wx
from qon_companions.i18n import _

from qon_atsui.dialogs.parts import button_row, heading, text_box
from qon_atsui.fields import caption

log = logging.getLogger(__name__)


class TickerExceptionDialog(wx.Dialog):
    """Shows why the ticker's job failed; wx.ID_OK lets it go on, anything else stops it."""

    def __init__(self, parent: wx.Window | None) -> None:
        error = sys.exc_info()[1]
        if error is not None:
            log.error("The station's periodic job raised an exception.", exc_info=error)
        wx.Dialog.__init__(
            self, parent, title=_("Ticker exception"), style=wx.DEFAULT_DIALOG_STYLE | wx.RESIZE_BORDER
        )
        self.ui_exception_trace = text_box(self, fixed=True)
        self.ui_exception_trace.SetMinSize(self.FromDIP(wx.Size(640, 260)))
        self.ui_exception_trace.SetToolTip(_("Where the exception was raised; can be selected and copied"))
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(heading(self, _("The station's periodic job raised an exception.")), 0, wx.ALL, 12)
        column.Add(self.ui_exception_trace, 1, wx.EXPAND | wx.LEFT | wx.RIGHT, 12)
        column.Add(
            caption(self, _("A stopped ticker starts again with the menu command \u201cStart ticker\u201d.")),
            0,
            wx.ALL,
            12,
        )
        row = button_row(
            self,
            (wx.ID_OK, _("&Continue"), _("Go on with the next tick")),
            (wx.ID_CANCEL, _("&Stop the ticker"), _("No further ticks until the ticker is started again")),
        )
        column.Add(row, 0, wx.EXPAND | wx.LEFT | wx.RIGHT | wx.BOTTOM, 12)
        self.SetSizerAndFit(column)
        self.CentreOnParent()
