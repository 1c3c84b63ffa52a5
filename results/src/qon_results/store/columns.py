"""One item's measurements as arrays: few numbers a row, so that a hundred thousand rows take no time."""

import uuid
from collections.abc import Callable, Iterable, Sequence
from itertools import chain
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ..records import Kind
from .base import ItemColumns
from .file import Row

WIDTH = 5
Limits = dict[int, tuple[float | None, float | None, str | None]]
_FOREIGN = 1 << 30  # from here on: limits that came from files
_MOST_ATTEMPTS = 1023
_DENSE = 1_000_000


def table(rows: Iterable[Row]) -> NDArray[np.float64]:
    """Rows as `queries.ITEM_VALUES` gives them."""
    return np.fromiter(chain.from_iterable(rows), np.float64).reshape(-1, WIDTH)


def from_files(moved: Sequence[Row], limits: Limits) -> NDArray[np.float64]:
    """Rows of archives in the same form; what they were judged by is added to the limits."""
    known: dict[tuple[Any, ...], int] = {}
    rows = []
    for run, seq, kind, number, truth, verdict, lower, upper, unit, time_us, attempt in moved:
        criterion = known.setdefault((lower, upper, unit), _FOREIGN + len(known))
        value = number if number is not None else np.inf if truth is None else float(truth)
        small = verdict | kind << 2 | min(attempt, _MOST_ATTEMPTS) << 6 | criterion << 16
        rows.append((run, seq, value, small, time_us or 0))
    limits.update({criterion: key for key, criterion in known.items()})
    return table(rows)


def item_columns(
    name: str,
    station: uuid.UUID,
    rows: NDArray[np.float64],
    runs: NDArray[np.int64],
    limits_of: Callable[[list[int]], Limits],
) -> ItemColumns:
    """`runs`: number, cell and begin of the runs that are wanted, by number; the rows in the order of their runs."""
    run = rows[:, 0].astype(np.int64)
    place = np.searchsorted(runs[:, 0], run)
    mine = runs[np.minimum(place, len(runs) - 1), 0] == run if len(runs) else np.zeros(len(run), bool)
    if not mine.all():
        rows, run, place = rows[mine], run[mine], place[mine]
    small = rows[:, 3].astype(np.int64)
    kind, criterion = small >> 2 & 15, small >> 16
    lower, upper, unit = _limits(criterion, limits_of)
    return ItemColumns(
        name=name,
        run=run,
        station=np.zeros(len(run), np.int64),
        seq=rows[:, 1].astype(np.int64),
        cell=runs[place, 1],
        attempt=small >> 6 & _MOST_ATTEMPTS,
        kind=kind,
        value=_values(rows[:, 2], kind),
        verdict=small & 3,
        lower=lower,
        upper=upper,
        time_us=runs[place, 2] + rows[:, 4].astype(np.int64),
        unit=unit,
        stations=[station],
    )


def _values(column: NDArray[np.float64], kind: NDArray[np.int64]) -> NDArray[np.float64]:
    """Infinity stands for what has no number, too."""
    value = column.copy()
    odd = np.flatnonzero(~np.isfinite(value))
    if len(odd):
        kinds = kind[odd]
        infinite = np.where(kinds == Kind.INFINITY, np.inf, -np.inf)
        value[odd] = np.where((kinds == Kind.INFINITY) | (kinds == Kind.MINUS_INFINITY), infinite, np.nan)
    return value


def _limits(
    criterion: NDArray[np.int64], limits_of: Callable[[list[int]], Limits]
) -> tuple[NDArray[np.float64], NDArray[np.float64], str]:
    """Lower and upper limit of each row, and the unit of the newest."""
    if not len(criterion):
        return np.empty(0), np.empty(0), ""
    if criterion.max() < _DENSE:
        criteria = np.flatnonzero(np.bincount(criterion))
        which = (
            np.searchsorted(criteria, criterion) if len(criteria) > 1 else np.zeros(len(criterion), np.int64)
        )
    else:
        criteria, which = np.unique(criterion, return_inverse=True)
    limits = limits_of(criteria.tolist())
    lower, upper = (np.array([limits[id][side] for id in criteria.tolist()], np.float64) for side in (0, 1))
    return lower[which], upper[which], limits[int(criterion[-1])][2] or ""
