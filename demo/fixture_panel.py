"""The window that stands for the fixtures of the simulated bench: fit a unit, take it out, see its LED."""

import wx
from bench_process import Hands

REFRESH_MS = 500


class FixturePanel(wx.Frame):
    """Closing it only hides it; the station owns and destroys it."""

    def __init__(self, parent: wx.Window, hands: Hands, cell_count: int) -> None:
        style = wx.CAPTION | wx.CLOSE_BOX | wx.FRAME_FLOAT_ON_PARENT | wx.FRAME_TOOL_WINDOW
        super().__init__(parent, title="Simulated fixtures", style=style)
        self._hands = hands
        self._units: list[wx.StaticText] = []
        self._leds: list[wx.StaticText] = []
        grid = wx.FlexGridSizer(5, 8, 12)
        for number in range(1, cell_count + 1):
            self._add_row(grid, number)
        border = wx.BoxSizer()
        border.Add(grid, 1, wx.EXPAND | wx.ALL, 12)
        self.SetSizerAndFit(border)
        self._timer = wx.Timer(self)
        self.Bind(wx.EVT_TIMER, self._on_timer, self._timer)
        self.Bind(wx.EVT_CLOSE, lambda event: self.Hide())
        self._timer.Start(REFRESH_MS)

    def _add_row(self, grid: wx.FlexGridSizer, number: int) -> None:
        unit = wx.StaticText(self, label="empty", size=self.FromDIP(wx.Size(110, -1)))
        led = wx.StaticText(self, label="LED dark", size=self.FromDIP(wx.Size(70, -1)))
        fit = wx.Button(self, label="Fit a new unit")
        fit.SetToolTip("Put the next unit in and close the lid; the station starts its test")
        fit.Bind(wx.EVT_BUTTON, lambda event: self._hands.fit_new(number))
        remove = wx.Button(self, label="Take out")
        remove.SetToolTip("Open the lid and take the unit out")
        remove.Bind(wx.EVT_BUTTON, lambda event: self._hands.remove(number))
        for control in (wx.StaticText(self, label=f"Fixture {number}"), unit, led, fit, remove):
            grid.Add(control, 0, wx.ALIGN_CENTER_VERTICAL)
        self._units.append(unit)
        self._leds.append(led)

    def _on_timer(self, _event: wx.TimerEvent) -> None:
        if not self.IsShown():
            return
        for number, (unit, led) in enumerate(zip(self._units, self._leds, strict=True), start=1):
            unit.SetLabel(self._hands.label(number) or "empty")
            led.SetLabel("LED lit" if self._hands.sees_led(number) else "LED dark")
