"""From what was sealed since the last look to parts by item, stream and day, and to alarms."""

from __future__ import annotations

import time
import uuid
from collections.abc import Callable, Iterator
from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from ...analysis.parts import PART, Parts, chained, near
from ...records import Kind, Outcome, Verdict
from ...store.base import Filter, ItemColumns, Sealed, Store
from .file import ALARMS, PARTS, Rollups, local_days
from .watching import Watcher

MOST_SEALS = {PARTS: 100_000, ALARMS: 2_000}  # a step: what one transaction takes in
_US_A_DAY = 86_400_000_000


StreamKey = tuple[uuid.UUID, int, str, str, str]


@dataclass
class Runs:
    """New runs of one station, by number."""

    number: NDArray[np.int64]
    stream: NDArray[np.int64]
    begin: NDArray[np.int64]
    unit: list[str]


def update(store: Store, file: Rollups) -> bool:
    """Take in what was measured in the runs that were sealed since; False when there was nothing.  Whole or not at all."""
    sealed = _sealed(store, file, PARTS)
    if not sealed:
        return False
    with file.connection:
        fresh = [
            run
            for run in _once(sealed)
            if not _known(file, "SELECT 1 FROM seen WHERE station = ? AND run = ?", run)
        ]
        runs = _runs(file, fresh)
        for name, columns in _measured(store, fresh):
            _take_item(file, name, columns, runs)
        _note(store, file, PARTS, sealed)
    return True


def watch(store: Store, file: Rollups, budget: float = 1.0) -> bool:
    """Look for alarms in runs whose values were taken in; False when there was nothing to look at."""
    sealed = _sealed(store, file, ALARMS)
    if not sealed:
        return False
    query = "SELECT 1 FROM seen WHERE station = ? AND run = ? AND NOT watched"
    with file.connection:
        fresh = [run for run in _once(sealed) if _known(file, query, run)]
        if fresh:
            runs, watcher = _by_station(fresh, _stream_ids(file)), Watcher(file, fresh, budget)
            for name, columns in _measured(store, fresh):
                stream, _, _ = _joined(columns, runs)
                chosen = (stream >= 0) & is_number(columns) & np.isfinite(columns.value)
                watcher.item(
                    _item(file, name, ""),
                    name,
                    stream[chosen],
                    columns.value[chosen],
                    columns.time_us[chosen],
                )
            watcher.runs(fresh)
            file.connection.executemany(
                "UPDATE seen SET watched = 1 WHERE station = ? AND run = ?",
                [(run.station.bytes, run.number) for run in fresh],
            )
        _note(store, file, ALARMS, sealed)
    return True


def _sealed(store: Store, file: Rollups, task: str) -> list[Sealed]:
    rows = file.rows("SELECT station, seal FROM position WHERE task = ?", (task,))
    positions = {uuid.UUID(bytes=id): seal for id, seal in rows}
    found = store.sealed(positions, MOST_SEALS[task])
    if task == ALARMS:  # never ahead of the parts
        limits = dict(file.rows("SELECT station, seal FROM position WHERE task = ?", (PARTS,)))
        found = [run for run in found if run.seal <= limits.get(run.station.bytes, 0)]
    return found


