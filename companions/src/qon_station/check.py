"""`python -m qon_station check FOLDER`: what is wrong with a station, before anybody scans a unit.

The configuration workbook with its sheets, keys and values; each cell's script with its class; the limits workbook,
held against the items that stand in the script; the parameters directory.
"""

import contextlib
import importlib
import inspect
import os
import sys
from collections.abc import Iterator
from dataclasses import dataclass
from enum import Enum
from pathlib import Path
from typing import Any

import qon_ats
from qon_companions.limits_check import plain
from qon_companions.parameters import ParameterError, Table, open_source, read_table
from qon_companions.parameters.errors import Place
from qon_paratree import ParameterDirectory
from qon_testparameters import SheetParameters

from .explain import explain
from .item_columns import check_columns
from .keys import CELL, MAIN, keys_of, nearest, wrong_value
from .script_facts import ScriptFacts, facts_of

CONFIG, PARAMETERS = "ats_config.xlsx", "app_config"


class Level(Enum):
    """An error keeps a station or a test from working as it is meant; a warning may be meant."""

    ERROR = "error"
    WARNING = "warning"


@dataclass(frozen=True)
class Finding:
    """One thing, where it stands and what to do."""

    level: Level
    where: str
    text: str

    def __str__(self) -> str:
        return f"{self.level.value}: {self.where}: {self.text}"


def check_station(
    folder: str | os.PathLike[str], config: str = CONFIG, parameters: str = PARAMETERS
) -> list[Finding]:
    """Everything that was found; paths are read as the station reads them, from its folder."""
    root = Path(folder)
    if not root.is_dir():
        return [Finding(Level.ERROR, str(folder), "there is no such folder.")]
    with _in_folder(root):
        return _Check(config, parameters).all()


class _Check:
    def __init__(self, config: str, parameters: str) -> None:
        self._config, self._parameters = config, parameters
        self._found: list[Finding] = []
        self._scripts: dict[str, ScriptFacts | None] = {}
        self._classes: set[tuple[str, str]] = set()
        self._uses_parameters = False

    def all(self) -> list[Finding]:
        try:
            source = open_source(self._config)
            names = list(source.sheet_names)
            tables = {name: read_table(source, name) for name in names if self._is_ours(name)}
        except OSError as error:
            self._error(error.filename or self._config, f"{error.strerror or error}.")
        except ParameterError as error:
            self._faults(error.faults)
        else:
            for table in tables.values():
                self._faults(table.faults)
            self._sheets(names, tables)
        self._check_parameters()
        return list(dict.fromkeys(self._found))

    @staticmethod
    def _is_ours(sheet: str) -> bool:
        return sheet == MAIN or (sheet.startswith("cell") and sheet[4:].isdecimal())

    def _sheets(self, names: list[str], tables: dict[str, Table]) -> None:
        for needed in (MAIN, CELL):
            if needed not in tables:
                near = next((name for name in names if plain(name) == needed), "") or nearest(needed, names)
                hint = f'; did you mean "{near}"? Rename it.' if near else "; add it."
                self._error(self._config, f'the sheet "{needed}" is missing{hint}')
        count = 1
        if MAIN in tables:
            self._keys(MAIN, tables[MAIN], set())
            value = tables[MAIN].parameters.get("cell_count")
            count = value.value if value and isinstance(value.value, int) else 1
        used = [name if (name := f"cell{n}") in tables else CELL for n in range(1, count + 1)]
        for sheet in dict.fromkeys(used):
            if sheet in tables:
                self._cell(sheet, tables[sheet])
        for sheet in tables:
            if sheet not in (MAIN, *used):
                text = f"no cell uses this sheet: the station has {count} ({MAIN}, cell_count)."
                self._warn(str(Place(self._config, sheet)), text)

    def _cell(self, sheet: str, table: Table) -> None:
        def value(key: str, default: Any = None) -> Any:
            parameter = table.parameters.get(key)
            return default if parameter is None else parameter.value

        facts = None
        if "script" not in table.parameters and not table.faults:
            self._error(
                str(Place(self._config, sheet)), 'the key "script" is missing: it names the test script.'
            )
        script = value("script")
        if isinstance(script, str) and script:
            where = str(Place(self._config, sheet, table.rows["script"], "script"))
            facts = self._script(script, str(value("runner_class_name", "CellRunner")), where)
        self._keys(sheet, table, facts.texts if facts else set())
        self._columns(sheet, table)
        limits = str(value("assertion_config_file") or "").strip()
        if limits:
            self._limits(limits, script, facts, value("none_unit") or "")

    def _keys(self, sheet: str, table: Table, texts: set[str]) -> None:
        """Keys that the script mentions are its own business."""
        known = keys_of(sheet)
        other = keys_of(CELL if sheet == MAIN else MAIN)
        for name, row in table.rows.items():
            where = str(Place(self._config, sheet, row, name))
            if name in known:
                parameter = table.parameters.get(name)
                wrong = wrong_value(known[name], parameter) if parameter else ""
                if wrong:
                    self._error(where, f"it {wrong}.")
            elif near := nearest(name, known):
                self._error(where, f'no such key: did you mean "{near}"?')
            elif name in other:
                belongs = MAIN if sheet != MAIN else "a cell, such as cell1"
                self._error(where, f'this key belongs into the sheet of "{belongs}".')
            elif name not in texts:
                self._warn(where, "no such key, and the script does not mention it.")

    def _columns(self, sheet: str, table: Table) -> None:
        """As the station looks at them when it starts."""
        try:
            check_columns(SheetParameters(sheet, table.parameters.values(), self._config))
        except ValueError as error:
            where = str(Place(self._config, sheet))
            self._error(where, str(error).removeprefix(f"{where}: "))

    def _script(self, name: str, class_name: str, where: str) -> ScriptFacts | None:
        path = Path(name).absolute()
        if not path.is_file():
            self._error(where, f"the test script {path} does not exist; correct the path.")
            return None
        if (name, class_name) in self._classes:
            return self._scripts.get(name)
        self._classes.add((name, class_name))
        twin = next(
            (other for other in self._scripts if other != name and _module(other) == _module(name)), ""
        )
        if twin:
            self._error(where, f'scripts need different file names; "{twin}" has the same.')
        try:
            facts = self._scripts[name] = facts_of(path)
        except (SyntaxError, ValueError) as error:
            self._error(where, str(explain(error)))
            self._scripts[name] = None
            return None
        self._uses_parameters |= "app_config" in facts.attributes
        wrong = _wrong_class(path, class_name)
        if wrong:
            self._error(where, wrong)
        return facts

    def _limits(self, name: str, script: Any, facts: ScriptFacts | None, none_unit: str) -> None:
        try:
            source = open_source(name)
            table = read_table(source, source.sheet_names[0])
        except OSError as error:
            self._error(error.filename or name, f"{error.strerror or error}.")
            return
        except ParameterError as error:
            self._faults(error.faults)
            return
        self._faults(table.faults)
        if facts is None or table.faults:
            return
        sheet = source.sheet_names[0]
        by_plain = {plain(item): item for item in facts.items}
        unused: dict[str, str] = {}
        for row, parameter in table.parameters.items():
            where = str(Place(name, sheet, table.rows[row], row))
            units = {unit.strip() for unit in facts.items.get(row, ())} - {"", none_unit}
            if row in facts.items:
                given = (parameter.unit or "").strip()
                if given and units and given not in units:
                    self._error(where, f'the unit is "{given}" here and "{min(units)}" in the script.')
            elif plain(row) in by_plain and row not in facts.texts:
                item = by_plain[plain(row)]
                self._error(
                    where, f'the script calls it "{item}": names must be the same in case and blanks.'
                )
            elif row not in facts.texts and not facts.is_open:
                unused[row] = nearest(row, [item for item in facts.items if item not in table.parameters])
        for row, near in unused.items():
            if near:
                where = str(Place(name, sheet, table.rows[row], row))
                self._warn(where, f'the script has no item of this name; did you mean "{near}"?')
        others = [row for row, near in unused.items() if not near]
        if others:
            text = f"the script {script} has no items of these names: {', '.join(others)}."
            self._warn(str(Place(name, sheet)), text)

    def _check_parameters(self) -> None:
        if not Path(self._parameters).exists():
            if self._uses_parameters:
                text = "there is no such directory, but a script uses self.app_config, which will be None."
                self._warn(self._parameters, text)
            return
        try:
            ParameterDirectory.load(self._parameters)
        except ParameterError as error:
            self._faults(error.faults)
        except OSError as error:
            self._error(error.filename or self._parameters, f"{error.strerror or error}.")

    def _faults(self, faults: Any) -> None:
        for fault in faults:
            self._error(str(fault.place), fault.text)

    def _error(self, where: str, text: str) -> None:
        self._found.append(Finding(Level.ERROR, where, text))

    def _warn(self, where: str, text: str) -> None:
        self._found.append(Finding(Level.WARNING, where, text))


