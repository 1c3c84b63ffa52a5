"""The second sheet of a unit's report: under which conditions it was tested, and how that ended."""

import time
from typing import Any

from .unit import StationUnit

SHEET = "Run"


class ReportPath(str):
    """The file name of a report on its way through the engine; it knows its unit."""

    unit: StationUnit | None = None


def describe(book: Any, unit: StationUnit) -> None:
    """Add the sheet."""
    sheet = book.create_sheet(SHEET)
    for row, pair in enumerate(rows(unit), 1):
        for column, value in enumerate(pair, 1):
            sheet.cell(row, column, value)
    sheet.column_dimensions["A"].width, sheet.column_dimensions["B"].width = 20, 60


def rows(unit: StationUnit) -> list[tuple[str, str | int | float]]:
    """Title and content, line by line."""
    outcome = unit.outcome
    return [
        ("Serial number", unit.serial_number or ""),
        ("Scanned", unit.scanned_serial_number),
        ("Cell", unit.cell_number),
        ("Begin", _time(unit.begin_time)),
        ("End", _time(unit.end_time) if outcome else ""),
        ("Duration (s)", round(unit.duration, 3)),
        ("Outcome", str(outcome.kind) if outcome else "running"),
        ("Reason", outcome.reason if outcome else ""),
        ("Script", unit.script),
        ("Limits", unit.limits_file),
        ("Limits revision", unit.limits_revision),
    ]


def _time(seconds: float) -> str:
    return time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(seconds))
