"""Manual operation: switches the supply of a cell on and off and shows what its meter reads.

A worker thread talks to the instruments, so that the window answers while one of them is slow or silent.
"""

from collections.abc import Callable
from concurrent.futures import Future, ThreadPoolExecutor
from typing import Any

import wx
from cell_bench import CHANNEL_INPUT, CHANNEL_OUTPUT, open_instrument
from scpi_instruments import Meter, Supply

READ_MS = 300
CHANNELS = {"Input": CHANNEL_INPUT, "Output": CHANNEL_OUTPUT}


class Equipment:
    """Supply and meter of the chosen cell; worker thread only."""

    def __init__(self, app_config: Any) -> None:
        self._app_config = app_config
        self._supply: Supply | None = None
        self._meter: Meter | None = None

    def choose(self, cell_number: int) -> None:
        self.release()
        self._supply = open_instrument(self._app_config, cell_number, "supply", Supply)
        self._meter = open_instrument(self._app_config, cell_number, "meter", Meter)

    def switch(self, on: bool, volt: float) -> None:
        assert self._supply
        self._supply.set(volt, 1.0)
        self._supply.switch(on)

    def read(self, channel: int) -> float:
        assert self._meter
        return self._meter.volt(channel)

    def release(self) -> None:
        """Nothing stays powered by hand."""
        supply, meter, self._supply, self._meter = self._supply, self._meter, None, None
        try:
            if supply:
                supply.switch(False)
        finally:
            for instrument in (supply, meter):
                if instrument:
                    instrument.close()


