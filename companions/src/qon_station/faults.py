"""Exceptions that nobody caught, counted by kind: a fault that repeats is one entry, not a flood."""

import logging
import sys
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from types import TracebackType
from typing import Any, Self

from qon_companions.i18n import _

from .explain import details, explain

MAX_KINDS = 200
# A repeated fault is logged at these counts only.
_LOGGED_COUNTS = {10**power for power in range(1, 10)}

log = logging.getLogger(__name__)


@dataclass
class Fault:
    """One kind: the same exception class raised in the same line."""

    where: str
    what: str
    details: str
    count: int = 1
    last: float = field(default_factory=time.time)


class Faults:
    """Collects faults of every thread; `changed` is called in the thread of the fault."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._kinds: dict[tuple[Any, ...], Fault] = {}
        self.changed: Callable[[bool], None] = lambda new: None

    def list(self) -> list[Fault]:
        """Newest kind last."""
        with self._lock:
            return list(self._kinds.values())

    def forget(self) -> None:
        """The operator has seen them; the same kinds count as new again."""
        with self._lock:
            self._kinds.clear()

    def add(self, error: BaseException, where: str) -> bool:
        """Count it, log it, tell; whether it is a new kind."""
        key = _kind(error)
        with self._lock:
            fault = self._kinds.get(key)
            new = fault is None and len(self._kinds) < MAX_KINDS
            if fault is not None:
                fault.count += 1
                fault.last = time.time()
            elif new:
                fault = self._kinds[key] = Fault(where, _words(error), details(error))
            count = fault.count if fault else 1
        if new:
            log.error("Uncaught in %s:\n%s", where, fault.details if fault else "")
        elif count in _LOGGED_COUNTS:
            log.error("Uncaught in %s, %d times now: %r", where, count, error)
        self.changed(new)
        return new


def _words(error: BaseException) -> str:
    explanation = explain(error)
    return "\n".join(part for part in (explanation.what, explanation.place) if part)


def _kind(error: BaseException) -> tuple[Any, ...]:
    trace: TracebackType | None = error.__traceback__
    while trace is not None and trace.tb_next is not None:
        trace = trace.tb_next
    place = (trace.tb_frame.f_code.co_filename, trace.tb_lineno) if trace is not None else ("", 0)
    return type(error), *place


class Hooks:
    """While in use, uncaught exceptions of the GUI thread and of other threads end up in `faults`."""

    def __init__(self, faults: Faults) -> None:
        self._faults = faults

    def __enter__(self) -> Self:
        self._main, self._thread = sys.excepthook, threading.excepthook
        sys.excepthook, threading.excepthook = self._on_main, self._on_thread
        return self

    def __exit__(self, *_error: object) -> None:
        sys.excepthook, threading.excepthook = self._main, self._thread

    def _on_main(self, kind: type[BaseException], error: BaseException, trace: TracebackType | None) -> None:
        if not issubclass(kind, Exception) or self._is_new(error, _("window")):
            self._main(kind, error, trace)

    def _on_thread(self, args: threading.ExceptHookArgs) -> None:
        if args.exc_type is SystemExit:
            return
        if self._is_new(args.exc_value or args.exc_type(), thread_name(args.thread)):
            self._thread(args)

    def _is_new(self, error: BaseException, where: str) -> bool:
        """Whether the console has not seen it; there may be no console at all."""
        try:
            return self._faults.add(error, where) and sys.stderr is not None
        except Exception:  # a fault in the reporting must not hide the fault itself
            log.exception("A fault could not be reported.")
            return True


def thread_name(thread: threading.Thread | None) -> str:
    """The cell's name for a test thread, else the thread's."""
    cell = getattr(thread, "cell_proxy", None)
    if cell is not None and hasattr(cell, "get_cell_name"):
        return str(cell.get_cell_name())
    return thread.name if thread else "thread"
