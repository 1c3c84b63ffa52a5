"""A station's file, read."""

import json
import time
import uuid
from collections import Counter, defaultdict
from collections.abc import Iterable, Mapping, Sequence
from itertools import chain
from operator import itemgetter
from pathlib import Path
from typing import Any

import apsw
import msgspec
import numpy as np
from numpy.typing import NDArray

from ..records import (
    Attachment,
    Correction,
    Event,
    Instrument,
    Kind,
    Measurement,
    Now,
    Outcome,
    Record,
    Run,
    Seal,
    Setup,
    Station,
    Verdict,
)
from . import columns, queries
from .archived import Archived
from .base import (
    EVERYTHING,
    Filter,
    ItemColumns,
    ItemCount,
    ParetoRow,
    Progress,
    Sealed,
    Store,
    TooSlow,
    Verification,
    Yield,
    id_bounds,
    only,
)
from .file import Row, ask, check_version, connect

_COUNTED = {"ABORTED": "aborted", "EXCEPTION": "exceptions", "INTERRUPTED": "interrupted"}
LAST_CHARACTER = "\U0010ffff"
_STEPS = 100_000  # of SQLite's machine between two looks at the clock; a millisecond or so


class SqliteStore(Store):
    """Opened read-only; it never keeps the writer waiting."""

    def __init__(self, path: str | Path) -> None:
        """FileNotFoundError, or ValueError when the file is damaged, newer than this program or no store at all."""
        self.path = Path(path)
        self._connection = connect(self.path, write=False)
        self._seconds, self._deadline = 0.0, float("inf")
        try:
            check_version(self._connection, self.path)
            self._station = self.stations()[0]
            self._known_runs: tuple[Filter, int, NDArray[np.int64]] | None = None
            self._archived = Archived(self._connection, self.path)
        except BaseException:
            self._connection.close()
            raise

    def close(self) -> None:
        self._archived.close()
        self._connection.close()

    def limit(self, seconds: float) -> None:
        self._seconds = seconds
        self._connection.set_progress_handler(lambda: time.monotonic() > self._deadline, _STEPS)

    def stations(self) -> list[Station]:
        return [
            Station(uuid.UUID(bytes=id), name, created) for id, name, created in self._ask(queries.STATIONS)
        ]

    def runs(self, wanted: Filter = EVERYTHING, limit: int | None = 1000) -> list[Run]:
        values = self._bound(wanted) | {"limit": -1 if limit is None else limit}
        if wanted.serial_number is None:
            return [run_of(row) for row in self._ask(queries.RUNS_BY_TIME, values)]
        first, star, _ = wanted.serial_number.partition("*")
        values |= {"serial_from": first, "serial_to": first + LAST_CHARACTER if star else first}
        return [run_of(row) for row in self._ask(queries.RUNS_BY_SERIAL, values)]

    def run(self, which: uuid.UUID | str) -> Run:
        first, last = id_bounds(which)
        found = self._ask(queries.RUN_BY_ID, {"first": first.bytes, "last": last.bytes})
        return run_of(only(found, which))

    def record(self, which: uuid.UUID | str) -> Record:
        run = self.run(which)
        own = {"run": run.number}
        return Record(
            run=run,
            own=run_of(self._ask(queries.OWN_RUN, own)[0]),
            setup=setup_of(self._ask(queries.SETUP, own)[0]),
            measurements=[measurement_of(row) for row in self._archived.measurements(run.number)],
            instruments=[Instrument(*row) for row in self._ask(queries.INSTRUMENTS, own)],
            attachments=[Attachment(*row) for row in self._ask(queries.ATTACHMENTS, own)],
            events=[event_of(row) for row in self._ask(queries.EVENTS_OF_RUN, own)],
            corrections=[correction_of(row) for row in self._ask(queries.CORRECTIONS, own)],
            seals=[seal_of(row) for row in self._ask(queries.SEALS_OF_RUN, own)],
        )

    def attempts(self, run: Run) -> list[Run]:
        if not run.serial_number:
            return [run]
        unit = {"serial": run.serial_number, "product": run.product, "operation": run.operation}
        return [run_of(row) for row in self._ask(queries.ATTEMPTS, unit)]

    def content(self, sha256: bytes) -> bytes:
        for (data,) in self._ask(queries.CONTENT, (sha256,)):
            return bytes(data)
        raise KeyError(f"There is no content with the hash {sha256.hex()}.")

    def items(self, wanted: Filter = EVERYTHING) -> list[ItemCount]:
        if wanted == EVERYTHING:
            rows, moved = self._ask(queries.ITEMS), self._archived.counts(None)
        else:
            rows = self._ask(queries.ITEMS_WANTED, self._bound(wanted))
            moved = self._archived.counts(self._numbers(wanted)) if self._archived else []
        return sorted(
            (ItemCount(name, *counts) for name, counts in _added(rows, moved).items()),
            key=lambda one: one.name,
        )

    def item_names(self) -> list[str]:
        return [name for (name,) in self._ask(queries.ITEM_NAMES)]

    def item(self, name: str, wanted: Filter = EVERYTHING) -> ItemColumns:
        known = self._ask(queries.ITEM_ID, (name,))
        if not known:
            raise KeyError(f'No run has an item "{name}".')
        wanted_runs = self._run_columns(wanted)
        first, last = (int(wanted_runs[place, 0]) if len(wanted_runs) else -1 for place in (0, -1))
        limits: columns.Limits = {}
        rows = columns.table(ask(self._connection, queries.ITEM_VALUES, (known[0][0], first, last)))
        if self._archived:
            moved = columns.from_files(self._archived.of_item(name, first, last), limits)
            rows = np.concatenate((rows, moved))
            rows = rows[np.lexsort((rows[:, 1], rows[:, 0]))]

        def limits_of(criteria: list[int]) -> columns.Limits:
            found = self._ask(queries.CRITERIA, (json.dumps(criteria),))
            return limits | {id: (lower, upper, unit) for id, lower, upper, unit in found}

        return columns.item_columns(name, self._station.id, rows, wanted_runs, limits_of)

    def _run_columns(self, wanted: Filter) -> NDArray[np.int64]:
        """Number, cell and begin of these runs, by number; the last answer is kept while nobody writes."""
        (version,) = next(ask(self._connection, "PRAGMA data_version"))
        if self._known_runs is None or self._known_runs[:2] != (wanted, version):
            rows = ask(self._connection, queries.RUN_COLUMNS, self._bound(wanted))
            found = np.fromiter(chain.from_iterable(rows), np.int64).reshape(-1, 3)
            self._known_runs = wanted, version, found[np.argsort(found[:, 0], kind="stable")]
        return self._known_runs[2]

    def yields(self, wanted: Filter) -> list[Yield]:
        return count_yields(self._ask(queries.YIELDS, self._bound(wanted)))

    def pareto(self, wanted: Filter) -> list[ParetoRow]:
        rows = self._ask(queries.PARETO, self._bound(wanted))
        if self._archived and wanted.outcome in (None, Outcome.NG):
            failed = self._numbers(msgspec.structs.replace(wanted, outcome=Outcome.NG))
            rows = [
                *_added(
                    rows, [(name, 0, every) for name, every in self._archived.ng_runs(failed).items()]
                ).items()
            ]
            rows = [(name, *counts) for name, counts in rows]
        found = [ParetoRow(*row) for row in rows]
        return sorted(found, key=lambda row: (-row.first, -row.all, row.item))

    def events(self, wanted: Filter = EVERYTHING, limit: int | None = 1000) -> list[Event]:
        values = {"cell": wanted.cell, "since": wanted.since_us, "until": wanted.until_us}
        rows = self._ask(queries.EVENTS, values | {"limit": -1 if limit is None else limit})
        return [event_of(row) for row in rows]

    def last_events(self, kind: str) -> dict[int | None, int]:
        """When something of this kind happened last, by cell."""
        return dict(self._ask(queries.LAST_EVENTS, {"kind": kind}))

    def outcomes(self, since_us: int, until_us: int) -> dict[tuple[int, Outcome], int]:
        """How many runs ended in which way, by cell: those that ended since and began until then."""
        rows = self._ask(queries.OUTCOMES, {"since": since_us, "until": until_us})
        return {(cell, Outcome(outcome)): count for cell, outcome, count in rows}

    def now(self) -> list[Now]:
        return [
            Now(cell, state, run and uuid.UUID(bytes=run), *rest)
            for cell, state, run, *rest in self._ask(queries.NOW)
        ]

    def seals(self, after: int = 0, limit: int = 1000) -> list[Seal]:
        return [seal_of(row) for row in self._ask(queries.SEALS, {"after": after, "limit": limit})]

    def sealed(self, after: Mapping[uuid.UUID, int], limit: int = 20_000) -> list[Sealed]:
        values = {"after": after.get(self._station.id, 0), "limit": limit}
        return [
            sealed_of((self._station.id, *row[1:3], uuid.UUID(bytes=row[3]), *row[4:]))
            for row in self._ask(queries.SEALED, values)
        ]

    def newest_seals(self) -> dict[uuid.UUID, int]:
        return {self._station.id: self._ask(queries.NEWEST_SEAL)[0][0]}

    def verify(self, progress: Progress | None = None) -> Verification:
        from .verify import verify

        return verify(self._connection, progress, self._archived)

    def _bound(self, wanted: Filter) -> dict[str, Any]:
        failed = self._archived.failed(wanted.failed_item) if wanted.failed_item and self._archived else []
        return bound(wanted) | {"failed_archived": json.dumps(failed)}

    def _numbers(self, wanted: Filter) -> list[int]:
        return sorted(row[0] for row in self._ask(queries.RUN_COLUMNS, self._bound(wanted)))

    def _ask(self, query: str, values: Sequence[Any] | dict[str, Any] = ()) -> list[Row]:
        if not self._seconds:
            return list(ask(self._connection, query, values))
        self._deadline = time.monotonic() + self._seconds
        try:
            return list(ask(self._connection, query, values))
        except apsw.InterruptError:
            raise TooSlow(f"The question took longer than {self._seconds:g} s.") from None
        finally:
            self._deadline = float("inf")