def _module(script: str) -> str:
    return os.path.basename(script).split(".")[0]


def _wrong_class(script: Path, class_name: str) -> str:
    """Import the script as a station does, from the station's folder; what is wrong, "" when nothing is."""
    name = _module(str(script))
    with _imports_undone(str(script.parent)):
        if str(script.parent) not in sys.path:
            sys.path.append(str(script.parent))
        try:
            module = importlib.import_module(name)
        except BaseException as error:  # noqa: BLE001 - sys.exit() in a script too
            return f"the script could not be loaded.\n{explain(error)}"
        if os.path.realpath(getattr(module, "__file__", None) or "") != os.path.realpath(script):
            file = getattr(module, "__file__", None) or "part of Python"
            return f'there is another module "{name}" ({file}), which would run instead; rename the script.'
        runner = getattr(module, class_name, None)
        if runner is None:
            classes = [
                key
                for key, each in vars(module).items()
                if isinstance(each, type) and each.__module__ == name
            ]
            return f'the script has no class "{class_name}"; it has: {", ".join(classes) or "none"}.'
        if not isinstance(runner, type) or not issubclass(runner, qon_ats.CellRunnerBase):
            return f'its class "{class_name}" is not derived from CellRunnerBase.'
        if inspect.isabstract(runner):
            missing = ", ".join(sorted(runner.__abstractmethods__))
            return f'its class "{class_name}" lacks: {missing}.'
    return ""


@contextlib.contextmanager
def _imports_undone(folder: str) -> Iterator[None]:
    """Modules of the station that were not there before are forgotten again."""
    loaded, path = set(sys.modules), list(sys.path)
    try:
        yield
    finally:
        sys.path[:] = path
        for name in set(sys.modules) - loaded:
            file = getattr(sys.modules[name], "__file__", None) or ""
            if file.startswith((folder, os.getcwd())):
                del sys.modules[name]


@contextlib.contextmanager
def _in_folder(root: Path) -> Iterator[None]:
    """Where the station is started: relative paths, and the modules beside it."""
    before, path = os.getcwd(), list(sys.path)
    os.chdir(root)
    sys.path.insert(0, os.getcwd())
    importlib.invalidate_caches()
    try:
        yield
    finally:
        sys.path[:] = path
        os.chdir(before)
