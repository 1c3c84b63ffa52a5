"""The figures: tasks for Dask, one or a few files each, merged as a tree; units come together by serial number."""

from __future__ import annotations

import math
from collections import Counter
from collections.abc import Iterable, Iterator, Sequence
from contextlib import contextmanager
from functools import partial
from typing import Any

import dask
import numpy as np
from dask import bag
from dask.delayed import delayed
from dask.system import CPU_COUNT

from ..analysis.capability import indices
from ..analysis.distribution import MOST_BINS, Histogram, edges_for
from ..analysis.figure import Estimate, Floats
from ..analysis.yields import FINAL, FIRST_PASS, JUDGED, RETEST, YieldCounts, count, pareto
from . import files
from .files import Asked, Attempts, Item
from .result import Fleet, ItemFigures, Key, ParetoFigures, YieldFigures

UNIT = (
    "A unit is a serial number of a product at an operation, over all stations and months that were given. It is counted in "
    "the group of its first judged attempt."
)
_TASKS = 4000  # at most: more would keep the scheduler busy, not the workers
_SPLIT = 8  # results that are merged at a time


@contextmanager
def computing(scheduler: str = "", workers: int | None = None) -> Iterator[None]:
    """With the scheduler of an address, or with a cluster on this machine for as long as it takes."""
    from distributed import Client, LocalCluster

    if scheduler:
        try:
            client = Client(scheduler, timeout=10)
        except (OSError, ValueError) as error:
            raise files.FleetError(f"The scheduler {scheduler} does not answer: {error}") from None
        with client:
            yield
        return
    with (
        LocalCluster(
            n_workers=workers or CPU_COUNT, threads_per_worker=1, host="127.0.0.1", dashboard_address=None
        ) as cluster,
        Client(cluster),
    ):
        yield


def figures(folders: Sequence[str], asked: Asked, files_each: int = 0, shares: int = 0) -> Fleet:
    """files_each: of a task; shares: into how many units are parted.  0 stands for what suits the number of files."""
    paths = files.found(folders)
    size = files_each or math.ceil(len(paths) / _TASKS)
    parts = bag.from_sequence(paths, partition_size=size)
    per_item = parts.reduction(partial(_of_files, files.items, asked), merged, split_every=_SPLIT)
    first = parts.reduction(partial(_of_files, files.failed_first, asked), merged, split_every=_SPLIT)
    yields = _yields(paths, asked, size, shares or min(64, 1 + len(paths) // 8))
    items, failed, counted = dask.compute(per_item, first, yields)
    edges = _edges(items)
    shapes = parts.reduction(
        partial(_of_files, files.histograms, asked, edges=edges), merged, split_every=_SPLIT
    ).compute()
    return Fleet(
        asked.by,
        asked.purpose,
        len(paths),
        sum(each.count for each in items.values()),
        sum(each.attempts + each.aborted + each.exceptions + each.interrupted for each in counted.values()),
        {"unit": UNIT, "first_pass": FIRST_PASS, "final": FINAL, "retests": RETEST},
        [_item(group, name, items[group, name], shapes.get((group, name))) for group, name in sorted(items)],
        [
            YieldFigures(group, each, each.first_pass, each.final, each.retests)
            for group, each in sorted(counted.items())
        ],
        list(_pareto(failed, items)),
    )


def merged(parts: Iterable[dict[Any, Any]]) -> dict[Any, Any]:
    total: dict[Any, Any] = {}
    for part in parts:
        for name, one in part.items():
            total[name] = total[name] + one if name in total else one
    return total


def _of_files(read: Any, asked: Asked, paths: Iterable[str], **more: Any) -> dict[Any, Any]:
    return merged(read(path, asked, **more) for path in paths)


def _yields(paths: list[str], asked: Asked, size: int, shares: int) -> Any:
    """Every file's attempts are parted by unit; a share's units are counted when all of its attempts are there."""
    bundles = [paths[begin : begin + size] for begin in range(0, len(paths), size)]
    parted = [delayed(files.attempts, nout=shares)(bundle, asked, shares) for bundle in bundles]
    counts = [delayed(counted_units)([each[share] for each in parted]) for share in range(shares)]
    return delayed(merged)(counts)


def counted_units(parts: list[Attempts]) -> dict[Key, YieldCounts]:
    units = [each for part in parts for each in part.units]
    keys = [each for part in parts for each in part.keys]
    outcomes = [each for part in parts for each in part.outcomes]
    begins = [each for part in parts for each in part.begins]
    order = sorted(range(len(units)), key=lambda place: begins[place])
    home: dict[str, Key] = {}
    groups: dict[Key, tuple[list[str], list[str]]] = {}
    for place in order:
        key = keys[place]
        if outcomes[place] in JUDGED:
            key = home.setdefault(units[place], key)
        group = groups.setdefault(key, ([], []))
        group[0].append(units[place])
        group[1].append(outcomes[place])
    return {key: count(np.array(names), ended) for key, (names, ended) in groups.items()}


def _edges(items: dict[tuple[Key, str], Item]) -> dict[str, Floats]:
    """Of each item the same in all groups; by what merging leaves exact (number, extremes, limits) alone."""
    whole: dict[str, Item] = merged({name: one} for (_, name), one in items.items())
    edges: dict[str, Floats] = {}
    for name, one in whole.items():
        if one.values.n:
            reach = edges_for([one.values.low, one.values.high], one.limit("lower"), one.limit("upper"))
            bins = min(MOST_BINS, max(8, math.ceil(2 * one.values.n ** (1 / 3))))
            edges[name] = np.linspace(reach[0], reach[-1], bins + 1)
    return edges


def _item(group: Key, name: str, one: Item, shape: Histogram | None) -> ItemFigures:
    values = one.values
    lower, upper = one.limit("lower"), one.limit("upper")
    several = any(each[0] and limit is None for each, limit in ((one.lower, lower), (one.upper, upper)))
    cpk = (
        Estimate(None, reason="several limits")
        if several
        else indices(values.mean, values.sigma, values.n, lower, upper).nearest
    )
    return ItemFigures(
        group, name, min(one.units) if len(one.units) == 1 else "", one.count, values.n, _finite(values.mean),
        _finite(values.sigma), _finite(values.low), _finite(values.high), one.ng, one.ng / one.count, lower, upper,
        cpk, [] if shape is None else shape.edges.tolist(), [] if shape is None else shape.counts.tolist(),
    )  # fmt: skip


def _finite(value: float) -> float | None:
    return value if math.isfinite(value) else None


def _pareto(failed: Counter[tuple[Key, str]], items: dict[tuple[Key, str], Item]) -> Iterator[ParetoFigures]:
    for group in sorted({group for group, _ in failed}):
        for bar in pareto(Counter({name: n for (key, name), n in failed.items() if key == group})):
            one = items.get((group, bar.name))
            yield ParetoFigures(group, bar.name, bar.count, bar.cumulative, one.ng_runs if one else 0)
