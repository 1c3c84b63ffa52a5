"""The alarms' streams: each value of each item, verdict and duration, cell by cell, in the order in which they came."""

from __future__ import annotations

import zlib
from typing import Any

import msgspec
import numpy as np
from numpy.typing import NDArray

from ...analysis.alarms import BLOCK, Alarm, Detector, DriftDetector, run_length_for
from ...records import Outcome
from ...store.base import PRODUCTION, Sealed
from .file import Rollups

WINDOW = 500  # values, or blocks of them, that a new one is ranked among
ITEM, YIELD, TIME = "item", "yield", "time"
DAYS = 7  # whose values tell how many a day there are
_US_A_DAY = 86_400_000_000


class State(msgspec.Struct):
    """Of one stream, as it is laid down: two detectors and when their values came."""

    shift: tuple[int, int, float, int]
    recent: bytes
    times: bytes
    slow: tuple[int, int, float, int]
    means: bytes
    block_times: bytes
    rest: bytes


class Watch:
    """Shifts value by value, drifts by means of blocks; half of the budget each."""

    def __init__(self, seed: int, state: State | None = None) -> None:
        self.shift, self.drift = Detector(seed, WINDOW), DriftDetector(Detector(seed ^ 0x5A5A, WINDOW))
        self._times: list[int] = []
        self._block_times: list[int] = []
        if state is None:
            return
        for detector, kept, values in (
            (self.shift, state.shift, state.recent),
            (self.drift.blocks, state.slow, state.means),
        ):
            detector.count, detector.began, detector.level, detector.since = kept
            detector.recent = np.frombuffer(values).tolist()
        self.drift.rest = np.frombuffer(state.rest).tolist()
        self._times = np.frombuffer(state.times, np.int64).tolist()
        self._block_times = np.frombuffer(state.block_times, np.int64).tolist()

    def state(self) -> State:
        kept = [(each.count, each.began, each.level, each.since) for each in (self.shift, self.drift.blocks)]
        recent, means, rest = (
            np.array(each).tobytes()
            for each in (self.shift.recent, self.drift.blocks.recent, self.drift.rest)
        )
        times, blocks = (np.array(each, np.int64).tobytes() for each in (self._times, self._block_times))
        return State(kept[0], recent, times, kept[1], means, blocks, rest)

    def feed(
        self, values: NDArray[np.float64], times: NDArray[np.int64], run_length: float
    ) -> list[tuple[bool, int, int, Alarm]]:
        """Whether slow, since and when (in microseconds), and what."""
        first = self.shift.count - len(self._times)
        before = len(self.drift.rest)
        self._times += times.tolist()
        found = [
            (False, _at(self._times, each.since - first), _at(self._times, each.index - first), each)
            for each in self.shift.feed(values, run_length)
        ]
        blocks = self.drift.blocks
        first = blocks.count - len(self._block_times)
        self._block_times += times[BLOCK - 1 - before :: BLOCK].tolist()
        found += [
            (True, _at(self._block_times, each.since // BLOCK - first), _at(self._block_times, each.index // BLOCK - first), each)
            for each in self.drift.feed(values, run_length)
        ]  # fmt: skip
        self._times = self._times[-WINDOW:]
        self._block_times = self._block_times[-WINDOW:]
        return found


def _at(times: list[int], place: int) -> int:
    return times[min(max(place, 0), len(times) - 1)]


class Watcher:
    """One step of taking in: reads and writes the states of the streams that have new values."""

    def __init__(self, file: Rollups, fresh: list[Sealed], budget: float) -> None:
        self._file = file
        self._production = {id for id, each in file.streams().items() if each.purpose == PRODUCTION}
        self._streams = {
            (each.station, each.cell, each.product, each.operation, each.purpose): id
            for id, each in file.streams().items()
        }
        self._budget = budget
        self._a_day = self._values_a_day(fresh)
        # Two detectors see every value; together they keep the budget.
        self._run_length = run_length_for(self._a_day, budget / 2)

    def _values_a_day(self, fresh: list[Sealed]) -> float:
        """Of all streams together: those of the last days, and those that are taken in now."""
        newest = max(run.begin_us for run in fresh)
        oldest = min(run.begin_us for run in fresh)
        days = max((newest - oldest) / _US_A_DAY, 1.0)
        a_run = self._values_a_run()
        known = next(
            self._file.rows(
                "SELECT coalesce(sum(n), 0), count(DISTINCT day) FROM part WHERE day > (SELECT max(day) FROM part) - ?",
                (DAYS,),
            )
        )
        return max(len(fresh) * a_run / days, known[0] / known[1] if known[1] else 0.0, 1.0)

    def _values_a_run(self) -> float:
        (items,) = next(
            self._file.rows("SELECT count(*) FROM item WHERE id IN (SELECT item FROM part WHERE n > 0)")
        )
        return max(float(items), 100.0)  # before the first look: many, so that limits are rather wide

    def item(
        self,
        id: int,
        name: str,
        streams: NDArray[np.int64],
        values: NDArray[np.float64],
        times: NDArray[np.int64],
    ) -> None:
        for stream in np.unique(streams).tolist():
            if stream in self._production:
                own = streams == stream
                self._feed(ITEM, id, name, stream, values[own], times[own])

    def runs(self, fresh: list[Sealed]) -> None:
        """Verdicts of first attempts, durations of what passed: what fails ends early."""
        verdicts: dict[int, list[tuple[int, float]]] = {}
        durations: dict[int, list[tuple[int, float]]] = {}
        for run in fresh:
            stream = self._streams[run.station, run.cell, run.product, run.operation, run.purpose]
            if run.purpose != PRODUCTION:
                continue
            if run.first and run.outcome in (Outcome.OK, Outcome.NG, Outcome.TBD):
                verdicts.setdefault(stream, []).append((run.begin_us, float(run.outcome == Outcome.OK)))
            if run.outcome == Outcome.OK and run.duration_us is not None:
                durations.setdefault(stream, []).append((run.begin_us, run.duration_us / 1e6))
        for kind, each in ((YIELD, verdicts), (TIME, durations)):
            for stream, pairs in each.items():
                times, values = zip(*pairs, strict=True)
                self._feed(kind, 0, "", stream, np.array(values), np.array(times, np.int64))

    def _feed(
        self,
        kind: str,
        item: int,
        name: str,
        stream: int,
        values: NDArray[np.float64],
        times: NDArray[np.int64],
    ) -> None:
        key = kind, item, stream
        row = next(
            self._file.rows("SELECT state FROM watch WHERE kind = ? AND item = ? AND stream = ?", key), None
        )
        state = msgspec.msgpack.decode(row[0], type=State) if row else None
        watch = Watch(zlib.crc32(f"{kind} {name} {stream}".encode()), state)
        rows: list[tuple[Any, ...]] = []
        for slow, since, at, alarm in watch.feed(values, times, self._run_length):
            apart = alarm.apart if np.isfinite(alarm.apart) else None
            rows.append(
                (kind, name, stream, slow, since, at, alarm.up, alarm.before, alarm.after, apart,
                 alarm.false_every / self._a_day)
            )  # fmt: skip
        self._file.connection.executemany(
            "INSERT OR REPLACE INTO alarm VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", rows
        )
        state = watch.state()
        self._file.connection.execute(
            "INSERT OR REPLACE INTO watch VALUES (?, ?, ?, ?)", (*key, msgspec.msgpack.encode(state))
        )
