"""One-way analysis of variance: do groups differ by more than their own scatter explains?"""

from __future__ import annotations

import math
from collections.abc import Iterable
from dataclasses import dataclass

from numpy.typing import ArrayLike
from scipy import stats

from .figure import numbers
from .moments import Summary


@dataclass(frozen=True, slots=True)
class OneWay:
    """Sums of squares with their degrees of freedom; `p`: how often chance alone gives as much."""

    df_between: int
    ss_between: float
    df_within: int
    ss_within: float
    f: float
    p: float
    reason: str = ""

    @property
    def r_squared(self) -> float:
        return self.ss_between / (self.ss_between + self.ss_within)

    @property
    def sd_within(self) -> float:
        return math.sqrt(self.ss_within / self.df_within)

    def __bool__(self) -> bool:
        return not self.reason


def one_way(groups: Iterable[ArrayLike]) -> OneWay:
    """Every group relative to the first value of all, so that a large common part costs no digits."""

    arrays = [array for array in map(numbers, groups) if array.size]
    if len(arrays) < 2:
        return _none("fewer than two groups")
    shift = arrays[0][0]
    parts = [Summary.of(array - shift) for array in arrays]
    n = sum(part.n for part in parts)
    if n <= len(parts):
        return _none("one value in each group")
    mean = math.fsum(part.n * part.mean for part in parts) / n
    between = math.fsum(part.n * (part.mean - mean) ** 2 for part in parts)
    within = math.fsum(part.m2 for part in parts)
    df_between, df_within = len(parts) - 1, n - len(parts)
    if within == 0.0:
        return _none("no scatter within the groups")
    f = (between / df_between) / (within / df_within)
    return OneWay(df_between, between, df_within, within, f, float(stats.f.sf(f, df_between, df_within)))


def _none(reason: str) -> OneWay:
    return OneWay(0, math.nan, 0, math.nan, math.nan, math.nan, reason)