def bound(wanted: Filter) -> dict[str, Any]:
    """What the questions about runs bind."""
    return {
        "since": wanted.since_us,
        "until": wanted.until_us,
        "product": wanted.product,
        "operation": wanted.operation,
        "purpose": wanted.purpose,
        "outcome": wanted.outcome and str(wanted.outcome),
        "station": wanted.station and wanted.station.bytes,
        "cell": wanted.cell,
        "operator": wanted.operator,
        "batch": wanted.batch,
        "serial": wanted.serial_number and glob(wanted.serial_number),
        "failed": wanted.failed_item,
    }


def glob(pattern: str) -> str:
    """Only `*` stands for other text; the other signs of GLOB are themselves."""
    return "".join(f"[{sign}]" if sign in "?[" else sign for sign in pattern)


def run_of(row: Row) -> Run:
    values = list(row)
    values[1], values[14], values[20] = uuid.UUID(bytes=row[1]), Outcome(row[14]), uuid.UUID(bytes=row[20])
    return Run(*values)


def sealed_of(row: Row) -> Sealed:
    values = list(row)
    values[14], values[16], values[17] = Outcome(row[14]), row[16] != 0, row[17] != 0
    return Sealed(*values)


def setup_of(row: Row) -> Setup:
    values = list(row)
    values[8] = json.loads(row[8])
    return Setup(*values)


