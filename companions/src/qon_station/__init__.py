"""Starts a station application, and keeps its units: hooks around each run, outcomes, reports, checks before a start."""

from qon_companions import notices

from .hooks import before_run, closing, run_ended, start_checks
from .installing import install
from .outcome import Kind, NotRecorded, Outcome
from .start import run
from .unit import StationUnit

__all__ = [
    "Kind",
    "NotRecorded",
    "Outcome",
    "StationUnit",
    "before_run",
    "closing",
    "install",
    "notices",
    "run",
    "run_ended",
    "start_checks",
]
