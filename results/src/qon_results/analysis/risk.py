"""What a measurement's own error does to verdicts: false accepts and false rejects."""

from __future__ import annotations

import itertools
import math
from collections.abc import Callable
from dataclasses import dataclass

from scipy import integrate, stats

from .figure import Estimate, estimate, nothing

COVERAGE_FACTOR = 2.0  # of an expanded uncertainty


@dataclass(frozen=True, slots=True)
class Risk:
    """Shares of all units: bad ones that pass, good ones that do not."""

    false_accept: Estimate
    false_reject: Estimate


def risk(
    mean: float,
    sigma: float,
    error_sigma: float,
    lower: float | None,
    upper: float | None,
    accept_lower: float | None = None,
    accept_upper: float | None = None,
) -> Risk:
    """True values are normal about `mean` with `sigma`, readings about the true value with `error_sigma`.

    lower, upper: what a unit has to keep; accept_*: what its reading is judged by, the same without a guard band.
    """
    if lower is None and upper is None:
        return Risk(nothing("no limits"), nothing("no limits"))
    if not (sigma > 0 and math.isfinite(sigma)):
        reason = "the units differ no more than the gauge repeats"
        return Risk(nothing(reason), nothing(reason))
    if not (error_sigma > 0 and math.isfinite(error_sigma)):
        return Risk(nothing("the gauge's error is not known"), nothing("the gauge's error is not known"))
    low, high = (-math.inf if lower is None else lower), (math.inf if upper is None else upper)
    accept_low = low if accept_lower is None else accept_lower
    accept_high = high if accept_upper is None else accept_upper

    def density(true: float) -> float:
        return math.exp(-0.5 * ((true - mean) / sigma) ** 2) / (sigma * math.sqrt(2 * math.pi))

    def accepted(true: float) -> float:
        return float(
            stats.norm.cdf((accept_high - true) / error_sigma)
            - stats.norm.cdf((accept_low - true) / error_sigma)
        )

    reach = 9.0
    bottom, top = mean - reach * sigma, mean + reach * sigma
    false_accept = _over(lambda x: density(x) * accepted(x), bottom, min(low, top), error_sigma)
    false_accept += _over(lambda x: density(x) * accepted(x), max(high, bottom), top, error_sigma)
    false_reject = _over(
        lambda x: density(x) * (1 - accepted(x)), max(low, bottom), min(high, top), error_sigma
    )
    return Risk(estimate(false_accept), estimate(false_reject))


def _over(function: Callable[[float], float], begin: float, end: float, scale: float) -> float:
    """The integral; both ends get pieces of their own, since what happens there is as narrow as the gauge's error."""
    if not begin < end:
        return 0.0
    inner = [begin + 8 * scale, end - 8 * scale]
    edges = sorted({begin, end, *(edge for edge in inner if begin < edge < end)})
    return sum(
        float(integrate.quad(function, left, right, epsabs=1e-12, limit=200)[0])
        for left, right in itertools.pairwise(edges)
    )


def guard_band(
    lower: float | None, upper: float | None, error_sigma: float, factor: float = 1.0
) -> tuple[float | None, float | None]:
    """Acceptance limits inside the limits by `factor` expanded uncertainties (k = 2).

    With one of them fewer than 2.5 % of the units at the limit are falsely accepted, without any up to 50 %.
    """
    band = factor * COVERAGE_FACTOR * error_sigma
    low = None if lower is None else lower + band
    high = None if upper is None else upper - band
    if low is not None and high is not None and low > high:
        raise ValueError(
            f"The guard band of {band:g} on both sides leaves nothing between {lower:g} and {upper:g}."
        )
    return low, high


def worst_false_accept(error_sigma: float, band: float) -> float:
    """Probability to accept a unit that lies exactly on a limit, with the acceptance limit `band` inside."""
    return float(stats.norm.sf(band / error_sigma))
