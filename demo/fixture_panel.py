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
        fixtures = wx.BoxSizer()
        for number in range(1, cell_count + 1):
            fixtures.Add(self._fixture(number), 0, wx.ALL, 4)
        self.SetSizerAndFit(fixtures)
        self._move_to_corner()
        self._timer = wx.Timer(self)
        self.Bind(wx.EVT_TIMER, self._on_timer, self._timer)
        self.Bind(wx.EVT_CLOSE, lambda event: self.Hide())
        self._timer.Start(REFRESH_MS)

    def _fixture(self, number: int) -> wx.Sizer:
        unit = wx.StaticText(self, label="empty", style=wx.ST_NO_AUTORESIZE)
        led = wx.StaticText(self, label="LED dark")
        fit = wx.Button(self, label=f"Fit &{number}", style=wx.BU_EXACTFIT)
        fit.SetToolTip("Put the next unit in and close the lid; the station starts its test")
        fit.Bind(wx.EVT_BUTTON, lambda event: self._hands.fit_new(number))
        remove = wx.Button(self, label="Take out", style=wx.BU_EXACTFIT)
        remove.SetToolTip("Open the lid and take the unit out")
        remove.Bind(wx.EVT_BUTTON, lambda event: self._hands.remove(number))
        rows = wx.FlexGridSizer(2, 2, 4)
        for control in (unit, led, fit, remove):
            rows.Add(control, 0, wx.EXPAND)
        unit.SetMinSize(self.GetTextExtent("0000-000000 "))
        self._units.append(unit)
        self._leds.append(led)
        return rows

    def _move_to_corner(self) -> None:
        """Bottom right, where the station shows least."""
        screen = wx.Display(max(0, wx.Display.GetFromWindow(self.GetParent()))).GetClientArea()
        self.SetPosition(screen.BottomRight - wx.Point(*self.GetSize()))

    def _on_timer(self, _event: wx.TimerEvent) -> None:
        if not self.IsShown():
            return
        for number, (unit, led) in enumerate(zip(self._units, self._leds, strict=True), start=1):
            unit.SetLabel(self._hands.label(number) or "empty")
            led.SetLabel("LED lit" if self._hands.sees_led(number) else "LED dark")
