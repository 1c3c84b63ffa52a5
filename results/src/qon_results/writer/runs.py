"""Runs on their way into the file: begin, measurements, seal.  Each step may come again and is kept once."""

from dataclasses import dataclass
from itertools import repeat
from typing import Any

import apsw
import msgspec
import numpy as np

from ..records import Outcome
from ..store import queries
from ..store.file import ask
from ..store.hashing import RecordHash, next_chain
from ..store.verify import correction_hash, finish, record_hash
from .chain import ChainEnd
from .dictionaries import Column, Criterion, Dictionaries, plain_value, plain_values
from .messages import Attach, Begin, End, Happened, InterruptedUnit, Odd, Rows, RunId, UsedInstrument

_VERDICTS = {False: 0, True: 1, None: 2}
_MOST_US = 1 << 53
_MOST_SECONDS = 1e10

_INSERT_RUN = """
INSERT INTO run (number, id, setup, plan, cell, scanned, product, operation, purpose, operator, batch, serial_number,
                 utc_offset_s, begin_us)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)
"""
_INSERT_ROW = "INSERT INTO measurement VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"
_DELETE_ROWS = "DELETE FROM measurement WHERE item = ? AND run = ? AND seq >= ? AND seq < ?"
_KNOWN = """
SELECT number, plan, begin_us, EXISTS (SELECT 1 FROM seal WHERE seal.run = run.number) FROM run WHERE id = ?
"""
_COUNT = """
SELECT count(*) FROM plan_item AS p CROSS JOIN measurement AS m ON m.item = p.item AND m.run = ? WHERE p.plan = ?
"""
_LAST_TIME = """
SELECT max(m.time_us) FROM plan_item AS p CROSS JOIN measurement AS m ON m.item = p.item AND m.run = ? WHERE p.plan = ?
"""
_END_RUN = """
UPDATE run SET serial_number = :serial, end_us = :end, duration_us = :duration, outcome = :outcome, reason = :reason,
       details = :details, measured = :measured,
       first_ng = (SELECT item FROM measurement WHERE run = :run AND verdict = 0 ORDER BY seq LIMIT 1),
       ng = (SELECT count(*) FROM measurement WHERE run = :run AND verdict = 0)
WHERE number = :run
"""
_ATTACH = """
INSERT INTO attachment (run, number, name, seq, content, at_us)
VALUES (:run, 1 + coalesce((SELECT max(number) FROM attachment WHERE run = :run), 0), :name, :seq, :content, :at)
ON CONFLICT (run, name) DO UPDATE SET content = excluded.content, seq = excluded.seq
"""
_INSTRUMENT = "INSERT OR REPLACE INTO instrument (run, name, identity, calibration_due) VALUES (?, ?, ?, ?)"
_EVENT = """
INSERT INTO event (number, id, run, cell, at_us, kind, text, data) VALUES (?, ?, ?, ?, ?, ?, ?, ?)
ON CONFLICT (id) DO NOTHING
"""
_LAST_RUN = """
SELECT coalesce(max(number), 0) FROM run
"""
_CORRECT = "INSERT INTO correction (seal, run, at_us, outcome, reason, details) VALUES (?, ?, ?, ?, ?, ?)"

UNFINISHED = "the station ended while the test was running"


class OutOfStepError(Exception):
    """What the recorder says and what the file has do not fit: all is to be sent again."""


@dataclass
class Live:
    """A run under way; `hash` has its first measurements, None when they have to be read from the file at the end."""

    number: int
    plan: int
    begin_us: int
    sealed: bool
    hash: RecordHash | None
    count: int | None = 0  # None: to be counted in the file


