"""Eight cells that each assert 10,000 times a second: how late the event loop is, in milliseconds.

    python bench/flood.py window [SECONDS]

The 99th percentile of a 10 ms timer's lateness while the scripts run, and the longest one; then the longest while
the rows that are left are shown at the end of the runs.
"""

import sys
import tempfile
from pathlib import Path

import wx
from sides import report
from station import Station

CELLS = 8
RATE = 10_000  # assertions per second and cell
SECONDS = 60.0

SCRIPT = """\
import time
from qon_ats import CellRunnerBase


class CellRunner(CellRunnerBase):
    def run(self):
        begin, count, rate, seconds = time.perf_counter(), 0, {rate}, {seconds}
        while count < rate * seconds:
            due = (time.perf_counter() - begin) * rate
            while count < due:
                self.assert_limits("VOUT_5V", 4.9 + count * 1e-8, 4.5, 5.5, "V")
                count += 1
            self.sleep(0.005)
        self.noumenon.produced = count, time.perf_counter() - begin

    def cleanup(self):
        self.noumenon.ended = time.perf_counter()
"""


def main() -> None:
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else SECONDS
    app = wx.App(False)
    with tempfile.TemporaryDirectory() as name:
        script = Path(name) / "bench_flood_script.py"
        script.write_text(SCRIPT.format(rate=RATE, seconds=seconds), encoding="utf-8")
        station = Station(Path(name), script, CELLS)
        during: list[float] = []

        def first_end() -> None:
            """What is late once a script has ended belongs to the rows that are left."""
            if not during and any(hasattr(cell, "ended") for cell in station.cells):
                during.extend(station.lateness.late)
                station.lateness.late.clear()

        station.run(first_end)
    for cell in station.cells:
        count, took = cell.produced
        assert len(cell.uut.assertions) == cell.ui_assertions.GetNumberRows() == count
        if count / took < 0.9 * RATE:
            raise RuntimeError(f"only {count / took:.0f} assertions a second instead of {RATE}")
    during.sort()
    report(
        {
            "delay": during[int(len(during) * 0.99)] * 1e3,
            "longest": during[-1] * 1e3,
            "at the end": max(station.lateness.late, default=0.0) * 1e3,
            "starved": station.starved,
        }
    )
    station.frame.Destroy()
    app.Destroy()


if __name__ == "__main__":
    main()
