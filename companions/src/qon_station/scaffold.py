"""Writes the folder of a new station that runs at once."""

import keyword
import re
from pathlib import Path
from string import Template
from typing import Any

from qon_testparameters import Parameter, write_workbook

_TEMPLATES = Path(__file__).parent / "templates"
_FILES = {
    "station.py.tmpl": "station.py",
    "script.py.tmpl": "scripts/{script}.py",
    "test_script.py.tmpl": "tests/test_{script}.py",
    "readme.md.tmpl": "README.md",
}


def new_station(folder: str | Path) -> list[Path]:
    """Write application, script, workbooks, parameters and a test of the script; returns the files written.

    FileExistsError when the folder has something in it; ValueError when its name makes no module name.
    """
    root = Path(folder)
    if root.exists() and (not root.is_dir() or any(root.iterdir())):
        raise FileExistsError(f"{root} exists and is not an empty folder; give the new station another name.")
    script = _module_name(root.resolve().name)
    words = {"title": root.resolve().name, "script": script}
    written = [_write(root / name.format(**words), template, words) for template, name in _FILES.items()]
    books: dict[str, dict[str, list[Parameter]]] = {
        "ats_config.xlsx": {"main": _main_sheet(), "cell1": _cell_sheet(script)},
        "limits.xlsx": {"limits": _limits()},
        "app_config/station.xlsx": {"timing": _timing()},
    }
    for name, sheets in books.items():
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        write_workbook(path, sheets)
        written.append(path)
    return written


def _module_name(title: str) -> str:
    name = re.sub(r"\W+", "_", title).strip("_").lower()
    if not name.isidentifier() or keyword.iskeyword(name):
        raise ValueError(f'"{title}" makes no name for a script; begin it with a letter.')
    return f"{name}_script"


def _write(path: Path, template: str, words: dict[str, str]) -> Path:
    path.parent.mkdir(parents=True, exist_ok=True)
    text = Template((_TEMPLATES / template).read_text(encoding="utf-8")).substitute(words)
    path.write_text(text, encoding="utf-8")
    return path


def _row(name: str, text: str, value: Any, low: Any = None, up: Any = None, unit: str = "") -> Parameter:
    return Parameter(name, text, value, low, up, unit, type(value).__name__)


def _main_sheet() -> list[Parameter]:
    return [
        _row("cell_count", "Number of cells", 2, 1, 20),
        _row("column_count", "Columns of cells in the window", 2, 1, 20),
        _row("show_toolbar", "Show the tool bar", True),
    ]


def _cell_sheet(script: str) -> list[Parameter]:
    return [
        _row("script", "Test script", f"scripts/{script}.py"),
        _row("assertion_config_file", "Limits workbook", "limits.xlsx"),
        _row("stop_if_ng", "End the test at the first NG item", True),
        _row("show_debug_shell", "Page with a Python prompt", False),
        _row("allow_empty_serial_number", "Start without a serial number", False),
    ]


def _limits() -> list[Parameter]:
    return [_row("SUPPLY_VOLTAGE", "SUPPLY_VOLTAGE", 5.0, 4.75, 5.25, "V")]


def _timing() -> list[Parameter]:
    return [_row("settling_time", "Wait after switching on", 0.2, 0.0, 10.0, "s")]
