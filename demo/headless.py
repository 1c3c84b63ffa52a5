"""The demonstration station without a person: one unit in every cell, and whether the verdicts are right.

    python headless.py [--output ../build] [--line ADDRESS]

Prints one line for each cell, saves a screenshot of each window, ends with 0 when every verdict is the one
that the simulation implies, with 1 otherwise.
"""

import argparse
import os
import sys
import threading
import traceback
from collections.abc import Iterator
from pathlib import Path
from types import TracebackType
from typing import Any

import make_workbooks
import qon_results
import qon_station
import screenshot
import wx
from auto_operator import AutoOperator, Result, StationStuck
from bench_sim.board import implied_defect, implied_verdict
from bench_sim.server import free_port
from station import CONFIG, HERE, PARAMETERS, DemoStation

LIMIT_SECONDS = 150.0
# A good board, one without output capacitor, a good one, and one whose LED stays dark.
SERIAL_NUMBERS = ("4711-000002", "4711-000001", "4711-000005", "4711-000107")


class HeadlessStation(DemoStation):
    """The same station with an operator built in."""

    def __init__(self, parameters: str, output: Path) -> None:
        super().__init__(str(HERE / CONFIG), parameters, feed=False)
        self._output = output
        self._exit_code = 1
        self._uncaught: list[str] = []
        self._watch_for_faults()
        self._operator = AutoOperator(self, self._answer, self._finish, LIMIT_SECONDS)
        self._operator.start(self._work())

    def exit_finalizer(self) -> None:
        """The frame ends the process with code 0 right after this; a bad result has to end it before."""
        super().exit_finalizer()
        sys.stdout.flush()
        sys.stderr.flush()
        if self._exit_code:
            os._exit(self._exit_code)

    def _watch_for_faults(self) -> None:
        """A fault that the station survives is a fault all the same."""
        main, thread = sys.excepthook, threading.excepthook

        def on_main(kind: type[BaseException], error: BaseException, trace: TracebackType | None) -> None:
            self._uncaught.append(repr(error))
            main(kind, error, trace)

        def on_thread(arguments: threading.ExceptHookArgs) -> None:
            self._uncaught.append(repr(arguments.exc_value))
            thread(arguments)

        sys.excepthook, threading.excepthook = on_main, on_thread

    def _work(self) -> Iterator[None]:
        operator, cells = self._operator, list(self.cells)
        self.SetSize(wx.Rect(wx.Point(0, 0), wx.GetDisplaySize()))
        yield from operator.wait(lambda: self.bench_is_up, 10.0)
        plan = list(zip(cells, SERIAL_NUMBERS, strict=True))
        for cell, serial_number in plan:
            yield from operator.scan(cell, serial_number)
        for cell in cells:
            yield from operator.wait(cell.is_ready, LIMIT_SECONDS)
        results = [self._result(cell) for cell in cells]
        wrong = [result for result in results if result.verdict != implied_verdict(result.serial_number)]
        for result in results:
            print(
                f"cell {result.cell_number}  {result.serial_number}  {result.verdict:4} "
                f"{result.items:3} items  {result.seconds:5.1f} s"
            )
        for result in wrong:
            defect = implied_defect(result.serial_number) or "none"
            print(f"cell {result.cell_number}: wrong verdict {result.verdict}; the board's defect: {defect}")
        yield from self._shoot("station.png")
        yield from self._tour()
        print(f"screenshots: {self._output}")
        print(f"results: .venv/bin/qon-results units --results {self._output / 'results'}")
        print(f"in a browser: .venv/bin/qon-results page --results {self._output / 'results'}")
        if self._uncaught:
            raise StationStuck(f"uncaught: {'; '.join(self._uncaught)}")
        self._exit_code = 1 if wrong else 0

    def _answer(self, cell_number: int, question: str) -> str:
        if "LED" not in question:
            raise StationStuck(f"cell {cell_number} asks something unexpected: {question}")
        lit = self._worker.submit(self.hands.sees_led, cell_number).result(10.0)  # the worker has its session
        return "Lit" if lit else "Dark"

    def _result(self, cell: Any) -> Result:
        """As the cell's history shows it."""
        history = cell.ui_history_grid
        row = history.GetNumberRows() - 1
        serial_number, verdict = (history.GetCellValue(row, column) for column in (2, 3))
        return Result(cell.cell_number, serial_number, verdict, len(cell.uut.assertions), cell.uut.elapse)

    def _tour(self) -> Iterator[None]:
        """A picture of each other window."""
        yield from self._look_at_viewer()
        yield from self._operator.visit(self.on_edit_test_parameters, self._picture("parameters.png"))
        yield from self._operator.visit(self.on_show_manual_operation_dialog, self._operate_by_hand)
        yield from self._operator.visit(self.on_show_about_dialog, self._picture("about.png"))

    def _look_at_viewer(self) -> Iterator[None]:
        self.on_show_test_data_window(None)
        viewer = next(w for w in wx.GetTopLevelWindows() if hasattr(w, "test_data_viewer_panel"))
        panel = viewer.test_data_viewer_panel
        viewer.Raise()
        yield from self._operator.pause(0.5)
        yield from self._operator.click_cell(panel.ui_history, 0, 2)
        yield from self._operator.wait(lambda: panel.ui_assertions.GetNumberRows() > 0, 5.0)
        names = [
            panel.ui_assertions.GetCellValue(row, 0) for row in range(panel.ui_assertions.GetNumberRows())
        ]
        yield from self._operator.click_cell(panel.ui_assertions, names.index("VOUT_FULL_LOAD"), 0)
        yield from self._operator.wait(lambda: panel.ui_single_item_average.GetValue() != "", 5.0)
        yield from self._shoot("viewer.png", viewer)
        viewer.Close()

    def _operate_by_hand(self, dialog: Any) -> Iterator[None]:
        yield from self._operator.wait(dialog.ui_supply.IsEnabled, 5.0)
        yield from self._operator.click(dialog.ui_supply)
        yield from self._operator.wait(lambda: dialog.ui_reading.GetLabel().startswith(("4.9", "5.0")), 5.0)
        yield from self._picture("manual_operation.png")(dialog)

    def _picture(self, name: str) -> Any:
        def take(dialog: wx.Dialog) -> Iterator[None]:
            yield from self._shoot(name, dialog)

        return take

    def _shoot(self, name: str, window: wx.Window | None = None) -> Iterator[None]:
        """Once what was just changed has been painted."""
        yield from self._operator.pause(0.7)
        picture = screenshot.take(self._output / name, window.GetScreenRect() if window else None)
        yield from self._operator.wait(lambda: picture.poll() is not None, 20.0)
        if picture.wait(0) != 0:
            raise StationStuck(f"the screenshot {name} could not be saved")

    def _finish(self, error: Exception | None) -> None:
        if error is not None:
            self._exit_code = 1
            print(f"the demonstration failed: {type(error).__name__}: {error}", file=sys.stderr)
            screenshot.take(self._output / "failure.png").wait(20.0)
            self.exit_finalizer()
        self.Close()


def main() -> int:
    parser = argparse.ArgumentParser(description="demonstration station, without a person")
    parser.add_argument(
        "--output", type=Path, default=HERE.parent / "build", help="directory of the screenshots"
    )
    parser.add_argument("--line", default="", metavar="ADDRESS", help="of a line's database that gets the results")
    arguments = parser.parse_args()
    output = arguments.output.resolve()
    os.chdir(HERE)
    own = output / "station"
    make_workbooks.write_all(own, free_port(make_workbooks.CELLS))
    line = {"line": arguments.line} if arguments.line else {}
    qon_results.record(output / "results", config=own / CONFIG, parameters=own / PARAMETERS, **line)

    def build() -> HeadlessStation:
        try:
            return HeadlessStation(str(own / PARAMETERS), output)
        except Exception:  # noqa: BLE001 - the window that shows it to a person would wait for ever
            traceback.print_exc()
            os._exit(1)

    return qon_station.run(build, log_file=output / "station.log")


if __name__ == "__main__":
    sys.exit(main())
