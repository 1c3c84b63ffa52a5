"""From what was sealed since the last look to parts by item, stream and day, and to alarms."""

from __future__ import annotations

import time
import uuid
from collections.abc import Callable
from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from ...analysis.parts import PART, Parts, chained, near
from ...records import Kind, Outcome, Verdict
from ...store.base import Filter, ItemColumns, Sealed, Store
from .file import Rollups, local_days
from .watching import Watcher

MOST_SEALS = 20_000  # a step: what one transaction takes in
_US_A_DAY = 86_400_000_000


@dataclass
class Runs:
    """New runs of one station, by number."""

    number: NDArray[np.int64]
    stream: NDArray[np.int64]
    begin: NDArray[np.int64]
    unit: list[str]


def update(
    store: Store, file: Rollups, budget: float = 1.0, told: Callable[[float], None] = lambda _: None
) -> bool:
    """Take in what was sealed since; False when there was nothing.  Whole or not at all."""
    positions = {uuid.UUID(bytes=id): seal for id, seal in file.rows("SELECT station, seal FROM position")}
    sealed = store.sealed(positions, MOST_SEALS)
    if not sealed:
        return False
    fresh = _fresh(file, sealed)
    with file.connection:
        runs = _runs(file, fresh)
        if runs:
            _take(store, file, fresh, runs, budget, told)
        for run in sealed:
            positions[run.station] = max(run.seal, positions.get(run.station, 0))
        file.connection.executemany(
            "INSERT OR REPLACE INTO position VALUES (?, ?)",
            [(id.bytes, seal) for id, seal in positions.items()],
        )
        _note_progress(store, file, positions)
    return True


def _note_progress(store: Store, file: Rollups, positions: dict[uuid.UUID, int]) -> None:
    newest = store.newest_seals()
    whole = sum(newest.values())
    done = sum(positions.get(id, 0) for id in newest) / whole if whole else 1.0
    file.connection.execute("DELETE FROM progress")
    file.connection.execute("INSERT INTO progress VALUES (?, ?)", (min(done, 1.0), time.time_ns() // 1000))


def _fresh(file: Rollups, sealed: list[Sealed]) -> list[Sealed]:
    """Each run once: a correction seals it again and changes nothing of what was measured."""
    first: dict[tuple[uuid.UUID, int], Sealed] = {}
    for run in sealed:
        first.setdefault((run.station, run.number), run)
    found = []
    for (station, number), run in first.items():
        if run.outcome == Outcome.RUNNING:
            continue
        if not next(
            file.rows("SELECT 1 FROM seen WHERE station = ? AND run = ?", (station.bytes, number)), None
        ):
            found.append(run)
    return found


def _runs(file: Rollups, fresh: list[Sealed]) -> dict[uuid.UUID, Runs]:
    streams = {
        (each.station, each.cell, each.product, each.operation, each.purpose): id
        for id, each in file.streams().items()
    }
    rows: dict[uuid.UUID, list[tuple[int, int, int, str]]] = {}
    for run in fresh:
        key = run.station, run.cell, run.product, run.operation, run.purpose
        if key not in streams:
            streams[key] = len(streams) + 1
            file.connection.execute(
                "INSERT INTO stream VALUES (?, ?, ?, ?, ?, ?)", (streams[key], key[0].bytes, *key[1:])
            )
        unit = run.serial_number or f"#{run.number}"
        rows.setdefault(run.station, []).append((run.number, streams[key], run.begin_us, unit))
    file.connection.executemany(
        "INSERT INTO seen VALUES (?, ?, ?)", [(run.station.bytes, run.number, run.first) for run in fresh]
    )
    found = {}
    for station, each in rows.items():
        each.sort()
        number, stream, begin = (np.array(column, np.int64) for column in list(zip(*each, strict=True))[:3])
        found[station] = Runs(number, stream, begin, [row[3] for row in each])
    return found


def _take(
    store: Store,
    file: Rollups,
    fresh: list[Sealed],
    runs: dict[uuid.UUID, Runs],
    budget: float,
    told: Callable[[float], None],
) -> None:
    since = min(int(each.begin.min()) for each in runs.values())
    until = max(int(each.begin.max()) for each in runs.values()) + 1
    wanted = Filter(since=since, until=until)
    watcher = Watcher(file, fresh, budget)
    names = store.item_names()
    for place, name in enumerate(names):
        columns = store.item(name, wanted)
        if len(columns.run):
            _take_item(file, name, columns, runs, watcher)
        told((place + 1) / len(names))
    watcher.runs(fresh)


def _take_item(
    file: Rollups, name: str, columns: ItemColumns, runs: dict[uuid.UUID, Runs], watcher: Watcher
) -> None:
    stream, begin, unit = _joined(columns, runs)
    mine = stream >= 0
    if not mine.any():
        return
    item = _item(file, name, columns.unit)
    day = np.zeros(len(begin), np.int64)
    day[mine] = local_days(begin[mine])
    parts = parts_of(columns, item, stream, day)
    known = []
    for each in np.unique(parts["stream"]).tolist():
        days = parts["day"][parts["stream"] == each]
        known.append(file.parts([each], int(days.min()), int(days.max()) + 1, item))
    # What is known stands before what is new.
    file.write_parts(chained(np.concatenate([*known, parts])))
    ng = np.flatnonzero(mine & (columns.verdict == Verdict.NG) & np.isfinite(columns.value))
    rows = [
        (item, int(stream[i]), int(day[i]), unit(i), float(columns.value[i]), _or_none(columns.lower[i]),
         _or_none(columns.upper[i]))
        for i in ng.tolist()
    ]  # fmt: skip
    file.connection.executemany("INSERT INTO outside VALUES (?, ?, ?, ?, ?, ?, ?)", rows)
    numeric = mine & is_number(columns) & np.isfinite(columns.value)
    watcher.item(item, name, stream[numeric], columns.value[numeric], columns.time_us[numeric])


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
