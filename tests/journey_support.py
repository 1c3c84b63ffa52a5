"""An operator in front of a station: hands with mouse, keyboard or scanner, and eyes that expect an answer soon."""

import itertools
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import qon_ats
import qon_atsui.commands
import wx
from station import Answers, Station, click_row
from support import pump, pump_for

SOON = 0.1  # seconds until the station shows that it has understood


def _busy_machine() -> float:
    """Seconds this thread was ready to run and had to wait for a processor, as far as the system tells."""
    try:
        return int(Path("/proc/thread-self/schedstat").read_text().split()[1]) / 1e9
    except (OSError, IndexError):
        return 0.0


def sees(condition: Callable[[], Any], what: str = "") -> Any:
    """Wait for the sight: its value.  Other programs, the display's among them, may take their time meanwhile;
    what the station itself does, and what it waits for, may not."""
    turns = itertools.count()
    begin, work = time.monotonic() - _busy_machine(), time.thread_time()
    sight = pump(lambda: next(turns) < 0 or condition(), what=what)
    waited = time.thread_time() - work + next(turns) * 0.001  # the event loop rests 1 ms in each turn
    blocked = time.monotonic() - _busy_machine() - begin
    assert waited < SOON and blocked < 5 * SOON, (
        f"{waited:.3f} s, {blocked:.3f} s until {what or 'an answer'}"
    )
    return sight


def has_focus(window: wx.Window) -> bool:
    return wx.Window.FindFocus() is window


def shown(kind: type[wx.Window]) -> wx.Window | None:
    """The window of this kind that is on the screen."""
    return next((w for w in wx.GetTopLevelWindows() if isinstance(w, kind) and w.IsShownOnScreen()), None)


def inside(window: wx.Window) -> Iterator[wx.Window]:
    """The window and all windows in it."""
    yield window
    for child in window.GetChildren():
        yield from inside(child)


def button(window: wx.Window, label: str) -> wx.AnyButton:
    return next(w for w in inside(window) if isinstance(w, wx.AnyButton) and w.GetLabelText() == label)


def state(cell: qon_ats.Cell) -> tuple[str, str]:
    """The word on the band, and the text below it."""
    return cell.ui_prompt.face.word, cell.ui_prompt.face.text


def commands() -> dict[str, Any]:
    """The commands of the menus by their handler, each with the letters that lead to it."""
    return {
        command.handler: (command, letter(title), letter(command.label))
        for title, entries in qon_atsui.commands.menus()
        for command in entries
        if command is not None
    }


def letter(label: str) -> str:
    return label[label.index("&") + 1].upper()


class Hands:
    """What all operators can do."""

    def __init__(self, station: Station) -> None:
        self.station = station
        self._simulator = station.simulator

    def key(self, code: int | str, modifiers: int = wx.MOD_NONE) -> None:
        self._simulator.Char(ord(code) if isinstance(code, str) else code, modifiers)

    def write(self, text: str) -> None:
        self._simulator.Text(text.encode())

    def click(self, window: wx.Window) -> None:
        self.station.click(window)

    def scan(self, text: str) -> None:
        """As a barcode scanner types it: at once, with Enter behind it."""
        self._simulator.Text(text.encode())
        self._simulator.Char(wx.WXK_RETURN)

    @contextmanager
    def boxes(self, *acts: Callable[[wx.Dialog], Any]) -> Iterator[None]:
        """Exactly these boxes come up, one after the other, each handled by its act."""
        left = list(acts)
        with Answers(lambda box: left.pop(0)(box)):
            yield
            pump(lambda: not left, what="all boxes came up")


class Mouse(Hands):
    def start(self, cell: qon_ats.Cell, number: str) -> None:
        self.click(cell.ui_serial_number)
        self.write(number)
        pump(lambda: cell.ui_serial_number.GetValue() == number)
        self.click(cell.ui_start)

    def press(self, target: wx.AnyButton) -> None:
        self.click(target)

    def enter(self, box: wx.Dialog, text: str) -> None:
        self.write(text)
        self.click(box.FindWindow(wx.ID_OK))

    def choose_row(self, grid: wx.grid.Grid, row: int) -> None:
        click_row(self.station, grid, row)

    def choose(self, choice: wx.Choice, index: int) -> None:
        """The list opens with the present choice under the mouse."""
        self.click(choice)
        pump_for(0.3)
        step = choice.GetCharHeight() + 8
        self._simulator.MouseMove(wx.GetMousePosition() + wx.Point(0, (index - choice.GetSelection()) * step))
        pump_for(0.1)
        self._simulator.MouseClick()

    def command(self, frame: qon_ats.ATSFrame, handler: str) -> None:
        """Along the tool bar, until the status bar tells that it is the right tool."""
        hint = commands()[handler][0].hint
        for x in range(20, frame.ui_toolbar.GetSize().width, 40):
            at = frame.ui_toolbar.ClientToScreen(wx.Point(x, frame.ui_toolbar.GetSize().height // 2))
            self._simulator.MouseMove(at)
            pump_for(0.02)
            if frame.GetStatusBar().GetStatusText() == hint:
                self._simulator.MouseClick()
                return
        raise AssertionError(f"no tool for {handler}")


class Keyboard(Hands):
    def start(self, cell: qon_ats.Cell, number: str) -> None:
        """F4 goes from entry to entry."""
        for _ in self.station.frame.cells:
            if not has_focus(cell.ui_serial_number):
                self.key(wx.WXK_F4)
                pump_for(0.01)
        assert has_focus(cell.ui_serial_number)
        self.write(number)
        pump(lambda: cell.ui_serial_number.GetValue() == number)
        self.key(wx.WXK_RETURN)

    def press(self, target: wx.AnyButton) -> None:
        label = target.GetLabel() if "&" in target.GetLabel() else "&" + target.GetLabel()
        self.key(letter(label), wx.MOD_ALT)

    def enter(self, _box: wx.Dialog, text: str) -> None:
        self.write(text)
        self.key(wx.WXK_RETURN)

    def choose_row(self, grid: wx.grid.Grid, row: int) -> None:
        """Tab goes from grid to grid, the cursor keys from row to row."""
        for _ in range(20):
            if not has_focus(grid):
                self.key(wx.WXK_TAB)
                pump_for(0.01)
        assert has_focus(grid)
        self.key(wx.WXK_HOME)
        for _ in range(row):
            self.key(wx.WXK_DOWN)
        pump(lambda: list(grid.GetSelectedRows()) == [row])

    def choose(self, choice: wx.Choice, index: int) -> None:
        self.key("L", wx.MOD_ALT)
        for _ in range(index - choice.GetSelection()):
            self.key(wx.WXK_DOWN)

    def command(self, frame: qon_ats.ATSFrame, handler: str) -> None:
        """By the letters of its menu and of the menu's entry."""
        _command, menu, entry = commands()[handler]
        self.key(menu, wx.MOD_ALT)
        pump_for(0.1)  # the menu opens
        self.key(entry)


class Scanner(Hands):
    def start(self, _cell: qon_ats.Cell, number: str) -> None:
        self.scan(number)

    def press(self, target: wx.AnyButton) -> None:
        self.scan(target.GetLabelText())

    def enter(self, _box: wx.Dialog, text: str) -> None:
        self.scan(text)
