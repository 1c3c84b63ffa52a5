"""Moving the measurements of whole months out of a station's file, after everything was verified."""

import datetime
import hashlib
import os
import re
import time
import uuid
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from pathlib import Path

import apsw
import duckdb

from ..writer.lock import InUseError, Lock
from . import archived_runs, queries
from .archived import COLUMNS, FOLDER, OF_RUN, Archived
from .base import Progress
from .file import Row, ask, check_version, connect
from .hashing import RecordHash
from .parquet import write_parquet
from .sqlite import measurement_values
from .verify import verify

_MONTHS = """
SELECT strftime('%Y-%m', begin_us / 1000000, 'unixepoch') AS month, count(*), sum(measured), min(number), max(number)
FROM run AS r
WHERE begin_us < :before AND month NOT IN (SELECT month FROM archive)
GROUP BY month
HAVING count(*) = sum(EXISTS (SELECT 1 FROM seal WHERE seal.run = r.number)) ORDER BY month
"""
_RUNS = """
SELECT number, id, serial_number, product, operation, purpose, cell, outcome, begin_us FROM result
WHERE number BETWEEN ? AND ? AND strftime('%Y-%m', begin_us / 1000000, 'unixepoch') = ? ORDER BY number
"""


class ArchiveError(Exception):
    """Nothing was moved; the text says why."""


@dataclass(frozen=True)
class Month:
    month: str
    runs: int
    measurements: int
    path: Path


def archive(path: Path, before: datetime.date, plant: str, progress: Progress) -> list[Month]:
    """Move the months that ended before a date; nothing leaves the file before its copy was read back and compared.

    The station must not run.  InUseError when it does; ArchiveError names the first fault of the file.
    """
    try:
        lock = Lock(path, wait=0.0)
    except InUseError as error:
        raise InUseError(f"{error} Close the station first: months are moved while nobody writes.") from None
    connection = connect(path, write=True)
    try:
        check_version(connection, path)
        found = verify(connection, progress, Archived(connection, path))
        if found.fault is not None:
            raise ArchiveError(f"Nothing was moved. {found.fault.text}")
        ((station, name, _),) = ask(connection, queries.STATIONS)
        home = (
            Path(FOLDER)
            / f"plant={_safe(plant)}"
            / f"station={_safe(name)}-{uuid.UUID(bytes=station).hex[:8]}"
        )
        for known, relative, *_ in list(ask(connection, queries.ARCHIVES)):
            archived_runs.refresh(connection, known, (path.parent / relative).with_name(archived_runs.NAME))
        first = datetime.datetime(before.year, before.month, 1, tzinfo=datetime.UTC)
        rows = list(ask(connection, _MONTHS, {"before": int(first.timestamp()) * 1_000_000}))
        return [_move(connection, path, home, row, progress) for row in rows]
    finally:
        connection.close()
        lock.close()


def _safe(text: str) -> str:
    """What a folder may be called everywhere."""
    return re.sub(r"[^\w.-]+", "_", text).strip("._") or "unnamed"


def _move(connection: apsw.Connection, path: Path, home: Path, row: Row, progress: Progress) -> Month:
    month, runs, measured, first, last = row
    relative = home / f"year={month[:4]}" / f"month={month[5:]}" / "measurements.parquet"
    target = path.parent / relative
    target.parent.mkdir(parents=True, exist_ok=True)
    beside = target.with_name(f".{target.name}.part")
    try:
        rows = _rows(connection, month, first, last, progress)
        count = write_parquet(rows, beside, COLUMNS, ("item", "number", "seq"))
        if count != (measured or 0):
            raise ArchiveError(
                f"{month}: {count} measurements were written, {measured} are recorded. Nothing was moved."
            )
        _compare(connection, beside, month, first, last)
        with beside.open("rb") as file:
            os.fsync(file.fileno())
            digest = hashlib.file_digest(file, "sha256").digest()
        archived_runs.write(connection, month, target.with_name(archived_runs.NAME))
        os.replace(beside, target)
    finally:
        beside.unlink(missing_ok=True)
    with connection:
        connection.execute(
            "INSERT INTO archive VALUES (?, ?, ?, ?, ?, ?)",
            (month, relative.as_posix(), digest, runs, count, time.time_ns() // 1000),
        )
        for number, *_ in list(ask(connection, _RUNS, (first, last, month))):
            connection.execute("DELETE FROM note WHERE run = ?", (number,))
            connection.execute(
                "DELETE FROM measurement WHERE run = :run AND item IN (SELECT item FROM plan_item WHERE plan ="
                " (SELECT plan FROM run WHERE number = :run))",
                {"run": number},
            )
    return Month(month, runs, count, target)


def _rows(
    connection: apsw.Connection, month: str, first: int, last: int, progress: Progress
) -> Iterator[dict[str, object]]:
    names = list(COLUMNS)
    runs = list(ask(connection, _RUNS, (first, last, month)))
    for done, (number, id, *of_run) in enumerate(runs):
        front = [str(uuid.UUID(bytes=id)), number, *of_run]
        for row in ask(connection, queries.MEASUREMENTS, {"run": number}):
            truth, report = (None if row[5] is None else bool(row[5])), bool(row[18])
            yield dict(zip(names, [*front, *row[:5], truth, *row[6:18], report, row[19]], strict=True))
        if done % 100 == 0:
            progress(done, len(runs))


def _compare(connection: apsw.Connection, path: Path, month: str, first: int, last: int) -> None:
    """Each run's measurements in the file hash to what those in the database do."""
    own = ", ".join(list(COLUMNS)[OF_RUN:])
    with duckdb.connect() as files:
        files.execute(
            "CREATE TABLE kept AS SELECT * FROM read_parquet(?, hive_partitioning = false)", [str(path)]
        )
        files.execute("CREATE INDEX of_run ON kept (number)")
        for number, *_ in list(ask(connection, _RUNS, (first, last, month))):
            moved = files.execute(
                f"SELECT {own} FROM kept WHERE number = ? ORDER BY seq", [number]
            ).fetchall()
            if _hash(moved) != _hash(ask(connection, queries.MEASUREMENTS, {"run": number})):
                raise ArchiveError(
                    f"{month}: run {number} reads differently from the copy. Nothing was moved."
                )


def _hash(rows: Iterable[Row]) -> bytes:
    total = RecordHash()
    total.measurements([measurement_values(row) for row in rows])
    return total.digest()
