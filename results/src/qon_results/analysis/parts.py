"""Figures of an item from parts of its values: one part a stream and day, made once, added up as often as one likes.

A stream is what follows one another: the values of one item in one cell.  Parts of a stream can be chained, as if they had
been one; streams can be pooled, where steps and drifts stay within each.  What comes out equals the figures of all values.
"""

from __future__ import annotations

import math
from typing import Any

import numpy as np
from numpy.typing import NDArray
from scipy import special

from .constants import d2
from .figure import CONFIDENCE, Estimate, Floats, estimate, nothing
from .moments import Summary

PART = np.dtype(
    [
        ("item", np.int64), ("stream", np.int64), ("day", np.int64),
        ("n", np.int64), ("mean", np.float64), ("m2", np.float64), ("low", np.float64), ("high", np.float64),
        ("missing", np.int64),  # numbers that are not finite
        ("switches", np.int64), ("others", np.int64),  # yes or no; texts, arrays and so on
        ("judged", np.int64), ("ng", np.int64), ("near", np.int64),
        ("steps", np.int64), ("step_sum", np.float64), ("first", np.float64), ("last", np.float64),
        ("time", np.float64), ("m_tt", np.float64), ("m_tx", np.float64),  # days: mean and sums about the means
        ("within", np.float64),  # m2 within the streams
        ("streams", np.int64),
        ("lower", np.float64), ("upper", np.float64), ("newest_us", np.int64),  # of the newest value
        ("limits", np.int64),  # 1 where they changed
    ]
)  # fmt: skip
Parts = NDArray[np.void]
COUNTS = ("missing", "switches", "others", "judged", "ng", "near")
NEAR = 0.1  # of the distance of the limits


def near(values: Floats, lower: Floats, upper: Floats, share: float = NEAR) -> NDArray[np.bool_]:
    """Which values keep their limits with less than a share of these' distance to spare."""
    with np.errstate(invalid="ignore"):
        margin = share * (upper - lower)
        found: NDArray[np.bool_] = (values >= lower) & (values <= upper)
        return found & ((values < lower + margin) | (values > upper - margin))


def chained(parts: Parts) -> Parts:
    """Parts of equal item, stream and day become one, in the order in which they stand."""
    return _joined(parts, ("item", "stream", "day"), linked=True)


def streams(parts: Parts) -> Parts:
    """One part an item and stream, whatever the day; the parts in the order of days."""
    whole = parts[np.argsort(parts["day"], kind="stable")].copy()
    whole["day"] = 0
    return _joined(whole, ("item", "stream", "day"), linked=True)


def pooled(parts: Parts, group: NDArray[np.int64]) -> Parts:
    """Streams with the same number of a group become one part; that number stands as its stream."""
    whole = parts.copy()
    whole["stream"], whole["day"] = group, 0
    return _joined(whole, ("item", "stream", "day"), linked=False)


