"""Count, mean, sum of squares and extremes: exact to the last digits, and mergeable over parts of the data."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Self

import numpy as np
from numpy.typing import ArrayLike

from .figure import Estimate, estimate, nothing, numbers


@dataclass(frozen=True, slots=True)
class Summary:
    """Of the finite values alone; `missing` counts the others.  m2: sum of squared distances from the mean."""

    n: int = 0
    mean: float = math.nan
    m2: float = 0.0
    low: float = math.nan
    high: float = math.nan
    missing: int = 0

    @classmethod
    def of(cls, values: ArrayLike) -> Self:
        """Shifted by the first value, so that a large common part costs no digits; in two passes, corrected."""
        array = numbers(values)
        n, missing = array.size, np.size(values) - array.size
        if n == 0:
            return cls(missing=missing)
        shift = float(array[0])
        with np.errstate(over="ignore", invalid="ignore"):
            moved = array - shift
            mean = math.fsum(moved) / n if np.isfinite(moved).all() else float(np.mean(array / n) * n) - shift
            rest = moved - mean
            m2 = float(np.dot(rest, rest)) - math.fsum(rest) ** 2 / n if np.isfinite(rest).all() else math.inf
        return cls(n, shift + mean, max(m2, 0.0), float(array.min()), float(array.max()), missing)

    def __add__(self, other: Summary) -> Summary:
        """Of both parts together, as if they had been one."""
        if not self.n or not other.n:
            known = self if self.n else other
            return Summary(known.n, known.mean, known.m2, known.low, known.high, self.missing + other.missing)
        n, apart = self.n + other.n, other.mean - self.mean
        return Summary(
            n,
            self.mean + apart * (other.n / n),
            self.m2 + other.m2 + apart * apart * (self.n * (other.n / n)),
            min(self.low, other.low),
            max(self.high, other.high),
            self.missing + other.missing,
        )

    @property
    def variance(self) -> float:
        """Of the population that the values are a sample of (n - 1); NaN for fewer than two."""
        return self.m2 / (self.n - 1) if self.n > 1 else math.nan

    @property
    def sigma(self) -> float:
        return math.sqrt(self.variance) if self.n > 1 else math.nan


def lag_one_correlation(values: ArrayLike) -> Estimate:
    """How much a value says about the next one, from -1 to 1."""
    array = numbers(values)
    if array.size < 3:
        return nothing("fewer than three values")
    rest = array - Summary.of(array).mean
    spread = math.fsum(rest * rest)
    if spread == 0.0:
        return nothing("all values are equal")
    return estimate(math.fsum(rest[:-1] * rest[1:]) / spread)
