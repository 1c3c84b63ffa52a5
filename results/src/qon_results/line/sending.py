"""From a station's file to the line's database: in the order of the seals, each batch in one transaction.

How far the line has a station's records is asked of the line itself, so nothing can be acknowledged that is not stored, and
what is sent twice is stored once.
"""

import logging
import uuid
from collections.abc import Iterator
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, NoReturn

import psycopg

from ..store import queries as local
from ..store.archived import Archived
from ..store.file import Row, ask, check_version, connect
from ..store.hashing import key_of
from . import queries, staging
from .connection import Connection, LineError, words
from .connection import connect as connect_line

MOST_MEASUREMENTS = 20_000  # of a batch, but for a run that has more
MOST_SEALS = 500

log = logging.getLogger(__name__)


@dataclass
class Batch:
    """Rows as they go into the line's tables."""

    first: int = 0
    last: int = 0
    contents: dict[bytes, Row] = field(default_factory=dict)
    setups: dict[bytes, Row] = field(default_factory=dict)
    runs: list[list[Any]] = field(default_factory=list)
    measurements: list[Row] = field(default_factory=list)
    attachments: list[Row] = field(default_factory=list)
    instruments: list[Row] = field(default_factory=list)
    events: list[Row] = field(default_factory=list)
    corrections: list[Row] = field(default_factory=list)
    seals: list[Row] = field(default_factory=list)


class Source:
    """A station's file, read batch by batch."""

    def __init__(self, path: Path) -> None:
        self._connection = connect(path, write=False)
        try:
            check_version(self._connection, path)
            ((id, self.name, self.created_us),) = self._ask(local.STATIONS)
        except BaseException:
            self._connection.close()
            raise
        self.station = uuid.UUID(bytes=id)
        self._archived = Archived(self._connection, path)
        self._sent_contents: set[bytes] = set()

    def close(self) -> None:
        self._connection.close()

    def newest(self) -> int:
        """Number of the newest seal."""
        for (number,) in self._ask("SELECT max(number) FROM seal"):
            return int(number or 0)
        return 0

    def waits_since(self, after: int) -> int | None:
        """When the oldest record behind this seal was sealed."""
        for (at_us,) in self._ask(
            "SELECT at_us FROM seal WHERE number > ? ORDER BY number LIMIT 1", (after,)
        ):
            return int(at_us)
        return None

    def chain_at(self, number: int) -> bytes | None:
        for (chain,) in self._ask("SELECT chain FROM seal WHERE number = ?", (number,)):
            return bytes(chain)
        return None

    def now(self) -> list[Row]:
        return [
            (self.station, cell, state, run and uuid.UUID(bytes=run), *rest)
            for cell, state, run, *rest in self._ask(local.NOW)
        ]

    def batch(self, after: int) -> Batch | None:
        """What is sealed next, None when there is nothing."""
        found = Batch(first=after + 1)
        events = self._events_before(after)
        for number, run, at_us, last_event, hash, chain in self._ask(
            "SELECT number, run, at_us, events, hash, chain FROM seal WHERE number > ? ORDER BY number LIMIT ?",
            (after, MOST_SEALS),
        ):
            if found.seals and len(found.measurements) >= MOST_MEASUREMENTS:
                break
            self._add(found, number, run, events, last_event)
            found.seals.append((self.station, number, self._id(run), at_us, last_event, hash, chain))
            found.last, events = number, last_event
        return found if found.seals else None

    def _add(self, batch: Batch, seal: int, run: int, events: int, last_event: int) -> None:
        id, own = self._id(run), {"run": run}
        corrected = [row for row in self._ask(local.CORRECTIONS, own) if row[0] == seal]
        for row in corrected:
            batch.corrections.append((self.station, row[0], id, *row[1:]))
        if not corrected:
            self._add_run(batch, id, own)
        for row in self._ask(local.EVENTS_BETWEEN, {"after": events, "last": last_event}):
            number, event, of_run, *rest = row
            of = of_run and uuid.UUID(bytes=of_run)
            batch.events.append((self.station, number, uuid.UUID(bytes=event), of, *rest))

    def _add_run(self, batch: Batch, id: uuid.UUID, own: dict[str, Any]) -> None:
        (setup,) = self._ask(local.SETUP, own)
        key = key_of(*setup)
        batch.setups[key] = (key, *setup)
        for sha256 in (setup[2], setup[4], setup[6], setup[7]):
            self._add_content(batch, sha256)
        (row,) = self._ask(local.OWN_RUN, own)
        batch.runs.append([id, self.station, row[0], key, *row[2:17], row[17], row[18], row[19]])
        binary = id.bytes
        batch.measurements.extend((binary, *row) for row in self._archived.measurements(own["run"]))
        batch.instruments.extend((id, *row) for row in self._ask(local.INSTRUMENTS, own))
        for number, name, seq, sha256, _size, at_us in self._ask(local.ATTACHMENTS, own):
            batch.attachments.append((id, number, name, seq, sha256, at_us))
            self._add_content(batch, sha256)

    def _add_content(self, batch: Batch, sha256: bytes | None) -> None:
        if sha256 is None or sha256 in self._sent_contents or sha256 in batch.contents:
            return
        for (data,) in self._ask(local.CONTENT, (sha256,)):
            batch.contents[sha256] = (sha256, len(data), data)

    def sent(self, batch: Batch) -> None:
        """The line has these contents now."""
        self._sent_contents.update(batch.contents)

    def _events_before(self, seal: int) -> int:
        for (events,) in self._ask("SELECT events FROM seal WHERE number = ?", (seal,)):
            return int(events)
        return 0

    def _id(self, run: int) -> uuid.UUID:
        ((id,),) = self._ask("SELECT id FROM run WHERE number = ?", (run,))
        return uuid.UUID(bytes=id)

    def _ask(self, query: str, values: Any = ()) -> Iterator[Row]:
        return ask(self._connection, query, values)


