"""What stands at every cell now, with the words of the station's own bands."""

import datetime
import statistics
import time
import uuid
from collections import deque
from dataclasses import dataclass

import numpy as np

from ..records import Now
from ..store.base import PRODUCTION, Filter, Store, microseconds
from .history import JUDGED, OK, OUTCOMES, History, Rows
from .settings import shift_begin

SILENT_SECONDS = 10.0  # stations report every second
_TYPICAL = 25  # runs that ended OK
SILENT, READY = "SILENT", "READY"
_BUSY = ("TESTING", "PAUSED", "WAITING")
_GONE = ("CLOSED", "LOST")


@dataclass(frozen=True)
class CellNow:
    """`word` is the band's: a state, or how the last run ended while nothing else runs.

    until_us: when the run should be over.  last: how the run before ended.  The counts are those of the shift.
    """

    station: uuid.UUID
    station_name: str
    cell: int
    word: str
    serial_number: str
    since_us: int
    until_us: int | None
    progress: float | None
    last: str
    item: str
    run: str
    units: int
    first_attempts: int
    first_passed: int
    heard_us: int

    @property
    def key(self) -> str:
        return f"cell-{self.station.hex[:12]}-{self.cell}"


@dataclass(frozen=True)
class Counts:
    units: int = 0
    first_attempts: int = 0
    first_passed: int = 0


class Board:
    """Asked in one thread at a time, as the history it reads is."""

    def __init__(self, history: History, shifts: tuple[datetime.time, ...]) -> None:
        self._history, self._shifts = history, shifts
        self._read = 0  # rows of the history
        self._last: dict[tuple[int, int], int] = {}  # station and cell: row
        self._times: dict[tuple[int, int], deque[int]] = {}  # product and operation: durations
        self._heard: dict[tuple[uuid.UUID, int], tuple[int, float | None]] = {}
        self._counted: tuple[int, int] = (-1, -1)
        self._counts: dict[tuple[int, int], Counts] = {}
        self.shift = datetime.datetime.now().astimezone()
        self.total = Counts()

    def look(self, store: Store) -> list[CellNow]:
        """All cells in the order of stations and numbers."""
        self._history.refresh(store)
        states = store.now_of_stations()
        self._follow()
        self._count()
        return [self._cell(station, now) for station, now in states]

    def _follow(self) -> None:
        rows = self._history.rows
        if len(rows) < self._read:
            self._read = 0
            self._last.clear()
        for place in range(self._read, len(rows)):
            row = rows[place]
            self._last[int(row["station"]), int(row["cell"])] = place
            if row["outcome"] == OK:
                key = int(row["product"]), int(row["operation"])
                self._times.setdefault(key, deque(maxlen=_TYPICAL)).append(int(row["duration"]))
        self._read = len(rows)

    def _count(self) -> None:
        self.shift = shift_begin(datetime.datetime.now().astimezone(), self._shifts)
        begin = microseconds(self.shift)
        if self._counted == (self._history.version, begin):
            return
        self._counted = self._history.version, begin
        rows = self._history.select(Filter(since=begin, purpose=PRODUCTION))
        rows = rows[np.isin(rows["outcome"], JUDGED)]
        self.total = _counts(rows)
        cells = {(int(row["station"]), int(row["cell"])) for row in rows}
        self._counts = {
            key: _counts(rows[(rows["station"] == key[0]) & (rows["cell"] == key[1])]) for key in cells
        }

    def _cell(self, station: uuid.UUID, now: Now) -> CellNow:
        history = self._history
        code = history.names["station"].find(station.hex)
        place = self._last.get((code, now.cell))
        row = None if place is None else history.rows[place]
        counts = self._counts.get((code, now.cell), Counts())
        last = "" if row is None else OUTCOMES[row["outcome"]]
        run = "" if row is None else str(uuid.UUID(bytes=bytes(row["id"])))
        item = "" if row is None or row["item"] < 0 else history.names["item"].texts[row["item"]]
        word, since = now.state, now.since_us
        ended = run == str(now.run) if now.run is not None else now.state == READY
        if row is not None and ended and word in (*_BUSY, READY):  # its end may be known before the state is
            word, since = last, int(row["begin"] + row["duration"])
        if now.state not in _GONE and self._silent(station, now):
            word, since = SILENT, now.heartbeat_us
        elif now.state in _GONE:
            since = now.heartbeat_us
        busy = word in _BUSY
        until = None
        if word == "TESTING" and row is not None:
            times = self._times.get((int(row["product"]), int(row["operation"])))
            until = since + round(statistics.median(times)) if times else None
        return CellNow(
            station, history.stations.get(station, "") or str(station), now.cell, word, now.serial_number or "", since,
            until, now.progress, last, "" if busy else item, run, counts.units, counts.first_attempts,
            counts.first_passed, now.heartbeat_us if word in (SILENT, *_GONE) else 0,
        )  # fmt: skip

    def _silent(self, station: uuid.UUID, now: Now) -> bool:
        """By our own clock, as soon as the station's was seen to move: clocks differ."""
        key, here = (station, now.cell), time.monotonic()
        heartbeat, moved = self._heard.get(key, (0, None))
        if heartbeat != now.heartbeat_us:
            moved = here if key in self._heard else None
            self._heard[key] = now.heartbeat_us, moved
        if moved is None:
            return time.time() - now.heartbeat_us / 1e6 > SILENT_SECONDS
        return here - moved > SILENT_SECONDS


def _counts(rows: Rows) -> Counts:
    first = rows["first"]
    return Counts(
        len(np.unique(rows["unit"])), int(first.sum()), int((first & (rows["outcome"] == OK)).sum())
    )
