"""Texts of exceptions and times."""

import sys
import traceback
from datetime import datetime


def format_exception(skip_level: int = 0) -> list[str]:
    """The exception being handled with its traceback, as lines that end with a newline each.

    `skip_level` leaves out so many of the outermost traceback entries, which are the caller's own machinery.
    Causes and contexts are kept.  The list is empty when no exception is being handled.
    """
    kind, error, trace = sys.exc_info()
    if error is None:
        return []
    for _ in range(skip_level):
        trace = trace.tb_next if trace else None
    try:
        return traceback.format_exception(kind, error, trace)
    finally:
        del error, trace  # they hold this frame


def timestamp(t: float | None = None) -> str:
    """A time in seconds since the epoch, or now, as local "2024-05-17 09:30:00"."""
    return _local(t).isoformat(" ", "seconds")


def timestamp_as_filename(t: float | None = None) -> str:
    """The same time as a file name may hold it on every system: "2024-05-17_09-30-00"."""
    return _local(t).strftime("%Y-%m-%d_%H-%M-%S")


def _local(t: float | None) -> datetime:
    return datetime.now() if t is None else datetime.fromtimestamp(t)
