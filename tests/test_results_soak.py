"""The soak with the recorder on: on disk = records = queue = rows of the grid = the scripts' own books."""

import os
from collections import Counter
from collections.abc import Iterator
from typing import Any

import pytest
import qon_ats
import qon_results
import qon_station
from soak import Soak
from soak_script import Ledger
from station import Station

pytest_plugins = ["stationplugin"]

MEASUREMENTS = int(os.environ.get("QON_SOAK_MEASUREMENTS", "3000"))


class RecordedSoak(Soak):
    """Asks what was recorded instead of what the bare engine shows."""

    books: dict[str, tuple[int, str]]

    @staticmethod
    def make_unit_type(cell: Any) -> type[qon_ats.UUT]:
        return Soak.make_unit_type(cell, cell.uut_type)

    def audit(self, cell: Any, ledger: Ledger) -> None:
        uut, items = cell.uut, ledger.items["measurements"]
        queued = cell._assertion_queue.unfinished_tasks - ledger.queued_before
        rows = cell.ui_assertions.GetNumberRows()
        assert (len(uut.assertions), queued, rows) == (items,) * 3, f"{uut.serial_number}: {ledger}"
        self.__dict__.setdefault("books", {})[uut.serial_number] = (items, str(uut.outcome.kind))
        self.totals.update(Counter(measurements=items, units=1))
        self.totals[f"ended: {uut.outcome.kind}"] += 1
        cell.ledger = None

    def check_counters(self) -> None:
        """The books are compared with the disk."""

    check_station = check_counters


@pytest.fixture
def installed() -> Iterator[None]:
    undo = qon_station.install()
    yield
    undo()


def test_what_is_on_disk_is_what_scripts_counted(installed: None, station: Station) -> None:
    recorder = qon_results.record(station.folder / "results", min_free_mb=1)
    assert recorder.wait_until_open() == ""
    try:
        soak = RecordedSoak(station, 60)
        totals = soak.soak(MEASUREMENTS)
    finally:
        recorder.close()
    assert totals["ended: ABORTED"] and totals["ended: OK"] and totals["ended: EXCEPTION"]
    with qon_results.open(station.folder / "results") as store:
        assert store.verify().fault is None
        on_disk = {run.serial_number: (run.measured, str(run.outcome)) for run in store.runs(limit=None)}
    assert on_disk == soak.books
