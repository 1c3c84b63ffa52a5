"""The box that says why the station cannot start."""

import wx
from qon_companions.boxes import Box
from qon_companions.boxes.text_view import label, long_text
from qon_companions.i18n import _

from .explain import details, explain


class StartFailure(Box):
    """The cause in plain words; below it the traceback, to be copied."""

    def __init__(self, error: BaseException) -> None:
        self._what, self._details = str(explain(error)), details(error)
        text = f"{self._what}\n\n{self._details}"
        super().__init__(None, _("The station cannot start"), text, wx.ART_ERROR)
        self.build([(wx.ID_CLOSE, _("C&lose"))], copy=True)

    def content(self) -> wx.Sizer:
        column = wx.BoxSizer(wx.VERTICAL)
        gap = self.FromDIP(12)
        column.Add(label(self, self._what), 0, wx.EXPAND | wx.BOTTOM, gap)
        column.Add(wx.StaticText(self, label=_("Details for whoever mends it:")), 0, wx.BOTTOM, gap // 3)
        column.Add(long_text(self, self._details), 1, wx.EXPAND)
        return column

    def entered(self) -> None:
        self.EndModal(wx.ID_CLOSE)


def show_start_failure(error: BaseException) -> None:
    """Wait until somebody has closed the box."""
    box = StartFailure(error)
    try:
        box.ShowModal()
    finally:
        box.Destroy()
