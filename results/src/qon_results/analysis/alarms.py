"""Has something changed?  One detector for items, yields and cycle times, with a budget of false alarms.

Each value is ranked among those before it.  As long as nothing changes these sequential ranks are independent and even,
whatever the distribution is; turned into normal scores they go into an exponentially weighted moving average whose limits
follow from how often it may raise a false alarm.  So the rate of false alarms needs no assumption about the values, and the
budget of a line is shared by its streams: more items mean wider limits, not more alarms.
"""

from __future__ import annotations

import bisect
import math
from dataclasses import dataclass, field
from functools import lru_cache

import numpy as np
from numpy.typing import ArrayLike
from scipy import special

from .charts import ewma_run_length, ewma_width
from .figure import Floats, numbers

WEIGHT = 0.05
WARM_UP = 50  # values that only learn
WINDOW = 2000  # values that a new one is ranked among
SHORTEST = 20.0  # values between false alarms, below which no limits make sense
BLOCK = 25  # values whose mean is one value of the detector that looks for slow drifts
RAREST = 1e9


@dataclass(frozen=True, slots=True)
class Alarm:
    """index: where it was raised; since: where the change began, as far as the average tells; up: larger values.

    before, after: median of the values ranked among and of those since then; apart: their distance in robust sigmas
    of those before.  false_every: so far out the average comes by chance once in so many values.
    """

    index: int
    since: int
    up: bool
    before: float
    after: float
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


def limit_for(run_length: float) -> float:
    """How far from 0 the average of the scores may go."""
    # Two digits are what a run length is known to; few different ones keep the look-up short.
    rounded = float(f"{min(max(run_length, SHORTEST), RAREST):.2g}")
    return _width(rounded) * math.sqrt(WEIGHT / (2.0 - WEIGHT))


@lru_cache(maxsize=1024)
def _rarity(level: float) -> float:
    return min(RAREST, ewma_run_length(WEIGHT, level / math.sqrt(WEIGHT / (2.0 - WEIGHT))))


def chances(first: int, count: int, seed: int) -> Floats:
    """Even numbers from 0 to 1 that follow from their places alone, so that a stream can be taken up anywhere."""
    with np.errstate(over="ignore"):
        x = np.arange(first, first + count, dtype=np.uint64) + np.uint64(seed & 0xFFFFFFFF) * np.uint64(
            1 << 32
        )
        x = (x + np.uint64(1)) * np.uint64(0x9E3779B97F4A7C15)
        x = (x ^ (x >> np.uint64(30))) * np.uint64(0xBF58476D1CE4E5B9)
        x = (x ^ (x >> np.uint64(27))) * np.uint64(0x94D049BB133111EB)
        x ^= x >> np.uint64(31)
    found: Floats = (x >> np.uint64(11)).astype(np.float64) * 2.0**-53
    return found


@dataclass(slots=True)
class Detector:
    """One stream, value after value; its state is plain numbers, so that it can be laid down and taken up again.

    Equal values are ordered by chance, the same for the same `seed`.  After an alarm it learns anew from values that come
    after it: those that raised it were picked for being far out, and would make what follows look shifted back.
    """

    seed: int = 0
    window: int = WINDOW
    count: int = 0  # values seen so far
    began: int = 0  # the first value of this round of learning
    level: float = 0.0
    since: int = 0
    recent: list[float] = field(default_factory=list)  # of this round, the newest `window`

    def feed(self, values: ArrayLike, run_length: float) -> list[Alarm]:
        """The alarms among these values, which follow those fed before."""
        array, alarms, limit = numbers(values), [], limit_for(run_length)
        firsts = self.count - len(self.recent)
        luck = chances(firsts, len(self.recent) + array.size, self.seed).tolist()
        keys = list(zip(self.recent + array.tolist(), luck, strict=True))
        ranked = sorted(keys[: len(self.recent)])
        start = 0  # place in `keys` of the oldest value that is ranked
        level, since = self.level, self.since
        for place in range(len(self.recent), len(keys)):
            key, index = keys[place], firsts + place
            below = bisect.bisect_left(ranked, key)
            if index - self.began >= WARM_UP:
                score = float(_score(2 * below + 1, 2 * (len(ranked) + 1)))
                moved = level + WEIGHT * (score - level)
                if level == 0.0 or (moved > 0) != (level > 0):
                    since = index
                level = moved
            ranked.insert(below, key)
            if len(ranked) > self.window:
                del ranked[bisect.bisect_left(ranked, keys[start])]
                start += 1
            if abs(level) > limit:
                found = _alarm([key[0] for key in keys[start : place + 1]], index, since, level)
                if (found.after - found.before) * level > 0:  # else luck among equal values alone
                    alarms.append(found)
                ranked, start, level, since, self.began = [], place + 1, 0.0, index + 1, index + 1
        self.count, self.level, self.since = firsts + len(keys), level, since
        self.recent = [key[0] for key in keys[start:]]
        return alarms


@lru_cache(maxsize=1 << 16)
def _score(part: int, of: int) -> float:
    return float(special.ndtri(part / of))


def _alarm(values: list[float], index: int, since: int, level: float) -> Alarm:
    changed = min(index - since + 1, len(values) - 1)
    old, new = np.array(values[:-changed]), np.array(values[-changed:])
    before, after = float(np.median(old)), float(np.median(new))
    if before == after:  # yes or no: the medians of both may well be the same
        before, after = float(old.mean()), float(new.mean())
    spread = float(np.median(np.abs(old - np.median(old)))) / 0.6744897501960817 or float(old.std())
    apart = (after - before) / spread if spread > 0 else math.copysign(math.inf, level)
    return Alarm(index, since, level > 0, before, after, apart, _rarity(math.floor(abs(level) * 50) / 50))


def find(values: ArrayLike, run_length: float, seed: int = 0, window: int = WINDOW) -> list[Alarm]:
    """The alarms of one stream of values in their order."""
    return Detector(seed, window).feed(values, run_length)


@dataclass(slots=True)
class DriftDetector:
    """For changes too slow to be seen against the last values: the same over means of blocks.

    Its alarms count in values, not in blocks.
    """

    blocks: Detector = field(default_factory=Detector)
    rest: list[float] = field(default_factory=list)  # of the block that is not whole yet

    def feed(self, values: ArrayLike, run_length: float) -> list[Alarm]:
        array = np.concatenate((np.array(self.rest, dtype=np.float64), numbers(values)))
        whole = array.size // BLOCK * BLOCK
        self.rest = array[whole:].tolist()
        if not whole:
            return []
        means = array[:whole].reshape(-1, BLOCK).mean(axis=1)
        return [
            Alarm(
                each.index * BLOCK + BLOCK - 1, each.since * BLOCK, each.up, each.before, each.after,
                each.apart / math.sqrt(BLOCK), each.false_every * BLOCK,
            )
            for each in self.blocks.feed(means, run_length / BLOCK)
        ]  # fmt: skip
