"""Yields and lost time of selected runs: columns in, counts out."""

import datetime
from collections.abc import Iterator
from dataclasses import dataclass
from itertools import starmap

import numpy as np
from numpy.typing import NDArray

from ..analysis.figure import Estimate
from ..analysis.yields import share
from .history import JUDGED, OK, OUTCOMES, Rows
from .texts import later

BUCKETS_MOST = 400


@dataclass(frozen=True)
class Counts:
    """First pass: units whose first judged attempt ever is among these runs.  Final: the last one among these runs.

    Times are in microseconds: `retested` of judged attempts that were not a unit's first, `broken` of runs without verdict.
    """

    runs: int
    attempts: int
    first_attempts: int
    first_passed: int
    units: int
    finally_passed: int
    aborted: int
    exceptions: int
    interrupted: int
    time: int
    retested: int
    broken: int

    @property
    def first_pass(self) -> Estimate:
        return share(
            self.first_passed, self.first_attempts, later("no unit had its first judged attempt here")
        )

    @property
    def final(self) -> Estimate:
        return share(self.finally_passed, self.units, later("no unit has a judged attempt"))

    @property
    def retests(self) -> Estimate:
        return share(self.attempts - self.first_attempts, self.attempts, later("no attempt was judged"))


def counts(rows: Rows) -> Counts:
    """Of runs in the order of their begin."""
    return grouped(rows, np.zeros(len(rows), np.int64), 1)[0]


def grouped(rows: Rows, group: NDArray[np.int64], many: int) -> list[Counts]:
    """The same for each group of runs; `group` tells the one of each run, from 0 to many - 1."""
    outcome = np.ascontiguousarray(rows["outcome"])
    ok, judged = outcome == OK, _JUDGED[outcome]
    first = judged & rows["first"]
    last = np.zeros(len(rows), np.bool_)
    last[_last_of_unit(rows, group, judged)] = True

    def number(mask: NDArray[np.bool_]) -> list[int]:
        return np.bincount(group[mask], minlength=many).tolist()  # type: ignore[no-any-return]

    def time(mask: NDArray[np.bool_]) -> list[int]:
        added = np.bincount(
            group[mask], rows["duration"][mask], minlength=many
        )  # exact up to 2^53 microseconds
        return [round(each) for each in added.tolist()]

    ended = [number(outcome == OUTCOMES.index(name)) for name in ("ABORTED", "EXCEPTION", "INTERRUPTED")]
    every = np.ones(len(rows), np.bool_)
    columns = (
        number(every), number(judged), number(first), number(first & ok), number(last), number(last & ok), *ended,
        time(every), time(judged & ~first), time(~judged),
    )  # fmt: skip
    return list(starmap(Counts, zip(*columns, strict=True)))


_JUDGED = np.isin(np.arange(len(OUTCOMES)), JUDGED)


def _last_of_unit(rows: Rows, group: NDArray[np.int64], judged: NDArray[np.bool_]) -> NDArray[np.intp]:
    """Where the last judged attempt of each unit within its group stands."""
    places, unit = np.flatnonzero(judged), np.ascontiguousarray(rows["unit"])
    again = np.unique(unit[judged & ~rows["first"]])  # few: all others were tried once
    if not len(again):
        return places
    several = again[np.minimum(np.searchsorted(again, unit[places]), len(again) - 1)] == unit[places]
    repeated = places[several]
    order = repeated[np.lexsort((unit[repeated], group[repeated]))]
    ends = np.append((unit[order][1:] != unit[order][:-1]) | (group[order][1:] != group[order][:-1]), True)
    return np.concatenate([places[~several], order[ends[: len(order)]]])


def by(rows: Rows, *names: str) -> Iterator[tuple[tuple[int, ...], Counts]]:
    """The counts of each combination of codes that occurs."""
    group = np.zeros(len(rows), np.int64)
    for name in names:
        _found, place = np.unique(rows[name], return_inverse=True)
        group = group * (len(_found) + 1) + place
    _found, firsts, which = np.unique(group, return_index=True, return_inverse=True)
    for place, each in zip(firsts.tolist(), grouped(rows, which, len(firsts)), strict=True):
        yield tuple(int(rows[name][place]) for name in names), each


def buckets(rows: Rows) -> tuple[str, list[datetime.datetime], NDArray[np.int64]]:
    """ "hour", "day", "week" or "month", whichever gives a picture; their begins in local time, and which run is in which."""
    begin = rows["begin"]
    first, last = (datetime.datetime.fromtimestamp(us / 1e6) for us in (int(begin[0]), int(begin[-1])))
    days = (last - first).total_seconds() / 86400
    kind = "hour" if days <= 3 else "day" if days <= 92 else "week" if days <= 750 else "month"
    edge = first.replace(minute=0, second=0, microsecond=0)
    if kind != "hour":
        edge = edge.replace(hour=0)
    if kind == "week":
        edge -= datetime.timedelta(days=edge.weekday())
    if kind == "month":
        edge = edge.replace(day=1)
    edges = [edge]
    while edges[-1] <= last and len(edges) < BUCKETS_MOST:
        edges.append(_next(edges[-1], kind))
    starts = np.array([each.timestamp() * 1e6 for each in edges])
    return kind, edges, np.searchsorted(starts, begin, side="right").astype(np.int64) - 1


def _next(edge: datetime.datetime, kind: str) -> datetime.datetime:
    """In local time: a day of 23 hours is a day."""
    if kind == "month":
        return (edge + datetime.timedelta(days=32)).replace(day=1)
    return edge + {"hour": datetime.timedelta(hours=1), "day": datetime.timedelta(days=1)}.get(
        kind, datetime.timedelta(days=7)
    )
