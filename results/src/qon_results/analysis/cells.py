"""Does a cell measure differently?  Each cell against the others, corrected for the number of questions asked."""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping
from dataclasses import dataclass, replace
from typing import Any

import numpy as np
from numpy.typing import ArrayLike
from scipy import special, stats

from .figure import CONFIDENCE, Estimate, estimate, nothing
from .moments import Summary

FEWEST = 5
DISCOVERY_RATE = 0.05
SUSPECT = 0.001  # p-value, shared by an item's cells, below which a cell is no measure for the others


@dataclass(frozen=True, slots=True)
class Difference:
    """Mean of a cell minus the mean of the others, in the item's unit; `q`: its p-value corrected for all questions."""

    item: str
    cell: Any
    n: int
    apart: Estimate
    p: float
    q: float = math.nan
    lost: int = 0  # values outside the limits that would be inside without the difference

    def differs(self, rate: float = DISCOVERY_RATE) -> bool:
        return self.q <= rate


@dataclass(frozen=True, slots=True)
class Item:
    """What was measured of one item: a value and a cell for each reading."""

    values: ArrayLike
    cells: ArrayLike
    lower: float | None = None
    upper: float | None = None


def adjusted(p_values: Iterable[float]) -> list[float]:
    """Benjamini and Hochberg: of what is called different at q <= 5 %, at most 5 % is so by chance.  NaN stays NaN."""
    p = np.fromiter(p_values, dtype=np.float64)
    known = np.isfinite(p)
    q = np.full(p.size, math.nan)
    if known.any():
        q[known] = stats.false_discovery_control(p[known])
    return [float(value) for value in q]


def differences(items: Mapping[str, Item]) -> list[Difference]:
    """All cells of all items, as one family of questions; in the order of items and cells."""
    found = [each for name, item in items.items() for each in _of_item(name, item)]
    return [replace(each, q=q) for each, q in zip(found, adjusted(each.p for each in found), strict=True)]


def _of_item(name: str, item: Item) -> list[Difference]:
    values, cells = np.asarray(item.values, dtype=np.float64), np.asarray(item.cells)
    known = np.isfinite(values)
    values, cells = values[known], cells[known]
    parts = {cell.item(): Summary.of(values[cells == cell]) for cell in np.unique(cells)}
    return [
        replace(each, lost=lost(values[cells == each.cell], each.apart.value, item.lower, item.upper))
        for each in of_summaries(name, parts)
    ]


def of_summaries(name: str, parts: Mapping[Any, Summary]) -> list[Difference]:
    """Each cell of one item against the others, without those that were found different before it.

    One cell that is far off would else pull the others' mean, and every good cell would differ from that.  At most fewer
    than half of the cells are left out; `q` is for the whole family to add.
    """
    out: set[Any] = set()
    while True:
        found = {cell: _against(cell, parts, out) for cell in parts}
        worst = min(
            (cell for cell in parts if cell not in out and found[cell][1] < SUSPECT / len(parts)),
            key=lambda cell: (found[cell][1], -_error_free(found[cell][0])),
            default=None,
        )
        if worst is None or 2 * (len(out) + 1) >= len(parts):
            return [Difference(name, cell, parts[cell].n, *found[cell]) for cell in parts]
        out.add(worst)


def _against(cell: Any, parts: Mapping[Any, Summary], out: set[Any]) -> tuple[Estimate, float]:
    others = (part for other, part in parts.items() if other != cell and other not in out)
    return _welch(parts[cell], sum(others, Summary()))


def _error_free(apart: Estimate) -> float:
    """How many half intervals a difference is long: p-values of many values end at 0 and tell no more."""
    if apart.value is None or apart.low is None or apart.high is None:
        return 0.0
    half = (apart.high - apart.low) / 2
    return abs(apart.value) / half if half > 0 else 0.0


def _welch(own: Summary, others: Summary) -> tuple[Estimate, float]:
    """The difference of two means whose spreads may differ, with its interval, and how often chance gives as much."""
    if not others.n:
        return nothing("no other cell measured it"), math.nan
    if own.n < FEWEST or others.n < FEWEST:
        return nothing(f"fewer than {FEWEST} values"), math.nan
    a, b = own.variance / own.n, others.variance / others.n
    apart = own.mean - others.mean
    if a + b == 0.0:
        return (estimate(0.0, 0.0, 0.0), 1.0) if apart == 0.0 else (nothing("no scatter"), math.nan)
    error = math.sqrt(a + b)
    freedom = (a + b) ** 2 / (a * a / (own.n - 1) + b * b / (others.n - 1))
    reach = float(special.stdtrit(freedom, (1 + CONFIDENCE) / 2)) * error
    return estimate(apart, apart - reach, apart + reach), float(
        2 * special.stdtr(freedom, -abs(apart) / error)
    )


def lost(values: Any, apart: float | None, lower: float | None, upper: float | None) -> int:
    """How many values are outside the limits and would be inside without the difference."""
    if apart is None or (lower is None and upper is None):
        return 0
    low, high = (-math.inf if lower is None else lower), (math.inf if upper is None else upper)
    failed = values[(values < low) | (values > high)] - apart
    return int(((failed >= low) & (failed <= high)).sum())
