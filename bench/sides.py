"""The two programs that are compared, and what both need to run: workbooks, a script, a cell."""

import importlib
import json
import sys
from collections.abc import Mapping
from pathlib import Path
from types import ModuleType, SimpleNamespace
from typing import Any

import openpyxl

MODULES = {"ours": "qon_ats", "plain": "plain"}
HEADER = ("Test Item Name", "Default Value", "Lower Limit", "Upper Limit", "Unit", "Variable Name", "Type")

SCRIPT = """\
import time
from {module} import CellRunnerBase


class CellRunner(CellRunnerBase):
    def run(self):
        self.noumenon.body(self)

    def cleanup(self):
        pass
"""


def side_of_this_process() -> tuple[str, ModuleType]:
    """The name of the side given on the command line, and its module."""
    side = sys.argv[1]
    return side, importlib.import_module(MODULES[side])


def report(figures: Mapping[str, float]) -> None:
    """Hand the figures of this process to the one that started it."""
    print("\n" + json.dumps(figures), flush=True)


def write_book(path: Path, sheets: Mapping[str, list[tuple[Any, ...]]]) -> str:
    book = openpyxl.Workbook()
    book.remove(book.active)
    for name, rows in sheets.items():
        sheet = book.create_sheet(name)
        sheet.append(HEADER)
        for row in rows:
            sheet.append(row)
    book.save(path)
    return str(path)


def setting(key: str, value: Any) -> tuple[Any, ...]:
    return (key, value, None, None, None, key, type(value).__name__)


def limit(name: str, lower: float, upper: float) -> tuple[Any, ...]:
    return (name, 0.0, lower, upper, "V", name, "float")


def write_script(folder: Path, side: str) -> str:
    path = folder / f"bench_script_{side}.py"
    path.write_text(SCRIPT.format(module=MODULES[side]), encoding="utf-8")
    return str(path)


def make_cell(side: str, module: ModuleType, folder: Path, limits: int = 0, **more: Any) -> Any:
    """An engine cell whose script calls `cell.body(runner)`; with a limits workbook of so many items."""
    settings = [setting("script", write_script(folder, side))]
    settings += [setting(key, value) for key, value in more.items()]
    if limits:
        rows = [limit(f"item{n}", 4.0, 6.0) for n in range(limits)]
        settings.append(
            setting("assertion_config_file", write_book(folder / "limits.xlsx", {"limits": rows}))
        )
    config = write_book(folder / "config.xlsx", {"main": [], "cell1": settings})

    class BenchCell(module.CellBase):  # type: ignore[name-defined]
        main_frame = SimpleNamespace()

    return BenchCell(1, config)


def run(cell: Any) -> None:
    """One run to its end; what went wrong in it ends the benchmark."""
    cell.do_start("SN")
    cell._test_thread.join()
    if cell._exception_object is not None:
        raise cell._exception_object
