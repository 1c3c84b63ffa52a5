"""Units of earlier runs, as the station's windows list them: frozen, their items read when somebody looks."""

import logging
import math
import threading
from pathlib import Path
from typing import Any

from qon_ats import Assertion
from qon_station import Kind, Outcome, StationUnit

from ..records import Kind as ValueKind
from ..records import Measurement, Run, Setup, Verdict
from ..store.base import Filter
from ..store.sqlite import SqliteStore

_VERDICTS = {Verdict.NG: False, Verdict.OK: True}

log = logging.getLogger(__name__)


class Past:
    """Where the items of earlier runs are read; any thread."""

    def __init__(self, path: Path, since_us: int) -> None:
        self._path = path
        self._since_us = since_us
        self._lock = threading.Lock()
        self._named: tuple[str, dict[int, list[Assertion] | None]] = ("", {})

    def record(self, run: Run) -> tuple[list[Assertion], Setup]:
        """Items and setup of one run."""
        with SqliteStore(self._path) as store:
            record = store.record(run.id)
        begin = run.begin_us / 1e6
        return [_assertion(one, begin) for one in record.measurements], record.setup

    def named(self, name: str) -> dict[int, list[Assertion] | None]:
        """One item in all runs by their numbers, None where it has other values than numbers; the last one is kept."""
        with self._lock:
            if self._named[0] != name:
                self._named = (name, self._read(name))
            return self._named[1]

    def _read(self, name: str) -> dict[int, list[Assertion] | None]:
        found: dict[int, list[Assertion] | None] = {}
        with SqliteStore(self._path) as store:
            try:
                item = store.item(name, Filter(since=self._since_us))
            except KeyError:
                return found
        columns = (item.run, item.kind, item.value, item.verdict, item.lower, item.upper, item.time_us)
        is_number = (item.kind == ValueKind.NUMBER) | (item.kind == ValueKind.INTEGER)
        found.update(dict.fromkeys(item.run[~is_number].tolist()))  # their texts stand in the whole record
        for run, kind, value, verdict, lower, upper, time_us in zip(
            *(column.tolist() for column in columns), strict=True
        ):
            listed = found.setdefault(run, [])
            if listed is not None:
                result = _VERDICTS.get(Verdict(verdict))
                number = int(value) if kind == ValueKind.INTEGER else value
                shown = None if result is None else number
                one = Assertion(name, shown, _limit(lower), _limit(upper), item.unit, result, time_us / 1e6)
                listed.append(one)
        return found


def _limit(number: float) -> float | None:
    return None if math.isnan(number) else number


def _assertion(one: Measurement, begin: float) -> Assertion:
    """As it was judged then, whatever its limits say."""
    result = _VERDICTS.get(one.verdict)
    found = Assertion(
        one.item,
        None if result is None else one.value,  # a value would be judged
        one.lower,
        one.upper,
        one.unit,
        result,
        begin if one.time_us is None else begin + one.time_us / 1e6,
        one.report,
    )
    if one.elapsed_us is not None:
        found.set_elapse_time(one.elapsed_us / 1e6)
    if one.attempt != 1:
        found.attempt = one.attempt  # type: ignore[attr-defined]
    return found


class RecordedUnit(StationUnit):
    """A unit of an earlier run: nothing about it changes any more."""

    def __init__(self, run: Run, past: Past) -> None:
        super().__init__(run.serial_number, run.cell)
        self.run = run
        self._past = past
        self._items: list[Assertion] | None = None
        self.scanned_serial_number = run.scanned or ""
        kind = run.outcome if run.outcome != "RUNNING" else "INTERRUPTED"
        self._took = (run.duration_us or 0) / 1e6
        self._is_closed = True
        self._final = Outcome(Kind(kind), run.reason, run.details)
        self._seal()

    def __getstate__(self) -> dict[str, Any]:
        """A copy has its items with it, not the way to them."""
        return {**super().__getstate__(), "_items": self.assertions, "_past": None}

    @property
    def begin_time(self) -> float:
        """When the test began, seconds since the epoch."""
        return self.run.begin_us / 1e6

    @property  # type: ignore[misc]  # it cannot be set any more
    def end_time(self) -> float:
        """When the test ended, seconds since the epoch."""
        return (self.run.end_us or self.run.begin_us) / 1e6

    @property
    def elapse(self) -> float:
        """Seconds from begin to end."""
        return self.duration

    @property  # type: ignore[misc]
    def done(self) -> bool:
        """Whether the test came to its end."""
        return self.outcome is not None and self.outcome.kind is not Kind.EXCEPTION

    @property
    def is_ng(self) -> bool:
        """Whether a measurement is NG."""
        return self.run.ng > 0

    @property
    def assertions(self) -> list[Assertion]:
        """The measurements in their order, read from the station's results; empty when these cannot be read."""
        if self._items is None:
            try:
                self._items, setup = self._past.record(self.run)
            except Exception:
                log.exception("The items of %s could not be read.", self.serial_number or "a unit")
                return []
            self.script, self.limits_file = setup.script, setup.limits
        return self._items

    def assertions_named(self, name: str) -> list[Assertion]:
        """Its measurements of this name; asked of many units they are read all at once."""
        if self._items is None:
            found = self._past.named(name).get(self.run.number, [])
            if found is not None:
                return found
        return [one for one in self.assertions if one.name == name]

    @property
    def first_ng(self) -> Assertion | None:
        """The first NG measurement, or None."""
        return next((one for one in self.assertions if one.is_ng()), None)

    def first_ng_item_name(self) -> str:
        """The name of the first NG measurement; for a run without a verdict how it ended."""
        outcome = self.outcome
        if outcome is not None and not outcome.kind.is_verdict:
            return str(outcome.kind).lower()
        return self.run.first_ng or ""

    def get_assertion_by_name(self, name: str) -> Assertion | None:
        """The first measurement of this name, or None."""
        return next((one for one in self.assertions if one.name == name), None)