def _joined(parts: Parts, keys: tuple[str, ...], linked: bool) -> Parts:
    if not len(parts):
        return parts
    parts = parts[np.lexsort([parts[key] for key in reversed(keys)])]
    change = np.zeros(len(parts), dtype=bool)
    change[0] = True
    for key in keys:
        change[1:] |= parts[key][1:] != parts[key][:-1]
    starts, group = np.flatnonzero(change), np.cumsum(change) - 1
    found = parts[starts].copy()
    if len(starts) == len(parts):
        return found

    def total(column: Any) -> Any:
        return np.add.reduceat(column, starts)

    n, some = parts["n"], parts["n"] > 0
    found["n"] = total(n)
    many = np.maximum(found["n"], 1)
    mean, off = _center(parts["mean"], n, some, starts, group, many)
    time, late = _center(parts["time"], n, some, starts, group, many)
    empty = found["n"] == 0
    found["mean"], found["time"] = np.where(empty, np.nan, mean), np.where(empty, np.nan, time)
    found["m2"] = total(np.where(some, parts["m2"], 0)) + total(n * off * off)
    for name in COUNTS:
        found[name] = total(parts[name])
    for name, function in (("low", np.fmin), ("high", np.fmax)):
        found[name] = function.reduceat(parts[name], starts)
    found["steps"], found["step_sum"] = total(parts["steps"]), total(parts["step_sum"])
    found["m_tt"], found["m_tx"] = total(parts["m_tt"]), total(parts["m_tx"])
    if linked:
        found["m_tt"] += total(n * late * late)
        found["m_tx"] += total(n * late * off)
        found["within"], found["streams"] = found["m2"], np.where(empty, 0, 1)
        _link(found, parts, some, group)
    else:
        found["within"], found["streams"] = total(parts["within"]), total(parts["streams"])
    newest = np.lexsort((parts["newest_us"], group))[np.append(starts[1:], len(parts)) - 1]
    for name in ("lower", "upper", "newest_us"):
        found[name] = parts[name][newest]
    differ = parts["limits"] > 0
    for name in ("lower", "upper"):
        own = found[name][group]
        differ |= (parts[name] != own) & ~(np.isnan(parts[name]) & np.isnan(own)) & (parts["newest_us"] > 0)
    found["limits"] = total(differ) > 0
    return found


def _center(column: Floats, n: Any, some: Any, starts: Any, group: Any, many: Any) -> tuple[Floats, Floats]:
    """Mean of each group, and how far each part's is from it; relative to one of them, so that no digits are lost."""
    known = np.where(some, column, -np.inf)
    shift = np.maximum.reduceat(known, starts)
    shift = np.where(np.isfinite(shift), shift, 0.0)
    moved = np.where(some, column - shift[group], 0.0)
    center = np.add.reduceat(n * moved, starts) / many
    return shift + center, np.where(some, moved - center[group], 0.0)


def _link(found: Parts, parts: Parts, some: Any, group: Any) -> None:
    """The step from the last value of a part to the first of the next one that has any."""
    place = np.flatnonzero(some)
    ends = place[:-1], place[1:]
    same = group[ends[0]] == group[ends[1]]
    before, after = ends[0][same], ends[1][same]
    np.add.at(found["steps"], group[after], 1)
    np.add.at(found["step_sum"], group[after], np.abs(parts["first"][after] - parts["last"][before]))
    first_of = np.full(len(found), -1)
    first_of[group[place][::-1]] = place[::-1]
    last_of = np.full(len(found), -1)
    last_of[group[place]] = place
    there = first_of >= 0
    found["first"][there], found["last"][there] = (
        parts["first"][first_of[there]],
        parts["last"][last_of[there]],
    )


def summary(part: Any) -> Summary:
    return Summary(
        int(part["n"]), float(part["mean"]), float(part["m2"]), float(part["low"]), float(part["high"]),
        int(part["missing"]),
    )  # fmt: skip


def step_sigma(part: Any) -> float:
    """Sigma from one value to the next of the same stream."""
    return float(part["step_sum"] / part["steps"]) / d2(2) if part["steps"] else math.nan


def drift(part: Any, span_days: float, confidence: float = CONFIDENCE) -> Estimate:
    """By how much the values moved over so many days, as a straight line within each stream, with its interval.

    A level of its own for each stream: what cells differ by is no drift.
    """
    freedom = int(part["n"]) - int(part["streams"]) - 1
    if freedom < 1:
        return nothing("too few values")
    if not part["m_tt"] > 0 or not span_days > 0:
        return nothing("all values at one time")
    slope = float(part["m_tx"] / part["m_tt"])
    rest = max(float(part["within"]) - slope * float(part["m_tx"]), 0.0)
    error = math.sqrt(rest / freedom / float(part["m_tt"]))
    reach = float(special.stdtrit(freedom, (1 + confidence) / 2)) * error
    return estimate(slope * span_days, (slope - reach) * span_days, (slope + reach) * span_days)