class Feed:
    """Carries one station's records to one line's database.  One thread."""

    def __init__(self, source: Source, address: str) -> None:
        self._source = source
        self._address = address
        self._line: Connection | None = None
        self._names = staging.Names()
        self.position = 0

    def close(self) -> None:
        if self._line is not None:
            self._line.close()
            self._line = None

    def send(self) -> bool:
        """Send one batch; whether there was one.  LineError says why it was not stored; then call again, later."""
        try:
            line = self._connected()
            batch = self._source.batch(self.position)
            if batch is None:
                return False
            with line.transaction():
                staging.store(line, batch, self._names)
            self._source.sent(batch)
            self.position = batch.last
            return True
        except psycopg.Error as error:
            self._broken(error)

    def tell_now(self) -> None:
        """What stands at the cells."""
        try:
            with self._connected().transaction() as _, self._connected().cursor() as cursor:
                cursor.executemany(staging.NOW, self._source.now())
        except psycopg.Error as error:
            self._broken(error)

    def _broken(self, error: psycopg.Error) -> NoReturn:
        """Nothing is known of the connection any more; the next one asks how far the line came."""
        self.close()
        self._names = staging.Names()
        raise LineError(words(error)) from None

    def _connected(self) -> Connection:
        if self._line is not None and not self._line.closed:
            return self._line
        line = connect_line(self._address, write=True, name=f"station {self._source.name}"[:60])
        try:
            self.position = self._agreed(line)
            line.execute(staging.STATION, (self._source.station, self._source.name, self._source.created_us))
        except BaseException:
            line.close()
            raise
        self._line = line
        return line

    def _agreed(self, line: Connection) -> int:
        """How far the line has the records, which must be those of this file."""
        known = line.execute(queries.POSITION, (self._source.station,)).fetchone()
        if known is None:
            return 0
        number, chain = int(known[0]), bytes(known[1])
        here = self._source.chain_at(number)
        if here is None:
            raise LineError(
                f"The line has {number} records of this station, its file only {self._source.newest()}: an older copy of the "
                "file was put in its place. Nothing is sent; give this file a new station, or bring the right one back."
            )
        if here != chain:
            raise LineError(
                f"The line's record {number} of this station is another one than the file's: nothing is sent. "
                "Compare both with `qon-results verify`."
            )
        return number
