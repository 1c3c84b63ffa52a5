"""Starts a station application: log file, fault reports, exit code."""

from .start import run

__all__ = ["run"]
