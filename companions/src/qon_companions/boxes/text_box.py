"""The box in which a text is asked for."""

import wx

from qon_companions.fonts import font
from qon_companions.i18n import _

from .box import Box
from .keys import ENTER
from .text_view import text_view

_POINTS, _PADDING = 24.0, 16


class TextBox(Box):
    """wx.ID_OK with `text` as it was typed or scanned, wx.ID_CANCEL when there is none."""

    def __init__(self, parent: wx.Window | None, title: str, message: str, text: str = "") -> None:
        super().__init__(parent, title, message)
        self.entry = wx.TextCtrl(self, value=text)
        self.entry.SetFont(font(_POINTS))
        # Measured here: before it is shown GTK tells the height that the desktop's own font needs.
        height = self.entry.GetTextExtent("Ag字")[1] + self.FromDIP(_PADDING)
        self.entry.SetMinSize(wx.Size(-1, height))
        self.build([(wx.ID_OK, _("&OK")), (wx.ID_CANCEL, _("&Cancel"))])

    @property
    def text(self) -> str:
        return str(self.entry.GetValue())

    def content(self) -> wx.Sizer:
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(text_view(self, self.message), 1, wx.EXPAND | wx.BOTTOM, self.FromDIP(12))
        column.Add(self.entry, 0, wx.EXPAND)
        return column

    def is_shown(self) -> None:
        super().is_shown()
        self.entry.SetFocus()
        self.entry.SelectAll()

    def on_key(self, event: wx.KeyEvent) -> None:
        """What is typed goes into the entry; Enter, typed or scanned, ends it."""
        key = event.GetKeyCode()
        if self.focused_button():
            super().on_key(event)
        elif key in ENTER:
            self.EndModal(wx.ID_OK)
        elif key != wx.WXK_ESCAPE:
            event.Skip()
