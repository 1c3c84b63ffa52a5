"""Which files there are, and what one of them says: every function here runs in a worker, on one file."""

from __future__ import annotations

import zlib
from collections import Counter
from collections.abc import Iterable, Iterator, Sequence
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import duckdb
import numpy as np

from ..analysis.distribution import Histogram, histogram
from ..analysis.figure import Floats
from ..analysis.moments import Summary
from ..store import archived_runs
from .result import Key

MEASUREMENTS = "measurements.parquet"
GROUPS = ("plant", "station", "product", "operation")
_OF_PATH = ("plant", "station")

# Rows of one item stand together in a file.  Two queries in the same order: what there is, and the values.
_WANTED = "WHERE (? = '*' OR purpose = ?) AND (? IS NULL OR item = ?)"
_COUNTS = """
SELECT item, product, operation, count(*), count(value), count(*) FILTER (WHERE verdict = 0),
       count(lower), min(lower), max(lower), count(upper), min(upper), max(upper), min(unit), max(unit),
       count(DISTINCT number) FILTER (WHERE verdict = 0)
FROM read_parquet(?, hive_partitioning = false) {wanted} GROUP BY ALL ORDER BY item, product, operation
"""
_VALUES = """
SELECT value FROM read_parquet(?, hive_partitioning = false) {wanted} AND value IS NOT NULL
ORDER BY item, product, operation, number, seq
"""
_RUNS = """
SELECT serial_number, product, operation, outcome, begin_us, first_ng, run
FROM read_parquet(?, hive_partitioning = false) WHERE ? = '*' OR purpose = ? ORDER BY begin_us, number
"""


class FleetError(ValueError):
    """No figures; the text names the file or folder."""


@dataclass(frozen=True)
class Asked:
    by: tuple[str, ...] = ()
    item: str | None = None
    purpose: str = "production"


@dataclass(frozen=True)
class Item:
    """Of one item in one group, mergeable.  Limits: how many values had one, and the extremes of it."""

    count: int
    ng: int
    ng_runs: int
    values: Summary
    lower: tuple[int, float | None, float | None]
    upper: tuple[int, float | None, float | None]
    units: frozenset[str]

    def __add__(self, other: Item) -> Item:
        return Item(
            self.count + other.count, self.ng + other.ng, self.ng_runs + other.ng_runs, self.values + other.values,
            _both(self.lower, other.lower), _both(self.upper, other.upper), self.units | other.units,
        )  # fmt: skip

    def limit(self, name: str) -> float | None:
        """The one that every number was judged by; None where there was none, or more than one."""
        count, low, high = self.lower if name == "lower" else self.upper
        return low if count and count == self.count and low == high else None


def _both(
    one: tuple[int, float | None, float | None], other: tuple[int, float | None, float | None]
) -> tuple[int, float | None, float | None]:
    lows = [each for each in (one[1], other[1]) if each is not None]
    highs = [each for each in (one[2], other[2]) if each is not None]
    return one[0] + other[0], min(lows, default=None), max(highs, default=None)


@dataclass(frozen=True)
class Attempts:
    """Runs of one file that belong to one share of all units, in the order of their beginning."""

    units: list[str]
    keys: list[Key]
    outcomes: list[str]
    begins: list[tuple[int, str]]  # with the run, for those that began together


def found(folders: Sequence[str]) -> list[str]:
    """Every month's file; FleetError for a folder without any, and for a month whose runs are missing."""
    paths: set[Path] = set()
    for folder in folders:
        here = sorted(Path(folder).absolute().rglob(MEASUREMENTS))
        if not here:
            raise FleetError(f"There is no {MEASUREMENTS} under {folder}; `qon-results archive` writes them.")
        paths.update(here)
        paths.update(
            path.with_name(MEASUREMENTS) for path in Path(folder).absolute().rglob(archived_runs.NAME)
        )
    for path in sorted(paths):
        if not path.is_file():
            raise FleetError(f"{path} is not there, its {archived_runs.NAME} is; bring it back to its place.")
        if not path.with_name(archived_runs.NAME).is_file():
            raise FleetError(
                f"{path} has no {archived_runs.NAME} beside it; `qon-results archive` on its station writes it."
            )
    return [str(path) for path in sorted(paths)]