class Runs:
    """Works within the transaction that its owner began."""

    def __init__(self, connection: apsw.Connection) -> None:
        self._connection = connection
        self._dictionaries = Dictionaries(connection)
        self._chain = ChainEnd(connection)
        self._live: dict[RunId, Live] = {}

    def content(self, data: bytes) -> None:
        self._dictionaries.content(data)

    def begin(self, begin: Begin) -> None:
        if self._known(begin.run) is not None:
            return
        numbers = next(ask(self._connection, _LAST_RUN))
        number, plan = numbers[0] + 1, self._dictionaries.plan(begin)
        fixed = (
            begin.cell,
            begin.scanned,
            begin.product,
            begin.operation,
            begin.purpose,
            begin.operator,
            begin.batch,
        )
        setup = self._dictionaries.setup(begin.setup)
        row = (
            number,
            begin.run,
            setup,
            plan,
            *fixed,
            begin.serial_number,
            begin.utc_offset_s,
            begin.begin_us,
        )
        self._connection.execute(_INSERT_RUN, row)
        self._live[begin.run] = Live(number, plan, begin.begin_us, False, RecordHash())

    def rows(self, rows: Rows) -> None:
        live = self._needed(rows.run)
        if live.sealed:
            return
        if rows.again:
            self._forget(live, rows.start, len(rows.names))
        count, first = len(rows.names), rows.start
        items = self._dictionaries.items(live.plan, rows.names)
        criteria = self._dictionaries.criteria(
            rows.lowers, rows.uppers, rows.units, rows.reports, rows.categories
        )
        kinds, numbers, texts, truths = self._values(live, rows)
        verdicts = list(map(_VERDICTS.__getitem__, rows.verdicts))
        times = _microseconds(rows.times, live.begin_us)
        elapsed = _microseconds(rows.elapsed, 0)
        attempts = [1] * count
        for place, attempt in rows.attempts.items():
            attempts[place] = attempt
        columns = (
            kinds,
            numbers,
            texts,
            truths,
            [number for number, _ in criteria],
            verdicts,
            times,
            elapsed,
            attempts,
        )
        places = range(first, first + count)
        self._connection.executemany(
            _INSERT_ROW, zip(items, repeat(live.number), places, *columns, strict=False)
        )
        notes = [(live.number, first + place, text) for place, text in sorted(rows.notes.items())]
        self._connection.executemany("INSERT OR REPLACE INTO note VALUES (?, ?, ?)", notes)
        if live.hash is not None and live.hash.count == first:
            live.hash.measurements(_hashed(rows, columns, criteria, places))
        else:
            live.hash = None
        live.count = None if live.count is None or live.count < first else max(live.count, first + count)

    def cut(self, run: RunId, measured: int) -> None:
        """The script has taken measurements back."""
        live = self._needed(run)
        if not live.sealed:
            self._forget(live, measured, 1 << 62)

    def attach(self, attach: Attach) -> None:
        live = self._needed(attach.run)
        if not live.sealed:
            self._attach(live, attach.name, None, attach.data, attach.at_us)

    def instrument(self, used: UsedInstrument) -> None:
        live = self._needed(used.run)
        if not live.sealed:
            row = (live.number, used.name, used.identity, used.calibration_due)
            self._connection.execute(_INSTRUMENT, row)

    def event(self, event: Happened) -> None:
        run = None if event.run is None else self._needed(event.run).number
        row = (
            self._last_event() + 1,
            event.id,
            run,
            event.cell,
            event.at_us,
            event.kind,
            event.text,
            event.data,
        )
        self._connection.execute(_EVENT, row)

    def end(self, end: End) -> None:
        live = self._needed(end.run)
        if live.sealed:
            self._correct(live, end)
            return
        if live.count is None:
            live.count = next(ask(self._connection, _COUNT, (live.number, live.plan)))[0]
        if live.count != end.measured:
            raise OutOfStepError(f"Run {live.number} has {end.measured} measurements, {live.count} came.")
        self._seal(live, end)

    def interrupt(self, run: RunId, at_us: int, reason: str = UNFINISHED) -> None:
        """Nobody can end this run any more: it ends with what was measured."""
        live = self._needed(run)
        if live.sealed:
            return
        (last,) = next(ask(self._connection, _LAST_TIME, (live.number, live.plan)))
        query = "SELECT heartbeat_us FROM now WHERE run = ?"
        seen = max([live.begin_us, *(beat for (beat,) in ask(self._connection, query, (run,)))])
        took = max(last or 0, seen - live.begin_us)
        (serial,) = next(
            ask(self._connection, "SELECT serial_number FROM run WHERE number = ?", (live.number,))
        )
        (count,) = next(ask(self._connection, _COUNT, (live.number, live.plan)))
        outcome = str(Outcome.INTERRUPTED)
        self._seal(live, End(run, serial, count, live.begin_us + took, took, outcome, reason, "", at_us))

    def open_runs(self) -> list[RunId]:
        """Those without an end, in their order."""
        query = "SELECT id FROM run WHERE outcome = 'RUNNING' ORDER BY number"
        return [id for (id,) in ask(self._connection, query)]

    def interrupted(self) -> list[InterruptedUnit]:
        """What the operator has not seen yet, and nobody has tested again."""
        return [InterruptedUnit(*row) for row in ask(self._connection, queries.UNTOLD)]

    def _known(self, run: RunId) -> Live | None:
        if run not in self._live:
            for number, plan, begin_us, sealed in ask(self._connection, _KNOWN, (run,)):
                self._live[run] = Live(number, plan, begin_us, bool(sealed), None, None)
        return self._live.get(run)

    def _needed(self, run: RunId) -> Live:
        live = self._known(run)
        if live is None:
            raise OutOfStepError(f"Run {run.hex()} has not begun.")
        return live

    def _forget(self, live: Live, first: int, count: int) -> None:
        """These places are written anew; an item may have become another one."""
        bounds = (live.number, first, first + count)
        items = self._dictionaries.planned(live.plan)
        self._connection.executemany(_DELETE_ROWS, [(item, *bounds) for item in items])
        self._connection.execute("DELETE FROM note WHERE run = ? AND seq >= ? AND seq < ?", bounds)
        self._connection.execute("DELETE FROM attachment WHERE run = ? AND seq >= ? AND seq < ?", bounds)
        live.hash = live.count = None

    def _values(self, live: Live, rows: Rows) -> tuple[Column, Column, Column, Column]:
        plain = plain_values(rows.values)
        if plain is not None:
            return plain
        found: list[tuple[int, float | None, str | None, int | None]] = []
        for place, value in enumerate(rows.values):
            if type(value) is list:
                found.append(self._odd(live, rows, place, msgspec.convert(value, Odd)))
            else:
                found.append(plain_value(value))
        kinds, numbers, texts, truths = (
            (list(column) for column in zip(*found, strict=True)) if found else ([],) * 4
        )
        return kinds, numbers, texts, truths

    def _odd(
        self, live: Live, rows: Rows, place: int, odd: Odd
    ) -> tuple[int, float | None, str | None, None]:
        if odd.note:
            rows.notes[place] = "; ".join(filter(None, (rows.notes.get(place), odd.note)))
        if odd.data is not None:
            seq = rows.start + place
            time = rows.times[place]
            at_us = (
                round(time * 1e6) if isinstance(time, float) and abs(time) < _MOST_US / 1e6 else live.begin_us
            )
            self._attach(live, f"{seq} {odd.name}", seq, odd.data, at_us)
        return odd.kind, None if odd.number is None else odd.number + 0.0, odd.text, None

    def _attach(self, live: Live, name: str, seq: int | None, data: bytes, at_us: int) -> None:
        content = self._dictionaries.content(data)
        values = {"run": live.number, "name": name, "seq": seq, "content": content, "at": at_us}
        self._connection.execute(_ATTACH, values)

    def _seal(self, live: Live, end: End) -> None:
        values = {
            "run": live.number,
            "serial": end.serial_number,
            "end": end.end_us,
            "duration": end.duration_us,
            "outcome": end.outcome,
            "reason": end.reason,
            "details": end.details,
            "measured": end.measured,
        }
        self._connection.execute(_END_RUN, values)
        before, last = self._chain.events, self._last_event()
        if live.hash is not None and live.hash.count == end.measured:
            digest = finish(self._connection, live.hash, live.number, before, last)
        else:
            rows = ask(self._connection, queries.MEASUREMENTS, {"run": live.number})
            digest, _ = record_hash(self._connection, rows, live.number, before, last)
        self._append(live.number, end.at_us, last, digest)
        live.sealed, live.hash = True, None

    def _correct(self, live: Live, end: End) -> None:
        query = "SELECT outcome, reason FROM result WHERE number = ?"
        if next(ask(self._connection, query, (live.number,))) == (end.outcome, end.reason):
            return
        seal, before, last = self._chain.number + 1, self._chain.events, self._last_event()
        row = (seal, live.number, end.at_us, end.outcome, end.reason, end.details)
        self._connection.execute(_CORRECT, row)
        digest = correction_hash(self._connection, seal, live.number, before, last)
        self._append(live.number, end.at_us, last, digest)

    def _append(self, run: int, at_us: int, events: int, digest: bytes) -> None:
        chain = self._chain
        chain.number, chain.events, chain.chain = chain.number + 1, events, next_chain(chain.chain, digest)
        row = (chain.number, run, at_us, events, digest, chain.chain)
        self._connection.execute("INSERT INTO seal VALUES (?, ?, ?, ?, ?, ?)", row)

    def _last_event(self) -> int:
        query = "SELECT max(?, coalesce(max(number), 0)) FROM event"
        return int(next(ask(self._connection, query, (self._chain.events,)))[0])


