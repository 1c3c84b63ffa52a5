"""Resident bytes per recorded assertion: record, value, three lists and the queue.

And what is left of units of 1,000 assertions once nobody refers to them: nothing, without help of the collector.
"""

import gc
import os
import sys
import tempfile
import weakref
from pathlib import Path
from typing import Any

from sides import make_cell, report, run, side_of_this_process

RECORDS = 200_000
UNITS = 50
UNIT_RECORDS = 1_000


def resident() -> int:
    pages = int(Path("/proc/self/statm").read_text(encoding="ascii").split()[1])
    return pages * os.sysconf("SC_PAGE_SIZE")


def record(runner: Any, count: int) -> None:
    for index in range(count):
        runner.assert_limits("VOUT_5V", 4.9 + index * 1e-7, 4.5, 5.5, "V", None, "power")


def run_and_forget(cell: Any) -> None:
    """Record a unit; let go of it; it must be gone with all its records at once."""
    cell.reset_state()
    run(cell)
    assert len(cell.uut.assertions) == UNIT_RECORDS
    watched = [weakref.ref(cell.uut), *map(weakref.ref, cell.uut.assertions)]
    cell._assertion_queue.queue.clear()
    cell.reset_state()
    cell.uut = None
    alive = sum(each() is not None for each in watched)
    if alive:
        raise RuntimeError(f"{alive} of {len(watched)} objects outlive the last reference to their unit")


def blocks_left(cell: Any) -> float:
    """Memory blocks of any kind that a recorded and forgotten unit leaves.

    The collector is off while units go, and runs before the count: each run leaves it the script's old class.
    """
    cell.body = lambda runner: record(runner, UNIT_RECORDS)
    for _ in range(3):
        run_and_forget(cell)
    gc.collect()
    gc.disable()
    before = sys.getallocatedblocks()
    for _ in range(UNITS):
        run_and_forget(cell)
    gc.collect()
    left = sys.getallocatedblocks() - before
    gc.enable()
    return left / UNITS


def main() -> None:
    side, module = side_of_this_process()
    with tempfile.TemporaryDirectory() as folder:
        cell = make_cell(side, module, Path(folder))
        cell.body = lambda runner: record(runner, 100)
        run(cell)
        grown: list[int] = []

        def body(runner: Any) -> None:
            gc.collect()
            before = resident()
            record(runner, RECORDS)
            grown.append(resident() - before)

        cell.body = body
        cell.reset_state()
        run(cell)
        assert len(cell.uut.assertions) == len(cell.get_assertions("power")) == RECORDS
        figures = {"memory": grown[0] / RECORDS, "left": blocks_left(cell)}
    report(figures)


if __name__ == "__main__":
    main()
