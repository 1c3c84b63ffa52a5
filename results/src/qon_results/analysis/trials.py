"""Other limits tried on what was measured, and limits proposed from it."""

from __future__ import annotations

import math
from collections.abc import Mapping
from dataclasses import dataclass

import numpy as np
from numpy.typing import ArrayLike, NDArray

from .figure import Floats
from .moments import Summary
from .risk import Risk, risk
from .yields import NG, OK, YieldCounts, count

Limits = tuple[float | None, float | None]
Flags = NDArray[np.bool_]


def kept(values: ArrayLike, limits: Limits) -> Flags:
    """Which values keep the limits, both of them inclusive; what is no number keeps none."""
    array: Floats = np.asarray(values, dtype=np.float64)
    lower, upper = limits
    result: Flags = ~np.isnan(array)
    if lower is not None:
        result &= array >= lower
    if upper is not None:
        result &= array <= upper
    return result


@dataclass(frozen=True, slots=True)
class Trial:
    """What other limits would have done; `to_ng` and `to_ok` are the places of runs whose verdict changes."""

    before: YieldCounts
    after: YieldCounts
    to_ng: NDArray[np.int64]
    to_ok: NDArray[np.int64]
    risk: Risk


def try_limits(
    outcomes: ArrayLike,
    units: ArrayLike,
    others_ok: ArrayLike,
    values: ArrayLike,
    limits: Limits,
    error_sigma: float = math.nan,
) -> Trial:
    """One item with other limits, all else as it was.

    Of each run in the order of their beginning: how it ended, its unit, whether every other item was OK, and the item's
    value (NaN where the run did not come to it: such a run keeps its verdict).  error_sigma: the gauge's repeatability.
    """
    outcome, value = np.asarray(outcomes), np.asarray(values, dtype=np.float64)
    judged = np.isin(outcome, (OK, NG)) & ~np.isnan(value)
    would = np.where(
        judged, np.where(kept(value, limits) & np.asarray(others_ok, dtype=bool), OK, NG), outcome
    )
    whole = Summary.of(value)
    return Trial(
        count(units, outcome),
        count(units, would),
        np.flatnonzero((outcome == OK) & (would == NG)),
        np.flatnonzero((outcome == NG) & (would == OK)),
        risk(whole.mean, _true_sigma(whole.sigma, error_sigma), error_sigma, *limits),
    )


def _true_sigma(seen: float, error: float) -> float:
    """Of the units themselves: what is seen has the gauge's error on top."""
    if not (math.isfinite(seen) and math.isfinite(error)):
        return seen
    return math.sqrt(max(seen * seen - error * error, 0.0))


@dataclass(frozen=True, slots=True)
class Change:
    """What one item's limits were and are; None where the revision has no such item."""

    item: str
    before: Limits | None
    after: Limits | None


def compare(before: Mapping[str, Limits], after: Mapping[str, Limits]) -> list[Change]:
    """The items whose limits differ between two revisions, by name."""
    names = sorted(before.keys() | after.keys())
    return [
        Change(name, before.get(name), after.get(name))
        for name in names
        if before.get(name) != after.get(name)
    ]