def _note(store: Store, file: Rollups, task: str, sealed: list[Sealed]) -> None:
    last: dict[uuid.UUID, int] = {}
    for run in sealed:
        last[run.station] = max(run.seal, last.get(run.station, 0))
    file.connection.executemany(
        "INSERT OR REPLACE INTO position VALUES (?, ?, ?)",
        [(task, id.bytes, seal) for id, seal in last.items()],
    )
    whole = sum(store.newest_seals().values())
    ((done,),) = file.rows("SELECT sum(seal) FROM position WHERE task = ?", (task,))
    file.connection.execute(
        "INSERT OR REPLACE INTO progress VALUES (?, ?, ?)",
        (task, min(1.0, done / whole) if whole else 1.0, time.time_ns() // 1000),
    )


def _once(sealed: list[Sealed]) -> list[Sealed]:
    """Each run once: a correction seals it again and changes nothing of what was measured."""
    first: dict[tuple[uuid.UUID, int], Sealed] = {}
    for run in sealed:
        if run.outcome != Outcome.RUNNING:
            first.setdefault((run.station, run.number), run)
    return list(first.values())


def _known(file: Rollups, query: str, run: Sealed) -> bool:
    return next(file.rows(query, (run.station.bytes, run.number)), None) is not None


def _measured(store: Store, fresh: list[Sealed]) -> Iterator[tuple[str, ItemColumns]]:
    """Item after item of a time that holds all these runs, and maybe others."""
    if not fresh:
        return
    begins = [run.begin_us for run in fresh]
    wanted = Filter(since=min(begins), until=max(begins) + 1)
    for name in store.item_names():
        columns = store.item(name, wanted)
        if len(columns.run):
            yield name, columns


def _stream_ids(file: Rollups) -> dict[StreamKey, int]:
    return {
        (each.station, each.cell, each.product, each.operation, each.purpose): id
        for id, each in file.streams().items()
    }


def _runs(file: Rollups, fresh: list[Sealed]) -> dict[uuid.UUID, Runs]:
    """The runs noted as seen, and with streams of their own where these are new."""
    streams = _stream_ids(file)
    for run in fresh:
        key = run.station, run.cell, run.product, run.operation, run.purpose
        if key not in streams:
            streams[key] = len(streams) + 1
            file.connection.execute(
                "INSERT INTO stream VALUES (?, ?, ?, ?, ?, ?)", (streams[key], key[0].bytes, *key[1:])
            )
    file.connection.executemany(
        "INSERT INTO seen (station, run, first) VALUES (?, ?, ?)",
        [(run.station.bytes, run.number, run.first) for run in fresh],
    )
    return _by_station(fresh, streams)


def _by_station(fresh: list[Sealed], streams: dict[StreamKey, int]) -> dict[uuid.UUID, Runs]:
    rows: dict[uuid.UUID, list[tuple[int, int, int, str]]] = {}
    for run in fresh:
        stream = streams[run.station, run.cell, run.product, run.operation, run.purpose]
        unit = run.serial_number or f"#{run.number}"
        rows.setdefault(run.station, []).append((run.number, stream, run.begin_us, unit))
    found = {}
    for station, each in rows.items():
        each.sort()
        number, stream_of, begin = (
            np.array(column, np.int64) for column in list(zip(*each, strict=True))[:3]
        )
        found[station] = Runs(number, stream_of, begin, [row[3] for row in each])
    return found


def _take_item(file: Rollups, name: str, columns: ItemColumns, runs: dict[uuid.UUID, Runs]) -> None:
    stream, begin, unit = _joined(columns, runs)
    mine = stream >= 0
    if not mine.any():
        return
    item = _item(file, name, columns.unit)
    day = np.zeros(len(begin), np.int64)
    day[mine] = local_days(begin[mine])
    parts = parts_of(columns, item, stream, day)
    days = parts["day"]
    known = file.parts(np.unique(parts["stream"]).tolist(), int(days.min()), int(days.max()) + 1, item)
    # What is known stands before what is new.
    file.write_parts(chained(np.concatenate([known, parts])))
    ng = np.flatnonzero(mine & (columns.verdict == Verdict.NG) & np.isfinite(columns.value))
    rows = [
        (item, int(stream[i]), int(day[i]), unit(i), float(columns.value[i]), _or_none(columns.lower[i]),
         _or_none(columns.upper[i]))
        for i in ng.tolist()
    ]  # fmt: skip
    file.connection.executemany("INSERT INTO outside VALUES (?, ?, ?, ?, ?, ?, ?)", rows)


def _or_none(value: float) -> float | None:
    return None if np.isnan(value) else float(value)


def _joined(
    columns: ItemColumns, runs: dict[uuid.UUID, Runs]
) -> tuple[NDArray[np.int64], NDArray[np.int64], Callable[[int], str]]:
    """Stream (-1 where the run is not among these) and begin of each row, and how its unit is called."""
    stream = np.full(len(columns.run), -1, np.int64)
    begin, place = np.zeros(len(columns.run), np.int64), np.zeros(len(columns.run), np.int64)
    for index, station in enumerate(columns.stations):
        if station not in runs:
            continue
        own = runs[station]
        where = np.minimum(np.searchsorted(own.number, columns.run), len(own.number) - 1)
        mine = (columns.station == index) & (own.number[where] == columns.run)
        stream[mine], begin[mine], place[mine] = own.stream[where[mine]], own.begin[where[mine]], where[mine]
    return stream, begin, lambda row: runs[columns.stations[int(columns.station[row])]].unit[int(place[row])]


def _item(file: Rollups, name: str, unit: str) -> int:
    for id, known in file.rows("SELECT id, unit FROM item WHERE name = ?", (name,)):
        if unit and known != unit:
            file.connection.execute("UPDATE item SET unit = ? WHERE id = ?", (unit, id))
        return int(id)
    file.connection.execute("INSERT INTO item (name, unit) VALUES (?, ?)", (name, unit))
    return file.connection.last_insert_rowid()


def is_number(columns: ItemColumns) -> NDArray[np.bool_]:
    found: NDArray[np.bool_] = np.isin(columns.kind, (Kind.NUMBER, Kind.INTEGER))
    return found


def parts_of(columns: ItemColumns, item: int, stream: NDArray[np.int64], day: NDArray[np.int64]) -> Parts:
    """One part a stream and day; rows with a stream below 0 are left out.  The rows stand in the order of time."""
    chosen = np.flatnonzero(stream >= 0)
    order = chosen[np.lexsort((day[chosen], stream[chosen]))]
    stream, day = stream[order], day[order]
    change = np.flatnonzero(np.append(True, (stream[1:] != stream[:-1]) | (day[1:] != day[:-1])))
    kind, value, verdict = columns.kind[order], columns.value[order], columns.verdict[order]
    lower, upper, time_us = columns.lower[order], columns.upper[order], columns.time_us[order]
    group = np.repeat(np.arange(len(change)), np.diff(np.append(change, len(order))))
    number = np.isin(kind, (Kind.NUMBER, Kind.INTEGER))
    finite = number & np.isfinite(value)
    odd = np.isin(kind, (Kind.NAN, Kind.INFINITY, Kind.MINUS_INFINITY)) | (number & ~finite)

    def count(which: NDArray[np.bool_]) -> NDArray[np.int64]:
        return np.bincount(group[which], minlength=len(change))

    parts = np.zeros(len(change), PART)
    parts["item"], parts["stream"], parts["day"] = item, stream[change], day[change]
    parts["missing"], parts["switches"] = count(odd), count(kind == Kind.BOOL)
    parts["others"] = count(np.isin(kind, (Kind.TEXT, Kind.OTHER, Kind.ARRAY, Kind.NOTHING)))
    parts["judged"], parts["ng"] = count(verdict != Verdict.TBD), count(verdict == Verdict.NG)
    parts["near"] = count(finite & near(value, lower, upper))
    ends = np.append(change[1:], len(order)) - 1
    parts["lower"], parts["upper"], parts["newest_us"] = lower[ends], upper[ends], time_us[ends]
    own = [np.nan_to_num(side, nan=np.inf) for side in (lower, upper)]
    differ = (own[0] != own[0][ends][group]) | (own[1] != own[1][ends][group])
    parts["limits"] = count(differ) > 0
    _moments(parts, group[finite], value[finite], time_us[finite] / _US_A_DAY)
    return parts


def _moments(
    parts: Parts, group: NDArray[np.int64], value: NDArray[np.float64], time: NDArray[np.float64]
) -> None:
    """Of the finite numbers of each group, in two passes relative to the first of them."""
    for name in ("mean", "low", "high", "first", "last", "time"):
        parts[name] = np.nan
    if not len(group):
        return
    many = len(parts)
    starts = np.flatnonzero(np.append(True, group[1:] != group[:-1]))
    there, ends = group[starts], np.append(starts[1:], len(group)) - 1
    n = np.bincount(group, minlength=many)
    parts["n"], parts["streams"] = n, n > 0
    parts["first"][there], parts["last"][there] = value[starts], value[ends]
    parts["low"][there], parts["high"][there] = (
        function.reduceat(value, starts) for function in (np.minimum, np.maximum)
    )
    moved, late = value - parts["first"][group], time - time[0]
    mean, middle = (np.bincount(group, each, many) / np.maximum(n, 1) for each in (moved, late))
    rest, away = moved - mean[group], late - middle[group]
    parts["mean"], parts["time"] = parts["first"] + mean, np.where(n > 0, time[0] + middle, np.nan)
    correction = np.bincount(group, rest, many) ** 2 / np.maximum(n, 1)
    parts["m2"] = parts["within"] = np.maximum(np.bincount(group, rest * rest, many) - correction, 0.0)
    parts["m_tt"], parts["m_tx"] = (np.bincount(group, away * each, many) for each in (away, rest))
    step = np.abs(np.diff(value))
    same = group[1:] == group[:-1]
    parts["steps"] = np.bincount(group[1:][same], minlength=many)
    parts["step_sum"] = np.bincount(group[1:][same], step[same], many)
