"""Turns the docstrings of a type stub into the table that the extension module is built with.

python docstrings.py qon_ats.pyi docstring_table.inc

The stub is the one place where the documentation of the module is written; `help()` gets it from this table.
"""

import ast
import json
import sys
from collections.abc import Iterator
from pathlib import Path

Documented = ast.ClassDef | ast.FunctionDef


def docstrings(body: list[ast.stmt], scope: str = "") -> Iterator[tuple[str, str]]:
    """Qualified name and text of all that is documented in the body of the stub or of a class."""
    for node in body:
        if not isinstance(node, Documented):
            continue
        name = f"{scope}.{_stored_name(scope, node.name)}" if scope else node.name
        text = ast.get_docstring(node)
        if text:
            yield name, text
        if isinstance(node, ast.ClassDef):
            yield from docstrings(node.body, name)


def _stored_name(scope: str, name: str) -> str:
    """A private name as the interpreter stores it in its class."""
    if name.startswith("__") and not name.endswith("__"):
        return f"_{scope.rpartition('.')[2].lstrip('_')}{name}"
    return name


def table(stub: str, filename: str) -> str:
    """Initialisers of the table, sorted by name; every text is told once."""
    texts: dict[str, str] = {}
    for name, text in docstrings(ast.parse(stub, filename).body):
        if name in texts:
            raise ValueError(f"{filename}: {name} has two docstrings; a property's stands at its getter")
        texts[name] = text
    return "".join(f"{{{_literal(name)}, {_literal(texts[name])}}},\n" for name in sorted(texts))


def _literal(text: str) -> str:
    return json.dumps(text, ensure_ascii=False)  # the escapes of JSON are also those of C++


if __name__ == "__main__":
    source, target = Path(sys.argv[1]), Path(sys.argv[2])
    target.write_text(table(source.read_text(encoding="utf-8"), source.name), encoding="utf-8")
