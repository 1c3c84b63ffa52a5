"""An operator without hands: works the station through mouse and keyboard events, as a person would.

Everything runs on the GUI thread, a small step at each tick of a timer, so that the station never waits.
"""

import re
import time
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from typing import Any

import wx
from auto_hand import Hand

TICK_MS = 60
# A dialog is answered when it has been on screen for a moment, as it may still be laid out before.
LOOK_SECONDS = 0.25


@dataclass
class Result:
    """What the station showed for one unit."""

    cell_number: int
    serial_number: str
    verdict: str
    items: int
    seconds: float


class StationStuck(Exception):
    """The station shows something that the operator was not told about, or nothing happens any more."""


def shown_dialog() -> wx.Dialog | None:
    """The modal dialog on top of the others."""
    modal = [w for w in wx.GetTopLevelWindows() if isinstance(w, wx.Dialog) and w and w.IsModal()]
    return modal[-1] if modal else None


def texts_of(window: wx.Window) -> list[str]:
    """What can be read in a window."""
    texts = []
    for child in window.GetChildren():
        if isinstance(child, wx.TextCtrl):
            texts.append(child.GetValue())
        elif isinstance(child, wx.StaticText | wx.Button):
            texts.append(child.GetLabelText())
        texts += texts_of(child)
    return [text for text in texts if text]


def buttons_of(window: wx.Window) -> dict[str, wx.Window]:
    """The buttons of a window by what is written on them."""
    found = {}
    for child in window.GetChildren():
        if isinstance(child, wx.AnyButton):
            found[child.GetLabelText()] = child
        found.update(buttons_of(child))
    return found


class AutoOperator:
    """Does its work step by step; answers the questions of cells in between."""

    def __init__(
        self,
        frame: Any,
        answer: Callable[[int, str], str],
        finished: Callable[[Exception | None], None],
        limit_seconds: float,
    ) -> None:
        self._answer = answer
        self._finished = finished
        self._deadline = time.monotonic() + limit_seconds
        self._hand = Hand()
        self._work: Iterator[None] = iter(())
        self._answering: Iterator[None] | None = None
        self._visiting = False
        self._clicking = False  # the mouse is on its way: a question has to wait, it would move it elsewhere
        self._timer = wx.Timer(frame)
        frame.Bind(wx.EVT_TIMER, self._on_tick, self._timer)

    def start(self, work: Iterator[None]) -> None:
        """Each `yield` of the work gives the station time until the next tick."""
        self._work = work
        self._timer.Start(TICK_MS)

    def scan(self, cell: Any, serial_number: str) -> Iterator[None]:
        """Click into the cell's entry, type the number and press Enter, until the cell has taken it."""
        entry = cell.ui_serial_number
        while not cell.is_running():
            yield from self.click(entry)
            if entry.GetValue():
                yield from self._hand.select_all()
            yield from self._hand.type(serial_number)
            yield from self.wait(lambda: entry.GetValue() == serial_number, 1.0)
            if entry.GetValue() == serial_number:
                yield from self._hand.press_enter()
                yield from self.wait(cell.is_running, 1.0)

    def click(self, window: wx.Window, x: int | None = None, y: int | None = None) -> Iterator[None]:
        """A left click at a point of the window, or into its middle."""
        width, height = window.GetClientSize()
        point = wx.Point(width // 2 if x is None else x, height // 2 if y is None else y)
        self._clicking = True
        yield from self._hand.move(window.ClientToScreen(point))
        yield from self._hand.click()
        self._clicking = False

    def click_cell(self, grid: Any, row: int, column: int) -> Iterator[None]:
        """A left click into a cell of a grid."""
        grid.MakeCellVisible(row, column)
        yield
        rectangle = grid.CellToRect(row, column)
        x, y = grid.CalcScrolledPosition(rectangle.x + 20, rectangle.y + rectangle.height // 2)
        yield from self.click(grid.GetGridWindow(), x, y)

    def wait(self, condition: Callable[[], bool], seconds: float) -> Iterator[None]:
        """Until the condition holds, but no longer."""
        end = time.monotonic() + seconds
        while not condition() and time.monotonic() < end:
            yield

    def pause(self, seconds: float) -> Iterator[None]:
        return self.wait(lambda: False, seconds)

    def visit(
        self, command: Callable[[Any], None], look: Callable[[wx.Dialog], Iterator[None]]
    ) -> Iterator[None]:
        """Open a modal dialog with a command of the frame, do what `look` does in it, and close it."""
        self._visiting = True
        wx.CallAfter(command, None)
        yield from self.wait(lambda: shown_dialog() is not None, 10.0)
        dialog = shown_dialog()
        if dialog is None:
            raise StationStuck(f"{command} opened no dialog")
        yield from look(dialog)
        dialog.Close()
        yield from self.wait(lambda: shown_dialog() is None, 10.0)
        self._visiting = False

    def _on_tick(self, _event: wx.TimerEvent) -> None:
        try:
            if time.monotonic() > self._deadline:
                dialog = shown_dialog()
                raise StationStuck(
                    f"no end within the time limit, on screen: {texts_of(dialog) if dialog else '-'}"
                )
            if not self._attend_question():
                next(self._work)
        except StopIteration:
            self._end(None)
        except Exception as error:  # noqa: BLE001 - whatever it is, the run has to end
            self._end(error)

    def _end(self, error: Exception | None) -> None:
        self._timer.Stop()
        self._hand.close()
        self._finished(error)

    def _attend_question(self) -> bool:
        """Answer what a cell asks; True while that keeps the operator from going on."""
        occupied = self._visiting or self._clicking
        if self._answering is None and shown_dialog() and not occupied:
            self._answering = self._answer_question()
        if self._answering is None:
            return False
        for _ in self._answering:
            return True
        self._answering = None
        return False

    def _answer_question(self) -> Iterator[None]:
        yield from self.pause(LOOK_SECONDS)
        dialog = shown_dialog()
        if dialog is None:
            return
        number = re.search(r"\d+", dialog.GetTitle())
        buttons = buttons_of(dialog)
        wanted = self._answer(int(number.group()), " ".join(texts_of(dialog))) if number else ""
        if wanted not in buttons:
            raise StationStuck(f'unexpected dialog "{dialog.GetTitle()}": {texts_of(dialog)}')
        yield from self.click(buttons[wanted])
        yield from self.wait(lambda: shown_dialog() is not dialog, 1.0)
