"""The frame around an application's own manual operation."""

from __future__ import annotations

import wx
from qon_companions.i18n import _

from qon_atsui.dialogs.parts import button_row, heading, text_box


class ManualOperationDialog(wx.Dialog):
    """The plain dialog for a station without one of its own: a message and a way out."""

    def __init__(self, parent: wx.Window | None) -> None:
        wx.Dialog.__init__(
            self, parent, title=_("Manual operation"), style=wx.DEFAULT_DIALOG_STYLE | wx.RESIZE_BORDER
        )
        self.ui_message = text_box(self, fixed=False)
        self.ui_message.SetMinSize(self.FromDIP(wx.Size(520, 160)))
        self.ui_message.SetHint(
            _("This station has no manual operation of its own.")
            + "\n"
            + _("The module \u201cmanual_operation_dialog\u201d beside the start script provides it.")
        )
        self.ui_message.SetToolTip(_("Message of the application"))
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(heading(self, _("Manual operation")), 0, wx.ALL, 12)
        column.Add(self.ui_message, 1, wx.EXPAND | wx.LEFT | wx.RIGHT, 12)
        column.Add(
            button_row(self, (wx.ID_CANCEL, _("&Close"), _("Close this window"))), 0, wx.EXPAND | wx.ALL, 12
        )
        self.SetSizerAndFit(column)
        self.CentreOnParent()
