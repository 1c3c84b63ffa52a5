"""What the text of a test script tells without running it: its items, their units, the names it mentions."""

import ast
from dataclasses import dataclass, field
from pathlib import Path

# Calls that record or judge an item: places of name and unit among the positional arguments.
_CALLS = {
    "assert_equal": (0, 3),
    "assert_limits": (0, 4),
    "try_limits": (0, 4),
    "assert_percent_limits": (0, 4),
    "assert_result": (0, 3),
    "assert_true": (0, None),
    "assert_false": (0, None),
    "append_ok": (0, None),
    "append_ng": (0, None),
    "Assertion": (0, 4),
    "retry": (1, 5),
}


@dataclass
class ScriptFacts:
    """`items` by name with the units given there; `is_open` when some names are made while the script runs."""

    items: dict[str, set[str]] = field(default_factory=dict)
    texts: set[str] = field(default_factory=set)
    attributes: set[str] = field(default_factory=set)
    is_open: bool = False


def facts_of(script: Path) -> ScriptFacts:
    """Of the script and of the modules beside it that it imports; SyntaxError when one is no Python."""
    facts, seen, waiting = ScriptFacts(), set[Path](), [script]
    while waiting:
        path = waiting.pop()
        if path in seen:
            continue
        seen.add(path)
        tree = ast.parse(path.read_bytes(), str(path))
        waiting += [beside for name in _imports(tree) if (beside := path.with_name(f"{name}.py")).is_file()]
        _read(tree, facts)
    return facts


def _imports(tree: ast.Module) -> list[str]:
    names = []
    for node in ast.walk(tree):
        if isinstance(node, ast.Import):
            names += [alias.name.partition(".")[0] for alias in node.names]
        elif isinstance(node, ast.ImportFrom) and node.module:
            names.append(node.module.partition(".")[0])
    return names


def _read(tree: ast.Module, facts: ScriptFacts) -> None:
    for node in ast.walk(tree):
        if isinstance(node, ast.Constant) and isinstance(node.value, str):
            facts.texts.add(node.value)
        elif isinstance(node, ast.Attribute):
            facts.attributes.add(node.attr)
        elif isinstance(node, ast.Call):
            _read_call(node, facts)


def _read_call(node: ast.Call, facts: ScriptFacts) -> None:
    called = getattr(node.func, "attr", getattr(node.func, "id", ""))
    if called not in _CALLS:
        return
    at, unit_at = _CALLS[called]
    name = _argument(node, at, "name")
    if not isinstance(name, str):
        facts.is_open = True
        return
    units = facts.items.setdefault(name, set())
    unit = _argument(node, unit_at, "unit")
    if isinstance(unit, str):
        units.add(unit)


def _argument(node: ast.Call, at: int | None, keyword: str) -> object:
    """The argument when it is written down as a constant."""
    given = [each.value for each in node.keywords if each.arg == keyword]
    if at is not None and at < len(node.args):
        given.append(node.args[at])
    return given[0].value if given and isinstance(given[0], ast.Constant) else None
