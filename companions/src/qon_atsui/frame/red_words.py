"""Words that an operator has to see at once: above all windows, in red, with a sound, without taking the keyboard."""

from __future__ import annotations

import wx
from qon_companions.line_breaks import wrap

from qon_atsui import palette, sizing
from qon_atsui.timers import OneShotTimer

_POINTS = 20.0
_WIDTH = 0.6  # of the window it stands over, at most
_MARGIN = 18
_MS = 15_000


class RedWords(wx.PopupWindow):
    """One for a frame; a newer text takes the place of the older one."""

    def __init__(self, frame: wx.Window) -> None:
        super().__init__(frame, wx.BORDER_NONE)
        self.SetBackgroundColour(palette.RED.ground)
        inner = wx.Panel(self)
        inner.SetBackgroundColour(palette.SURFACE)
        self._text = wx.StaticText(inner, style=wx.ALIGN_CENTRE_HORIZONTAL)
        self._text.SetFont(sizing.font(_POINTS, bold=True))
        self._text.SetForegroundColour(palette.RED.ground)
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self._text, 1, wx.EXPAND | wx.ALL, _MARGIN)
        inner.SetSizer(column)
        frame_of_it = wx.BoxSizer()
        frame_of_it.Add(inner, 1, wx.EXPAND | wx.ALL, 4)
        self.SetSizer(frame_of_it)
        for window in (self, inner, self._text):
            window.Bind(wx.EVT_LEFT_DOWN, lambda _event: self.Hide())
        self._timer = OneShotTimer(self, "on_time")

    def on_time(self, _event: wx.TimerEvent) -> None:
        self.Hide()

    @property
    def words(self) -> str:
        """What is shown, on one line."""
        return " ".join(str(self._text.GetLabelText()).split()) if self.IsShown() else ""

    def tell(self, words: str, over: wx.Window) -> None:
        area = over.GetScreenRect()
        room = max(self.FromDIP(300), int(wx.GetTopLevelParent(over).GetSize().width * _WIDTH))
        text = "\u2716 " + words
        lines = wrap(text, lambda start, end: bool(self._text.GetTextExtent(text[start:end])[0] <= room))
        self._text.SetLabelText("\n".join(lines))
        extents = [self._text.GetTextExtent(line) for line in lines]  # GTK tells another one before it is shown
        width, height = max(extent[0] for extent in extents), sum(extent[1] for extent in extents)
        self._text.SetMinSize(wx.Size(width + 8, height + 4))
        self.GetSizer().Fit(self)
        size = self.GetSize()
        screen = wx.Display(max(0, wx.Display.GetFromWindow(over))).GetClientArea()
        x = min(max(screen.x, area.x + (area.width - size.width) // 2), screen.GetRight() - size.width)
        y = min(max(screen.y, area.y + (area.height - size.height) // 4), screen.GetBottom() - size.height)
        self.SetPosition(wx.Point(x, y))
        self.Show()
        self.Raise()
        self._timer.StartOnce(_MS)
        wx.Bell()
