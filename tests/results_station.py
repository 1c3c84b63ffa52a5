"""A station without windows, as a process that tests kill: cells whose runs begin and end through the hooks.

python results_station.py FOLDER CELLS ITEMS      one line "cell serial outcome" for each run that has ended
"""

import os
import sys
import threading
import time
from typing import Any

import qon_ats
import qon_results
from qon_station import Outcome, before_run, run_ended
from qon_station.outcome import Kind
from qon_station.unit import StationUnit


def begin(serial_number: str, cell: int = 1, unit_type: type[StationUnit] = StationUnit) -> StationUnit:
    unit = unit_type(serial_number, cell)
    before_run(unit)
    return unit


def measure(unit: StationUnit, count: int, value: float = 1.0) -> None:
    for _ in range(count):
        name = f"item {len(unit.assertions) % 50}"
        unit.append_assertion(qon_ats.Assertion(name, value, 0.5, 1.5, "V"))


def end(unit: StationUnit, kind: Kind | None = None) -> Outcome:
    unit.close()
    outcome: Any = run_ended(unit, Outcome(kind or (Kind.NG if unit.is_ng else Kind.OK)))
    unit.finish(outcome)
    return outcome


def work(cell: int, items: int) -> None:
    number = 0
    while True:
        number += 1
        unit = begin(f"C{cell}-{number}", cell)
        for _ in range(items):
            measure(unit, 10)
            time.sleep(0.002)  # an instrument answers
        outcome = end(unit)
        os.write(1, f"{cell} {unit.serial_number} {outcome.kind}\n".encode())  # whole, whoever else writes


def main() -> None:
    folder, cells, items = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    recorder = qon_results.record(folder, min_free_mb=1)
    print("ready", recorder.wait_until_open() or recorder._sender._link.process.pid, flush=True)
    for cell in range(1, cells + 1):
        threading.Thread(target=work, args=(cell, items), daemon=True).start()
    threading.Event().wait()


if __name__ == "__main__":
    main()
