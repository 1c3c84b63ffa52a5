"""Resident bytes per recorded assertion: record, value, three lists and the queue."""

import gc
import os
import tempfile
from pathlib import Path
from typing import Any

from sides import make_cell, report, run, side_of_this_process

RECORDS = 200_000


def resident() -> int:
    pages = int(Path("/proc/self/statm").read_text(encoding="ascii").split()[1])
    return pages * os.sysconf("SC_PAGE_SIZE")


def record(runner: Any, count: int) -> None:
    for index in range(count):
        runner.assert_limits("VOUT_5V", 4.9 + index * 1e-7, 4.5, 5.5, "V", None, "power")


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
    report({"memory": grown[0] / RECORDS})


if __name__ == "__main__":
    main()
