"""Cells that each assert 10,000 times a second, with the recorder and without.

    python bench/results_run.py on|off CELLS SECONDS

Processor time of a test thread for each assertion, the 99.9th percentile of the gaps between two calls that follow each other at
once, the event loop's lateness; with the recorder how far behind the disk's writer was, and what is on the disk.
"""

import sys
import tempfile
import time
from pathlib import Path
from typing import Any

import qon_results
import qon_station
import wx
from qon_results.recorder.sending import Sender
from qon_results.writer import messages
from sides import report
from station import Station

RATE = 10_000  # assertions per second and cell

SCRIPT = """\
import time
from qon_ats import CellRunnerBase

PAUSE = 0.002  # longer gaps are the script's own sleep


class CellRunner(CellRunnerBase):
    def run(self):
        clock, gaps = time.perf_counter, []
        begin, count, cpu = clock(), 0, time.thread_time()
        while count < {rate} * {seconds}:
            due = (clock() - begin) * {rate}
            last = clock()
            while count < due:
                self.assert_limits("VOUT_5V", 4.9 + count * 1e-8, 4.5, 5.5, "V")
                now = clock()
                gaps.append(now - last)
                last = now
                count += 1
            self.sleep(0.005)
        gaps.sort()
        self.noumenon.produced = count, time.thread_time() - cpu, gaps[int(len(gaps) * 0.999)], clock() - begin

    def cleanup(self):
        pass
"""


class Behind:
    """How old the oldest measurement is that the writer has not read yet."""

    def __init__(self, sender: Sender) -> None:
        self.longest = 0.0
        self._sender, self._sent = sender, {}
        self._send, self._heard = sender._send_encoded, sender._heard
        sender._send_encoded = self._note  # type: ignore[method-assign]
        sender._heard = self._read  # type: ignore[method-assign]

    def _note(self, data: bytes) -> int:
        number = self._send(data)
        if data:
            self._sent[number] = time.perf_counter()
        return number

    def _read(self, link: Any, answer: Any) -> None:
        if isinstance(answer, messages.Reached):
            for number in [number for number in self._sent if number <= answer.read]:
                del self._sent[number]
        self._heard(link, answer)

    def look(self, cells: list[Any]) -> None:
        now = time.perf_counter()
        oldest = min(list(self._sent.values()), default=now)
        behind = now - oldest
        for cell in cells:
            tracked = self._sender_unit(cell)
            if tracked is not None and tracked.taken < len(cell.uut.assertions):
                behind = max(behind, time.time() - cell.uut.assertions[tracked.taken].assert_time)
        self.longest = max(self.longest, behind)

    def _sender_unit(self, cell: Any) -> Any:
        return next((each for each in list(self._sender._tracked.values()) if each.unit is cell.uut), None)


def main() -> None:
    side, cells, seconds = sys.argv[1], int(sys.argv[2]), float(sys.argv[3])
    app = wx.App(False)
    undo = qon_station.install()
    with tempfile.TemporaryDirectory() as name:
        recorder = behind = None
        if side == "on":
            recorder = qon_results.record(Path(name) / "results", min_free_mb=1)
            behind = Behind(recorder._sender)
            assert recorder.wait_until_open() == "", recorder.trouble
        script = Path(name) / "bench_results_script.py"
        script.write_text(SCRIPT.format(rate=RATE, seconds=seconds), encoding="utf-8")
        station = Station(Path(name), script, cells)
        during: list[float] = []

        def watch() -> None:
            if not during and any(hasattr(cell, "produced") for cell in station.cells):
                during.extend(station.lateness.late)
            if behind is not None and not during:
                behind.look(station.cells)

        station.run(watch)
        made = [cell.produced for cell in station.cells]
        total = sum(count for count, *_ in made)
        figures = {
            "thread": sum(cpu for _, cpu, *_ in made) / total * 1e6,
            "gap": max(gap for _, _, gap, _ in made) * 1e3,
            "rate": min(count / took for count, _, _, took in made),
            "delay": sorted(during)[int(len(during) * 0.99)] * 1e3,
        }
        if recorder is not None and behind is not None:
            recorder.close()
            with qon_results.open(Path(name) / "results") as store:
                stored = store.verify()
            assert stored.fault is None and stored.measurements == total, (stored, total)
            figures["behind"] = behind.longest
        station.frame.Destroy()
        app.Destroy()
        undo()
    report(figures)


if __name__ == "__main__":
    main()
