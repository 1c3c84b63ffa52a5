"""From parts to the rows of the items table and to the differences of cells; no request in here."""

from __future__ import annotations

import math
import uuid
from dataclasses import dataclass, field, replace
from typing import Any

import numpy as np

from ..analysis import cells
from ..analysis.capability import Capability, of_summary
from ..analysis.figure import Estimate
from ..analysis.moments import Summary
from ..analysis.parts import Parts, drift, pooled, step_sigma, streams, summary
from ..store.base import Filter
from .rollups.file import Rollups, Stream, local_day

ALL_DAYS = (-(10**6), 10**6)
CellKey = tuple[uuid.UUID, int]
PlanKey = tuple[str, str]  # product and operation


@dataclass(frozen=True)
class ItemRow:
    """One item of one product and operation; `limits` are those of the newest value."""

    item: int
    name: str
    unit: str
    product: str
    operation: str
    values: Summary
    lower: float | None
    upper: float | None
    changed: bool  # limits
    judged: int
    ng: int
    near: int
    switches: int
    others: int
    capability: Capability
    drift: Estimate
    days: float
    worst: cells.Difference | None
    cells: dict[CellKey, Summary] = field(repr=False)
    streams: frozenset[int] = frozenset()

    @property
    def limited(self) -> bool:
        return self.lower is not None or self.upper is not None


def day_range(wanted: Filter) -> tuple[int, int]:
    """Whole local days: the one in which it begins, up to the one in which it ends."""
    first = ALL_DAYS[0] if wanted.since is None else local_day(wanted.since_us)
    last = ALL_DAYS[1] if wanted.until is None else local_day(wanted.until_us - 1) + 1
    return first, last


def item_rows(file: Rollups, wanted: Filter, item: int | None = None) -> list[ItemRow]:
    """By name, product and operation."""
    chosen = file.streams(wanted)
    whole = streams(file.parts(chosen, *day_range(wanted), item))
    plans: dict[PlanKey, int] = {}
    for each in chosen.values():
        plans.setdefault((each.product, each.operation), len(plans))
    plan_of = {id: plans[each.product, each.operation] for id, each in chosen.items()}
    cell_keys = sorted({each.cell_key for each in chosen.values()})
    cell_of = {id: cell_keys.index(each.cell_key) for id, each in chosen.items()}
    plan = np.array([plan_of[id] for id in whole["stream"].tolist()], np.int64)
    cell = np.array([cell_of[id] for id in whole["stream"].tolist()], np.int64)
    items, names = file.items(), list(plans)
    by_cell: dict[tuple[int, int], dict[CellKey, Summary]] = {}
    used: dict[tuple[int, int], set[int]] = {}
    for part, key in zip(whole, zip(whole["item"].tolist(), plan.tolist(), strict=True), strict=True):
        used.setdefault(key, set()).add(int(part["stream"]))
    many = len(cell_keys)
    for part in pooled(whole, plan * many + cell):
        place, which = divmod(int(part["stream"]), max(many, 1))
        by_cell.setdefault((int(part["item"]), place), {})[cell_keys[which]] = summary(part)
    spans = _spans(file, chosen, wanted)
    rows = []
    for part in pooled(whole, plan):
        key = int(part["item"]), int(part["stream"])
        name, unit = items[key[0]]
        rows.append(_row(part, key[0], name, unit, names[key[1]], by_cell[key], used[key], spans))
    return sorted(rows, key=lambda row: (row.name, row.product, row.operation))


def _spans(file: Rollups, chosen: dict[int, Stream], wanted: Filter) -> float:
    """Days from the first to the last part."""
    first, last = day_range(wanted)
    query = "SELECT min(day), max(day) FROM part WHERE item = (SELECT min(item) FROM part) AND day >= ? AND day < ?"
    low, high = next(file.rows(query, (first, last)))
    return 0.0 if low is None else float(high - low + 1)


def _row(
    part: Any,
    item: int,
    name: str,
    unit: str,
    plan: PlanKey,
    own: dict[CellKey, Summary],
    used: set[int],
    days: float,
) -> ItemRow:
    whole = summary(part)
    lower, upper = (None if math.isnan(part[side]) else float(part[side]) for side in ("lower", "upper"))
    if not part["n"] and part["switches"] + part["others"]:
        lower = upper = None
    found = of_summary(whole, step_sigma(part), int(part["steps"]), int(part["streams"]), lower, upper)
    return ItemRow(
        item, name, unit, *plan, whole, lower, upper, bool(part["limits"]), int(part["judged"]), int(part["ng"]),
        int(part["near"]), int(part["switches"]), int(part["others"]), found, drift(part, days), days,
        _worst(cells.of_summaries(name, own)), own, frozenset(used),
    )  # fmt: skip


def _worst(found: list[cells.Difference]) -> cells.Difference | None:
    there = [each for each in found if each.apart.value is not None]
    return max(there, key=lambda each: abs(each.apart.value or 0.0), default=None)


@dataclass(frozen=True)
class CellRow:
    row: ItemRow
    difference: cells.Difference  # with q; `lost` counts units
    sigmas: float  # how far apart, in sigmas of the item within its cells
    tolerance: float | None  # share of the distance of the limits


def differences(file: Rollups, wanted: Filter) -> tuple[list[CellRow], int]:
    """What was found different, the largest first, and how many questions were asked."""
    rows = item_rows(file, wanted)
    pairs = [(row, each) for row in rows for each in cells.of_summaries(row.name, row.cells)]
    q = cells.adjusted(each.p for _, each in pairs)
    found = []
    for (row, each), corrected in zip(pairs, q, strict=True):
        if not corrected <= cells.DISCOVERY_RATE or each.apart.value is None:
            continue
        lost = lost_units(file, wanted, row, each)
        within = math.sqrt(sum(own.m2 for own in row.cells.values()) / max(row.values.n - len(row.cells), 1))
        span = row.upper - row.lower if row.upper is not None and row.lower is not None else 0.0
        found.append(
            CellRow(
                row, replace(each, q=corrected, lost=lost),
                abs(each.apart.value) / within if within > 0 else math.inf,
                abs(each.apart.value) / span if span > 0 else None,
            )
        )  # fmt: skip
    asked = sum(1 for _, each in pairs if not math.isnan(each.p))
    return sorted(found, key=lambda each: -(each.tolerance or each.sigmas / 100)), asked


def lost_units(file: Rollups, wanted: Filter, row: ItemRow, each: cells.Difference) -> int:
    """Units with a value outside its limits that would have been inside without the cell's difference."""
    streams = file.streams(wanted)
    units = set()
    for stream, unit, value, lower, upper in file.outside(row.item, *day_range(wanted)):
        own = stream in row.streams and streams[stream].cell_key == each.cell
        if own and cells.lost(np.array([value]), each.apart.value, lower, upper):
            units.add(unit)
    return len(units)


__all__ = ["CellRow", "ItemRow", "Parts", "day_range", "differences", "item_rows", "lost_units"]
