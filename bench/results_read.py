"""Questions to ten million measurements: 100,000 units of 100 items, made once in build/bench-results.

    python bench/results_read.py ours [UNITS]
"""

import random
import sys
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

import qon_results
from qon_results import Filter
from qon_results.generator import Generator, Recipe
from sides import report

UNITS = 100_000
LOOKS = 200


def made(units: int) -> Path:
    folder = Path(__file__).parent.parent / "build" / f"bench-results-{units}"
    whole = folder / "whole"
    if not whole.exists():
        (folder / "results.db").unlink(missing_ok=True)
        Generator(Recipe(units=units)).write(folder)
        whole.touch()
    return folder


def milliseconds(ask: Callable[[], Any], times: int) -> list[float]:
    took = []
    for _ in range(times):
        began = time.perf_counter()
        ask()
        took.append((time.perf_counter() - began) * 1e3)
    return sorted(took)


def main() -> None:
    units = int(sys.argv[2]) if len(sys.argv) > 2 else UNITS
    folder, chance = made(units), random.Random(1)
    with qon_results.open(folder) as store:
        file = folder / "results.db"
        _, _, measurements = next(iter(store._ask("SELECT 0, 0, sum(measured) FROM run")))

        def unit() -> None:
            """The last 20 runs of a serial number, the newest with all that it measured."""
            found = store.runs(Filter(serial_number=f"SN{chance.randrange(1, units // 2):08d}"), limit=20)
            if found:
                store.record(found[0].id)

        by_serial = milliseconds(unit, LOOKS)
        item = milliseconds(lambda: store.item("ITEM_003"), 7)
        month = Filter(purpose="production")
        yields = milliseconds(lambda: (store.yields(month), store.pareto(month)), 5)
    report(
        {
            "serial": by_serial[int(LOOKS * 0.99)],
            "item": item[len(item) // 2],
            "yield": yields[len(yields) // 2],
            "bytes": file.stat().st_size / measurements,
        }
    )


if __name__ == "__main__":
    main()
