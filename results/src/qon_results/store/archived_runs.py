"""What other programs want to know of an archived month's runs, a row a run: `runs.parquet` beside the measurements.

The runs themselves stay in the station's file; this is a copy for figures over many stations, and it can be made again.
"""

import os
import uuid
from pathlib import Path

import apsw
import duckdb

from .file import Row, ask
from .parquet import write_parquet

NAME = "runs.parquet"
COLUMNS = {
    "run": "VARCHAR", "number": "BIGINT", "serial_number": "VARCHAR", "product": "VARCHAR", "operation": "VARCHAR",
    "purpose": "VARCHAR", "cell": "INTEGER", "outcome": "VARCHAR", "begin_us": "BIGINT", "duration_us": "BIGINT",
    "first_ng": "VARCHAR", "measured": "INTEGER", "ng": "INTEGER",
}  # fmt: skip
_OUTCOME = list(COLUMNS).index("outcome")
_RUNS = """
SELECT id, number, serial_number, product, operation, purpose, cell, outcome, begin_us, duration_us,
       (SELECT name FROM item WHERE item.id = first_ng), measured, ng
FROM result WHERE begin_us >= unixepoch(:month || '-01') * 1000000
  AND begin_us < unixepoch(:month || '-01', '+1 month') * 1000000 ORDER BY number
"""
# What each corrected run was before, and between its corrections.
_EARLIER = """
SELECT number, outcome FROM run WHERE number IN (SELECT run FROM correction)
UNION SELECT run, outcome FROM correction
"""


def runs(connection: apsw.Connection, month: str) -> list[Row]:
    """As the station's file has them, corrections included."""
    return [(str(uuid.UUID(bytes=id)), *row) for id, *row in ask(connection, _RUNS, {"month": month})]


def kept(path: Path) -> list[Row]:
    with duckdb.connect() as files:
        query = f"SELECT {', '.join(COLUMNS)} FROM read_parquet(?, hive_partitioning = false) ORDER BY number"
        return files.execute(query, [str(path)]).fetchall()


def write(connection: apsw.Connection, month: str, path: Path) -> None:
    """Written beside, read back and compared before it takes its place; ValueError when it reads differently."""
    rows = runs(connection, month)
    beside = path.with_name(f".{path.name}.part")
    try:
        write_parquet((dict(zip(COLUMNS, row, strict=True)) for row in rows), beside, COLUMNS, ("number",))
        if kept(beside) != rows:
            raise ValueError(f"{month}: the runs read differently from the copy {path}.")
        with beside.open("rb") as file:
            os.fsync(file.fileno())
        os.replace(beside, path)
    finally:
        beside.unlink(missing_ok=True)


def refresh(connection: apsw.Connection, month: str, path: Path) -> None:
    """The copy of a month that was archived before, if it is missing or runs were corrected since."""
    if not path.is_file() or kept(path) != runs(connection, month):
        write(connection, month, path)


def wrong(connection: apsw.Connection, month: str, path: Path) -> int | None:
    """The first run that the copy has differently; outcomes that were corrected later count as the same."""
    if not path.is_file():
        return None
    earlier = set(ask(connection, _EARLIER))
    own, copied = runs(connection, month), kept(path)
    for one, other in zip(own, copied, strict=False):
        known = list(one)
        if (one[1], other[_OUTCOME]) in earlier:
            known[_OUTCOME] = other[_OUTCOME]
        if known != list(other):
            return int(one[1])
    longer = own if len(own) > len(copied) else copied
    return None if len(own) == len(copied) else int(longer[min(len(own), len(copied))][1])
