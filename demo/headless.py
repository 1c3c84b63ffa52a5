"""The demonstration station without a person: one unit in every cell, and whether the verdicts are right.

    python headless.py [--output ../build]

Prints one line for each cell, saves a screenshot of each window, ends with 0 when every verdict is the one
that the simulation implies, with 1 otherwise.
"""

import argparse
import os
import socket
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import make_workbooks
import qon_station
import wx
from auto_operator import AutoOperator, Result, StationStuck
from bench_sim.board import implied_defect, implied_verdict
from station import CONFIG, HERE, PARAMETERS, DemoStation

LIMIT_SECONDS = 150.0
# A good board, one without output capacitor, a good one, and one whose LED stays dark.
SERIAL_NUMBERS = ("4711-000002", "4711-000001", "4711-000005", "4711-000107")


def free_port(count: int) -> int:
    """The first of `count` ports that nobody uses, so that another station may be open meanwhile."""
    for first in range(47200, 60000, count):
        try:
            for port in range(first, first + count):
                with socket.socket() as probe:
                    probe.bind((make_workbooks.HOST, port))
        except OSError:
            continue
        return first
    raise RuntimeError("no free ports on the loopback interface")


def screenshot(path: Path, rectangle: wx.Rect | None = None) -> None:
    """The screen, or a part of it, as a PNG file."""
    area = rectangle or wx.Rect(wx.Point(0, 0), wx.GetDisplaySize())
    bitmap = wx.Bitmap(area.width, area.height)
    target = wx.MemoryDC(bitmap)
    target.Blit(0, 0, area.width, area.height, wx.ScreenDC(), area.x, area.y)
    target.SelectObject(wx.NullBitmap)
    path.parent.mkdir(parents=True, exist_ok=True)
    bitmap.SaveFile(str(path), wx.BITMAP_TYPE_PNG)


class HeadlessStation(DemoStation):
    """The same station with an operator built in."""

    def __init__(self, parameters: str, output: Path) -> None:
        super().__init__(str(HERE / CONFIG), parameters, feed=False)
        self._output = output
        self._exit_code = 1
        self._operator = AutoOperator(self, self._answer, self._finish, LIMIT_SECONDS)
        self._operator.start(self._work())

    def exit_finalizer(self) -> None:
        """The frame ends the process with code 0 right after this; a bad result has to end it before."""
        super().exit_finalizer()
        sys.stdout.flush()
        sys.stderr.flush()
        if self._exit_code:
            os._exit(self._exit_code)

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
        yield from operator.wait(lambda: False, 0.5)
        screenshot(self._output / "station.png")
        yield from self._tour()
        self._exit_code = 1 if wrong else 0

    def _answer(self, cell_number: int, question: str) -> str:
        if "LED" not in question:
            raise StationStuck(f"cell {cell_number} asks something unexpected: {question}")
        return "Lit" if self.hands.sees_led(cell_number) else "Dark"

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
        yield from self._operator.wait(lambda: False, 0.5)
        yield from self._operator.click_cell(panel.ui_history, 0, 2)
        yield from self._operator.wait(lambda: panel.ui_assertions.GetNumberRows() > 0, 5.0)
        names = [
            panel.ui_assertions.GetCellValue(row, 0) for row in range(panel.ui_assertions.GetNumberRows())
        ]
        yield from self._operator.click_cell(panel.ui_assertions, names.index("VOUT_FULL_LOAD"), 0)
        yield from self._operator.wait(lambda: panel.ui_single_item_average.GetValue() != "", 5.0)
        yield from self._operator.wait(lambda: False, 0.5)
        screenshot(self._output / "viewer.png", viewer.GetScreenRect())
        viewer.Close()

    def _operate_by_hand(self, dialog: Any) -> Iterator[None]:
        yield from self._operator.wait(dialog.ui_supply.IsEnabled, 5.0)
        yield from self._operator.click(dialog.ui_supply)
        yield from self._operator.wait(lambda: dialog.ui_reading.GetLabel().startswith(("4.9", "5.0")), 5.0)
        yield from self._picture("manual_operation.png")(dialog)

    def _picture(self, name: str) -> Any:
        def take(dialog: wx.Dialog) -> Iterator[None]:
            yield from self._operator.wait(lambda: False, 0.7)
            screenshot(self._output / name, dialog.GetScreenRect())

        return take

    def _finish(self, error: Exception | None) -> None:
        if error is not None:
            self._exit_code = 1
            print(f"the demonstration failed: {type(error).__name__}: {error}", file=sys.stderr)
            screenshot(self._output / "failure.png")
            self.exit_finalizer()
        self.Close()


def main() -> int:
    parser = argparse.ArgumentParser(description="demonstration station, without a person")
    parser.add_argument(
        "--output", type=Path, default=HERE.parent / "build", help="directory of the screenshots"
    )
    output = parser.parse_args().output.resolve()
    os.chdir(HERE)
    own = output / "station"
    make_workbooks.write_all(own, free_port(10 * make_workbooks.CELLS))
    return qon_station.run(lambda: HeadlessStation(str(own / PARAMETERS), output))


if __name__ == "__main__":
    sys.exit(main())
