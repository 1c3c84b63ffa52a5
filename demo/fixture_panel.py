"""The window that stands for the fixtures of the simulated bench: fit a unit, take it out, see its LED."""

from collections.abc import Callable

import wx
from bench_process import Hands

REFRESH_MS = 500


class FixturePanel(wx.Frame):
    """Stays in view; the station owns and destroys it.  `submit` lets the thread that talks to the fixtures work."""

    def __init__(
        self, parent: wx.Window, hands: Hands, submit: Callable[..., None], cell_count: int
    ) -> None:
        style = wx.CAPTION | wx.FRAME_FLOAT_ON_PARENT | wx.FRAME_TOOL_WINDOW | wx.STAY_ON_TOP
        super().__init__(parent, title="Simulated fixtures", style=style)
        self._hands = hands
        self._submit = submit
        self._asked = False
        self._units: list[wx.StaticText] = []
        self._leds: list[wx.StaticText] = []
        fixtures = wx.BoxSizer()
        for number in range(1, cell_count + 1):
            fixtures.Add(self._fixture(number), 0, wx.ALL, 4)
        self.SetSizerAndFit(fixtures)
        self._move_to_corner()
        self._timer = wx.Timer(self)
        self.Bind(wx.EVT_TIMER, self._on_timer, self._timer)
        self.Bind(wx.EVT_CLOSE, lambda event: event.Veto() if event.CanVeto() else self.Destroy())
        self._timer.Start(REFRESH_MS)

    def _fixture(self, number: int) -> wx.Sizer:
        unit = wx.StaticText(self, label="empty", style=wx.ST_NO_AUTORESIZE)
        led = wx.StaticText(self, label="LED dark")
        fit = wx.Button(self, label=f"Fit &{number}", style=wx.BU_EXACTFIT)
        fit.SetToolTip("Put the next unit in and close the lid; the station starts its test")
        fit.Bind(wx.EVT_BUTTON, lambda event: self._submit(self._hands.fit_new, number))
        remove = wx.Button(self, label="Take out", style=wx.BU_EXACTFIT)
        remove.SetToolTip("Open the lid and take the unit out")
        remove.Bind(wx.EVT_BUTTON, lambda event: self._submit(self._hands.remove, number))
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
        if not self._asked:
            self._asked = True
            self._submit(self._look)

    def _look(self) -> None:
        """Worker thread."""
        numbers = range(1, len(self._units) + 1)
        try:
            seen = [(self._hands.label(number), self._hands.sees_led(number)) for number in numbers]
        except Exception:
            wx.CallAfter(self._show, [])
            raise
        wx.CallAfter(self._show, seen)

    def _show(self, seen: list[tuple[str, bool]]) -> None:
        if self:
            self._asked = False
            for (label, lit), unit, led in zip(seen, self._units, self._leds, strict=False):
                unit.SetLabel(label or "empty")
                led.SetLabel("LED lit" if lit else "LED dark")
