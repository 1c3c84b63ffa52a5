"""Large stores from a seed, for benchmarks, tests and trials: `python -m qon_results.generator FOLDER`.

The records go through the writer's own code, hashes and chain included; only the disk is not waited for.
"""

import argparse
import sys
import time
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

from .recorder.tracked import new_id
from .store.file import FILE_NAME
from .writer.database import Database
from .writer.messages import Begin, End, Rows, SetupContents

_BEGIN_US = 1_767_225_600_000_000  # 2026-01-01, 00:00 UTC
_TRANSACTION = 200  # runs


@dataclass(frozen=True)
class Recipe:
    """`units` are tests, a share of them repeats of units that failed.

    Every tenth item is a switch and every 25th a text, the others are normal with limits at four sigma.  Item i of
    cell c is off by a sigma where (i + 7 c) % 97 is 0, and drifts by a sigma over the whole time where i % 31 is 5.
    """

    units: int = 100_000
    items: int = 100
    cells: int = 8
    seconds: float = 26.0  # from one begin to the next
    product: str = "PSU-48"
    operation: str = "final test"
    failing: float = 0.02  # of the units have one item outside
    aborted: float = 0.005
    repeated: float = 0.9  # of the failed ones
    seed: int = 1


class Generator:
    """A store as a recipe says; the same recipe makes the same values."""

    def __init__(self, recipe: Recipe) -> None:
        self.recipe = recipe
        self._chance = np.random.default_rng(recipe.seed)
        numbers = np.arange(recipe.items)
        self._names = [f"ITEM_{number:03d}" for number in numbers]
        self._means = 1.0 + numbers % 13
        self._sigmas = self._means * 0.005
        self._texts = numbers % 25 == 24
        self._bools = (numbers % 10 == 9) & ~self._texts
        limited = ~(self._texts | self._bools)
        self._lowers = [
            float(low) if has else None
            for low, has in zip(self._means - 4 * self._sigmas, limited, strict=True)
        ]
        self._uppers = [
            float(high) if has else None
            for high, has in zip(self._means + 4 * self._sigmas, limited, strict=True)
        ]
        self._limited = np.flatnonzero(limited)
        self._units: list[str | None] = ["V" if has else "" for has in limited]
        self._failed: list[str] = []
        self._made = 0

    def write(self, folder: Path) -> Path:
        """A new file in the folder; FileExistsError when there is one."""
        path = folder / FILE_NAME
        if path.exists():
            raise FileExistsError(f"{path} is there already; the generator makes new files only.")
        folder.mkdir(parents=True, exist_ok=True)
        database = Database(path, commit_ms=1_000_000_000, durable="off")
        try:
            database.open("generated")
            for number, messages in enumerate(self.runs()):
                if number % _TRANSACTION == 0:
                    database.commit()
                    database.rest()
                    database.begin(durable=True)
                begin, rows, end = messages
                database.runs.begin(begin)
                database.runs.rows(rows)
                database.runs.end(end)
            database.commit()
        finally:
            database.close()
        return path

    def runs(self) -> Iterator[tuple[Begin, Rows, End]]:
        for number in range(self.recipe.units):
            yield self._run(number)

    def _run(self, number: int) -> tuple[Begin, Rows, End]:
        recipe, chance = self.recipe, self._chance
        again = bool(self._failed) and chance.random() < 0.5
        serial = self._failed.pop(0) if again else self._new_serial()
        begin_us = _BEGIN_US + round(number * recipe.seconds * 1e6)
        cell = number % recipe.cells + 1
        count, outcome, reason = recipe.items, "OK", ""
        values, verdicts = self._values(number, cell)
        if chance.random() < recipe.failing:
            place = int(chance.choice(self._limited))
            values[place] = float(self._means[place] + 6 * self._sigmas[place])
            verdicts[place] = False
        if chance.random() < recipe.aborted:
            count, outcome, reason = (
                int(chance.integers(1, recipe.items)),
                "ABORTED",
                "aborted by the operator",
            )
        if not all(verdicts[:count]):
            first = verdicts.index(False)
            outcome, reason, count = "NG", self._names[first], first + 1
            if chance.random() < recipe.repeated:
                self._failed.append(serial)
        times = (begin_us / 1e6 + np.cumsum(chance.uniform(0.05, 0.2, count))).tolist()
        return self._messages(serial, cell, begin_us, count, values, verdicts, times, outcome, reason)

    def _values(self, number: int, cell: int) -> tuple[list[Any], list[bool | None]]:
        recipe = self.recipe
        numbers = np.arange(recipe.items)
        shift = ((numbers + 7 * cell) % 97 == 0) + (numbers % 31 == 5) * (number / recipe.units)
        found = self._means + self._sigmas * (self._chance.normal(size=recipe.items) + shift)
        low, high = self._means - 4 * self._sigmas, self._means + 4 * self._sigmas
        verdicts = ((found >= low) & (found <= high)) | self._bools | self._texts
        values: list[Any] = found.tolist()
        for place in np.flatnonzero(self._bools).tolist():
            values[place] = True
        for place in np.flatnonzero(self._texts).tolist():
            values[place] = f"v1.{number // 10_000}"
        return values, verdicts.tolist()

    def _messages(
        self, serial: str, cell: int, begin_us: int, count: int, values: list[Any], verdicts: list[bool | None],
        times: list[float], outcome: str, reason: str,
    ) -> tuple[Begin, Rows, End]:  # fmt: skip
        recipe = self.recipe
        setup = SetupContents("generator", "generated.py", None, "", None, "", None, None, {"python": "3"})
        run = new_id(begin_us, int.from_bytes(self._chance.bytes(10)))
        names = recipe.product, recipe.operation, "production", "", f"batch {begin_us // 604_800_000_000}"
        begin = Begin(run, cell, serial, serial, *names, 0, begin_us, setup)
        rows = Rows(
            run, 0, False, self._names[:count], values[:count], self._lowers[:count], self._uppers[:count],
            self._units[:count], verdicts[:count], times, [None] * count, [True] * count, {}, {}, {},
        )  # fmt: skip
        end_us = round(times[-1] * 1e6)
        end = End(run, serial, count, end_us, end_us - begin_us, outcome, reason, "", end_us)
        return begin, rows, end

    def _new_serial(self) -> str:
        self._made += 1
        return f"SN{self._made:08d}"


def main() -> int:
    parser = argparse.ArgumentParser(prog="python -m qon_results.generator", description="make a large store")
    parser.add_argument("folder", type=Path)
    parser.add_argument("--units", type=int, default=Recipe.units)
    parser.add_argument("--items", type=int, default=Recipe.items)
    parser.add_argument("--seed", type=int, default=Recipe.seed)
    arguments = parser.parse_args()
    began = time.monotonic()
    try:
        recipe = Recipe(units=arguments.units, items=arguments.items, seed=arguments.seed)
        path = Generator(recipe).write(arguments.folder)
    except FileExistsError as error:
        print(error, file=sys.stderr)
        return 1
    seconds = time.monotonic() - began
    print(f"{path}: {arguments.units} units, {path.stat().st_size >> 20} MiB, {seconds:.0f} s")
    return 0


if __name__ == "__main__":
    sys.exit(main())
