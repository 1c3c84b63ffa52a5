"""Location and spread that single wild values cannot move, and limits made from them."""

from __future__ import annotations

import math

import numpy as np
from numpy.typing import ArrayLike
from scipy import stats

from .figure import numbers
from .tolerance import Interval

PART_AVERAGE_SIGMAS = 6.0
FEWEST_PARTS = 30
_NORMAL_MAD = float(stats.norm.ppf(0.75))


def median(values: ArrayLike) -> float:
    array = numbers(values)
    return float(np.median(array)) if array.size else math.nan


def mad_sigma(values: ArrayLike) -> float:
    """Median distance from the median, as the sigma of a normal population."""
    array = numbers(values)
    return float(np.median(np.abs(array - np.median(array)))) / _NORMAL_MAD if array.size else math.nan


def iqr_sigma(values: ArrayLike) -> float:
    """Distance of the quartiles, as the sigma of a normal population."""
    array = numbers(values)
    if not array.size:
        return math.nan
    low, high = np.percentile(array, [25, 75])
    return float(high - low) / (2 * _NORMAL_MAD)


def part_average_limits(values: ArrayLike, sigmas: float = PART_AVERAGE_SIGMAS) -> Interval:
    """Median plus or minus robust sigmas: a good unit far from all others is suspect."""
    array = numbers(values)
    if array.size < FEWEST_PARTS:
        return Interval(math.nan, math.nan, f"{array.size} values, {FEWEST_PARTS} are needed")
    sigma = iqr_sigma(array)
    if not sigma > 0:
        return Interval(math.nan, math.nan, "the middle half of the values is equal")
    middle = median(array)
    return Interval(middle - sigmas * sigma, middle + sigmas * sigma)
