"""The file with the figures: how it is opened, read and, when it is of another version or zone, made anew."""

from __future__ import annotations

import math
import re
import threading
import time
import uuid
from collections.abc import Iterable, Iterator, Sequence
from dataclasses import dataclass
from itertools import chain
from pathlib import Path
from typing import Any

import apsw
import numpy as np
from numpy.typing import NDArray

from ...analysis.parts import PART, Parts
from ...store.base import Filter

VERSION = 1
APPLICATION_ID = 0x516F6E50  # "QonP"
FILE_NAME = "results.rollup.db"
PARTS, ALARMS = "parts", "alarms"  # tasks
_SCHEMA = Path(__file__).with_name("schema.sql")
_MADE = ("stream", "item", "part", "outside", "position", "seen", "progress", "watch", "alarm", "about")
_COLUMNS = ", ".join(PART.names or ())
_PLACES = ", ".join("?" * len(PART.names or ()))

_STREAMS = """
SELECT id FROM stream
WHERE (:product IS NULL OR product = :product) AND (:operation IS NULL OR operation = :operation)
  AND (:purpose IS NULL OR purpose = :purpose) AND (:station IS NULL OR station = :station)
  AND (:cell IS NULL OR cell = :cell)
"""
_PARTS = f"""
SELECT {_COLUMNS} FROM part WHERE (:item IS NULL OR item = :item) AND day >= :first AND day < :last
"""
_OUTSIDE = """
SELECT stream, unit, value, lower, upper FROM outside WHERE item = :item AND day >= :first AND day < :last
"""


@dataclass(frozen=True)
class Stream:
    """Of which cell and product; `cell_key` is the same for all products and purposes of a cell."""

    id: int
    station: uuid.UUID
    cell: int
    product: str
    operation: str
    purpose: str

    @property
    def cell_key(self) -> tuple[uuid.UUID, int]:
        return self.station, self.cell


def place_of(where: str, folder: Path | None = None) -> Path:
    """Beside a station's file; for a line's database in the page's folder."""
    if re.match(r"postgres(ql)?://|\w+=", where):
        home = folder or Path.home() / ".local" / "share" / "qon-results"
        return home / f"line-{uuid.uuid5(uuid.NAMESPACE_URL, where).hex[:12]}.rollup.db"
    path = Path(where)
    return (folder or (path if path.is_dir() else path.parent)) / FILE_NAME


