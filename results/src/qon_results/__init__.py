"""Durable results of test stations: every run of every unit on disk before the operator sees green."""

from pathlib import Path

from .records import Kind, Measurement, Outcome, Record, Run, Verdict
from .store.base import Filter, ItemColumns, Store, Verification, Yield
from .store.file import FILE_NAME
from .store.sqlite import SqliteStore

__all__ = [
    "Filter",
    "ItemColumns",
    "Kind",
    "Measurement",
    "Outcome",
    "Record",
    "Run",
    "Store",
    "Verdict",
    "Verification",
    "Yield",
    "open",
]


def open(where: str | Path) -> Store:
    """Open results for reading: a station's file, or its folder.

    FileNotFoundError or ValueError says what is wrong with a file.
    """
    path = Path(where)
    return SqliteStore(path / FILE_NAME if path.is_dir() else path)
