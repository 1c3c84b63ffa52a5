"""What a script sees: the runner base and calls handed to the GUI thread."""

import abc
import threading
from types import SimpleNamespace
from typing import Any

import pytest
from hostcell import Host, HostCell
from qon_ats import UUT, Assertion, CallUserFunctionInfo, CellRunnerBase


class Script(CellRunnerBase):
    """A script whose parts tests call one by one."""

    def run(self) -> None:
        CellRunnerBase.run(self)

    def cleanup(self) -> None:
        super().cleanup()


def runner_of(cell: Any, runner_type: type[CellRunnerBase] = Script) -> Any:
    """A runner built as the engine does it: in a thread marked with the cell."""
    made: list[Any] = []

    def build() -> None:
        threading.current_thread().cell_proxy = cell  # type: ignore[attr-defined]
        made.append(runner_type())

    thread = threading.Thread(target=build)
    thread.start()
    thread.join(5)
    return made[0]


class Recorder:
    """A cell that records what is forwarded to it."""

    def __init__(self) -> None:
        self.calls: list[tuple[Any, ...]] = []
        self.main_frame = SimpleNamespace(
            app_config="config",
            get_shared_obj=lambda *a: self.calls.append(("get_shared_obj", *a)) or "shared",
            set_shared_obj=lambda *a: self.calls.append(("set_shared_obj", *a)),
        )

    def __getattr__(self, name: str) -> Any:
        if name.startswith("_"):
            raise AttributeError(name)

        def call(*args: Any, **kwargs: Any) -> str:
            self.calls.append((name, *args, *([kwargs] if kwargs else [])))
            return f"result of {name}"

        return call


@pytest.fixture
def cell(host: Host) -> HostCell:
    made = host(stop_if_ng=False)
    made.uut = UUT("SN1", 1)
    return made


SAME = """no_ng_item is_ok get_elapse_time pause debug_pause check_abort is_aborted has_done done
get_serial_number get_cell_name"""

# What a script calls, and what reaches its cell or frame.
FORWARDED: dict[str, tuple[Any, ...]] = {f"{name}()": (name,) for name in SAME.split()} | {
    "paused()": ("is_paused",),
    "get_shared_obj('a')": ("get_shared_obj", "a"),
    "set_shared_obj(name='a', obj=5)": ("set_shared_obj", "a", 5),
    "get_assertions()": ("get_assertions", "all"),
    "update_elapse_begin_time()": ("update_elapse_begin_time", None),
    "update_elapse_begin_time(time=3)": ("update_elapse_begin_time", 3.0),
    "abort()": ("abort", ""),
    "abort(description='why')": ("abort", "why"),
    "abortable(print)": ("abortable", print),
    "sleep(2)": ("sleep", 2.0, 0.1),
    "call_user_function(print, 1, end='')": ("call_user_function", print, 1, {"end": ""}),
    "call_user_function_delay_wait(print)": ("call_user_function_delay_wait", print),
    "call_user_function_no_wait(print, 1)": ("call_user_function_no_wait", print, 1),
    "ask_true_or_false('lit?')": ("ask_true_or_false", "lit?", "Yes", "No"),
    "ask_true_or_false('lit?', false='nein')": ("ask_true_or_false", "lit?", "Yes", "nein"),
    "notice_box(5)": ("notice_box", 5),
    "input_text('name?')": ("input_text", "name?"),
    "set_serial_number('SN')": ("set_serial_number", "SN"),
    "print(5)": ("print", 5, "\n"),
    "debug_print('x', end='')": ("debug_print", "x", ""),
    "update_percentage(50)": ("update_percentage", 50.0),
    "increase_percentage(increment=1.5)": ("increase_percentage", 1.5),
    "set_prompt('Lid')": ("set_prompt", "Lid", None),
    "set_prompt('Lid', bg_color='red')": ("set_prompt", "Lid", "red"),
    "assert_equal('n', 3, 4)": ("assert_with_limits", "n", 3, 4, 4, None, None, None, "all"),
    "assert_limits('n', 3, 1, 5)": ("assert_with_limits", "n", 3, 1, 5, None, None, None, "all"),
    "assert_limits('n', 3, 1, 5, 'V', False, 'c')": (
        "assert_with_limits",
        "n",
        3,
        1,
        5,
        "V",
        None,
        False,
        "c",
    ),
    "try_limits('n', 3, 1, 5)": ("try_limits", "n", 3, 1, 5, "", None),
    "assert_percent_limits('n', 3, 4, 5)": (
        "assert_with_percent_limits",
        "n",
        3.0,
        4.0,
        5.0,
        *[None] * 3,
        "all",
    ),
    "assert_true('n', 'yes')": ("assert_with_result", "n", "yes", True, *[None] * 4, "all"),
    "assert_false('n', 'yes', True)": ("assert_with_result", "n", "yes", False, *[None] * 3, True, "all"),
    "assert_result('n', 3, 'pass')": ("assert_with_result", "n", 3, True, "N/A", *[None] * 3, "all"),
    "append_ok('n', 3)": ("assert_with_result", "n", 3, True, *[None] * 4, "all"),
    "append_ng('n', 3, category='c')": ("assert_with_result", "n", 3, False, *[None] * 4, "c"),
}


@pytest.mark.parametrize("call", FORWARDED)
def test_calls_of_a_script_reach_the_cell(call: str) -> None:
    recorder, expected = Recorder(), FORWARDED[call]
    result = eval(f"runner.{call}", {"runner": runner_of(recorder)})
    assert recorder.calls == [expected]
    assert [type(value) for value in recorder.calls[0]] == [type(value) for value in expected]
    if expected[0] != "set_shared_obj":
        assert result in (f"result of {expected[0]}", "shared")


