"""Measurements as flat rows for other programs."""

import csv
import math
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

from .records import Kind, Record, Verdict
from .store.base import Filter, Progress, Store, moment
from .store.parquet import write_lines, write_parquet

# Name and type of each column; the type is duckdb's.
COLUMNS = {
    "run": "VARCHAR", "station": "VARCHAR", "number": "BIGINT", "serial_number": "VARCHAR", "product": "VARCHAR",
    "operation": "VARCHAR", "purpose": "VARCHAR", "cell": "INTEGER", "operator": "VARCHAR", "batch": "VARCHAR",
    "begin": "TIMESTAMPTZ", "outcome": "VARCHAR", "seq": "INTEGER", "item": "VARCHAR", "kind": "VARCHAR",
    "value": "DOUBLE", "text": "VARCHAR", "lower": "DOUBLE", "upper": "DOUBLE", "unit": "VARCHAR",
    "verdict": "VARCHAR", "time": "TIMESTAMPTZ", "elapsed": "DOUBLE", "attempt": "INTEGER", "note": "VARCHAR",
}  # fmt: skip

FORMULA = ("=", "+", "-", "@", "\t", "\r")


def export(store: Store, wanted: Filter, path: Path, suffix: str, progress: Progress) -> int:
    """Write the measurements of these runs, the newest run first; returns their number."""
    return FORMATS[suffix](_rows(store, wanted, progress), path)


def _rows(store: Store, wanted: Filter, progress: Progress) -> Iterator[dict[str, Any]]:
    runs = store.runs(wanted, None)
    for done, run in enumerate(runs):
        progress(done, len(runs))
        yield from rows_of(store.record(run.id))
    progress(len(runs), len(runs))


def rows_of(record: Record) -> Iterator[dict[str, Any]]:
    """One row a measurement.  What is no finite number stands in `text`, and `kind` tells what it is."""
    run = record.run
    common = {
        "run": str(run.id), "station": str(run.station), "number": run.number, "serial_number": run.serial_number,
        "product": run.product, "operation": run.operation, "purpose": run.purpose, "cell": run.cell,
        "operator": run.operator, "batch": run.batch, "begin": moment(run.begin_us, run.utc_offset_s).isoformat(),
        "outcome": str(run.outcome),
    }  # fmt: skip
    for each in record.measurements:
        at = (
            None
            if each.time_us is None
            else moment(run.begin_us + each.time_us, run.utc_offset_s).isoformat()
        )
        value = each.value
        finite = isinstance(value, bool | int | float) and _fits(value)
        yield common | {
            "seq": each.seq, "item": each.item, "kind": Kind(each.kind).name.lower(),
            "value": float(value) if finite else None,  # type: ignore[arg-type]
            "text": None if finite or value is None else str(value), "lower": _limit(each.lower),
            "upper": _limit(each.upper), "unit": each.unit, "verdict": Verdict(each.verdict).name, "time": at,
            "elapsed": None if each.elapsed_us is None else each.elapsed_us / 1e6, "attempt": each.attempt,
            "note": each.note,
        }  # fmt: skip


def _fits(value: float) -> bool:
    try:
        return math.isfinite(float(value)) and (isinstance(value, float) or int(float(value)) == value)
    except OverflowError:
        return False


def _limit(value: Any) -> float | None:
    return float(value) if isinstance(value, bool | int | float) and _fits(value) else None


def _csv(rows: Iterator[dict[str, Any]], path: Path) -> int:
    """For spreadsheets, too: a text that one would take for a formula gets an apostrophe before it."""
    count = 0
    with path.open("w", encoding="utf-8-sig", newline="") as file:
        writer = csv.DictWriter(file, COLUMNS)
        writer.writeheader()
        for row in rows:
            writer.writerow({name: _no_formula(value) for name, value in row.items()})
            count += 1
    return count


def _no_formula(value: Any) -> Any:
    return f"'{value}" if isinstance(value, str) and value.startswith(FORMULA) else value


def _parquet(rows: Iterator[dict[str, Any]], path: Path) -> int:
    return write_parquet(rows, path, COLUMNS)


FORMATS: dict[str, Callable[[Iterator[dict[str, Any]], Path], int]] = {
    ".csv": _csv,
    ".jsonl": write_lines,
    ".parquet": _parquet,
}
