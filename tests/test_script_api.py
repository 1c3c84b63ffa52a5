"""What a script sees: the runner base, what it refuses, and calls handed to the GUI thread."""

import abc
from typing import Any
from unittest.mock import Mock, call

import pytest
import qon_ats
from hostcell import Host, HostCell, Script, runner_of
from qon_ats import UUT, Assertion, CallUserFunctionInfo, CellRunnerBase


@pytest.fixture
def cell(host: Host) -> HostCell:
    made = host(stop_if_ng=False)
    made.uut = UUT("SN1", 1)
    return made


NO3, NO4 = [None] * 3, [None] * 4

# What a script calls, and what reaches its cell or frame with arguments changed on the way.
FORWARDED: dict[str, Any] = {
    "paused()": call.is_paused(),
    "set_shared_obj(name='a', obj=5)": call.main_frame.set_shared_obj("a", 5),
    "get_assertions()": call.get_assertions("all"),
    "update_elapse_begin_time(time=3)": call.update_elapse_begin_time(3.0),
    "sleep(2)": call.sleep(2.0, 0.1),
    "call_user_function(print, 1, end='')": call.call_user_function(print, 1, end=""),
    "ask_true_or_false('lit?', false='nein')": call.ask_true_or_false("lit?", "Yes", "nein"),
    "debug_print('x', end='')": call.debug_print("x", ""),
    "set_prompt('Lid')": call.set_prompt("Lid", None),
    "try_limits('n', 3, 1, 5)": call.try_limits("n", 3, 1, 5, "", None),
    "assert_equal('n', 3, 4)": call.assert_with_limits("n", 3, 4, 4, *NO3, "all"),
    "assert_limits('n', 3, 1, 5, 'V', False, 'c')":
        call.assert_with_limits("n", 3, 1, 5, "V", None, False, "c"),
    "assert_percent_limits('n', 3, 4, 5)":
        call.assert_with_percent_limits("n", 3.0, 4.0, 5.0, *NO3, "all"),
    "assert_false('n', 'yes', True)": call.assert_with_result("n", "yes", False, *NO3, True, "all"),
    "assert_result('n', 3, 'pass')": call.assert_with_result("n", 3, True, "N/A", *NO3, "all"),
    "append_ok('n', 3)": call.assert_with_result("n", 3, True, *NO4, "all"),
    "append_ng('n', 3, category='c')": call.assert_with_result("n", 3, False, *NO4, "c"),
}  # fmt: skip


@pytest.mark.parametrize("code", FORWARDED)
def test_calls_of_a_script_reach_the_cell(code: str) -> None:
    cell, expected = Mock(unsafe=True), FORWARDED[code]
    result = eval(f"runner.{code}", {"runner": runner_of(cell)})
    [made] = cell.method_calls
    assert made == expected
    assert [type(value) for value in made.args] == [type(value) for value in expected.args]
    owner, _, name = made[0].rpartition(".")
    target = cell.main_frame if owner else cell
    assert name == "set_shared_obj" or result is getattr(target, name).return_value


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


TRUE = ["ok", "Yes", "t", "Pass", b"pass", True, 2.5, -1, None, [], float("nan"), bytearray(b"ok")]
FALSE = ["", "NG", "1", "fail", " ok", b"", b"NG", 0, 0.0, False, "\u0179"]


@pytest.mark.parametrize(("verdict", "values"), [(True, TRUE), (False, FALSE)])
def test_loose_verdicts(verdict: bool, values: list[Any], cell: HostCell) -> None:
    runner = runner_of(cell)
    for value in values:
        assert CellRunnerBase._to_bool(value) is verdict, value
        assert runner.assert_result("r", 1, value).is_ok() is verdict, value
        assert runner.assert_true("t", value).is_ok() is verdict, value
        assert runner.assert_false("f", value).is_ng() is verdict, value


def test_a_runner_is_built_in_a_test_thread_only() -> None:
    with pytest.raises(AttributeError, match="cell_proxy"):
        Script()
    for method, missing in (("run", "cleanup"), ("cleanup", "run"), ("other", "run")):
        incomplete = type("Incomplete", (CellRunnerBase,), {method: lambda self: None})
        with pytest.raises(TypeError, match=missing):
            incomplete()
    assert CellRunnerBase.__abstractmethods__ == {"run", "cleanup"} and issubclass(CellRunnerBase, abc.ABC)


def test_a_call_and_its_result() -> None:
    info = CallUserFunctionInfo(max, True, 3, 7, key=lambda value: -value)
    assert (info.function, info.arg, list(info.kwarg), info.result) == (max, (3, 7), ["key"], None)
    assert not info.event.is_set()
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
    failing = CallUserFunctionInfo(lambda: 1 / 0, True)
    with pytest.raises(ZeroDivisionError):
        failing()
    assert (failing.result, failing.event.is_set()) == (None, False), "its caller goes on waiting"


CALLS = [
    "Assertion(5)", "Assertion('a', limit=1)", "setattr(item, 'report_needed', 'yes')", "item.update(value=6, unit=7)",
    "Assertion.is_ok(uut)", "UUT('a', None)", "UUT('a', 1.0)", "setattr(uut, 'end_time', 'now')", "setattr(uut, 'done', 1)",
    "ats.Statistics(1.5)", "ats.TestItem('a', item, print, retry_count=1.5)", "setattr(cell, 'script', 5)",
    "cell.assert_with_limits('x', 'one', 0, 2)", "cell.assert_with_result('x', 1, True, 5)", "runner.append(item, 'yes')",
    "runner.sleep('1')", "runner.assert_limits('x', 1, 0)", "runner.assert_limits('x', 1, 0, 2, category=['a'])",
    "runner.assert_percent_limits('x', 10, None, 5)", "setattr(runner, 'runner_class_name', None)",
]  # fmt: skip


@pytest.mark.parametrize("call", CALLS)
def test_a_call_is_refused(call: str, host: Host) -> None:
    cell, item, uut = host(), Assertion("v", 5, unit=None), UUT("SN1", 2)
    cell.uut = uut
    names = {"ats": qon_ats, "Assertion": Assertion, "UUT": UUT, "item": item, "uut": uut, "cell": cell}
    with pytest.raises(TypeError):
        eval(call, names | {"runner": runner_of(cell)})
    assert (item.value, item.unit, item.report_needed, item.result) == (5, None, True, "OK")
    assert (uut.serial_number, uut.cell_number, uut.done, uut.assertions) == ("SN1", 2, False, [])
    assert (cell.get_assertions(), cell._assertion_queue.qsize()) == ([], 0)
    assert cell.runner_class_name == "CellRunner"


@pytest.mark.parametrize("config", [5, [], b"ats_config.xlsx"])
def test_a_cell_s_configuration_is_a_file_name_a_book_or_a_sheet(config: Any) -> None:
    with pytest.raises(TypeError) as caught:
        qon_ats.CellBase(1, config)
    assert str(caught.value) == (
        'Argument "parameter_book" must be a string for an excel file name, or an object of BookParameters, '
        f'or an object of SheetParameters, not a "{type(config).__name__}".'
    )
