"""Run a test script without a window, for the tests of script authors.

from qon_station.testing import run_script

uut = run_script("scripts/board.py", answers={"LED lit?": True}, limits="limits.xlsx")
assert uut.is_ok, uut.run.log
"""

import os
import threading
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass, field
from typing import Any

from qon_testparameters import Parameter, SheetParameters

from .fake_cell import FakeCell, FakeFrame, script_imported_afresh

Answers = Mapping[str, Any] | Iterable[Any] | Callable[[str], Any]
Limits = str | os.PathLike[str] | Mapping[str, tuple[Any, Any]]


@dataclass
class ScriptRun:
    """How a run went, beside what the unit has recorded; the attribute `run` of the unit."""

    log: str = ""
    prompts: list[str] = field(default_factory=list)
    questions: list[str] = field(default_factory=list)
    percentage: float = 0.0
    exception: BaseException | None = None
    aborted: bool = False
    description: str = ""
    shared: dict[str, Any] = field(default_factory=dict)


class ScriptTimeoutError(TimeoutError):
    """The script did not end in time; it was told to abort."""


def run_script(
    path: str | os.PathLike[str],
    answers: Answers = (),
    limits: Limits | None = None,
    serial_number: str = "SN-TEST",
    class_name: str = "CellRunner",
    config: Mapping[str, Any] | None = None,
    app_config: Any = None,
    shared: Mapping[str, Any] | None = None,
    cell_number: int = 1,
    timeout: float = 60.0,
    raise_exception: bool = True,
) -> Any:
    """Run the script once against a cell without a window; returns the finished unit under test.

    answers: what the operator would say to `ask_true_or_false` and `input_text`: by question, in order, or a
        function of the question.  A question without an answer ends the run with an error that names it.
    limits: a limits workbook, or a mapping of item names to (lower, upper).
    config: further keys of the cell's configuration ("stop_if_ng", "none_unit" and so on).
    app_config: what the script finds as `self.app_config`.
    shared: objects that the script finds with `get_shared_obj`.
    timeout: seconds until the script is told to abort and ScriptTimeoutError is raised.
    raise_exception: whether an exception that ended the script is raised here, after its cleanup.

    The unit's attribute `run` (a ScriptRun) tells the log, prompts, questions, progress and how the run ended.
    Call it from any thread but a test thread.
    """
    script = os.path.abspath(os.fspath(path))
    if not os.path.exists(script):
        raise FileNotFoundError(f"The test script {script} does not exist.")
    run = ScriptRun(shared=dict(shared or {}))
    settings = {"script": script, "runner_class_name": class_name, **(config or {})}
    cell = FakeCell(cell_number, _sheet(settings), FakeFrame(app_config, run.shared), run, answers)
    _set_limits(cell, limits)
    with script_imported_afresh(script):
        cell.start(serial_number)
        _wait(cell, timeout)
    run.exception, run.aborted = cell._exception_object, cell.is_aborted()
    run.description = cell._result_description
    uut: Any = cell.uut
    uut.run = run
    if run.exception is not None and raise_exception:
        raise run.exception
    return uut


def _sheet(settings: Mapping[str, Any]) -> SheetParameters:
    kinds = {bool: "bool", int: "int", float: "float", str: "str"}
    rows = [
        Parameter(name, name, value, None, None, "", kinds.get(type(value), "json"))
        for name, value in settings.items()
    ]
    return SheetParameters("cell", rows, "run_script")


def _set_limits(cell: FakeCell, limits: Limits | None) -> None:
    if isinstance(limits, Mapping):
        cell._assertion_configs = {
            name: Parameter(name, name, None, lower, upper, "", "float")
            for name, (lower, upper) in limits.items()
        }
    elif limits is not None:
        cell.set_assertion_config_file(os.fspath(limits))


def _wait(cell: Any, timeout: float) -> None:
    thread: threading.Thread = cell._test_thread
    thread.join(timeout)
    if thread.is_alive():
        cell.abort("timeout")
        thread.join(5.0)
        raise ScriptTimeoutError(
            f"The script {cell.script} did not end within {timeout:g} s; its log:\n{cell.run.log}"
        )


__all__ = ["ScriptRun", "ScriptTimeoutError", "run_script"]
