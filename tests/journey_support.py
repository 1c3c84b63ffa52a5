"""An operator in front of a station: hands with mouse, keyboard or scanner."""

from collections.abc import Callable
from typing import Any

import qon_ats
import qon_atsui.frame.commands
import wx
import wx.grid
from scanner import burst
from station import Station, click_row, dialogs
from support import click, has_focus, inside, press, pump, pump_for, scan

Act = Callable[[Any], Any]


def button(window: wx.Window, label: str) -> wx.AnyButton:
    return next(w for w in inside(window) if isinstance(w, wx.AnyButton) and w.GetLabelText() == label)


def state(cell: qon_ats.Cell) -> tuple[str, str]:
    """The word on the band, and the text below it."""
    return cell.ui_prompt.face.word, cell.ui_prompt.face.text


def commands() -> dict[str, Any]:
    """The commands of the menus by their handler, each with the letters that lead to it."""
    return {
        command.handler: (command, letter(title), letter(command.label))
        for title, entries in qon_atsui.frame.commands.menus()
        for command in entries
        if command is not None
    }


def letter(label: str) -> str:
    return label[label.index("&") + 1].upper()


class Mouse:
    def __init__(self, station: Station) -> None:
        self.station = station

    def start(self, cell: qon_ats.Cell, number: str) -> None:
        click(cell.ui_serial_number)
        scan(number, enter=False)
        pump(lambda: cell.ui_serial_number.GetValue() == number)
        click(cell.ui_start)

    def press(self, target: wx.AnyButton) -> None:
        click(target)

    def enter(self, box: wx.Dialog, text: str) -> None:
        scan(text, enter=False)
        click(box.FindWindow(wx.ID_OK))

    def choose_row(self, grid: wx.grid.Grid, row: int) -> None:
        click_row(grid, row)

    def choose(self, choice: wx.Choice, index: int) -> None:
        """The list opens with the present choice under the mouse."""
        click(choice)
        pump_for(0.3)
        step = wx.Point(0, (index - choice.GetSelection()) * (choice.GetCharHeight() + 8))
        wx.UIActionSimulator().MouseMove(wx.GetMousePosition() + step)
        pump_for(0.1)
        wx.UIActionSimulator().MouseClick()

    def command(self, frame: qon_ats.ATSFrame, handler: str) -> None:
        """Along the tool bar, until the status bar tells that it is the right tool."""
        hint, bar = commands()[handler][0].hint, frame.ui_toolbar
        for x in range(20, bar.GetSize().width, 40):
            wx.UIActionSimulator().MouseMove(bar.ClientToScreen(wx.Point(x, bar.GetSize().height // 2)))
            pump_for(0.02)
            if frame.GetStatusBar().GetStatusText() == hint:
                wx.UIActionSimulator().MouseClick()
                return
        raise AssertionError(f"no tool for {handler}")


class Keyboard:
    def __init__(self, station: Station) -> None:
        self.station = station

    def start(self, cell: qon_ats.Cell, number: str) -> None:
        """F4 goes from entry to entry."""
        for _ in self.station.frame.cells:
            if not has_focus(cell.ui_serial_number):
                press(wx.WXK_F4)
                pump_for(0.01)
        assert has_focus(cell.ui_serial_number)
        scan(number)

    def press(self, target: wx.AnyButton) -> None:
        label = target.GetLabel() if "&" in target.GetLabel() else "&" + target.GetLabel()
        press(letter(label), wx.MOD_ALT)

    def enter(self, _box: wx.Dialog, text: str) -> None:
        scan(text)

    def choose_row(self, grid: wx.grid.Grid, row: int) -> None:
        """Tab goes from grid to grid, the cursor keys from row to row."""
        for _ in range(20):
            if not has_focus(grid):
                press(wx.WXK_TAB)
                pump_for(0.01)
        assert has_focus(grid)
        for key in (wx.WXK_HOME, *[wx.WXK_DOWN] * row):
            press(key)
        pump(lambda: list(grid.GetSelectedRows()) == [row])

    def choose(self, choice: wx.Choice, index: int) -> None:
        press("L", wx.MOD_ALT)
        for _ in range(index - choice.GetSelection()):
            press(wx.WXK_DOWN)

    def command(self, frame: qon_ats.ATSFrame, handler: str) -> None:
        """By the letters of its menu and of the menu's entry."""
        _command, menu, entry = commands()[handler]
        press(menu, wx.MOD_ALT)
        pump_for(0.1)  # the menu opens
        press(entry)


class Scanner(Keyboard):
    """Without a keyboard; the mouse, or a finger, says which cell a scan is for."""

    def start(self, cell: qon_ats.Cell, number: str) -> None:
        if not cell.ui_serial_number.marked:
            click(cell.ui_prompt)
        again = cell.uut is not None and cell.uut.serial_number == number
        with dialogs(*[lambda _box: burst("Test it\n")] * again):
            burst(number + "\n")
            pump(cell.is_running)

    def press(self, target: wx.AnyButton) -> None:
        burst(target.GetLabelText() + "\n")

    def enter(self, box: wx.Dialog, text: str) -> None:
        click(next(part for part in inside(box) if isinstance(part, wx.TextCtrl)))
        burst(text + "\n")


def told(text: str) -> Act:
    """Read a message box with this text."""

    def read(box: Any) -> None:
        assert box.message == text
        press("O", wx.MOD_ALT)

    return read


