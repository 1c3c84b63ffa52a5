"""500 steps of a script in every cell: milliseconds with the station's window shown, or without any window.

    python bench/steps.py window|headless CELLS WAIT

A step asserts, tells progress and prompt, and looks for pause and abort.  WAIT is what it waits for its
instrument, in milliseconds; with 0 there is nothing but the step itself.
"""

import sys
import tempfile
import time
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import qon_ats
import wx
from sides import report, setting, write_book
from station import Station

STEPS = 500

SCRIPT = """\
import time
from qon_ats import CellRunnerBase


class CellRunner(CellRunnerBase):
    def run(self):
        for step in range({steps}):
            self.assert_limits(f"item{{step}}", 4.9 + step * 1e-4, 4.5, 5.5, "V")
            self.update_percentage((step + 1) * 100 / {steps})
            self.set_prompt(f"Measuring item {{step}}")
            {check}

    def cleanup(self):
        self.noumenon.ended = time.perf_counter()
"""


class HeadlessCell(qon_ats.CellBase):  # type: ignore[misc]
    """The engine's cell; progress and prompt have nowhere to go."""

    main_frame = SimpleNamespace()

    def update_percentage(self, percent: float) -> None:
        self.percent = percent

    def set_prompt(self, message: str, bg_color: Any = None) -> None:
        self.prompt = message


def check(cells: list[Any]) -> None:
    """Everything was recorded, shown and judged."""
    for cell in cells:
        assert len(cell.uut.assertions) == STEPS and cell.uut.summer == "OK"
        assert not hasattr(cell, "ui_assertions") or cell.ui_assertions.GetNumberRows() == STEPS


def with_window(folder: Path, script: Path, count: int) -> dict[str, float]:
    app = wx.App(False)
    station = Station(folder, script, count)
    seconds = station.run()
    check(station.cells)
    figures = {
        "total": seconds * 1e3,
        "scripts": (max(cell.ended for cell in station.cells) - station.began) * 1e3,
        "delay": station.lateness.milliseconds(0.99),
        "longest": station.lateness.milliseconds(1.0),
        "starved": station.starved,
    }
    station.frame.Destroy()
    app.Destroy()
    return figures


def headless(folder: Path, script: Path, count: int) -> dict[str, float]:
    book = write_book(folder / "config.xlsx", {"main": [], "cell1": [setting("script", str(script))]})
    cells = [HeadlessCell(number + 1, book) for number in range(count)]
    begin = time.perf_counter()
    for cell in cells:
        cell.start()
    for cell in cells:
        cell._test_thread.join()
    seconds = time.perf_counter() - begin
    check(cells)
    return {"total": seconds * 1e3}


def main() -> None:
    side, count, wait = sys.argv[1], int(sys.argv[2]), float(sys.argv[3])
    look = f"self.sleep({wait / 1e3})" if wait else "self.check_abort()"
    with tempfile.TemporaryDirectory() as name:
        script = Path(name) / "bench_steps_script.py"
        script.write_text(SCRIPT.format(steps=STEPS, check=look), encoding="utf-8")
        report((with_window if side == "window" else headless)(Path(name), script, count))


if __name__ == "__main__":
    main()
