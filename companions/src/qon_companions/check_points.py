"""Waiting in a test thread: an abort ends the wait, but never the cleanup that follows a run."""

import threading
from typing import Any


def cell_of_thread() -> Any:
    """The cell whose test thread this is, else None."""
    return getattr(threading.current_thread(), "cell_proxy", None)


def is_ending(cell: Any) -> bool:
    """Whether the cell's run is over and at most its cleanup is still under way."""
    return bool(cell.uut is None or cell.uut.done or cell._exception_object is not None)


def check_point(cell: Any) -> None:
    """Let a pause or an abort take effect, in the test thread; in its cleanup nothing is left to abort."""
    if not is_ending(cell):
        cell.check_abort()
