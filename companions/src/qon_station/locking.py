"""A lock for what the cells of a station share: while a script waits for it, abort and pause take effect.

from qon_station import shared_lock

with shared_lock("scanner"):
    label = scanner.read()
"""

import contextlib
import logging
import threading
import time
from collections import deque
from collections.abc import Iterator
from typing import Any

from qon_companions.check_points import cell_of_thread, check_point, is_ending

LOOK_SECONDS = 0.1
TOLD_SECONDS = 5.0  # a wait longer than this stands in the log
CLEANUP_SECONDS = 30.0  # no cleanup waits longer, unless it says so itself

log = logging.getLogger(__name__)


class _Lock:
    """Who comes first is served first; the thread that has it may take it again."""

    def __init__(self, name: str) -> None:
        self.name = name
        self._changed = threading.Condition()
        self._line: deque[threading.Thread] = deque()  # the first has the lock
        self._depth = 0

    def join(self) -> None:
        with self._changed:
            if threading.current_thread() not in self._line:
                self._line.append(threading.current_thread())

    def leave(self) -> None:
        with self._changed:
            self._line.remove(threading.current_thread())
            self._changed.notify_all()

    def taken(self, seconds: float) -> bool:
        """Whether it is this thread's turn, now or within the time."""
        me = threading.current_thread()
        with self._changed:
            if not self._changed.wait_for(lambda: self._line[0] is me, seconds):
                return False
            self._depth += 1
            return True

    def release(self) -> None:
        self._depth -= 1
        if not self._depth:
            self.leave()

    def holder(self) -> str:
        with self._changed:
            return _name_of(self._line[0]) if self._line else "nobody"


_making = threading.Lock()
_locks: dict[str, _Lock] = {}


@contextlib.contextmanager
def shared_lock(name: str, timeout: float | None = None) -> Iterator[None]:
    """Have the thing of this name alone, among all cells of the process; taken in the order of asking.

    While it waits, an abort ends the test and a pause holds it, without keeping the others.  After `timeout`
    seconds it raises TimeoutError, which says who has it.  In a cleanup, where an abort has no effect any more,
    the wait is at most 30 s.  A thread that has the lock may take it again.
    """
    with _making:
        lock = _locks.setdefault(name, _Lock(name))
    _acquire(lock, cell_of_thread(), timeout)
    try:
        yield
    finally:
        lock.release()


def _acquire(lock: _Lock, cell: Any, timeout: float | None) -> None:
    if timeout is None and cell is not None and is_ending(cell):
        timeout = CLEANUP_SECONDS
    begin, told = time.monotonic(), False
    lock.join()
    try:
        while not lock.taken(_next_look(begin, timeout)):
            waited = time.monotonic() - begin
            if timeout is not None and waited >= timeout:
                raise TimeoutError(
                    f'"{lock.name}" was not free within {timeout:g} s: {lock.holder()} has it.'
                )
            if waited >= TOLD_SECONDS and not told:
                told = True
                me = _name_of(threading.current_thread())
                log.info('%s waits for "%s", which %s has', me, lock.name, lock.holder())
            if cell is not None:
                _look(lock, cell)
    except BaseException:
        lock.leave()
        raise


def _next_look(begin: float, timeout: float | None) -> float:
    if timeout is None:
        return LOOK_SECONDS
    return max(0.0, min(LOOK_SECONDS, begin + timeout - time.monotonic()))


def _look(lock: _Lock, cell: Any) -> None:
    """A cell that is paused gives up its place: the others would wait for whoever resumes it."""
    if not cell.is_paused():
        check_point(cell)
        return
    lock.leave()
    try:
        check_point(cell)
    finally:
        lock.join()


def _name_of(thread: threading.Thread) -> str:
    cell = getattr(thread, "cell_proxy", None)
    return thread.name if cell is None else str(cell.get_cell_name())
