"""The type stub agrees with the module, its docstrings reach help(), and scripts type-check against it."""

import ast
import importlib.util
import inspect
import os
import pydoc
import subprocess
import sys
from operator import attrgetter
from pathlib import Path

import pytest
import qon_ats
import wx
from qon_station.scaffold import new_station

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


def run_mypy(module: str, folder: Path, *arguments: str) -> subprocess.CompletedProcess[str]:
    """mypy or a tool of its own, with the stub of the sources."""
    config = folder / "mypy.ini"
    config.write_text(CONFIG)
    return subprocess.run(
        [sys.executable, "-m", module, *arguments],
        check=False,
        capture_output=True,
        text=True,
        cwd=folder,
        env={**os.environ, "MYPYPATH": str(STUB.parent)},
        timeout=100,
    )


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


def test_help_shows_the_docstrings() -> None:
    text = pydoc.render_doc(qon_ats.CellRunnerBase, renderer=pydoc.plaintext)
    text = " ".join(text.replace("\n |", " ").split()).replace("( ", "(")  # newer ones break long signatures
    for line in (
        "The base of every test script's class; override `run` and `cleanup`.",
        "assert_limits(self, name: 'str', value, lower, upper, unit: 'str | None' = None",
        "Judge a value by its limits and record it; returns the record.",
        "The unit under test.",
    ):
        assert line in text
    fixed = {
        "CallUserFunctionInfo": "此类保存需要在UI线程中执行的函数的相关内容",
        "TestDataViewerPanel._TestDataViewerPanel__get_selected_uut":
            "返回当前被选中的 UUT 对象，和此对象在显示列表中的行索引。",
        "TestDataViewerPanel._show_an_assertion":
            "在assertions grid控件中添加显示一条assertion记录。\n\n"
            "此函数只是用于辅助显示一个UUT的所有assertion数据。",
    }  # fmt: skip
    assert {name: attrgetter(name)(qon_ats).__doc__ for name in fixed} == fixed


@needs_mypy
@pytest.mark.parametrize("program", ["demo", "new station"])
def test_applications_type_check_strictly(program: str, tmp_path: Path) -> None:
    folder = ROOT / "demo"
    if program == "new station":
        folder = tmp_path / "line3"
        new_station(folder)
    files = [path for path in sorted(folder.rglob("*.py")) if not path.match("log/*")]
    command = [sys.executable, "-m", "mypy", "--config-file", str(ROOT / "pyproject.toml"), "--cache-dir"]
    done = subprocess.run(
        [*command, str(tmp_path / "cache"), *map(str, files)],
        check=False,
        capture_output=True,
        text=True,
        cwd=folder,
        timeout=100,
    )
    assert done.returncode == 0, done.stdout + done.stderr