class Rollups:
    """One connection; any thread, one at a time."""

    def __init__(self, path: Path, *, write: bool = False) -> None:
        """FileNotFoundError when it is only to be read and is not there."""
        self.path = path
        self._lock = threading.Lock()
        if write:
            path.parent.mkdir(parents=True, exist_ok=True)
        elif not path.is_file():
            raise FileNotFoundError(f"There are no figures at {path} yet.")
        self.connection = apsw.Connection(str(path))
        self.connection.set_busy_timeout(10_000)
        self.connection.pragma("synchronous", "off")  # what a power cut takes is made again
        self.connection.pragma("cache_size", -32768)
        if write:
            self._prepare()
        elif self.connection.pragma("user_version") != VERSION:
            self.connection.close()
            raise FileNotFoundError(f"The figures at {path} are being made anew.")

    def _prepare(self) -> None:
        found = self.connection.pragma("application_id"), self.connection.pragma("user_version")
        if found == (0, 0):
            self.connection.pragma("journal_mode", "wal")
            with self.connection:
                self.connection.execute(_SCHEMA.read_text(encoding="utf-8"))
                self.connection.pragma("application_id", APPLICATION_ID)
                self.connection.pragma("user_version", VERSION)
        elif found != (APPLICATION_ID, VERSION):
            raise ValueError(f"{self.path} belongs to another program or version; move it away.")

    def close(self) -> None:
        self.connection.close()

    def begin(self, source: str) -> None:
        """Empty unless it was made from this source and in this zone: days are local ones."""
        about = source, zone()
        if list(self.rows("SELECT source, zone FROM about")) != [about]:
            with self.connection:
                for table in _MADE:
                    self.connection.execute(f"DELETE FROM {table}")
                self.connection.execute("INSERT INTO about VALUES (?, ?)", about)

    def rows(self, query: str, values: Sequence[Any] | dict[str, Any] = ()) -> Iterator[tuple[Any, ...]]:
        return self.connection.execute(query, values)

    def version(self) -> int:
        """Changes with every change of the file by another connection."""
        return int(self.connection.pragma("data_version"))

    def progress(self, task: str = PARTS) -> float:
        """Of the results, how much this task has taken in: from 0 to 1."""
        return float(next(self.rows("SELECT done FROM progress WHERE task = ?", (task,)), (0.0,))[0])

    def streams(self, wanted: Filter | None = None) -> dict[int, Stream]:
        found = {
            id: Stream(id, uuid.UUID(bytes=station), *rest)
            for id, station, *rest in self.rows(
                "SELECT id, station, cell, product, operation, purpose FROM stream"
            )
        }
        if wanted is None:
            return found
        values = {name: getattr(wanted, name) for name in ("product", "operation", "purpose", "cell")}
        values["station"] = wanted.station and wanted.station.bytes
        return {id: found[id] for (id,) in self.rows(_STREAMS, values)}

    def items(self) -> dict[int, tuple[str, str]]:
        """Name and unit."""
        return {id: (name, unit) for id, name, unit in self.rows("SELECT id, name, unit FROM item")}

    def parts(self, streams: Iterable[int], first: int, last: int, item: int | None = None) -> Parts:
        """Of these streams and of days from `first` up to, not including, `last`."""
        rows = self.rows(_PARTS, {"item": item, "first": first, "last": last})
        found = _table(rows)
        return found[np.isin(found["stream"], np.fromiter(streams, np.int64))]

    def outside(
        self, item: int, first: int, last: int
    ) -> list[tuple[int, str, float, float | None, float | None]]:
        return list(self.rows(_OUTSIDE, {"item": item, "first": first, "last": last}))

    def first_runs(self, station: uuid.UUID) -> NDArray[np.int64]:
        """Numbers of the runs that were their unit's first to come to a verdict, or had none before them that did."""
        rows = self.rows("SELECT run FROM seen WHERE station = ? AND first ORDER BY run", (station.bytes,))
        return np.fromiter((row[0] for row in rows), np.int64)

    def acknowledge(self, alarm: tuple[str, str, bytes, int, int, int, int], name: str, words: str) -> None:
        """kind, item, station, cell, slow, since and at of the alarm; who, and what they say to it."""
        with self.connection:
            self.connection.execute(
                "INSERT INTO acknowledgement VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                (*alarm, name, words, time.time_ns() // 1000),
            )

    def write_parts(self, parts: Parts) -> None:
        rows = [[_plain(value) for value in row] for row in parts.tolist()]
        self.connection.executemany(f"INSERT OR REPLACE INTO part ({_COLUMNS}) VALUES ({_PLACES})", rows)


def _plain(value: Any) -> Any:
    return None if isinstance(value, float) and math.isnan(value) else value


def _table(rows: Iterable[tuple[Any, ...]]) -> Parts:
    """None becomes NaN; numbers of this size are exact as floats, but for the moment of the newest, kept to the microsecond
    until the year 2255."""
    names = PART.names or ()
    flat = np.array(list(chain.from_iterable(rows)), dtype=np.float64).reshape(-1, len(names))
    found = np.empty(len(flat), PART)
    for place, name in enumerate(names):
        found[name] = flat[:, place]
    return found


def zone() -> str:
    return "/".join(time.tzname)


def local_days(begin_us: NDArray[np.int64]) -> NDArray[np.int64]:
    """Days since 1970 in local time; the offset is looked up once an hour."""
    hours, which = np.unique(begin_us // 3_600_000_000, return_inverse=True)
    offsets = np.array([time.localtime(hour * 3600).tm_gmtoff for hour in hours.tolist()], np.int64)
    found: NDArray[np.int64] = (begin_us // 1_000_000 + offsets[which]) // 86_400
    return found


def local_day(us: int) -> int:
    return int(local_days(np.array([us]))[0])
