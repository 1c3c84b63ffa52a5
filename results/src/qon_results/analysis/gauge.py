"""Gauge studies: how much of what is measured is the gauge."""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
from numpy.typing import ArrayLike
from scipy import stats

from .constants import d2, d3
from .figure import Estimate, Floats, estimate, nothing, numbers
from .moments import Summary

POOL_ABOVE = 0.05  # an interaction less significant than this counts as repeatability
STUDY_WIDTH = 6.0  # sigmas
GOOD, CONDITIONAL = 10.0, 30.0  # per cent of the study or of the tolerance
CATEGORIES = 5


@dataclass(frozen=True, slots=True)
class Term:
    """One line of the analysis of variance."""

    df: int
    ss: float
    f: float = math.nan
    p: float = math.nan

    @property
    def ms(self) -> float:
        return self.ss / self.df if self.df else math.nan


@dataclass(frozen=True, slots=True)
class Study:
    """A crossed study: every part is measured in every cell (or by every operator) equally often.

    The var_* are components of variance; `tolerance` is the distance of the limits or None.
    """

    part: Term
    operator: Term
    interaction: Term
    repeatability: Term
    pooled: bool
    var_repeatability: float
    var_operator: float
    var_interaction: float
    var_part: float
    tolerance: float | None = None
    reason: str = ""

    def __bool__(self) -> bool:
        return not self.reason

    @property
    def var_reproducibility(self) -> float:
        return self.var_operator + self.var_interaction

    @property
    def var_grr(self) -> float:
        return self.var_repeatability + self.var_reproducibility

    @property
    def var_total(self) -> float:
        return self.var_grr + self.var_part

    def percent_of_study(self, variance: float) -> Estimate:
        """A component's sigma in per cent of the sigma of all."""
        if self.reason or not self.var_total > 0:
            return nothing(self.reason or "nothing varies")
        return estimate(100 * math.sqrt(variance / self.var_total))

    def percent_of_tolerance(self, variance: float) -> Estimate:
        if self.reason or not self.tolerance or self.tolerance <= 0:
            return nothing(self.reason or "no tolerance: there are not two limits")
        return estimate(100 * STUDY_WIDTH * math.sqrt(variance) / self.tolerance)

    @property
    def categories(self) -> Estimate:
        """How many classes of parts the gauge can tell apart."""
        if self.reason or not self.var_grr > 0:
            return nothing(self.reason or "the gauge shows no scatter at all")
        return estimate(max(1, math.floor(1.41 * math.sqrt(self.var_part / self.var_grr))))

    @property
    def verdict(self) -> str:
        """good, conditional or bad, by the share of the tolerance if there is one, else of the study; "" unknown."""
        share = self.percent_of_tolerance(self.var_grr) or self.percent_of_study(self.var_grr)
        if share.value is None:
            return ""
        if share.value < GOOD:
            few = self.categories.value is not None and self.categories.value < CATEGORIES
            return "conditional" if few else "good"
        return "conditional" if share.value <= CONDITIONAL else "bad"


def _no_study(reason: str) -> Study:
    term = Term(0, math.nan)
    return Study(term, term, term, term, False, math.nan, math.nan, math.nan, math.nan, None, reason)


def table_of(parts: ArrayLike, operators: ArrayLike, values: ArrayLike) -> Floats | str:
    """Readings as [part, operator, trial] in the order in which they come; else why they are no crossed study."""
    part_names, part = np.unique(np.asarray(parts), return_inverse=True)
    operator_names, operator = np.unique(np.asarray(operators), return_inverse=True)
    reading = np.asarray(values, dtype=np.float64)
    if not reading.size or not np.isfinite(reading).all():
        return "no readings" if not reading.size else "a reading is missing"
    cell = part * operator_names.size + operator
    counts = np.bincount(cell, minlength=part_names.size * operator_names.size)
    if counts.min() != counts.max():
        return "not every part was measured equally often in every cell"
    order = np.argsort(cell, kind="stable")
    table: Floats = reading[order].reshape(part_names.size, operator_names.size, int(counts[0]))
    return table


def crossed(table: ArrayLike, tolerance: float | None = None, pool_above: float = POOL_ABOVE) -> Study:
    """Analysis of variance with interaction of readings [part, operator, trial]."""
    readings = np.asarray(table, dtype=np.float64)
    if readings.ndim != 3:
        return _no_study("readings by part, cell and trial are needed")
    p, o, r = readings.shape
    if p < 2 or r < 2:
        return _no_study("fewer than two parts" if p < 2 else "fewer than two trials")
    if not np.isfinite(readings).all():
        return _no_study("a reading is missing")
    readings = readings - readings.flat[0]
    grand = readings.mean()
    by_part, by_operator, by_both = readings.mean((1, 2)), readings.mean((0, 2)), readings.mean(2)
    ss_part = o * r * float(((by_part - grand) ** 2).sum())
    ss_operator = p * r * float(((by_operator - grand) ** 2).sum())
    ss_inter = r * float(((by_both - by_part[:, None] - by_operator[None, :] + grand) ** 2).sum())
    ss_rest = float(((readings - by_both[:, :, None]) ** 2).sum())
    if ss_rest == 0.0:
        return _no_study("all trials of each part are equal")
    rest = Term(p * o * (r - 1), ss_rest)
    interaction = _tested(Term((p - 1) * (o - 1), ss_inter if o > 1 else 0.0), rest)
    pooled = o == 1 or not interaction.p <= pool_above
    base = Term(rest.df + interaction.df, rest.ss + interaction.ss) if pooled else interaction
    part, operator = _tested(Term(p - 1, ss_part), base), _tested(Term(o - 1, ss_operator), base)
    repeat = base.ms if pooled else rest.ms
    var_interaction = 0.0 if pooled else max(0.0, (interaction.ms - rest.ms) / r)
    var_operator = max(0.0, (operator.ms - base.ms) / (p * r)) if o > 1 else 0.0
    var_part = max(0.0, (part.ms - base.ms) / (o * r))
    return Study(
        part, operator, interaction, rest, pooled, repeat, var_operator, var_interaction, var_part, tolerance
    )


