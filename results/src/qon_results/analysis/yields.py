"""Yield and Pareto: each figure with the definition in words and the counts behind it."""

from __future__ import annotations

from collections import Counter
from collections.abc import Iterable, Sequence
from dataclasses import dataclass

import numpy as np
from numpy.typing import ArrayLike, NDArray
from scipy import stats

from .figure import CONFIDENCE, Estimate, estimate, nothing

OK, NG, TBD, ABORTED, EXCEPTION, INTERRUPTED = "OK", "NG", "TBD", "ABORTED", "EXCEPTION", "INTERRUPTED"
JUDGED = (OK, NG, TBD)

FIRST_PASS = (
    "Units whose first judged attempt was OK, of all units with a judged attempt. An attempt is judged when it ended OK, NG "
    "or TBD (TBD counts as not passed); aborted attempts, exceptions and interruptions are counted apart."
)
FINAL = "Units whose last judged attempt was OK, of all units with a judged attempt."
RETEST = "Judged attempts after a unit's first one, of all judged attempts."


@dataclass(frozen=True, slots=True)
class YieldCounts:
    """Additive over parts that share no unit (days of production, stations, lines with serial numbers of their own)."""

    units: int = 0
    first_ok: int = 0
    last_ok: int = 0
    attempts: int = 0  # judged ones
    aborted: int = 0
    exceptions: int = 0
    interrupted: int = 0

    def __add__(self, other: YieldCounts) -> YieldCounts:
        return YieldCounts(
            self.units + other.units,
            self.first_ok + other.first_ok,
            self.last_ok + other.last_ok,
            self.attempts + other.attempts,
            self.aborted + other.aborted,
            self.exceptions + other.exceptions,
            self.interrupted + other.interrupted,
        )

    @property
    def first_pass(self) -> Estimate:
        return share(self.first_ok, self.units, "no unit has a judged attempt")

    @property
    def final(self) -> Estimate:
        return share(self.last_ok, self.units, "no unit has a judged attempt")

    @property
    def retests(self) -> Estimate:
        return share(self.attempts - self.units, self.attempts, "no attempt was judged")


def share(
    count: int, of: int, reason: str = "nothing was counted", confidence: float = CONFIDENCE
) -> Estimate:
    """A share with Wilson's interval, which holds near 0 and 1 and for small numbers."""
    if of <= 0:
        return nothing(reason)
    interval = stats.binomtest(count, of).proportion_ci(confidence, method="wilson")
    return estimate(count / of, interval.low, interval.high)


def count(units: ArrayLike, outcomes: Sequence[str] | NDArray[np.str_]) -> YieldCounts:
    """Runs in the order of their beginning; `units` tells which runs are of one unit (product, number, operation)."""
    outcome = np.asarray(outcomes)
    judged = np.isin(outcome, JUDGED)
    unit, verdict = np.asarray(units)[judged], outcome[judged] == OK
    names, first = np.unique(unit, return_index=True)
    last = unit.size - 1 - np.unique(unit[::-1], return_index=True)[1] if unit.size else first
    return YieldCounts(
        names.size,
        int(verdict[first].sum()),
        int(verdict[last].sum()),
        int(unit.size),
        int((outcome == ABORTED).sum()),
        int((outcome == EXCEPTION).sum()),
        int((outcome == INTERRUPTED).sum()),
    )


@dataclass(frozen=True, slots=True)
class Bar:
    """One bar of a Pareto: how many, and the share of all with those of the bars before it."""

    name: str
    count: int
    cumulative: float


def pareto(names: Iterable[str] | Counter[str], most: int = 0) -> list[Bar]:
    """From the most frequent to the least, equals by name; `most` bars (0 for all), the rest as one named ""."""
    counted = Counter(names)
    ordered = sorted(((name, n) for name, n in counted.items() if n), key=lambda pair: (-pair[1], pair[0]))
    total = sum(n for _, n in ordered)
    shown = ordered[:most] if most else ordered
    rest = total - sum(n for _, n in shown)
    bars: list[Bar] = []
    so_far = 0
    for name, n in shown + ([("", rest)] if rest else []):
        so_far += n
        bars.append(Bar(name, n, so_far / total))
    return bars