def measurement_values(row: Row) -> Row:
    """A row as it is hashed."""
    truth = None if row[5] is None else row[5] != 0
    categories = json.loads(row[19]) if row[19] != "[]" else []
    return (*row[:5], truth, *row[6:11], (*row[11:18], row[18] != 0, categories))


def measurement_of(row: Row) -> Measurement:
    seq, item, kind, number, text, truth, verdict, time_us, elapsed_us, attempt, note, criterion = (
        measurement_values(row)
    )
    lower_kind, lower, lower_text, upper_kind, upper, upper_text, unit, report, categories = criterion
    return Measurement(
        seq, item, Kind(kind), number, text, truth, Verdict(verdict), time_us, elapsed_us, attempt, note,
        Kind(lower_kind), lower, lower_text, Kind(upper_kind), upper, upper_text, unit, report, tuple(categories),
    )  # fmt: skip


def event_of(row: Row) -> Event:
    return Event(row[0], uuid.UUID(bytes=row[1]), row[2] and uuid.UUID(bytes=row[2]), *row[3:])


def correction_of(row: Row) -> Correction:
    return Correction(row[0], row[1], Outcome(row[2]), *row[3:])


def seal_of(row: Row) -> Seal:
    return Seal(row[0], uuid.UUID(bytes=row[1]), *row[2:])


def count_yields(rows: Iterable[Row]) -> list[Yield]:
    """Rows of product, operation, serial number, outcome, number in the order of runs, whether a first attempt."""
    ordered = sorted(rows, key=itemgetter(4))
    counts = Counter(map(itemgetter(0, 1, 3, 5), ordered))
    judged = ("OK", "NG", "TBD")
    last = {row[:2] + (row[2] or row[4],): row[3] for row in ordered if row[3] in judged}
    finals = Counter((product, operation, outcome) for (product, operation, _), outcome in last.items())
    found: dict[tuple[str, str], Counter[str]] = defaultdict(Counter)
    for (product, operation, outcome, first), number in counts.items():
        one = found[product, operation]
        one["runs"] += number
        one[_COUNTED.get(outcome, "others")] += number
        if first and outcome in judged:
            one["first_attempts"] += number
            one["first_passed"] += number if outcome == "OK" else 0
    for (product, operation, outcome), number in finals.items():
        found[product, operation]["units"] += number
        found[product, operation]["finally_passed"] += number if outcome == "OK" else 0
    names = Yield.__struct_fields__[2:]
    return [Yield(*key, *(one[name] for name in names)) for key, one in sorted(found.items())]


def _added(rows: Iterable[Row], more: Iterable[Row]) -> dict[str, list[int]]:
    """Counts of the same names added up."""
    total: dict[str, list[int]] = {name: [int(count) for count in counts] for name, *counts in rows}
    for name, *counts in more:
        known = total.setdefault(name, [0] * len(counts))
        total[name] = [a + int(b) for a, b in zip(known, counts, strict=True)]
    return total
