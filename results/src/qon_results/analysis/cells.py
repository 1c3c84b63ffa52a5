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
    names = np.unique(cells)
    parts = {cell: Summary.of(values[cells == cell]) for cell in names}
    found = []
    for cell in names:
        others = sum((part for other, part in parts.items() if other != cell), Summary())
        apart, p = _welch(parts[cell], others)
        lost = _lost(values[cells == cell], apart.value, item.lower, item.upper)
        found.append(Difference(name, cell.item(), parts[cell].n, apart, p, math.nan, lost))
    return found


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


def _lost(values: Any, apart: float | None, lower: float | None, upper: float | None) -> int:
    if apart is None or (lower is None and upper is None):
        return 0
    low, high = (-math.inf if lower is None else lower), (math.inf if upper is None else upper)
    failed = values[(values < low) | (values > high)] - apart
    return int(((failed >= low) & (failed <= high)).sum())
