"""Starts a station application: log file, fault reports, exit code."""

from qon_companions import notices

from .start import run

__all__ = ["notices", "run"]
