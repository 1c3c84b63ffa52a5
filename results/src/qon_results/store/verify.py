"""Counting again: the hash of each record, the chain, the numbers."""

import hashlib
import uuid
from collections.abc import Iterable, Iterator

import apsw
import duckdb

from ..records import Attachment, Event, Instrument
from . import archived_runs, queries
from .archived import Archived, ArchiveMissingError
from .base import Fault, Progress, Verification
from .file import Row, ask
from .hashing import RecordHash, first_chain, next_chain
from .sqlite import correction_of, event_of, measurement_values, run_of, setup_of

BLOCK = 1000


def record_hash(
    connection: apsw.Connection, rows: Iterable[Row], run: int, after_event: int, last_event: int
) -> tuple[bytes, int]:
    """Of a run as it lies in the file, its measurements' rows given, and their number."""
    total = RecordHash()
    rows = iter(rows)
    while block := [measurement_values(row) for row in _some(rows)]:
        total.measurements(block)
    return finish(connection, total, run, after_event, last_event), total.count


def finish(
    connection: apsw.Connection, total: RecordHash, run: int, after_event: int, last_event: int
) -> bytes:
    """The hash of a record whose measurements were taken already."""
    own = {"run": run}
    total.instruments(Instrument(*row) for row in ask(connection, queries.INSTRUMENTS, own))
    total.attachments(Attachment(*row) for row in ask(connection, queries.ATTACHMENTS, own))
    total.events(_events(connection, after_event, last_event))
    total.run(
        run_of(next(ask(connection, queries.OWN_RUN, own))),
        setup_of(next(ask(connection, queries.SETUP, own))),
    )
    return total.digest()


def correction_hash(
    connection: apsw.Connection, seal: int, run: int, after_event: int, last_event: int
) -> bytes:
    total = RecordHash()
    total.events(_events(connection, after_event, last_event))
    ((id,),) = ask(connection, "SELECT id FROM run WHERE number = ?", (run,))
    row = next(row for row in ask(connection, queries.CORRECTIONS, {"run": run}) if row[0] == seal)
    total.correction(uuid.UUID(bytes=id), correction_of(row))
    return total.digest()


def verify(
    connection: apsw.Connection, progress: Progress | None = None, archived: Archived | None = None
) -> Verification:
    """The whole file in the state of one moment, whatever is written meanwhile."""
    with _snapshot(connection):
        return _Verifier(connection, progress, archived).verify()


def check_newest(connection: apsw.Connection, seals: int = 3) -> Fault | None:
    """A look at the end of the chain that takes no time: what a torn or foreign file fails first."""
    (first,) = next(ask(connection, "SELECT coalesce(max(number), 0) - ? FROM seal", (seals,)))
    with _snapshot(connection):
        return _Verifier(connection, None).wrong_seal(first)


class _Verifier:
    def __init__(
        self, connection: apsw.Connection, progress: Progress | None, archived: Archived | None = None
    ) -> None:
        self._archived = archived
        self._connection = connection
        self._progress = progress
        self._runs, self._seals, _ = next(ask(connection, queries.COUNTS))
        self._measurements = 0
        self._chain = b""

    def verify(self) -> Verification:
        try:
            fault = self._damage() or self._gap() or self.wrong_seal() or self._wrong_copy()
        except (apsw.CorruptError, apsw.NotADBError, apsw.IOError) as error:
            fault = Fault(f"The file is damaged: {error}.")
        except (ArchiveMissingError, duckdb.Error) as error:
            fault = Fault(str(error))
        return Verification(self._runs, self._seals, self._measurements, self._chain, fault)

    def _damage(self) -> Fault | None:
        for (text,) in ask(self._connection, "PRAGMA integrity_check(1)"):
            if text != "ok":
                return Fault(f"The file is damaged: {text}.")
        for id, sha256, data in ask(self._connection, "SELECT id, sha256, data FROM content"):
            if hashlib.sha256(data).digest() != sha256:
                return Fault(f"Content {id} is not what its hash {sha256.hex()} says.")
        return None

    def _gap(self) -> Fault | None:
        for number, step in ask(self._connection, queries.RUN_NUMBERS, {"before": 0}):
            if step != 1:
                return Fault(f"The numbers of the runs have a gap before {number}.", run=number)
        return None

    def _wrong_copy(self) -> Fault | None:
        """Of an archived month's runs."""
        if self._archived is None:
            return None
        for month, relative, *_ in list(ask(self._connection, queries.ARCHIVES)):
            path = self._archived.path(relative).with_name(archived_runs.NAME)
            run = archived_runs.wrong(self._connection, month, path)
            if run is not None:
                return Fault(f"Run {run} is not what {path} says; delete that copy and archive again.", run)
        return None

    def wrong_seal(self, after: int = 0) -> Fault | None:
        """Of the seals behind this one."""
        station = uuid.UUID(bytes=next(ask(self._connection, queries.STATIONS))[0])
        number, events, self._chain = 0, 0, first_chain(station)
        query = "SELECT number, events, chain FROM seal WHERE number = ? AND number > ?"
        for known in ask(self._connection, query, (after, number)):
            number, events, self._chain = known
        for row in ask(
            self._connection,
            "SELECT number, run, at_us, events, hash, chain FROM seal WHERE number > ? ORDER BY number",
            (number,),
        ):
            if fault := self._check(row, number, events):
                return fault
            number, events, self._chain = row[0], row[3], row[5]
            if self._progress and number % 100 == 0:
                self._progress(number, self._seals)
        return self._unsealed()

    def _check(self, row: Row, before: int, events_before: int) -> Fault | None:
        number, run, _, events, kept, chain = row
        if number != before + 1:
            return Fault(f"The seals have a gap before {number}.", run, number)
        found, count = self._hash(number, run, events_before, events)
        self._measurements += count
        if found != kept:
            return Fault(
                f"The record of run {run} is not what was sealed under number {number}.", run, number
            )
        if next_chain(self._chain, kept) != chain:
            return Fault(f"The chain breaks at seal {number} (run {run}).", run, number)
        return None

    def _hash(self, seal: int, run: int, events_before: int, events: int) -> tuple[bytes, int]:
        corrects = any(ask(self._connection, "SELECT 1 FROM correction WHERE seal = ?", (seal,)))
        if corrects:
            return correction_hash(self._connection, seal, run, events_before, events), 0
        if self._archived is not None:
            rows = self._archived.measurements(run)
        else:
            rows = ask(self._connection, queries.MEASUREMENTS, {"run": run})
        return record_hash(self._connection, rows, run, events_before, events)

    def _unsealed(self) -> Fault | None:
        """A run that has an outcome has a seal."""
        query = "SELECT number FROM run WHERE outcome <> 'RUNNING' AND number NOT IN (SELECT run FROM seal) LIMIT 1"
        for (number,) in ask(self._connection, query):
            return Fault(f"Run {number} has ended, but its seal is missing.", run=number)
        return None


class _snapshot:
    """One read transaction."""

    def __init__(self, connection: apsw.Connection) -> None:
        self._connection = connection

    def __enter__(self) -> None:
        self._connection.execute("BEGIN")

    def __exit__(self, *_: object) -> None:
        self._connection.execute("COMMIT")


def _events(connection: apsw.Connection, after: int, last: int) -> list[Event]:
    return [event_of(row) for row in ask(connection, queries.EVENTS_BETWEEN, {"after": after, "last": last})]


def _some(rows: Iterator[Row]) -> list[Row]:
    return [row for _, row in zip(range(BLOCK), rows, strict=False)]
