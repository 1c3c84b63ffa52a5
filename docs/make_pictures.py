"""Makes the pictures of the operator's sheet from the running program, on a virtual display:

tools/virtual-display .venv/bin/python docs/make_pictures.py
"""

import random
import sys
import tempfile
import threading
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import qon_station
import wx
from openpyxl import Workbook
from qon_ats import UUT, Assertion, ATSFrame
from qon_companions import notices
from qon_testparameters import Parameter, write_sheet

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "demo"))
import screenshot

SIZE = wx.Size(1120, 700)
TICK_MS = 50
SCRIPT = """
from qon_ats import CellRunnerBase


class CellRunner(CellRunnerBase):
    def run(self):
        state, step = self.get_shared_obj("state"), self.get_shared_obj("step")
        self.append_ok("FIRMWARE", "2.4.1")
        self.update_percentage(63)
        if state == "question":
            self.ask_true_or_false("Is the green LED lit?", "Lit", "Dark")
        elif state == "paused":
            self.pause()
        elif state == "exception":
            raise OSError("The meter does not answer.")
        elif state in ("testing", "aborted"):
            step.wait()
            self.check_abort()
        self.assert_limits("RIPPLE", 101.05 if state == "ng" else 21.6, None, 50.0, "mV")

    def cleanup(self):
        pass
"""
STATES = ("testing", "paused", "ok", "ng", "aborted", "exception")


def workbook(folder: Path) -> Path:
    """Four cells, all with the script above."""
    (folder / "states.py").write_text(SCRIPT, encoding="utf-8")
    book = Workbook()
    book.remove(book.active)
    write_sheet(book.create_sheet("main"), [number("cell_count", 4), number("column_count", 2)])
    script = Parameter("script", "", str(folder / "states.py"), None, None, "", "str")
    write_sheet(book.create_sheet("cell1"), [script])
    book.save(folder / "ats_config.xlsx")
    return folder / "ats_config.xlsx"


def number(name: str, value: int) -> Parameter:
    return Parameter(name, "", value, None, None, "", "int")


class Photographer:
    """Works through its steps; each `yield` gives the station time to paint."""

    def __init__(self, frame: ATSFrame) -> None:
        self._frame = frame
        self._cell = frame.get_cell(0)
        self._step = threading.Event()
        frame.set_shared_obj("step", self._step)
        self._work = self._pictures()
        self._timer = wx.Timer()
        self._timer.Bind(wx.EVT_TIMER, lambda event: self._tick())
        self._timer.Start(TICK_MS)

    def _tick(self) -> None:
        if next(self._work, self) is self:
            self._timer.Stop()
            self._frame.Destroy()

    def _pictures(self) -> Iterator[None]:
        yield from self._pause(1.0)
        yield from self._shoot("ready", self._cell)
        for state in STATES:
            yield from self._start(state)
            if state == "testing" or self._cell.is_paused():
                yield from self._shoot(state, self._cell)
            if state == "aborted":
                self._cell.abort("Abort Voluntarily")
                yield from self._shoot("aborting", self._cell)
            self._end(state)
            yield from self._until(lambda: self._cell.is_ready())
            if state not in ("testing", "paused"):
                yield from self._shoot(state, self._cell)
        yield from self._not_ready()
        yield from self._question()
        yield from self._viewer()

    def _end(self, state: str) -> None:
        if self._cell.is_paused():
            self._cell.resume()
        self._step.set()

    def _start(self, state: str) -> Iterator[None]:
        self._step.clear()
        self._frame.set_shared_obj("state", state)
        self._cell.start("4711-000123")
        yield from self._until(lambda: self._cell.is_running())
        yield from self._pause(0.4)

    def _not_ready(self) -> Iterator[None]:
        notices.post("pictures", "Results cannot be recorded: the disk is full.", stop=True)
        yield from self._shoot("not_ready", self._frame.get_cell(1))
        notices.withdraw("pictures")

    def _question(self) -> Iterator[None]:
        yield from self._start("question")
        yield from self._until(lambda: self._box() is not None)
        yield from self._pause(0.6)
        yield from self._shoot("question", self._cell, self._box())
        self._box().Close()
        yield from self._until(lambda: self._cell.is_ready())

    def _viewer(self) -> Iterator[None]:
        self._frame.on_show_test_data_window(None)
        viewer = next(w for w in wx.GetTopLevelWindows() if hasattr(w, "test_data_viewer_panel"))
        viewer.clear()
        viewer.extend(list(units(40)))
        panel = viewer.test_data_viewer_panel
        for grid, row in ((panel.ui_history, 6), (panel.ui_assertions, 1)):
            yield from self._pause(0.5)
            grid.SelectRow(row)
            grid.SetGridCursor(row, 1)
        yield from self._shoot("viewer", viewer)

    def _box(self) -> Any:
        boxes = [w for w in wx.GetTopLevelWindows() if isinstance(w, wx.Dialog) and w.IsModal()]
        return boxes[0] if boxes else None

    def _shoot(self, name: str, *windows: wx.Window) -> Iterator[None]:
        yield from self._pause(0.7)
        area = wx.Rect(windows[0].GetScreenRect())
        for window in windows[1:]:
            area.Union(window.GetScreenRect())
        picture = screenshot.take(HERE / "img" / f"{name}.png", area)
        yield from self._until(lambda: picture.poll() is not None)

    def _pause(self, seconds: float) -> Iterator[None]:
        for _ in range(round(seconds * 1000 / TICK_MS)):
            yield

    def _until(self, condition: Callable[[], bool]) -> Iterator[None]:
        while not condition():
            yield


def units(count: int) -> Iterator[UUT]:
    """Tested units with values that scatter a little."""
    chance = random.Random(7)
    for index in range(count):
        unit = UUT(f"4711-{index:06}", index % 4 + 1)
        unit.append_assertion(Assertion("VOUT_NO_LOAD", round(chance.gauss(5.0, 0.02), 4), 4.9, 5.1, "V"))
        unit.append_assertion(Assertion("RIPPLE", round(chance.gauss(27.0, 9.0), 2), None, 50.0, "mV"))
        unit.append_assertion(Assertion("EFFICIENCY", round(chance.gauss(89.5, 0.6), 2), 86.0, 100.0, "%"))
        unit.done = True
        yield unit


def main() -> int:
    app = wx.App()
    qon_station.install()  # as `qon_station.run` does
    with tempfile.TemporaryDirectory() as folder:
        frame = ATSFrame(None, "", str(workbook(Path(folder))))
        frame.SetSize(wx.Rect(wx.Point(0, 0), SIZE))
        frame.Show()
        photographer = Photographer(frame)
        app.MainLoop()
        del photographer
    return 0


if __name__ == "__main__":
    sys.exit(main())
