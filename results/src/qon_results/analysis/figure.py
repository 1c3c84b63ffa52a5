"""A figure with its interval, or the reason why there is none."""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
from numpy.typing import ArrayLike, NDArray

Floats = NDArray[np.float64]

CONFIDENCE = 0.95


@dataclass(frozen=True, slots=True)
class Estimate:
    """A figure; `low` and `high` bound it with the confidence that the function names."""

    value: float | None
    low: float | None = None
    high: float | None = None
    reason: str = ""

    def __bool__(self) -> bool:
        return self.value is not None


def nothing(reason: str) -> Estimate:
    """No figure, and why."""
    return Estimate(None, reason=reason)


def estimate(value: float, low: float | None = None, high: float | None = None) -> Estimate:
    """A figure; what came out as no finite number is none."""
    if not math.isfinite(value):
        return nothing("the figure is beyond what a number can hold")
    return Estimate(float(value), _finite(low), _finite(high))


def _finite(value: float | None) -> float | None:
    return None if value is None or not math.isfinite(value) else float(value)


def numbers(values: ArrayLike) -> Floats:
    """The finite ones, in their order."""
    array = np.asarray(values, dtype=np.float64).ravel()
    finite: Floats = array[np.isfinite(array)]
    return finite
