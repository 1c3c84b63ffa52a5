"""How values are spread: histogram, normal plot, share near the limits; histograms with equal edges can be added."""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
from numpy.typing import ArrayLike, NDArray
from scipy import stats

from .figure import Floats, numbers

MOST_BINS = 120
NEAR = 0.1  # of the distance of the limits


@dataclass(frozen=True, slots=True)
class Histogram:
    """counts[i] lies from edges[i] up to, not including, edges[i + 1]; the last bin has its upper edge."""

    edges: Floats
    counts: NDArray[np.int64]
    below: int = 0  # of the first edge
    above: int = 0

    def __add__(self, other: Histogram) -> Histogram:
        if not np.array_equal(self.edges, other.edges):
            raise ValueError("Only histograms with equal edges can be added.")
        return Histogram(
            self.edges, self.counts + other.counts, self.below + other.below, self.above + other.above
        )


def edges_for(values: ArrayLike, lower: float | None = None, upper: float | None = None) -> Floats:
    """Even edges over the values and, unless they are far away, the limits; by Freedman and Diaconis."""
    array = numbers(values)
    if not array.size:
        return np.array([0.0, 1.0])
    low, high = float(array.min()), float(array.max())
    span = high - low
    for limit in (lower, upper):
        if (
            limit is not None
            and math.isfinite(limit)
            and (span == 0 or low - 2 * span <= limit <= high + 2 * span)
        ):
            low, high = min(low, limit), max(high, limit)
    if low == high:
        reach = max(abs(low) * 1e-6, 1e-12)
        return np.array([low - reach, low + reach])
    if not math.isfinite(high - low):
        return np.linspace(low / 2, high / 2, 31) * 2
    q25, q75 = np.percentile(array, [25, 75])
    width = 2.0 * float(q75 - q25) / array.size ** (1 / 3)
    bins = min(MOST_BINS, max(8, math.ceil((high - low) / width))) if width > 0 else 30
    return np.linspace(low, high, bins + 1)


def histogram(values: ArrayLike, edges: Floats) -> Histogram:
    array = numbers(values)
    counts = np.histogram(array, bins=edges)[0].astype(np.int64)
    return Histogram(edges, counts, int((array < edges[0]).sum()), int((array > edges[-1]).sum()))


def normal_plot(values: ArrayLike, most: int = 2000) -> tuple[Floats, Floats]:
    """Normal scores and sorted values: a straight line where the values are normal.  Thinned evenly to `most`."""
    array = np.sort(numbers(values))
    if not array.size:
        return array, array
    chosen = np.unique(np.linspace(0, array.size - 1, min(most, array.size)).round().astype(np.int64))
    scores: Floats = stats.norm.ppf((chosen + 0.625) / (array.size + 0.25))
    return scores, array[chosen]


def near_limits(
    values: ArrayLike, lower: float | None, upper: float | None, share: float = NEAR
) -> tuple[int, int]:
    """How many values keep the limits with less than `share` of their distance to spare, and how many do not keep them."""
    array = numbers(values)
    low, high = (-math.inf if lower is None else lower), (math.inf if upper is None else upper)
    kept = (array >= low) & (array <= high)
    if not (math.isfinite(low) and math.isfinite(high) and high > low):
        return 0, int((~kept).sum())
    margin = share * (high - low)
    near = kept & ((array < low + margin) | (array > high - margin))
    return int(near.sum()), int((~kept).sum())
