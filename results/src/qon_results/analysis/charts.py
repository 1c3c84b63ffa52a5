"""Control charts: centre and limits, and which rule a point breaks."""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
from numpy.typing import ArrayLike, NDArray
from scipy import optimize, stats

from .constants import c4, d2, d3
from .figure import Floats, numbers
from .moments import Summary

SIGMAS = 3.0


@dataclass(frozen=True, slots=True)
class Chart:
    """Centre line and limits; `sigma` is that of one value (0.0 where a chart has none)."""

    center: float
    lower: float
    upper: float
    sigma: float = 0.0
    reason: str = ""  # why there is no chart

    def __bool__(self) -> bool:
        return not self.reason


def _no_chart(reason: str) -> Chart:
    return Chart(math.nan, math.nan, math.nan, math.nan, reason)


def moving_range_sigma(values: ArrayLike) -> float:
    """Sigma from one value to the next: what a slow drift does not widen; NaN for fewer than two."""
    array = numbers(values)
    return float(np.mean(np.abs(np.diff(array)))) / d2(2) if array.size > 1 else math.nan


def individuals(values: ArrayLike) -> Chart:
    array = numbers(values)
    if array.size < 2:
        return _no_chart("fewer than two values")
    center, sigma = Summary.of(array).mean, moving_range_sigma(array)
    return Chart(center, center - SIGMAS * sigma, center + SIGMAS * sigma, sigma)


def _subgroups(groups: ArrayLike) -> Floats | str:
    table = np.asarray(groups, dtype=np.float64)
    if table.ndim != 2 or table.shape[1] < 2 or not table.shape[0]:
        return "no subgroups of at least two values"
    whole: Floats = table[np.isfinite(table).all(axis=1)]
    return whole if whole.shape[0] else "no subgroup is complete"


def xbar(groups: ArrayLike) -> Chart:
    """Means of subgroups (one row each), sigma from their ranges."""
    table = _subgroups(groups)
    if isinstance(table, str):
        return _no_chart(table)
    sigma = float(np.ptp(table, axis=1).mean()) / d2(table.shape[1])
    center, half = float(table.mean(axis=1).mean()), SIGMAS * sigma / math.sqrt(table.shape[1])
    return Chart(center, center - half, center + half, sigma)


def ranges(groups: ArrayLike) -> Chart:
    table = _subgroups(groups)
    if isinstance(table, str):
        return _no_chart(table)
    center = float(np.ptp(table, axis=1).mean())
    half = SIGMAS * d3(table.shape[1]) / d2(table.shape[1])
    return Chart(center, max(0.0, center * (1 - half)), center * (1 + half), center / d2(table.shape[1]))


def deviations(groups: ArrayLike) -> Chart:
    """Standard deviations of subgroups."""
    table = _subgroups(groups)
    if isinstance(table, str):
        return _no_chart(table)
    n = table.shape[1]
    center = float(table.std(axis=1, ddof=1).mean())
    half = SIGMAS * math.sqrt(1 - c4(n) ** 2) / c4(n)
    return Chart(center, max(0.0, center * (1 - half)), center * (1 + half), center / c4(n))


def proportion(failed: ArrayLike, size: int) -> Chart:
    """Share of failed units in samples of one size (p chart)."""
    counts = numbers(failed)
    if not counts.size or size < 1:
        return _no_chart("no samples")
    center = float(counts.sum()) / (counts.size * size)
    half = SIGMAS * math.sqrt(center * (1 - center) / size)
    return Chart(center, max(0.0, center - half), min(1.0, center + half))


def ewma(values: ArrayLike, weight: float, start: float | None = None) -> Floats:
    """Exponentially weighted moving average; `start` before the first value (its mean by default)."""
    array = numbers(values)
    level = Summary.of(array).mean if start is None else start
    smoothed = np.empty_like(array)
    for index, value in enumerate(array):
        level = weight * value + (1.0 - weight) * level
        smoothed[index] = level
    return smoothed


def ewma_limits(center: float, sigma: float, weight: float, width: float = SIGMAS) -> Chart:
    """Limits that hold after many values; `width` in sigmas of the average."""
    half = width * sigma * math.sqrt(weight / (2.0 - weight))
    return Chart(center, center - half, center + half, sigma)


def ewma_run_length(weight: float, width: float, shift: float = 0.0, states: int = 141) -> float:
    """Mean number of values until the average leaves its limits, by a Markov chain of the average's place.

    shift: of the mean, in sigmas of one value.  Without a shift it is the mean time between two false alarms.
    """
    limit = width * math.sqrt(weight / (2.0 - weight))
    step = 2.0 * limit / states
    middles = -limit + step * (np.arange(states) + 0.5)
    to_upper = (middles[None, :] + step / 2 - (1 - weight) * middles[:, None]) / weight - shift
    to_lower = (middles[None, :] - step / 2 - (1 - weight) * middles[:, None]) / weight - shift
    moves = stats.norm.cdf(to_upper) - stats.norm.cdf(to_lower)
    lengths = np.linalg.solve(np.eye(states) - moves, np.ones(states))
    return float(lengths[states // 2])


def ewma_width(weight: float, run_length: float) -> float:
    """The width of the limits with which false alarms are this many values apart in the mean."""
    if run_length <= 2.0:
        raise ValueError(f"False alarms every {run_length:g} values are none that limits could keep apart.")
    return float(
        optimize.brentq(
            lambda width: math.log(ewma_run_length(weight, width)) - math.log(run_length), 0.3, 8.0, xtol=1e-4
        )
    )


Flags = NDArray[np.bool_]


def _counted(marks: Flags, of: int, at_least: int) -> Flags:
    """Where a mark is the last of at least so many among the last `of`."""
    totals = np.convolve(marks.astype(np.int64), np.ones(of, dtype=np.int64))[: marks.size]
    found: Flags = marks & (totals >= at_least)
    return found


def broken_rules(scores: ArrayLike) -> dict[str, Flags]:
    """Where standardised values break a rule of the Western Electric handbook.

    All of them together give one false alarm in about 92 values; for many items at a time use `alarms` instead.
    """
    z = numbers(scores)
    above, below = z > 0, z < 0
    return {
        "beyond 3 sigma": np.abs(z) > 3,
        "2 of 3 beyond 2 sigma": _counted(z > 2, 3, 2) | _counted(z < -2, 3, 2),
        "4 of 5 beyond 1 sigma": _counted(z > 1, 5, 4) | _counted(z < -1, 5, 4),
        "8 on one side": _counted(above, 8, 8) | _counted(below, 8, 8),
    }