class ManualOperationDialog(wx.Dialog):
    """Closes when the worker has switched the supply off."""

    def __init__(self, frame: Any) -> None:
        super().__init__(frame, title="Manual operation", style=wx.DEFAULT_DIALOG_STYLE)
        self._frame = frame
        self._equipment = Equipment(frame.app_config)
        self._worker = ThreadPoolExecutor(max_workers=1, thread_name_prefix="manual operation")
        self._ready = self._closing = self._reading = False
        self._build([f"Cell {number}" for number in range(1, frame.get_cell_count() + 1)])
        self._timer = wx.Timer(self)
        self.Bind(wx.EVT_TIMER, self._on_timer, self._timer)
        self.Bind(wx.EVT_CLOSE, self._on_close)
        self._on_cell(None)
        self._timer.Start(READ_MS)

    def _build(self, cells: list[str]) -> None:
        self.ui_cell = wx.Choice(self, choices=cells)
        self.ui_cell.SetSelection(self._first_idle_cell())
        self.ui_volt = wx.SpinCtrlDouble(self, min=0.0, max=18.0, initial=12.0, inc=0.5)
        self.ui_supply = wx.ToggleButton(self, label="Switch the &supply on")
        self.ui_channel = wx.Choice(self, choices=list(CHANNELS))
        self.ui_channel.SetSelection(1)
        self.ui_reading = wx.StaticText(self, label="--.---- V", style=wx.ALIGN_RIGHT | wx.ST_NO_AUTORESIZE)
        self.ui_reading.SetFont(self.GetFont().Scaled(2.2))
        self.ui_message = wx.StaticText(self, label="", style=wx.ST_NO_AUTORESIZE)
        self.ui_close = wx.Button(self, wx.ID_CLOSE)
        rows: list[tuple[str, wx.Window, str]] = [
            ("&Cell", self.ui_cell, "The cell whose instruments are operated"),
            ("&Voltage", self.ui_volt, "Supply voltage in volts"),
            ("", self.ui_supply, "Switch the output of the supply on or off"),
            ("&Measure", self.ui_channel, "What the meter is connected to"),
            ("", self.ui_reading, "Reading of the meter"),
        ]
        grid = wx.FlexGridSizer(2, 8, 12)
        grid.AddGrowableCol(1)
        for label, control, tip in rows:
            control.SetToolTip(tip)
            grid.Add(wx.StaticText(self, label=label), 0, wx.ALIGN_CENTER_VERTICAL)
            grid.Add(control, 0, wx.EXPAND)
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(grid, 0, wx.EXPAND | wx.ALL, 12)
        column.Add(self.ui_message, 1, wx.EXPAND | wx.LEFT | wx.RIGHT, 12)
        column.Add(self.ui_close, 0, wx.ALIGN_RIGHT | wx.ALL, 12)
        column.SetMinSize(self.FromDIP(wx.Size(420, 320)))
        self.SetSizerAndFit(column)
        self.SetEscapeId(wx.ID_CLOSE)
        self.ui_cell.Bind(wx.EVT_CHOICE, self._on_cell)
        self.ui_supply.Bind(wx.EVT_TOGGLEBUTTON, self._on_supply)
        self.ui_volt.Bind(wx.EVT_SPINCTRLDOUBLE, self._on_supply)
        self.ui_close.Bind(wx.EVT_BUTTON, self._on_close)

    def _first_idle_cell(self) -> int:
        idle = [index for index, cell in enumerate(self._frame.cells) if not cell.is_running()]
        return idle[0] if idle else 0

    def _on_cell(self, _event: wx.CommandEvent | None) -> None:
        number = self.ui_cell.GetSelection() + 1
        self.ui_supply.SetValue(False)
        self._set_ready(False)
        if self._frame.is_running(number):
            self._submit(self._equipment.release)
            self._show(f"Cell {number} is testing; choose another one or wait.")
        else:
            self._show(f"Connecting to the instruments of cell {number}")
            self._submit(lambda: self._equipment.choose(number), lambda _: self._set_ready(True))

    def _on_supply(self, _event: wx.Event) -> None:
        on, volt = self.ui_supply.GetValue(), self.ui_volt.GetValue()
        self._submit(lambda: self._equipment.switch(on, volt), lambda _: self._show_supply(on))

    def _on_timer(self, _event: wx.TimerEvent) -> None:
        if self._ready and not self._reading:
            self._reading = True
            channel = list(CHANNELS.values())[self.ui_channel.GetSelection()]
            self._submit(lambda: self._equipment.read(channel), self._show_reading)

    def _on_close(self, _event: wx.Event) -> None:
        """A test may start as soon as this window is gone, so the supply is switched off before."""
        if self._closing:
            return
        self._closing = True
        self._timer.Stop()
        self._set_ready(False)
        self._show("Switching the supply off")
        self._submit(self._equipment.release)
        self._worker.submit(wx.CallAfter, self._end)

    def _end(self) -> None:
        self._worker.shutdown(wait=False)
        self.EndModal(wx.ID_CLOSE)

    def _submit(self, work: Callable[[], Any], then: Callable[[Any], None] = lambda _: None) -> None:
        """Do the work in the worker thread and show its result, or what went wrong, in the window."""

        def finished(future: "Future[Any]") -> None:
            wx.CallAfter(self._finish, future, then)

        self._worker.submit(work).add_done_callback(finished)

    def _finish(self, future: "Future[Any]", then: Callable[[Any], None]) -> None:
        if not self:
            return
        self._reading = False
        error = future.exception()
        if error is None:
            then(future.result())
        else:
            self._set_ready(False)
            self._show(str(error))

    def _set_ready(self, ready: bool) -> None:
        self._ready = ready and not self._closing
        for control in (self.ui_supply, self.ui_volt, self.ui_channel):
            control.Enable(self._ready)
        if self._ready:
            self._show("The supply is off.")

    def _show_supply(self, on: bool) -> None:
        self.ui_supply.SetLabel(f"Switch the &supply {'off' if on else 'on'}")
        self._show("The supply is on." if on else "The supply is off.")

    def _show_reading(self, volt: float) -> None:
        self.ui_reading.SetLabel(f"{volt:.4f} V")

    def _show(self, message: str) -> None:
        self.ui_message.SetLabel(message)
        self.ui_message.Wrap(self.GetClientSize().width - self.FromDIP(24))