REFUSED = [
    "set_serial_number(123)", "get_shared_obj(5)", "get_assertions(5)", "append('x')", "abort(5)",
    "sleep('1')", "append(Assertion('x', 1), 'yes')", "ask_true_or_false(5)", "update_percentage('50')",
    "set_prompt(5)", "assert_limits(5, 1, 0, 2)",
    "assert_limits('x', 1, 0, 2, unit=5)", "assert_limits('x', 1, 0)",
    "assert_limits('x', 1, 0, 2, stop_if_ng=1)", "assert_limits('x', 1, 0, 2, category=['a'])",
    "assert_limits('x', 1, 0, 2, limits=3)", "assert_percent_limits('x', '5', 5, 1)",
    "__setattr__('script', 5)", "__setattr__('runner_class_name', None)",
]  # fmt: skip


@pytest.mark.parametrize("call", REFUSED)
def test_arguments_of_a_wrong_type_do_not_reach_the_cell(call: str) -> None:
    recorder = Recorder()
    with pytest.raises(TypeError):
        eval(f"runner.{call}", {"runner": runner_of(recorder), "Assertion": Assertion})
    assert recorder.calls == []


def test_overrides_of_the_cell_and_of_the_script_are_honoured(cell: HostCell) -> None:
    class Own(Script):
        def assert_limits(self, name: str, *args: Any, **kwargs: Any) -> Assertion:
            return super().assert_limits("own " + name, *args, **kwargs)

    class Loud(HostCell):
        def assert_with_limits(self, name: str, *args: Any) -> Assertion:
            return HostCell.assert_with_limits(self, name.upper(), *args)

    loud = Loud(1, cell.cell_config)
    loud.uut = UUT()
    assert runner_of(loud, Own).assert_limits("v", 1, 0, 2).name == "OWN V"
    cell.assert_with_limits = lambda *given: given  # type: ignore[method-assign]
    assert runner_of(cell).assert_limits("v", 1, 0, 2)[:4] == ("v", 1, 0, 2)
    del cell.assert_with_limits
    seen: list[Any] = []
    cell.append = lambda *given: seen.append(given)  # type: ignore[method-assign]
    assertion = runner_of(cell).assert_limits("v", 1, 0, 2)
    assert seen == [(assertion, None, "all")] and cell.uut.assertions == []


@pytest.mark.parametrize(("value", "verdict"), [
    ("ok", True), ("Yes", True), ("t", True), ("Pass", True), (b"pass", True), (True, True), (2.5, True),
    (-1, True), (None, True), ([], True), (float("nan"), True), ("", False), ("NG", False), ("1", False),
    ("fail", False), (" ok", False), (b"", False), (b"NG", False), (0, False), (0.0, False), (False, False),
    ("\u00df", False), ("\ufb01", False), (bytearray(b"ok"), True),
])  # fmt: skip
def test_loose_verdicts(value: Any, verdict: bool, cell: HostCell) -> None:
    assert CellRunnerBase._to_bool(value) is verdict
    runner = runner_of(cell)
    assert runner.assert_result("r", 1, value).is_ok() is verdict
    assert runner.assert_true("t", value).is_ok() is verdict
    assert runner.assert_false("f", value).is_ng() is verdict


def test_units_by_default(cell: HostCell) -> None:
    runner = runner_of(cell)
    units = [runner.assert_result("a", 1, True).unit, runner.try_limits("b", 1, 0, 2).unit]
    assert units == ["N/A", ""]
    assert (runner.assert_limits("c", 1, 0, 2).unit, runner.append_ok("d", None).value) == ("", "")
    assert runner.assert_equal("e", 3, 3).is_ok() and runner.assert_equal("f", 3, 4).is_ng()
    assert cell.names == ["a", "c", "d", "e", "f"]


def test_a_runner_is_built_in_a_test_thread_only() -> None:
    with pytest.raises(AttributeError, match="cell_proxy"):
        Script()

    class NoCleanup(CellRunnerBase):
        def run(self) -> None: ...

    class NoRun(CellRunnerBase):
        def cleanup(self) -> None: ...

    for incomplete, missing in ((NoCleanup, "cleanup"), (NoRun, "run"), (CellRunnerBase, "run")):
        with pytest.raises(TypeError, match=missing):
            incomplete()
    assert CellRunnerBase.__abstractmethods__ == {"run", "cleanup"} and issubclass(CellRunnerBase, abc.ABC)


def test_a_call_and_its_result() -> None:
    info = CallUserFunctionInfo(max, True, 3, 7, key=lambda value: -value)
    assert (info.function, info.arg, info.result, info.event.is_set()) == (max, (3, 7), None, False)
    assert list(info.kwarg) == ["key"]
    info()
    info.wait()
    assert (info.result, info.event.is_set()) == (3, True)
    loose = CallUserFunctionInfo(len, False, "abc")
    with pytest.raises(TypeError, match="^Not a waitable object$"):
        loose.wait()
    loose()
    assert (loose.result, loose.event) == (3, None)
    loose.kwarg = None
    with pytest.raises(TypeError, match="must be a mapping, not NoneType"):
        loose()
    with pytest.raises(TypeError):
        CallUserFunctionInfo(len, "yes")


def test_a_call_that_raises_leaves_its_caller_waiting() -> None:
    info = CallUserFunctionInfo(lambda: 1 / 0, True)
    with pytest.raises(ZeroDivisionError):
        info()
    assert (info.result, info.event.is_set()) == (None, False)
