"""The demonstration station: DC/DC converter boards in four cells.

python station.py [--config ats_config.xlsx] [--parameters app_config] [--line ADDRESS]
"""

import argparse
import os
import sys
from collections.abc import Callable, Sequence
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path
from typing import Any

import qon_ats
import qon_results
import qon_station
import wx
from bench_process import BenchProcess, Hands, start_bench
from cell_bench import fixture_of
from fixture_panel import FixturePanel
from scpi_instruments import Fixture

HERE = Path(__file__).resolve().parent
CONFIG, PARAMETERS = "ats_config.xlsx", "app_config"


class FixtureWatch:
    """Notices a unit that was put into a fixture; worker thread, while the cell is ready."""

    def __init__(self, app_config: Any, cell_number: int) -> None:
        self._app_config, self._cell_number = app_config, cell_number
        self._fixture: Fixture | None = None
        self._seen = ""

    def new_unit(self) -> str:
        """The label of a unit that was not there before, else ""."""
        if self._fixture is None:
            self._fixture = fixture_of(self._app_config, self._cell_number)
        label = self._fixture.label()
        if label == self._seen:
            return ""
        self._seen = label
        return label

    def started_with(self, serial_number: str) -> None:
        """A test was started by other means; its unit is no news."""
        self._seen = serial_number


class DemoStation(qon_ats.ATSFrame):
    """Starts the simulated bench, and each unit that is put into a fixture.

    A worker thread talks to the fixtures: the windows never wait for an instrument.
    """

    def __init__(self, config: str = CONFIG, parameters: str = PARAMETERS, feed: bool = True) -> None:
        super().__init__(None, "DC/DC converter", config, parameters)
        self._feed = feed
        self._bench: BenchProcess | None = None
        self._hands: Hands | None = None
        self._worker = ThreadPoolExecutor(max_workers=1, thread_name_prefix="fixtures")
        self._closing = False
        self._look: Future[list[tuple[int, str]]] | None = None
        numbers = range(1, self.get_cell_count() + 1)
        self._watches = {number: FixtureWatch(self.app_config, number) for number in numbers}
        self.cell_start_event.subscribe(self._on_cell_started)

    def startup_initializer(self) -> None:
        count = self.get_cell_count()
        try:
            self._bench = start_bench(self.app_config, count)
        except Exception:
            self.stop_ticker()
            raise
        if self._bench is None:
            return
        self._submit(self._open, count)

    def _open(self, count: int) -> None:
        self._hands = Hands(self.app_config, count)
        if self._feed:
            wx.CallAfter(self._show_panel, count)

    def _show_panel(self, count: int) -> None:
        FixturePanel(self, self.hands, self._submit, count).Show()
        for number in range(1, count + 1):
            self._submit(self.hands.fit_new, number)

    def _submit(self, work: Callable[..., Any], *arguments: Any) -> None:
        """Let the worker do it; what goes wrong is told as an exception of any handler."""

        def raise_in_gui(future: "Future[Any]") -> None:
            if not (self._closing or future.cancelled()) and future.exception() is not None:
                wx.CallAfter(future.result)

        if not self._closing:
            self._worker.submit(work, *arguments).add_done_callback(raise_in_gui)

    def ticker_function(self) -> None:
        """Only the fixtures of ready cells are asked: those of running cells belong to their scripts."""
        look = self._look
        if self._closing:
            return
        if look is not None and look.done():
            self._look = None
            for number, label in look.result():
                if self.get_cell(number - 1).is_ready():
                    self.start_cell(number, label)
        elif look is None and (self._bench is None or self.bench_is_up):
            ready = [number for number in self._watches if self.get_cell(number - 1).is_ready()]
            self._look = self._worker.submit(self._new_units, ready)

    def _new_units(self, numbers: list[int]) -> list[tuple[int, str]]:
        found = [(number, self._watches[number].new_unit()) for number in numbers]
        return [(number, label) for number, label in found if label]

    def exit_finalizer(self) -> None:
        self._closing = True
        self._worker.shutdown(wait=False, cancel_futures=True)
        if self._bench:
            self._bench.close()

    @property
    def bench_is_up(self) -> bool:
        return self._hands is not None

    @property
    def hands(self) -> Hands:
        """Those of the simulated operator; there are none before the bench was started."""
        assert self._hands is not None, "the simulated bench is not running"
        return self._hands

    def _on_cell_started(self, cell: qon_ats.Cell) -> None:
        """Whoever scans a unit also puts it in."""
        number = cell.cell_number
        self._submit(self._put_in, number, (cell.uut.serial_number if cell.uut else None) or "")

    def _put_in(self, number: int, serial_number: str) -> None:
        if self._hands:
            self._hands.fit(number, serial_number)
            serial_number = self._hands.label(number)
        self._watches[number].started_with(serial_number)


def arguments_of(argv: Sequence[str] | None = None) -> argparse.Namespace:
    parser = argparse.ArgumentParser(description="demonstration station")
    parser.add_argument("--config", default=CONFIG, help="configuration workbook")
    parser.add_argument("--parameters", default=PARAMETERS, help="directory of the test parameters")
    parser.add_argument("--line", default="", metavar="ADDRESS", help="of a line's database that gets the results")
    arguments = parser.parse_args(argv)
    for name in ("config", "parameters"):
        setattr(arguments, name, str((HERE / getattr(arguments, name)).resolve()))
    return arguments


def main() -> int:
    arguments = arguments_of()
    os.chdir(HERE)
    line = {"line": arguments.line} if arguments.line else {}
    qon_results.record(config=arguments.config, parameters=arguments.parameters, **line)
    return qon_station.run(lambda: DemoStation(arguments.config, arguments.parameters))


if __name__ == "__main__":
    sys.exit(main())