def study_of(
    parts: ArrayLike, operators: ArrayLike, values: ArrayLike, tolerance: float | None = None
) -> Study:
    """The same of readings in any order."""
    table = table_of(parts, operators, values)
    return _no_study(table) if isinstance(table, str) else crossed(table, tolerance)


def _tested(term: Term, against: Term) -> Term:
    if not term.df or not against.df or not against.ms > 0:
        return term
    f = term.ms / against.ms
    return Term(term.df, term.ss, f, float(stats.f.sf(f, term.df, against.df)))


def _d2_star(m: int, g: int) -> float:
    """Mean of sqrt of the mean squared range of g groups of m values, by Patnaik's fit of two moments."""
    return math.sqrt(d2(m) ** 2 + d3(m) ** 2 / g)


@dataclass(frozen=True, slots=True)
class RangeStudy:
    """Average and range method: sigmas of equipment, appraiser, both, parts and all."""

    equipment: float
    appraiser: float
    grr: float
    part: float
    total: float


def average_and_range(table: ArrayLike) -> RangeStudy:
    """The method by hand of readings [part, operator, trial]; knows no interaction."""
    readings = np.asarray(table, dtype=np.float64)
    p, o, r = readings.shape
    equipment = float(np.ptp(readings, axis=2).mean()) / d2(r)
    between = float(np.ptp(readings.mean((0, 2)))) / _d2_star(o, 1) if o > 1 else 0.0
    appraiser = math.sqrt(max(0.0, between**2 - equipment**2 / (p * r)))
    part = float(np.ptp(readings.mean((1, 2)))) / _d2_star(p, 1)
    grr = math.hypot(equipment, appraiser)
    return RangeStudy(equipment, appraiser, grr, part, math.hypot(grr, part))


@dataclass(frozen=True, slots=True)
class Linearity:
    """Bias as a line over the reference value: a slope other than 0 means that it grows."""

    slope: Estimate
    intercept: Estimate
    r_squared: float
    df: int


def linearity(references: ArrayLike, readings: ArrayLike) -> Linearity:
    reference, reading = np.asarray(references, dtype=np.float64), np.asarray(readings, dtype=np.float64)
    known = np.isfinite(reference) & np.isfinite(reading)
    x, y = reference[known], (reading - reference)[known]
    if x.size < 3 or np.ptp(x) == 0:
        none = nothing("readings at two references are needed, three in all")
        return Linearity(none, none, math.nan, 0)
    line = stats.linregress(x, y)
    reach = stats.t.ppf(0.975, x.size - 2)
    slope, intercept = float(line.slope), float(line.intercept)
    return Linearity(
        estimate(slope, slope - reach * line.stderr, slope + reach * line.stderr),
        estimate(
            intercept, intercept - reach * line.intercept_stderr, intercept + reach * line.intercept_stderr
        ),
        float(line.rvalue) ** 2,
        x.size - 2,
    )


@dataclass(frozen=True, slots=True)
class TypeOne:
    """One master measured often: Cg by scatter alone, Cgk by scatter and bias; t and p of the bias."""

    cg: Estimate
    cgk: Estimate
    t: float
    p: float


def type_one(
    readings: ArrayLike, reference: float, tolerance: float, share: float = 0.2, sigmas: float = 6.0
) -> TypeOne:
    """`share` of the tolerance against `sigmas` of the readings."""
    whole = Summary.of(numbers(readings))
    if whole.n < 2 or not whole.sigma > 0 or not tolerance > 0:
        none = nothing("no scatter" if whole.n > 1 else "fewer than two readings")
        return TypeOne(none, none, math.nan, math.nan)
    bias = whole.mean - reference
    t = bias / (whole.sigma / math.sqrt(whole.n))
    cg = share * tolerance / (sigmas * whole.sigma)
    cgk = (share / 2 * tolerance - abs(bias)) / (sigmas / 2 * whole.sigma)
    return TypeOne(estimate(cg), estimate(cgk), t, float(2 * stats.t.sf(abs(t), whole.n - 1)))


def repeatability_from_retests(units: ArrayLike, values: ArrayLike) -> Estimate:
    """Sigma of repeated readings of the same units, from ordinary retests.

    An estimate: whoever retests has touched the unit in between, and mostly units near a limit are retested.
    """
    _names, unit = np.unique(np.asarray(units), return_inverse=True)
    reading = np.asarray(values, dtype=np.float64)
    known = np.isfinite(reading)
    unit, reading = unit[known], reading[known]
    counts = np.bincount(unit) if unit.size else np.zeros(0, dtype=np.int64)
    degrees = int((counts[counts > 0] - 1).sum())
    if degrees < 2:
        return nothing("fewer than two retests")
    shift = reading[0]
    means = np.bincount(unit, reading - shift) / np.maximum(counts, 1)
    rest = (reading - shift) - means[unit]
    sigma = math.sqrt(float(rest @ rest) / degrees)
    low, high = (float(stats.chi2.ppf(tail, degrees)) for tail in (0.025, 0.975))
    return estimate(sigma, sigma * math.sqrt(degrees / high), sigma * math.sqrt(degrees / low))
