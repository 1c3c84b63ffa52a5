"""Measurements that were moved out of a station's file into Parquet, one file a month; duckdb reads them.

A month's file holds every measurement of the runs that began in it, by item and run, with what other programs want to know of
the run in front: folders `plant=.../station=.../year=.../month=.../` as every engine reads them.
"""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from pathlib import Path
from typing import Any

import apsw
import duckdb

from . import queries
from .file import Row, ask

FOLDER = "archive"
# Columns of the files and their types; from `seq` on in the order of `records.Measurement`.
COLUMNS = {
    "run": "VARCHAR", "number": "BIGINT", "serial_number": "VARCHAR", "product": "VARCHAR", "operation": "VARCHAR",
    "purpose": "VARCHAR", "cell": "INTEGER", "outcome": "VARCHAR", "begin_us": "BIGINT",
    "seq": "INTEGER", "item": "VARCHAR", "kind": "TINYINT", "value": "DOUBLE", "text": "VARCHAR", "truth": "BOOLEAN",
    "verdict": "TINYINT", "time_us": "BIGINT", "elapsed_us": "BIGINT", "attempt": "INTEGER", "note": "VARCHAR",
    "lower_kind": "TINYINT", "lower": "DOUBLE", "lower_text": "VARCHAR", "upper_kind": "TINYINT", "upper": "DOUBLE",
    "upper_text": "VARCHAR", "unit": "VARCHAR", "report": "BOOLEAN", "categories": "VARCHAR",
}  # fmt: skip
OF_RUN = 9  # columns in front

_OWN = ", ".join(list(COLUMNS)[OF_RUN:])
_OF_RUN = f"SELECT {_OWN} FROM kept WHERE number = ? ORDER BY seq"
_OF_ITEM = """
SELECT number, seq, kind, value, truth, verdict, lower, upper, unit, time_us, attempt FROM kept
WHERE item = ? AND number BETWEEN ? AND ? ORDER BY number, seq
"""
_COUNTS = """
SELECT item, count(*), count(DISTINCT number), count(*) FILTER (WHERE verdict = 0) FROM kept
WHERE ? OR number IN (SELECT unnest(?::BIGINT[])) GROUP BY item
"""
_NG_RUNS = """
SELECT item, count(DISTINCT number) FROM kept
WHERE verdict = 0 AND number IN (SELECT unnest(?::BIGINT[])) GROUP BY item
"""
_FAILED = "SELECT DISTINCT number FROM kept WHERE item = ? AND verdict = 0"


class ArchiveMissingError(ValueError):
    """An archive file is not where the station's file says."""


class Archived:
    """Of one station's file.  Costs nothing as long as nothing was archived."""

    def __init__(self, connection: apsw.Connection, path: Path) -> None:
        self._connection = connection
        self._home = path.parent
        self._months: list[Row] | None = None
        self._files: duckdb.DuckDBPyConnection | None = None

    def close(self) -> None:
        if self._files is not None:
            self._files.close()
            self._files = None

    def __bool__(self) -> bool:
        """Whether there is any; asked again and again, as months may be added while a store is open."""
        months = list(ask(self._connection, queries.ARCHIVES))
        if months != self._months:
            self._months = months
            self.close()
        return bool(months)

    def measurements(self, run: int) -> Iterable[Row]:
        """A run's, wherever they are, in the order of `records.Measurement`."""
        rows = list(ask(self._connection, queries.MEASUREMENTS, {"run": run}))
        if rows or not self:
            return rows
        query = (
            "SELECT measured, strftime('%Y-%m', begin_us / 1000000, 'unixepoch') FROM run WHERE number = ?"
        )
        ((measured, month),) = ask(self._connection, query, (run,))
        if not measured or month not in {row[0] for row in self._months or []}:
            return rows
        return self._ask(_OF_RUN, [run])

    def of_item(self, name: str, first: int, last: int) -> list[Row]:
        """Run, seq, kind, number, truth, verdict, lower, upper, unit, time and attempt of one item's values."""
        return self._ask(_OF_ITEM, [name, first, last]) if self else []

    def counts(self, runs: Sequence[int] | None) -> list[Row]:
        """Item, measurements, runs, NG; of these runs, or of all."""
        return self._ask(_COUNTS, [runs is None, list(runs or [])]) if self else []

    def ng_runs(self, runs: Sequence[int]) -> dict[str, int]:
        """In how many of these runs each item was NG."""
        return dict(self._ask(_NG_RUNS, [list(runs)])) if self and runs else {}

    def failed(self, item: str) -> list[int]:
        """The runs in which an item was NG."""
        return [int(number) for (number,) in self._ask(_FAILED, [item])] if self else []

    def path(self, relative: str) -> Path:
        return self._home / relative

    def _ask(self, query: str, values: list[Any]) -> list[Row]:
        return self._opened().execute(query, values).fetchall()

    def _opened(self) -> duckdb.DuckDBPyConnection:
        if self._files is None:
            paths = [self.path(row[1]) for row in self._months or []]
            for path in paths:
                if not path.is_file():
                    raise ArchiveMissingError(f"The archive {path} is not there; bring it back to its place.")
            self._files = duckdb.connect()
            names = ", ".join("'" + str(path).replace("'", "''") + "'" for path in paths)
            self._files.execute(
                f"CREATE VIEW kept AS SELECT * FROM read_parquet([{names}], hive_partitioning = false)"
            )
        return self._files