def _microseconds(seconds: list[Any], begin_us: int) -> list[int | None]:
    """From the begin on; None for what is no moment."""
    types = set(map(type, seconds))
    if types == {type(None)}:
        return seconds
    if types == {float}:
        found = np.array(seconds)
        if (np.abs(found) < _MOST_SECONDS).all():  # not so for what is no number
            moments: list[int | None] = (np.rint(found * 1e6).astype(np.int64) - begin_us).tolist()
            return moments
    plain = (type(value) in (float, int) and abs(value) < _MOST_SECONDS for value in seconds)
    return [
        round(value * 1e6) - begin_us if fits else None for value, fits in zip(seconds, plain, strict=True)
    ]


def _hashed(
    rows: Rows, columns: tuple[list[Any], ...], criteria: list[Criterion], places: range
) -> list[tuple[Any, ...]]:
    """The rows as `store.hashing` has them."""
    kinds, numbers, texts, truths, _, verdicts, times, elapsed, attempts = columns
    if truths.count(None) < len(truths):
        truths = [None if truth is None else bool(truth) for truth in truths]
    notes = [rows.notes.get(place) for place in range(len(places))] if rows.notes else [None] * len(places)
    raw = [fields for _, fields in criteria]
    hashed = (
        places,
        rows.names,
        kinds,
        numbers,
        texts,
        truths,
        verdicts,
        times,
        elapsed,
        attempts,
        notes,
        raw,
    )
    return list(zip(*hashed, strict=True))