@contextmanager
def _opened(path: str) -> Iterator[duckdb.DuckDBPyConnection]:
    """One thread: the scheduler decides how much runs at a time."""
    try:
        with duckdb.connect(config={"threads": 1}) as files:
            yield files
    except (duckdb.Error, OSError) as error:
        raise FleetError(f"{path} cannot be read: {error}") from None


def _key(asked: Asked, path: str, product: str, operation: str) -> Key:
    folders = dict(part.split("=", 1) for part in Path(path).parts if "=" in part)
    known = {name: folders.get(name, "") for name in _OF_PATH} | {"product": product, "operation": operation}
    return tuple(known[name] for name in asked.by)


def _groups(
    files: duckdb.DuckDBPyConnection, path: str, asked: Asked
) -> Iterator[tuple[tuple[Any, ...], Floats]]:
    values = [path, asked.purpose, asked.purpose, asked.item, asked.item]
    rows = files.execute(_COUNTS.format(wanted=_WANTED), values).fetchall()
    numbers = np.ma.getdata(files.execute(_VALUES.format(wanted=_WANTED), values).fetchnumpy()["value"])
    begin = 0
    for row in rows:
        yield row, numbers[begin : begin + row[4]]
        begin += row[4]


def items(path: str, asked: Asked) -> dict[tuple[Key, str], Item]:
    total: dict[tuple[Key, str], Item] = {}
    with _opened(path) as files:
        for row, values in _groups(files, path, asked):
            one = Item(
                row[3], row[5], row[14], Summary.of(values), row[6:9], row[9:12],
                frozenset(unit for unit in row[12:14] if unit),
            )  # fmt: skip
            name = _key(asked, path, row[1], row[2]), row[0]
            total[name] = total[name] + one if name in total else one
    return total


def histograms(path: str, asked: Asked, edges: dict[str, Floats]) -> dict[tuple[Key, str], Histogram]:
    total: dict[tuple[Key, str], Histogram] = {}
    with _opened(path) as files:
        for row, values in _groups(files, path, asked):
            if row[0] in edges:
                name = _key(asked, path, row[1], row[2]), row[0]
                one = histogram(values, edges[row[0]])
                total[name] = total[name] + one if name in total else one
    return total


def _runs(path: str, asked: Asked) -> list[tuple[Any, ...]]:
    beside = str(Path(path).with_name(archived_runs.NAME))
    with _opened(beside) as files:
        return files.execute(_RUNS, [beside, asked.purpose, asked.purpose]).fetchall()


def failed_first(path: str, asked: Asked) -> Counter[tuple[Key, str]]:
    """Runs that ended NG, by the item that failed first in them."""
    return Counter(
        (_key(asked, path, product, operation), item)
        for _, product, operation, outcome, _, item, _ in _runs(path, asked)
        if outcome == "NG" and item is not None
    )


def attempts(paths: Iterable[str], asked: Asked, shares: int) -> list[Attempts]:
    """The runs, parted so that all of one unit are in the same share, whatever file they come from."""
    parts = [Attempts([], [], [], []) for _ in range(shares)]
    for path in paths:
        for serial, product, operation, outcome, begin, _, run in _runs(path, asked):
            unit = f"{product}\x1f{operation}\x1f{serial}"
            part = parts[_share(unit, shares)]
            part.units.append(unit)
            part.keys.append(_key(asked, path, product, operation))
            part.outcomes.append(outcome)
            part.begins.append((begin, run))
    return parts


def _share(unit: str, shares: int) -> int:
    """The same in every process, which `hash` is not."""
    return zlib.crc32(unit.encode()) % shares
