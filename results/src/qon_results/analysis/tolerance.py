"""Tolerance intervals: limits between which a stated share of a normal population lies, with stated confidence."""

from __future__ import annotations

import math
from dataclasses import dataclass
from functools import lru_cache

import numpy as np
from numpy.typing import ArrayLike
from scipy import optimize, stats

from .figure import CONFIDENCE, numbers
from .moments import Summary

_NODES, _WEIGHTS = np.polynomial.legendre.leggauss(160)
_NODES, _WEIGHTS = (_NODES + 1) / 2, _WEIGHTS / 2  # over 0 to 1


@lru_cache(maxsize=4096)
def two_sided_factor(n: float, coverage: float, confidence: float, freedom: float | None = None) -> float:
    """k of mean +/- k sigma, exact: the mean's normal error integrated over the chi-square of sigma.

    n: values behind the mean; freedom: degrees of freedom of sigma, n - 1 by default.
    """
    degrees = n - 1.0 if freedom is None else freedom
    if math.isinf(n):
        return float(stats.norm.ppf((1 + coverage) / 2))
    if n < 2 or degrees < 1:
        raise ValueError(f"A tolerance interval needs two values, not {n:g}.")

    # The mean's error is half-normal; at each error the half width that covers the share is a root of the
    # non-central chi-square, whatever k is.
    error = _NODES * 9.0 / math.sqrt(n)
    weight = _WEIGHTS * 9.0 / math.sqrt(n) * 2.0 * stats.norm.pdf(error * math.sqrt(n)) * math.sqrt(n)
    half_squared = stats.ncx2.ppf(coverage, 1, error * error)

    def reached(k: float) -> float:
        return float(weight @ stats.chi2.sf(degrees * half_squared / (k * k), degrees))

    guess = howe_factor(n, coverage, confidence, degrees)
    return float(optimize.brentq(lambda k: reached(k) - confidence, guess * 0.3, guess * 2.0, xtol=1e-9))


def howe_factor(n: float, coverage: float, confidence: float, freedom: float | None = None) -> float:
    """Howe's closed approximation of the two-sided factor."""
    degrees = n - 1.0 if freedom is None else freedom
    z = stats.norm.ppf((1 + coverage) / 2)
    return float(z * math.sqrt(degrees * (1 + 1 / n) / stats.chi2.ppf(1 - confidence, degrees)))


def one_sided_factor(n: int, coverage: float, confidence: float) -> float:
    """k of mean + k sigma (or minus), exact by the non-central t distribution."""
    if n < 2:
        raise ValueError(f"A tolerance limit needs two values, not {n}.")
    away = stats.norm.ppf(coverage) * math.sqrt(n)
    return float(stats.nct.ppf(confidence, n - 1, away) / math.sqrt(n))


@dataclass(frozen=True, slots=True)
class Interval:
    lower: float
    upper: float
    reason: str = ""

    def __bool__(self) -> bool:
        return not self.reason


def interval(values: ArrayLike, coverage: float = 0.99, confidence: float = CONFIDENCE) -> Interval:
    """Where `coverage` of what comes will lie, if it goes on as these values did."""
    whole = Summary.of(numbers(values))
    if whole.n < 2:
        return Interval(math.nan, math.nan, "fewer than two values")
    if not whole.sigma > 0:
        return Interval(math.nan, math.nan, "all values are equal")
    half = two_sided_factor(whole.n, coverage, confidence) * whole.sigma
    return Interval(whole.mean - half, whole.mean + half)


__all__ = ["Interval", "howe_factor", "interval", "one_sided_factor", "two_sided_factor"]
