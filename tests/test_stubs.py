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
from textwrap import dedent

import pytest
import qon_ats
import wx

STUB = Path(__file__).parents[1] / "ats" / "qon_ats.pyi"
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


# What has to be refused carries a "type: ignore"; mypy complains about one that is not needed.
EXAMPLE = """
    from typing import assert_type
    import qon_ats
    from qon_testparameters import SheetParameters


    def read_volt(channel: int, samples: int = 1) -> float:
        return float(channel * samples)


    class CellRunner(qon_ats.CellRunnerBase):
        def __init__(self) -> None:
            super().__init__()
            self.resource = str(self.app_config.instruments.main.psu)

        def run(self) -> None:
            assert_type(self.assert_limits("VOUT", 5.0, 4.9, None, "V", category="output"), qon_ats.Assertion)
            assert_type(self.cell_config, SheetParameters)
            assert_type(self.call_user_function(read_volt, 1, samples=2), float)
            assert_type(self.abortable(read_volt)(1), float)
            info = self.call_user_function_delay_wait(print, "x", end="")
            info.wait()
            if self.ask_true_or_false("LED lit?", false="Dark"):
                self.uut.done_event.subscribe(print)
            text = self.input_text("Label")
            text.upper()  # type: ignore[union-attr]
            self.noumenon.set_prompt("Close the lid", "yellow")
            self.frame_noumenon.start_cell(2, "SN1")
            self.assert_limits("VOUT", 5.0)  # type: ignore[call-arg]
            self.assert_limits(5.0, "VOUT", 1, 2)  # type: ignore[arg-type]
            self.call_user_function(read_volt, "1")  # type: ignore[arg-type]
            self.uut.begin_time = 0.0  # type: ignore[misc]

        def cleanup(self) -> None:
            pass


    class Half(qon_ats.CellRunnerBase):
        def run(self) -> None: ...


    Half()  # type: ignore[abstract]


    class BenchCell(qon_ats.CellBase):
        def print(self, message: object, end: str = "\\n") -> None:
            self.output = f"{message}{end}"

        def summary(self) -> tuple[int, str, list[qon_ats.Assertion], BaseException | None]:
            return self._state, self._result_description, self._ng_items, self._exception_object


    class Station(qon_ats.ATSFrame):
        def ticker_function(self) -> None:
            for cell in self.cells:
                if cell.is_ready() and self._ticker_interval > 0:
                    cell.start("SN 1")

        def startup_initializer(self) -> None:
            with self.ticker_blocker(0.5):
                self.ok_str = "PASS"
            self.ok_str = None  # type: ignore[assignment]


    unit = qon_ats.UUT("SN1", cell_number=2)
    unit.append_assertion(qon_ats.Assertion("a", 1, 0, 2))
    unit.done = True
    assert_type(unit.first_ng, qon_ats.Assertion | None)
    BenchCell(1, 5)  # type: ignore[arg-type]
"""


@needs_mypy
def test_a_strict_type_check_accepts_scripts_and_finds_their_mistakes(tmp_path: Path) -> None:
    (tmp_path / "example.py").write_text(dedent(EXAMPLE))
    done = run_mypy("mypy", tmp_path, "--strict", "--config-file", "mypy.ini", "example.py")
    assert done.returncode == 0, done.stdout + done.stderr
