"""Constants of control charts for subgroups of n values, computed from the distribution of the range and of s."""

from __future__ import annotations

import math
from functools import cache

import numpy as np
from scipy import integrate, special, stats

LARGEST_SUBGROUP = 1000


@cache
def d2(n: int) -> float:
    """Mean of the range of n standard normal values."""
    _check(n)
    found, _error = integrate.quad(
        lambda x: 1.0 - (1.0 - special.ndtr(x)) ** n - special.ndtr(x) ** n, -math.inf, math.inf, epsabs=1e-13
    )
    return float(found)


@cache
def d3(n: int) -> float:
    """Standard deviation of the range of n standard normal values."""
    _check(n)
    # E[R^2] = 2 times the integral of P(R > r) r dr, with the studentized range of infinite degrees of freedom.
    grid = np.linspace(0.0, 16.0, 4001)
    tail = 1.0 - np.array([_range_cdf(r, n) for r in grid])
    second = 2.0 * integrate.simpson(tail * grid, x=grid)
    return math.sqrt(float(second) - d2(n) ** 2)


def _range_cdf(r: float, n: int) -> float:
    """P(range of n standard normal values <= r), by Gauss-Hermite's cousin on an even grid."""
    x = _NODES
    inside = n * _DENSITY * (special.ndtr(x + r) - special.ndtr(x)) ** (n - 1)
    return float(integrate.simpson(inside, x=x))


_NODES = np.linspace(-9.0, 9.0, 1201)
_DENSITY = stats.norm.pdf(_NODES)


@cache
def c4(n: int) -> float:
    """Mean of the standard deviation of n standard normal values."""
    _check(n)
    return math.sqrt(2.0 / (n - 1)) * math.exp(math.lgamma(n / 2) - math.lgamma((n - 1) / 2))


def _check(n: int) -> None:
    if not 2 <= n <= LARGEST_SUBGROUP:
        raise ValueError(f"A subgroup has 2 to {LARGEST_SUBGROUP} values, not {n}.")
