"""The type stub agrees with the module, and its docstrings reach help()."""

import ast
import importlib.util
import inspect
import subprocess
from operator import attrgetter
from pathlib import Path

import pytest
import qon_ats
import wx

ROOT = Path(__file__).parents[1]
STUB = ROOT / "ats" / "qon_ats.pyi"
TREE = ast.parse(STUB.read_text(encoding="utf-8"))
FRAME = next(node for node in TREE.body if isinstance(node, ast.ClassDef) and node.name == "ATSFrame")
CLASSES = {node.name: node for node in TREE.body if isinstance(node, ast.ClassDef)} | {
    f"ATSFrame.{node.name}": node for node in FRAME.body if isinstance(node, ast.ClassDef)
}
ALIASES = {"_Colour", "_MaybeNone"}
FIELDS = {"_QueueParts"}  # those of queue.Queue, held natively
MEMBER_TYPES = (type(qon_ats.CellBase.start), staticmethod, property)

# wx has no types everywhere; what is wrong in an installed stub is not reported to its users.
CONFIG = """
[mypy]
follow_imports = silent
follow_imports_for_stubs = True
[mypy-wx.*]
ignore_missing_imports = True
"""
needs_mypy = pytest.mark.skipif(importlib.util.find_spec("mypy") is None, reason="mypy is not installed")
from support import python


def run_mypy(module: str, folder: Path, *arguments: str) -> subprocess.CompletedProcess[str]:
    """mypy or a tool of its own, with the stub of the sources."""
    config = folder / "mypy.ini"
    config.write_text(CONFIG)
    return python("-m", module, *arguments, cwd=folder, timeout=100, MYPYPATH=str(STUB.parent))


@needs_mypy
def test_names_parameters_and_defaults_agree(tmp_path: Path) -> None:
    allowed = tmp_path / "allowed"
    windows = [name for name in CLASSES if type(attrgetter(name)(qon_ats)) is type(wx.Window)]
    allowed.write_text(
        "".join(f"qon_ats.{name}\n" for name in windows)
    )  # the types do not tell wx's metaclass
    done = run_mypy(
        "mypy.stubtest", tmp_path, "--mypy-config-file", "mypy.ini", "--allowlist", str(allowed), "qon_ats"
    )
    assert done.returncode == 0, done.stdout + done.stderr


def stored(owner: str, name: str) -> str:
    private = name.startswith("__") and not name.endswith("__")
    return f"_{owner.rpartition('.')[2].lstrip('_')}{name}" if private else name


@pytest.mark.parametrize("owner", CLASSES)
def test_every_member_is_declared_and_documented(owner: str) -> None:
    """Private members and setters, too, which stubtest does not compare."""
    cls = attrgetter(owner)(qon_ats)
    declared: dict[str, str | None] = {}
    settable = set()
    for node in CLASSES[owner].body:
        if isinstance(node, ast.FunctionDef):
            declared.setdefault(stored(owner, node.name), ast.get_docstring(node))
            settable |= {
                node.name for decorator in node.decorator_list if ".setter" in ast.unparse(decorator)
            }
    members = {name for name, value in vars(cls).items() if isinstance(value, MEMBER_TYPES)}
    assert set(declared) == members - {"__repr__"}
    assert settable == {name for name in members if getattr(getattr(cls, name), "fset", None)}
    assert {name: getattr(cls, name).__doc__ for name in declared} == declared
    assert cls.__doc__ == ast.get_docstring(CLASSES[owner])
    assert cls.__doc__ and all(text for name, text in declared.items() if not name.endswith("__"))


def test_own_names_are_declared() -> None:
    own = {
        name
        for name, value in vars(qon_ats).items()
        if not name.startswith("__")
        and not inspect.ismodule(value)
        and getattr(value, "__module__", "qon_ats") == "qon_ats"
    }
    variables = {ast.unparse(node.target) for node in TREE.body if isinstance(node, ast.AnnAssign)}
    assert own - set(CLASSES) - FIELDS == variables - ALIASES - {"EVT_STATISTICS_UPDATE_EVENT"}
    assert isinstance(qon_ats.EVT_STATISTICS_UPDATE_EVENT, wx.PyEventBinder)
    assert qon_ats.__doc__ == ast.get_docstring(TREE)
