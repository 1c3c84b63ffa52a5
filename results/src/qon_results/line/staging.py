"""Into the line's tables: COPY into temporary ones, then merged, so that what is there already stays as it is."""

from collections.abc import Iterable, Sequence
from typing import TYPE_CHECKING, Any

import psycopg
from psycopg import sql

from ..store.hashing import key_of
from .connection import Connection

if TYPE_CHECKING:
    from .sending import Batch

STATION = "INSERT INTO qon.station VALUES (%s, %s, %s) ON CONFLICT DO NOTHING"
NOW = """
INSERT INTO qon.now VALUES (%s, %s, %s, %s, %s, %s, %s, %s, %s)
ON CONFLICT (station, cell) DO UPDATE SET state = excluded.state, run = excluded.run,
    serial_number = excluded.serial_number, since_us = excluded.since_us, measured = excluded.measured,
    progress = excluded.progress, heartbeat_us = excluded.heartbeat_us
"""

_ITEMS = "INSERT INTO qon.item (name) SELECT unnest(%s::text[]) ON CONFLICT DO NOTHING"
_ITEM_IDS = "SELECT name, id FROM qon.item WHERE name = ANY(%s)"
_CRITERION = """
INSERT INTO qon.criterion (key, lower_kind, lower_number, lower_text, upper_kind, upper_number, upper_text, unit, report,
    categories) VALUES (%s, %s, %s, %s, %s, %s, %s, %s, %s, %s) ON CONFLICT DO NOTHING
"""
_CRITERION_IDS = "SELECT key, id FROM qon.criterion WHERE key = ANY(%s)"

UUID, INT2, INT4, INT8, FLOAT8, BOOL, TEXT, BYTEA = (
    "uuid",
    "int2",
    "int4",
    "int8",
    "float8",
    "bool",
    "text",
    "bytea",
)
# As they go into a binary COPY, where a run's id in a measurement comes as the bytes it has there.
_TYPES: dict[str, tuple[str, ...]] = {
    "content": (BYTEA, INT8, BYTEA),
    "setup": (BYTEA, TEXT, TEXT, BYTEA, TEXT, BYTEA, TEXT, BYTEA, BYTEA, TEXT),
    "run": (
        UUID, UUID, INT8, BYTEA, INT4, TEXT, TEXT, TEXT, TEXT, TEXT, TEXT, TEXT, INT4, INT8, INT8, INT8, TEXT, TEXT, TEXT,
        INT4, INT4, INT4,
    ),
    "measurement": (BYTEA, INT4, INT4, INT2, FLOAT8, TEXT, BOOL, INT4, INT2, INT8, INT8, INT4, TEXT),
    "attachment": (UUID, INT4, TEXT, INT4, BYTEA, INT8),
    "instrument": (UUID, TEXT, TEXT, TEXT),
    "event": (UUID, INT8, UUID, UUID, INT4, INT8, TEXT, TEXT, TEXT),
    "correction": (UUID, INT8, UUID, INT8, TEXT, TEXT, TEXT),
    "seal": (UUID, INT8, UUID, INT8, INT8, BYTEA, BYTEA),
}  # fmt: skip
_STAGE = {
    name: (
        sql.SQL("CREATE TEMP TABLE IF NOT EXISTS {stage} (LIKE qon.{name}) ON COMMIT DELETE ROWS"),
        sql.SQL("COPY {stage} FROM STDIN (FORMAT BINARY)"),
        sql.SQL("INSERT INTO qon.{name} SELECT * FROM {stage} ON CONFLICT DO NOTHING"),
    )
    for name in _TYPES
}
_COPY = sql.SQL("COPY qon.{name} FROM STDIN (FORMAT BINARY)")


class Names:
    """Which numbers the line gave to items and to what they are judged by; as long as the connection lasts."""

    def __init__(self) -> None:
        self._items: dict[str, int] = {}
        self._criteria: dict[tuple[Any, ...], int] = {}

    def items(self, line: Connection, names: set[str]) -> dict[str, int]:
        new = sorted(names - self._items.keys())
        if new:
            line.execute(_ITEMS, (new,))
            found = line.execute(_ITEM_IDS, (new,)).fetchall()
            self._items.update({str(name): int(id) for name, id in found})
        return self._items

    def criteria(self, line: Connection, wanted: set[tuple[Any, ...]]) -> dict[tuple[Any, ...], int]:
        new = {key_of(*one): one for one in wanted - self._criteria.keys()}
        if new:
            with line.cursor() as cursor:
                rows = [(key, *one[:7], bool(one[7]), one[8]) for key, one in sorted(new.items())]
                cursor.executemany(_CRITERION, rows)
            for key, id in line.execute(_CRITERION_IDS, (sorted(new),)).fetchall():
                self._criteria[new[bytes(key)]] = int(id)
        return self._criteria


def store(line: Connection, batch: "Batch", names: Names) -> None:
    """All of a batch, its seals last; inside the caller's transaction.

    Rows of one order everywhere: stations that add the same names at a time wait for each other, and never in a circle.
    """
    items = names.items(
        line, {row[2] for row in batch.measurements} | {run[19] for run in batch.runs if run[19] is not None}
    )
    criteria = names.criteria(line, {row[12:] for row in batch.measurements})
    for run in batch.runs:
        run[19] = None if run[19] is None else items[run[19]]
    _merge(line, "content", (batch.contents[key] for key in sorted(batch.contents)))
    _merge(line, "setup", (batch.setups[key] for key in sorted(batch.setups)))
    _merge(line, "run", batch.runs)
    _add(
        line,
        "measurement",
        [
            (
                run, seq, items[item], kind, number, text, None if truth is None else bool(truth), criteria[tuple(judged)],
                verdict, time_us, elapsed_us, attempt, note,
            )
            for run, seq, item, kind, number, text, truth, verdict, time_us, elapsed_us, attempt, note, *judged
            in batch.measurements
        ],
    )  # fmt: skip
    _merge(line, "attachment", batch.attachments)
    _merge(line, "instrument", batch.instruments)
    _merge(line, "event", batch.events)
    _merge(line, "correction", batch.corrections)
    _merge(line, "seal", batch.seals)


def _add(line: Connection, name: str, rows: list[Sequence[Any]]) -> None:
    """Straight into the table, for what is hardly ever there already; merged when it is."""
    if not rows:
        return
    try:
        with line.transaction():
            _copy(line, _COPY.format(name=sql.Identifier(name)), name, rows)
    except psycopg.errors.UniqueViolation:
        _merge(line, name, rows)


def _merge(line: Connection, name: str, rows: Iterable[Sequence[Any]]) -> None:
    rows = list(rows)
    if not rows:
        return
    names = {"name": sql.Identifier(name), "stage": sql.Identifier(f"stage_{name}")}
    make, copy, merge = (part.format(**names) for part in _STAGE[name])
    line.execute(make)
    _copy(line, copy, name, rows)
    line.execute(merge)


def _copy(line: Connection, statement: sql.Composed, name: str, rows: list[Sequence[Any]]) -> None:
    with line.cursor() as cursor, cursor.copy(statement) as stream:
        stream.set_types(_TYPES[name])
        for row in rows:
            stream.write_row(row)
