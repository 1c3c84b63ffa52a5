"""A line's database, read: the same questions as to a station's file."""

import json
import uuid
from collections.abc import Mapping, Sequence
from typing import Any

import numpy as np
import psycopg

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
from ..store.base import (
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
from ..store.sqlite import count_yields, sealed_of
from . import queries
from .connection import Connection, LineError, connect, words

Row = tuple[Any, ...]


class LineStore(Store):
    """Read-only.  A connection that broke is made again for the next question."""

    def __init__(self, address: str) -> None:
        """LineError when it cannot be reached or holds no results."""
        self.address = address
        self._seconds = 0.0
        self._connection: Connection | None = connect(address)

    def close(self) -> None:
        if self._connection is not None:
            self._connection.close()
            self._connection = None

    def limit(self, seconds: float) -> None:
        self._seconds = seconds
        if self._connection is not None and not self._connection.closed:
            self._limit(self._connection)

    def _limit(self, connection: Connection) -> None:
        connection.execute(
            "SELECT set_config('statement_timeout', %s, false)", [f"{self._seconds * 1000:.0f}ms"]
        )

    def stations(self) -> list[Station]:
        return [Station(*row) for row in self._ask(queries.STATIONS)]

    def runs(self, wanted: Filter = EVERYTHING, limit: int | None = 1000) -> list[Run]:
        query = queries.RUNS if wanted.serial_number is None else queries.RUNS_BY_SERIAL
        return [run_of(row) for row in self._ask(query, bound(wanted) | {"limit": limit})]

    def run(self, which: uuid.UUID | str) -> Run:
        first, last = id_bounds(which)
        return run_of(only(self._ask(queries.RUN_BY_ID, {"first": first, "last": last}), which))

    def record(self, which: uuid.UUID | str) -> Record:
        run = self.run(which)
        own = {"run": run.id}
        return Record(
            run=run,
            own=run_of(self._ask(queries.OWN_RUN, own)[0]),
            setup=setup_of(self._ask(queries.SETUP, own)[0]),
            measurements=[measurement_of(row) for row in self._ask(queries.MEASUREMENTS, own)],
            instruments=[Instrument(*row) for row in self._ask(queries.INSTRUMENTS, own)],
            attachments=[Attachment(*row) for row in self._ask(queries.ATTACHMENTS, own)],
            events=[Event(*row) for row in self._ask(queries.EVENTS_OF_RUN, own)],
            corrections=[correction_of(row) for row in self._ask(queries.CORRECTIONS, own)],
            seals=[Seal(*row) for row in self._ask(queries.SEALS_OF_RUN, own)],
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
        return [ItemCount(*row) for row in self._ask(queries.ITEMS, bound(wanted))]

    def item_names(self) -> list[str]:
        return [name for (name,) in self._ask(queries.ITEM_NAMES)]

    def item(self, name: str, wanted: Filter = EVERYTHING) -> ItemColumns:
        known = self._ask(queries.ITEM_ID, (name,))
        if not known:
            raise KeyError(f'No run has an item "{name}".')
        rows = self._ask(queries.ITEM_VALUES, bound(wanted) | {"item": known[0][0]})
        return _item_columns(name, rows)

    def yields(self, wanted: Filter) -> list[Yield]:
        rows = self._ask(queries.YIELDS, bound(wanted))
        return count_yields((*row[:4], place, row[5]) for place, row in enumerate(rows))

    def pareto(self, wanted: Filter) -> list[ParetoRow]:
        return [ParetoRow(*row) for row in self._ask(queries.PARETO, bound(wanted))]

    def events(self, wanted: Filter = EVERYTHING, limit: int | None = 1000) -> list[Event]:
        values = {
            "cell": wanted.cell,
            "station": wanted.station,
            "since": wanted.since_us,
            "until": wanted.until_us,
        }
        return [Event(*row) for row in self._ask(queries.EVENTS, values | {"limit": limit})]

    def now(self) -> list[Now]:
        return [Now(*row) for row in self._ask(queries.NOW)]

    def now_of_stations(self) -> list[tuple[uuid.UUID, Now]]:
        """What stands at each cell of each station."""
        return [(station, Now(*row)) for station, *row in self._ask(queries.NOW_OF_STATIONS)]

    def seals(self, after: int = 0, limit: int = 1000) -> list[Seal]:
        """One station's after the other's; `after` counts them."""
        return [Seal(*row) for row in self._ask(queries.SEALS_OF_ALL, {"after": after, "limit": limit})]

    def sealed(self, after: Mapping[uuid.UUID, int], limit: int = 20_000) -> list[Sealed]:
        stations = [station.id for station in self.stations()]
        values = {"stations": stations, "after": [after.get(id, 0) for id in stations], "limit": limit}
        return [sealed_of(row) for row in self._ask(queries.SEALED, values)]

    def newest_seals(self) -> dict[uuid.UUID, int]:
        return dict(self._ask(queries.NEWEST_SEALS))

    def verify(self, progress: Progress | None = None) -> Verification:
        from .verify import verify

        return verify(self, progress)

    def ask(self, query: str, values: Sequence[Any] | dict[str, Any] = ()) -> list[Row]:
        """For the modules of this package."""
        return self._ask(query, values)

    def _ask(self, query: str, values: Sequence[Any] | dict[str, Any] = ()) -> list[Row]:
        """The rows; after a broken connection once more on a new one."""
        for last in (False, True):
            if self._connection is None or self._connection.closed:
                self._connection = connect(self.address)
                if self._seconds:
                    self._limit(self._connection)
            try:
                return self._connection.execute(query, values or None, prepare=True).fetchall()
            except psycopg.errors.QueryCanceled:
                raise TooSlow(f"The question took longer than {self._seconds:g} s.") from None
            except psycopg.OperationalError as error:
                if last or not self._connection.broken:
                    raise LineError(words(error)) from None
            except psycopg.Error as error:
                raise LineError(words(error)) from None
        raise AssertionError("not reached")


def bound(wanted: Filter) -> dict[str, Any]:
    """What the questions about runs bind."""
    return {
        "since": wanted.since_us, "until": wanted.until_us, "product": wanted.product, "operation": wanted.operation,
        "purpose": wanted.purpose, "outcome": wanted.outcome and str(wanted.outcome), "station": wanted.station,
        "cell": wanted.cell, "operator": wanted.operator, "batch": wanted.batch, "failed": wanted.failed_item,
        "serial": None if wanted.serial_number is None else pattern(wanted.serial_number),
    }  # fmt: skip


def pattern(text: str) -> str:
    """For LIKE: only `*` stands for other text."""
    escaped = text.replace("\\", "\\\\").replace("%", "\\%").replace("_", "\\_")
    return escaped.replace("*", "%")


def run_of(row: Row) -> Run:
    values = list(row)
    values[14] = Outcome(row[14])
    return Run(*values)


def setup_of(row: Row) -> Setup:
    values = [*row[:8], json.loads(row[8])]
    return Setup(*values)


def measurement_of(row: Row) -> Measurement:
    values = list(row)
    values[2], values[6] = Kind(row[2]), Verdict(row[6])
    values[11], values[14], values[19] = Kind(row[11]), Kind(row[14]), tuple(json.loads(row[19]))
    return Measurement(*values)


def correction_of(row: Row) -> Correction:
    return Correction(row[0], row[1], Outcome(row[2]), *row[3:])


def _item_columns(name: str, rows: list[Row]) -> ItemColumns:
    columns = list(zip(*rows, strict=True)) if rows else [()] * 13
    run, station, seq, cell, attempt, kind, number, truth, verdict, lower, upper, time_us, units = columns
    kinds = np.array(kind, dtype=np.int64)
    value = np.array(number, dtype=np.float64)
    bools = kinds == Kind.BOOL
    if bools.any():
        value[bools] = np.array(truth, dtype=np.float64)[bools]
    value[kinds == Kind.INFINITY], value[kinds == Kind.MINUS_INFINITY] = np.inf, -np.inf
    stations = sorted(set(station))
    places = {id: place for place, id in enumerate(stations)}

    def whole(column: Sequence[Any]) -> Any:
        return np.array(column, dtype=np.int64)

    return ItemColumns(
        name=name, run=whole(run), station=whole([places[id] for id in station]), seq=whole(seq), cell=whole(cell),
        attempt=whole(attempt), kind=kinds, value=value, verdict=whole(verdict),
        lower=np.array(lower, dtype=np.float64), upper=np.array(upper, dtype=np.float64), time_us=whole(time_us),
        unit=next((unit for unit in reversed(units) if unit), ""), stations=stations,
    )  # fmt: skip
