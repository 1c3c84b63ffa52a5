"""Run a test script without a window, for the tests of script authors.

from qon_station.testing import run_script

uut = run_script("scripts/board.py", answers={"LED lit?": True}, limits="limits.xlsx", app_config="app_config")
assert uut.is_ok, uut.run.log
"""

import os
import threading
import warnings
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass, field
from typing import Any

import qon_ats
from qon_companions import limits_check
from qon_paratree import ParameterDirectory
from qon_testparameters import Parameter, SheetParameters

from .fake_cell import Aborts, FakeCell, FakeFrame, script_imported_afresh

Answers = Mapping[str, Any] | Iterable[Any] | Callable[[str], Any]
Limits = str | os.PathLike[str] | Mapping[str, tuple[Any, Any]]


@dataclass
class ScriptRun:
    """How a run went, beside what the unit has recorded; the attribute `run` of the unit.

    messages: boxes that the framework would have shown.  limits_check: what does not fit between the script and
    its limits, each as a sentence.  description: the item that stopped the test.
    """

    log: str = ""
    prompts: list[str] = field(default_factory=list)
    questions: list[str] = field(default_factory=list)
    messages: list[str] = field(default_factory=list)
    limits_check: list[str] = field(default_factory=list)
    percentage: float = 0.0
    exception: BaseException | None = None
    cleanup_exception: BaseException | None = None
    aborted: bool = False
    description: str = ""
    shared: dict[str, Any] = field(default_factory=dict)


class ScriptUnit(qon_ats.UUT):
    """The unit of a script's test: what `UUT` has, and how the run went."""

    run: ScriptRun


class ScriptTimeoutError(TimeoutError):
    """The script did not end in time; it was told to abort."""


class NotAbortedError(LookupError):
    """The run was over before it came to the item or the time at which it was to be aborted."""


class LimitsWarning(UserWarning):
    """Script and limits do not fit; `-W error::qon_station.testing.LimitsWarning` makes it a failure."""


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
    abort_at: str | float | None = None,
    abort_after: str | float | None = None,
) -> ScriptUnit:
    """Run the script once against a cell without a window; returns the finished unit under test.

    answers: what the operator would say to `ask_true_or_false` and `input_text`: by question, in order, or a
        function of the question.  A question without an answer ends the run with an error that names it.
    limits: a limits workbook, or a mapping of item names to (lower, upper).  What does not fit between them and
        the script is told as a LimitsWarning.
    config: further keys of the cell's configuration ("stop_if_ng", "none_unit" and so on).
    app_config: what the script finds as `self.app_config`: the path of the parameters directory, or an object
        such as `qon_paratree.ParameterDirectory.load(path)`.
    shared: objects that the script finds with `get_shared_obj`.
    timeout: seconds until the script is told to abort and ScriptTimeoutError is raised.
    raise_exception: whether an exception that ended the script, or its cleanup, is raised here.
    abort_at: the item at which the run is aborted, before it is recorded; or seconds after the start.
    abort_after: the item after which the operator aborts, which takes effect at the script's next check point;
        or seconds after the start.

    The unit's attribute `run` (a ScriptRun) tells the log, prompts, questions, progress and how the run ended.
    Call it from any thread but a test thread.
    """
    script = os.path.abspath(os.fspath(path))
    if not os.path.exists(script):
        raise FileNotFoundError(f"The test script {script} does not exist.")
    if isinstance(app_config, str | os.PathLike):
        app_config = ParameterDirectory.load(app_config)
    run, aborts = ScriptRun(shared=dict(shared or {})), Aborts(abort_at, abort_after)
    settings = {"script": script, "runner_class_name": class_name, **(config or {})}
    frame = FakeFrame(app_config, run.shared)
    cell = FakeCell(cell_number, _sheet(settings), frame, run, answers, aborts)
    cell.uut_type = ScriptUnit
    _set_limits(cell, limits)
    with script_imported_afresh(script):
        cell.start(serial_number)
        _wait(cell, timeout)
    return _told(cell, aborts, raise_exception)


def _told(cell: FakeCell, aborts: Aborts, raise_exception: bool) -> ScriptUnit:
    uut, run = cell.uut, cell.run
    assert isinstance(uut, ScriptUnit)
    uut.run = run
    run.exception = run.exception or cell._exception_object
    run.aborted, run.description = cell.is_aborted(), cell._result_description
    findings = limits_check.of_cell(cell)
    run.limits_check = [str(each) for each in findings]
    wrong = [str(each) for each in findings if each.kind is not limits_check.Kind.NO_LIMIT]
    if wrong:
        text = "\n".join([f"{cell.script} and its limits:", *wrong])
        warnings.warn(LimitsWarning(text), stacklevel=3)
    if raise_exception and run.exception is not None:
        raise run.exception
    if raise_exception and run.cleanup_exception is not None:
        run.cleanup_exception.add_note("raised by the script's cleanup()")
        raise run.cleanup_exception
    if str(aborts) and not cell._abort_flag:
        recorded = ", ".join(item.name for item in uut.assertions) or "none"
        raise NotAbortedError(f"The run ended before {aborts}; items that it recorded: {recorded}.")
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


__all__ = [
    "LimitsWarning",
    "NotAbortedError",
    "ScriptRun",
    "ScriptTimeoutError",
    "ScriptUnit",
    "run_script",
]
