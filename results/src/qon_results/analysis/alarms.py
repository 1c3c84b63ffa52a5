"""Has something changed?  One detector for items, yields and cycle times, with a budget of false alarms.

Each value is ranked among those before it.  As long as nothing changes these sequential ranks are independent and even,
whatever the distribution is; turned into normal scores they go into an exponentially weighted moving average whose limits
follow from how often it may raise a false alarm.  So the rate of false alarms needs no assumption about the values, and the
budget of a line is shared by its streams: more items mean wider limits, not more alarms.
"""

from __future__ import annotations

import bisect
import math
from collections import deque
from dataclasses import dataclass
from functools import lru_cache

import numpy as np
from numpy.typing import ArrayLike
from scipy import special

from .charts import ewma_width
from .figure import Floats, numbers

WEIGHT = 0.05
WARM_UP = 50  # values that only learn
WINDOW = 2000  # values that a new one is ranked among
SHORTEST = 20.0  # values between false alarms, below which no limits make sense


@dataclass(frozen=True, slots=True)
class Alarm:
    """index: where it was raised; since: where the change began, as far as the average tells; up: larger values.

    apart: by how much the values since then differ from those before, in robust sigmas of those.
    false_every: a change like this comes by chance once in so many values.
    """

    index: int
    since: int
    up: bool
    apart: float
    false_every: float


def run_length_for(values_per_day: float, false_alarms_per_day: float = 1.0) -> float:
    """Values between two false alarms of a stream, so that all streams together keep the budget.

    values_per_day: of all streams together.
    """
    if values_per_day <= 0 or false_alarms_per_day <= 0:
        raise ValueError(
            f"A budget needs values and alarms, not {values_per_day:g} values and {false_alarms_per_day:g} alarms a day."
        )
    return max(SHORTEST, values_per_day / false_alarms_per_day)


@lru_cache(maxsize=256)
def _width(run_length: float) -> float:
    return ewma_width(WEIGHT, run_length)


def scores(values: ArrayLike, seed: int = 0, window: int = WINDOW) -> Floats:
    """Normal scores of the sequential ranks; equal values are ordered by chance, the same for the same `seed`."""
    array = numbers(values)
    chance = np.random.default_rng(seed).random(array.size)
    ranked: list[tuple[float, float]] = []
    before: deque[tuple[float, float]] = deque()
    shares = np.empty(array.size)
    for index, key in enumerate(zip(array.tolist(), chance.tolist(), strict=True)):
        place = bisect.bisect_left(ranked, key)
        shares[index] = (place + 0.5) / (len(ranked) + 1)
        ranked.insert(place, key)
        before.append(key)
        if len(before) > window:
            del ranked[bisect.bisect_left(ranked, before.popleft())]
    found: Floats = special.ndtri(shares)
    return found


def find(values: ArrayLike, run_length: float, seed: int = 0) -> list[Alarm]:
    """The alarms of one stream of values in their order; after each the detector learns anew from there."""
    array = numbers(values)
    alarms: list[Alarm] = []
    begin = 0
    while array.size - begin > WARM_UP:
        alarm = _first(array, begin, run_length, seed + begin)
        if alarm is None:
            break
        alarms.append(alarm)
        begin = alarm.since + 1 if alarm.since > begin else alarm.index + 1
    return alarms


def _first(array: Floats, begin: int, run_length: float, seed: int) -> Alarm | None:
    part = array[begin:]
    z = scores(part, seed)
    limit = _width(round(run_length, 3)) * math.sqrt(WEIGHT / (2.0 - WEIGHT))
    level, since = 0.0, 0
    for index in range(WARM_UP, part.size):
        before = level
        level += WEIGHT * (z[index] - level)
        if before == 0.0 or (level > 0) != (before > 0):
            since = index
        if abs(level) > limit:
            return Alarm(
                begin + index, begin + since, bool(level > 0), _apart(part, since, index), run_length
            )
    return None


def _apart(part: Floats, since: int, index: int) -> float:
    old, new = part[:since], part[since : index + 1]
    middle = np.median(old)
    spread = float(np.median(np.abs(old - middle))) / 0.6744897501960817 or float(old.std())
    return float((np.median(new) - middle) / spread) if spread > 0 else math.inf
