"""Microseconds per `assert_limits` of a runner in a running test."""

import collections
import gc
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path
from types import SimpleNamespace
from typing import Any

from sides import make_cell, report, run, side_of_this_process

CALLS = 50_000
REPEATS = 3  # the fastest counts: what else runs on the machine only adds


def measure(runner: Any, values: list[float], unit: str | None) -> float:
    """Seconds of this thread's processor time for all values; the loop is part of it on both sides."""
    assert_limits = runner.assert_limits
    begin = time.thread_time()
    for value in values:
        assert_limits("item7", value, 4.5, 5.5, unit)
    return time.thread_time() - begin


def figure(cell: Any, unit: str | None = "V", prepare: Callable[[Any], None] | None = None) -> float:
    return min(one_run(cell, unit, prepare) for _ in range(REPEATS))


def one_run(cell: Any, unit: str | None, prepare: Callable[[Any], None] | None) -> float:
    """Microseconds per call; every run begins with an empty queue."""
    values = [4.9 + index * 1e-6 for index in range(CALLS)]
    seconds: list[float] = []
    cell.body = lambda runner: seconds.append(measure(runner, values, unit))
    cell.reset_state()
    cell._assertion_queue.queue.clear()
    if prepare:
        prepare(cell)
    gc.collect()
    run(cell)
    if len(cell.uut.assertions) != CALLS or cell.uut.summer != "OK":
        raise RuntimeError("the run did not record what it should")
    return seconds[0] / CALLS * 1e6


def without_queue(cell: Any) -> None:
    """Both sides call a native `put` that keeps nothing."""
    nothing: collections.deque[Any] = collections.deque(maxlen=0)
    cell._assertion_queue = SimpleNamespace(put=nothing.append, queue=nothing)


def main() -> None:
    side, module = side_of_this_process()
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        sys.path.append(name)
        cell = make_cell(side, module, folder)
        figures = {"all in": figure(cell), "all in, unit None": figure(cell, None)}
        limited = make_cell(side, module, folder, limits=100)
        figures["limits workbook"] = figure(limited)
        figures["limits workbook, unit None"] = figure(limited, None)
        gc.disable()
        figures["all in, collector off"] = figure(cell)
        gc.enable()
        figures["without the queue"] = figure(cell, prepare=without_queue)
    report(figures)


if __name__ == "__main__":
    main()
