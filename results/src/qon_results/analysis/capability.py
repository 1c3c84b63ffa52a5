"""Process capability with confidence intervals."""

from __future__ import annotations

import math
from dataclasses import dataclass

from numpy.typing import ArrayLike
from scipy import special

from .charts import moving_range_sigma
from .figure import CONFIDENCE, Estimate, estimate, nothing, numbers
from .moments import Summary

FEWEST = 3


@dataclass(frozen=True, slots=True)
class Indices:
    """spread: both limits against six sigma; nearest: the nearer limit against three; target: about a target."""

    spread: Estimate
    lower: Estimate
    upper: Estimate
    nearest: Estimate
    target: Estimate


@dataclass(frozen=True, slots=True)
class Capability:
    """Cp and Cpk by the sigma from one value to the next, Pp and Ppk by the sigma of all values."""

    cp: Estimate
    cpk: Estimate
    pp: Estimate
    ppk: Estimate


def indices(
    mean: float,
    sigma: float,
    n: int,
    lower: float | None,
    upper: float | None,
    target: float | None = None,
    confidence: float = CONFIDENCE,
    freedom: float | None = None,
) -> Indices:
    """From a mean and a sigma of n values; `freedom` is sigma's number of degrees of freedom, n - 1 by default.

    Intervals: chi-square for both limits and the target, Bissell's normal approximation for one.  The bounds for
    one limit are one-sided each, as capability is claimed from below.
    """
    reason = _refusal(sigma, n)
    if not reason and lower is None and upper is None:
        reason = "no limits"
    if reason:
        none = nothing(reason)
        return Indices(none, none, none, none, none)
    degrees = n - 1.0 if freedom is None else freedom
    below = (
        nothing("no lower limit")
        if lower is None
        else _one_limit((mean - lower) / (3 * sigma), n, degrees, confidence)
    )
    above = (
        nothing("no upper limit")
        if upper is None
        else _one_limit((upper - mean) / (3 * sigma), n, degrees, confidence)
    )
    sides = [side.value for side in (below, above) if side.value is not None]
    nearest = _one_limit(min(sides), n, degrees, (1 + confidence) / 2) if sides else nothing("no limits")
    if lower is None or upper is None:
        spread = about = nothing("only one limit")
    elif upper <= lower:
        spread = about = nothing("the upper limit is not above the lower one")
    else:
        spread = _by_chi_square((upper - lower) / (6 * sigma), degrees, confidence)
        about = _about_target(mean, sigma, n, lower, upper, target, confidence)
    return Indices(spread, below, above, nearest, about)


def capability(
    values: ArrayLike, lower: float | None, upper: float | None, confidence: float = CONFIDENCE
) -> Capability:
    """Of values in the order in which they were measured."""
    array = numbers(values)
    whole, steps = Summary.of(array), max(array.size - 1, 0)
    return of_summary(whole, moving_range_sigma(array), steps, 1, lower, upper, confidence)


def of_summary(
    whole: Summary,
    step_sigma: float,
    steps: int,
    streams: int,
    lower: float | None,
    upper: float | None,
    confidence: float = CONFIDENCE,
) -> Capability:
    """`step_sigma` is that of so many moving ranges within so many streams (cells, each in its own order)."""
    freedom = moving_range_freedom(steps, streams)
    if steps < FEWEST - 1:
        within = indices(whole.mean, step_sigma, 0 if steps <= 0 else steps + 1, lower, upper)
    else:
        within = indices(whole.mean, step_sigma, whole.n, lower, upper, None, confidence, freedom)
    overall = indices(whole.mean, whole.sigma, whole.n, lower, upper, None, confidence)
    return Capability(within.spread, within.nearest, overall.spread, overall.nearest)


def moving_range_freedom(steps: int, streams: int = 1) -> float:
    """Degrees of freedom of the sigma of so many moving ranges: those with which a chi varies as their mean does.

    A range varies by (pi / 2 - 1) of its mean squared; neighbours share a value, which adds (from the bivariate normal
    distribution with correlation -1/2) 2 (sqrt(3) / 2 + pi / 12 - 1) for each pair.  0.605 of the values in the long run.
    """
    if steps < 1:
        return math.nan
    pairs = max(steps - streams, 0)
    varies = steps * (math.pi / 2 - 1) + 2 * pairs * (math.sqrt(3) / 2 + math.pi / 12 - 1)
    return steps * steps / (2.0 * varies)


def share_outside(mean: float, sigma: float, lower: float | None, upper: float | None) -> Estimate:
    """Share of normal values beyond the limits: what is to be expected, where none were seen yet."""
    if not sigma > 0 or not math.isfinite(sigma):
        return nothing("no spread to expect anything from")
    share = 0.0
    if lower is not None:
        share += float(special.ndtr((lower - mean) / sigma))
    if upper is not None:
        share += float(special.ndtr((mean - upper) / sigma))
    return estimate(share) if lower is not None or upper is not None else nothing("no limits")


def _refusal(sigma: float, n: int) -> str:
    if n < FEWEST:
        return f"{n} values: too few"
    if not math.isfinite(sigma):
        return "no finite spread"
    return "" if sigma > 0 else "all values are equal"


def _one_limit(value: float, n: int, degrees: float, confidence: float) -> Estimate:
    reach = float(special.ndtri(confidence)) * math.sqrt(1 / (9 * n) + value * value / (2 * degrees))
    return estimate(value, value - reach, value + reach)


def _by_chi_square(value: float, degrees: float, confidence: float) -> Estimate:
    low, high = (
        2.0 * float(special.gammaincinv(degrees / 2, (1 + side * confidence) / 2)) for side in (-1, 1)
    )
    return estimate(value, value * math.sqrt(low / degrees), value * math.sqrt(high / degrees))


def _about_target(
    mean: float, sigma: float, n: int, lower: float, upper: float, target: float | None, confidence: float
) -> Estimate:
    if target is None:
        return nothing("no target")
    off = ((mean - target) / sigma) ** 2
    value = (upper - lower) / (6 * sigma * math.sqrt(1 + off))
    return _by_chi_square(value, n * (1 + off) ** 2 / (1 + 2 * off), confidence)
