"""Starts a station application, and keeps its units: hooks around each run, outcomes, reports, checks before a start.

Scripts find `StrictRunner`, `retry` and `shared_lock` here.
"""

from qon_companions import notices

from .going_on import go_on
from .hooks import Happening, before_run, closing, happened, opened, run_ended, start_checks
from .installing import install
from .locking import shared_lock
from .outcome import Kind, NotRecorded, Outcome
from .retrying import retry, retry_item
from .start import run
from .strict import StrictRunner, VerdictError
from .unit import StationUnit

__all__ = [
    "Happening",
    "Kind",
    "NotRecorded",
    "Outcome",
    "StationUnit",
    "StrictRunner",
    "VerdictError",
    "before_run",
    "closing",
    "go_on",
    "happened",
    "install",
    "notices",
    "opened",
    "retry",
    "retry_item",
    "run",
    "run_ended",
    "shared_lock",
    "start_checks",
]
