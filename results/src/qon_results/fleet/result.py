"""What is told of a fleet, and written as JSON for the page."""

from __future__ import annotations

from dataclasses import dataclass

from ..analysis.figure import Estimate
from ..analysis.yields import YieldCounts

Key = tuple[str, ...]  # of a group: one text for each of the names in `Asked.by`


@dataclass(frozen=True)
class ItemFigures:
    group: Key
    item: str
    unit: str
    count: int
    n: int
    mean: float | None
    sigma: float | None
    low: float | None
    high: float | None
    ng: int
    ng_share: float
    lower: float | None
    upper: float | None
    cpk: Estimate
    edges: list[float]
    counts: list[int]


@dataclass(frozen=True)
class YieldFigures:
    group: Key
    counts: YieldCounts
    first_pass: Estimate
    final: Estimate
    retests: Estimate


@dataclass(frozen=True)
class ParetoFigures:
    """first: runs that failed in this item first; runs: in which it was NG at all."""

    group: Key
    item: str
    first: int
    cumulative: float
    runs: int


@dataclass(frozen=True)
class Fleet:
    by: tuple[str, ...]
    purpose: str
    files: int
    measurements: int
    runs: int
    definitions: dict[str, str]
    items: list[ItemFigures]
    yields: list[YieldFigures]
    pareto: list[ParetoFigures]
