"""Layouts without the product: windows to try them in, and the calls the product makes on a cell's widgets."""

from collections.abc import Iterator
from contextlib import contextmanager
from typing import Any

import qon_atsui
import wx
from support import pump

COLUMNS = (("Name", 300), ("Value", 200), ("Lower", 200), ("Upper", 200), ("Unit", 200), ("Result", 200))


class Cell(qon_atsui.Cell):
    """Tells the widgets what the product tells them, step by step."""

    def __init__(self, parent: wx.Window, number: int) -> None:
        qon_atsui.Cell.__init__(self, parent)
        self.calls: list[str] = []
        self.ui_cell_name.SetLabel(f"Cell {number}")
        for index, (title, width) in enumerate(COLUMNS):
            self.ui_assertions.AppendCols(1)
            self.ui_assertions.SetColSize(index, width)
            self.ui_assertions.SetColLabelValue(index, title)

    def on_start_cell_test(self, _event: wx.Event) -> None:
        self.calls.append("start " + self.ui_serial_number.GetValue())
        self.started(self.ui_serial_number.GetValue())

    def prompt(self, text: str | None = None, colour: str | None = None) -> None:
        if text is not None:
            self.ui_prompt.SetLabel(text)
        if colour is not None:
            self.ui_prompt.SetBackgroundColour(colour)
        self.ui_prompt.Refresh()

    def started(self, serial_number: str = "") -> None:
        self.ui_serial_number.SetValue(serial_number)
        self.ui_serial_number.Disable()
        self.prompt("Running")
        self.prompt(colour="gray")

    def judged(self, *failed: str) -> None:
        for row, name in enumerate(failed):
            self.ui_assertions.AppendRows()
            self.ui_assertions.SetCellValue(row, 0, name)
            self.ui_assertions.SetCellBackgroundColour(row, 0, "red")

    def button(self, label: str) -> None:
        self.ui_start.SetBackgroundColour("green" if label == "Start" else "yellow")
        self.ui_start.SetLabel(label)

    def ended(self, result: str, colour: str, description: str = "") -> None:
        self.prompt(description or result, colour)
        row = self.ui_history_grid.GetNumberRows()
        self.ui_history_grid.AppendRows()
        for column, text in enumerate(("begin", "end", "SN", result, description)):
            self.ui_history_grid.SetCellValue(row, column, text)
        self.ui_history_grid.SetCellBackgroundColour(row, 3, colour)
        self.ui_serial_number.Clear()
        self.ui_serial_number.Enable()
        self.ui_serial_number.SetFocus()
        self.button("Start")

    @property
    def state(self) -> str:
        return self.ui_prompt.face.state


class Frame(qon_atsui.Frame):
    """A main frame with cells, of any size."""

    def __init__(self, cells: int, columns: int, size: tuple[int, int]) -> None:
        qon_atsui.Frame.__init__(self, None)
        self.cells = [Cell(self.ui_cell_panel, number + 1) for number in range(cells)]
        grid = wx.GridSizer(0, columns, 0, 0)
        for cell in self.cells:
            grid.Add(cell, 1, wx.EXPAND | wx.ALL)
        self.ui_cell_panel.SetSizer(grid)
        grid.Fit(self.ui_cell_panel)
        self.SetMinSize(wx.Size(100, 100))
        self.SetSize(wx.Rect(0, 0, *size))


@contextmanager
def shown(window: Any) -> Iterator[Any]:
    """A window on the screen for the length of a test."""
    window.Show()
    pump(window.IsShownOnScreen)
    pump(lambda: window.GetClientSize().width > 50)
    try:
        yield window
    finally:
        window.Destroy()
        pump(lambda: not window)


def type_text(text: str) -> None:
    wx.UIActionSimulator().Text(text.encode())


def press(key: int, over: wx.Window | None = None, modifiers: int = wx.MOD_NONE) -> None:
    """A key; without a window manager it goes to the window under the mouse."""
    simulator = wx.UIActionSimulator()
    if over is not None:
        simulator.MouseMove(over.GetScreenPosition() + wx.Point(4, 4))
    simulator.Char(key, modifiers)
