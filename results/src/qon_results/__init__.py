"""Durable results of test stations: every run of every unit on disk before the operator sees green."""

import re
from pathlib import Path
from typing import TYPE_CHECKING, Any

from .records import Kind, Measurement, Outcome, Record, Run, Verdict
from .store.base import Filter, ItemColumns, Store, Verification, Yield
from .store.file import FILE_NAME
from .store.sqlite import SqliteStore

if TYPE_CHECKING:
    from .recorder.recorder import Recorder

_ADDRESS = r"postgres(ql)?://|\w+="

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
    "record",
]


def open(where: str | Path) -> Store:
    """Open results for reading: a station's file or its folder, or a line's database.

    The address of a database is what libpq takes (`service=line3`, an URL), without a password.
    FileNotFoundError or ValueError says what is wrong with a file, `line.LineError` what with a database.
    """
    if isinstance(where, str) and re.match(_ADDRESS, where):
        from .line.postgres import LineStore

        return LineStore(where)
    path = Path(where)
    return SqliteStore(path / FILE_NAME if path.is_dir() else path)


def record(
    folder: str | Path | None = None,
    *,
    config: str | Path | None = None,
    parameters: str | Path | None = None,
    **settings: Any,
) -> "Recorder":
    """Record every run of this station from now on; to be called before `qon_station.run`.

    folder: where the file lies; by default the configuration's key "results_folder", else "results".
    config: the configuration workbook, whose sheet "main" may hold `results_required` and the other settings.
    parameters: the directory of the test parameters.  settings: as the fields of `recorder.settings.Settings`.
    """
    from .recorder.recorder import Recorder
    from .recorder.settings import Settings, main_sheet

    recorder = Recorder(Settings.of(folder, main_sheet(config), settings), config, parameters)
    recorder.start()
    return recorder
