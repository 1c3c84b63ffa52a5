"""What a script leaves behind: threads that go on after its run, and a runner that they still hold.

The ended run's runner loses its cell, so that nothing can be written into the next unit by way of it.  Threads are found
by who started them; while a test runs nothing is asked.
"""

import sys
import threading
import time
import weakref
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from typing import Any

import qon_ats

from .explain import is_library

GRACE_SECONDS = 0.2  # for threads that are about to end
_POOLS = (("concurrent/futures/thread.py", "_worker"), ("multiprocessing/pool.py", "worker"))
# What stays true of a run that has ended; everything else would change what comes after it.
_STAYS_TRUE = frozenset(
    {
        "cell_config",
        "cell_number",
        "get_cell_name",
        "is_in_debug_mode",
        "logger",
        "main_frame",
        "name",
    }
)


class EndedCell:
    """Stands for the cell in the runner of a run that has ended: it tells which unit it was, and refuses the rest."""

    def __init__(self, cell: qon_ats.CellBase, unit: qon_ats.UUT, script: str) -> None:
        self._told: dict[str, Any] = {"uut": unit, "script": script}
        self._cell = weakref.ref(cell)
        self._words = f"{cell.get_cell_name()}: the run of {unit.serial_number or 'the unit'} has ended"

    def has_done(self) -> bool:
        return True

    def is_in_cell_test_thread(self) -> bool:
        return False

    def __getattr__(self, name: str) -> Any:
        if name.startswith("__"):
            raise AttributeError(name)
        if name in self._told:
            return self._told[name]
        cell = self._cell()
        if name in _STAYS_TRUE and cell is not None:
            return getattr(cell, name)
        thread = threading.current_thread().name
        raise RuntimeError(
            f'{self._words}; thread "{thread}" of its script can do nothing more there ("{name}").'
        )


@dataclass(frozen=True)
class LeftThread:
    """`place` is the line of the script at which it is, "" when it is in none."""

    name: str
    place: str


# Which run has started a thread: the run itself is known by the cell and the time.
_started: "weakref.WeakKeyDictionary[threading.Thread, weakref.ref[Any]]" = weakref.WeakKeyDictionary()
_lock = threading.Lock()


def _run_of(thread: threading.Thread) -> Any:
    """The run that the thread belongs to: a test thread's own, or that of whoever started it."""
    cell = getattr(thread, "cell_proxy", None)
    if cell is not None:
        return getattr(cell, "current_run", None)
    with _lock:
        known = _started.get(thread)
    return known() if known is not None else None


@contextmanager
def watched() -> Iterator[None]:
    """While it is open, threads are known by the run that started them, and runs know their runner."""
    start, init = threading.Thread.start, qon_ats.CellRunnerBase.__init__
    if start.__name__ == "watched_start":
        yield
        return

    def watched_start(self: threading.Thread) -> None:
        run = _run_of(threading.current_thread())
        if run is not None:
            with _lock:
                _started[self] = weakref.ref(run)
        start(self)

    def watched_init(self: qon_ats.CellRunnerBase) -> None:
        init(self)
        run = getattr(self._cell, "current_run", None)
        if run is not None:
            run.runner = self

    watched_init.__doc__ = init.__doc__
    threading.Thread.start = watched_start  # type: ignore[method-assign]
    qon_ats.CellRunnerBase.__init__ = watched_init  # type: ignore[method-assign]
    try:
        yield
    finally:
        if threading.Thread.start is watched_start:  # else somebody has replaced it since, and calls this one
            threading.Thread.start = start  # type: ignore[method-assign]
        qon_ats.CellRunnerBase.__init__ = init  # type: ignore[method-assign]


def left_threads(run: Any) -> list[LeftThread]:
    """The threads that still work for a run that is over; idle workers of a pool do not."""
    with _lock:
        own = [thread for thread, known in _started.items() if known() is run]
    deadline = time.monotonic() + GRACE_SECONDS
    found = []
    for thread in own:
        if thread.is_alive() and not _is_idle(thread):
            thread.join(max(0.0, deadline - time.monotonic()))
        if thread.is_alive() and not _is_idle(thread):
            found.append(LeftThread(thread.name, place_of(thread)))
    return found


def _frames(thread: threading.Thread) -> Iterator[Any]:
    """Innermost first."""
    frame = sys._current_frames().get(thread.ident or 0)
    while frame is not None:
        yield frame
        frame = frame.f_back


def _is_idle(thread: threading.Thread) -> bool:
    """Whether it is a worker that waits for its next task."""
    for frame in _frames(thread):
        code = frame.f_code
        file = code.co_filename.replace("\\", "/")
        if any(file.endswith(pool) and code.co_name == function for pool, function in _POOLS):
            return True
        if not is_library(code.co_filename):
            return False
    return False


def place_of(thread: threading.Thread) -> str:
    """The innermost line of the application that the thread is at, "" when there is none."""
    for frame in _frames(thread):
        if not is_library(frame.f_code.co_filename):
            return f"{frame.f_code.co_filename}, line {frame.f_lineno}"
    return ""
