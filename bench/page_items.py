"""The items table over everything: 200 items of 50,000 units, made once in build/bench-items.

    python bench/page_items.py ours [UNITS]
"""

import sys
import tempfile
import time
from pathlib import Path

import qon_results
from qon_results import Filter
from qon_results.generator import Generator, Recipe
from qon_results.page.itemfigures import differences, item_rows
from qon_results.page.rollups.file import Rollups
from qon_results.page.rollups.making import update
from sides import report

UNITS, ITEMS = 50_000, 200


def made(units: int) -> Path:
    folder = Path(__file__).parent.parent / "build" / f"bench-items-{units}"
    whole = folder / "whole"
    if not whole.exists():
        (folder / "results.db").unlink(missing_ok=True)
        Generator(Recipe(units=units, items=ITEMS)).write(folder)
        whole.touch()
    return folder


def main() -> None:
    folder = made(int(sys.argv[2]) if len(sys.argv) > 2 else UNITS)
    with tempfile.TemporaryDirectory() as place, qon_results.open(folder) as store:
        file = Rollups(Path(place) / "figures.db", write=True)
        file.begin(str(folder))
        began = time.perf_counter()
        while update(store, file):
            pass
        rows = item_rows(file, Filter())
        cold = time.perf_counter() - began
        assert len(rows) == ITEMS
        warm, cells = [], []
        for _ in range(5):
            began = time.perf_counter()
            item_rows(file, Filter())
            warm.append((time.perf_counter() - began) * 1e3)
            began = time.perf_counter()
            differences(file, Filter())
            cells.append((time.perf_counter() - began) * 1e3)
        file.close()
    report({"cold": cold, "table": sorted(warm)[2], "cells": sorted(cells)[2]})


if __name__ == "__main__":
    main()
