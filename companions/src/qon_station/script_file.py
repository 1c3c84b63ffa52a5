"""Whether what the engine is about to load is the script that the cell is configured with.

The engine imports a script by its bare name and reloads the module that it has; so another file of that name, a file that
is gone or a class that an edit has removed would go unnoticed.
"""

import ast
import importlib
import os
import symtable
import sys
import tokenize
from types import ModuleType
from typing import Any

from qon_companions.i18n import _

# A module that uses these may define names in ways that its text does not show.
_DYNAMIC = frozenset({"globals", "vars", "setattr", "exec", "__getattr__"})


def module_name(script: str) -> str:
    """The name under which the engine imports the file."""
    return os.path.basename(script).split(".")[0]


def missing(script: str) -> str:
    """Words for a script that is not there, "" when it is."""
    if os.path.isfile(script):
        return ""
    text = _('The test script "{script}" does not exist; mend the key "script" of the cell.')
    return text.format(script=script)


def same_file(one: str | None, other: str) -> bool:
    """Whether both name the same file, by whatever way."""
    if not one:
        return False
    try:
        return os.path.samefile(one, other)
    except OSError:
        return os.path.normcase(os.path.realpath(one)) == os.path.normcase(os.path.realpath(other))


def make_sure(cell: Any, script: str, class_name: str) -> None:
    """In the test thread, before the engine loads the script: see to it that it loads this file as it is now.

    FileNotFoundError, ImportError or ValueError say why it would be another one.
    """
    reload = bool(cell.cell_config.get("reload_cell_runner", True))
    loaded: ModuleType | None = cell._cell_runner_module
    if loaded is not None and same_file(getattr(loaded, "__file__", None), script) and not reload:
        return  # by configuration the module of the first run is used as it is
    words = missing(script)
    if words:
        raise FileNotFoundError(words)
    if loaded is not None and not same_file(getattr(loaded, "__file__", None), script):
        loaded = cell._cell_runner_module = None  # the cell's script was changed
    name = module_name(script)
    known = sys.modules.get(name)
    used = [getattr(known, "__file__", None)] if known is not None else []
    used += [_file_to_be_found(name, script)] if known is None or reload else []
    for file in used:
        if not same_file(file, script):
            raise ImportError(_collision(name, script, file))
    if known is not None and loaded is None and reload:
        cell._cell_runner_module = (
            known  # another cell has imported it: the engine reloads it, edits take effect
        )
    _see_class(script, class_name)


def _collision(name: str, script: str, found: str | None) -> str:
    text = _(
        'The test script "{script}" cannot be loaded: the name "{name}" belongs to {other}. Give it another file name.'
    )
    return text.format(script=script, name=name, other=found or _("a module of Python"))


def _file_to_be_found(name: str, script: str) -> str | None:
    """Where an import of this name would look now."""
    directory = os.path.dirname(script)
    if directory not in sys.path:
        sys.path.append(directory)  # as the engine does
    importlib.invalidate_caches()
    for finder in list(sys.meta_path):
        find = getattr(finder, "find_spec", None)
        spec = find(name, None, None) if find is not None else None
        if spec is not None:
            return spec.origin if spec.has_location else None
    return script  # the engine tells why it cannot be imported


def _see_class(script: str, class_name: str) -> None:
    """A reload keeps the names that the text defines no more."""
    try:
        with tokenize.open(script) as file:
            text = file.read()
        names = symtable.symtable(text, script, "exec")
        tree = ast.parse(text, script)
    except (SyntaxError, UnicodeDecodeError, ValueError):
        return  # the engine's import tells it
    used = {symbol.get_name() for symbol in names.get_symbols()}
    defined = {each.get_name() for each in names.get_symbols() if each.is_assigned() or each.is_imported()}
    has_star = any(isinstance(node, ast.ImportFrom) and node.names[0].name == "*" for node in ast.walk(tree))
    if class_name not in defined and not has_star and not used & _DYNAMIC:
        raise ValueError(f'Class "{class_name}" not found in script "{script}".')
