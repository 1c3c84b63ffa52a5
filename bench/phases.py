"""A test of 1,000 measurements in one go, and one of 500 steps of a measurement each; microseconds of the whole run.

From the start of the run to its finished record, divided by the measurements or steps.
"""

import tempfile
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

from sides import make_cell, report, run, side_of_this_process

MEASUREMENTS = 1_000
STEPS = 500
RUNS = {MEASUREMENTS: 12, STEPS: 6}  # the fastest counts: what else runs on the machine only adds


def measure_all(runner: Any) -> None:
    for number in range(MEASUREMENTS):
        runner.assert_limits(f"item{number}", 4.9 + number * 1e-4, 4.5, 5.5)


def step(number: int) -> Callable[[Any], None]:
    def one(runner: Any) -> None:
        runner.assert_limits(f"item{number}", 5.0, 4.5, 5.5)

    return one


ALL_STEPS = [step(number) for number in range(STEPS)]


def take_steps(runner: Any) -> None:
    for one in ALL_STEPS:
        one(runner)


def microseconds(cell: Any, body: Callable[[Any], None], count: int) -> float:
    cell.body = body
    times = []
    for _ in range(RUNS[count]):
        cell.reset_state()
        cell._assertion_queue.queue.clear()
        begin = time.perf_counter()
        run(cell)
        times.append(time.perf_counter() - begin)
        assert cell.uut.summer == "OK" and len(cell.uut.assertions) == cell._assertion_queue.qsize() == count
    return min(times) / count * 1e6


def main() -> None:
    side, module = side_of_this_process()
    with tempfile.TemporaryDirectory() as folder:
        # The other framework keeps the test it has loaded.
        cell = make_cell(side, module, Path(folder), reload_cell_runner=False)
        figures = {
            "measurement": microseconds(cell, measure_all, MEASUREMENTS),
            "step": microseconds(cell, take_steps, STEPS),
        }
    report(figures)


if __name__ == "__main__":
    main()
