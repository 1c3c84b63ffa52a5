"""The records: one measurement and its verdict, one unit and its end, counters of units."""

import copy
import gc
import pickle
import threading
import time
from functools import partial
from typing import Any

import pytest
import qon_testparameters
from qon_ats import UUT, Assertion, Statistics, TestItem

TestItem.__test__ = False  # type: ignore[attr-defined]  # not a test class


def repickled(record: Any, way: int) -> Any:
    return pickle.loads(pickle.dumps(record, way))


class Shout(str):
    """A str subclass whose own `lower` decides."""

    def lower(self) -> str:
        return "ok"


class Near:
    """A value with an ordering of its own, whose comparisons return no bool."""

    def __ge__(self, other: Any) -> Any:
        return [other]

    def __le__(self, other: Any) -> Any:
        return []


NOT_JUDGED: list[dict[str, Any]] = [{}, {"lower": 0, "upper": 1}, {"unit": "V"}]
PASSING: list[dict[str, Any]] = [
    {"value": 3}, {"value": 5, "lower": 5, "upper": 5}, {"value": "b", "lower": "a", "upper": "c"},
    {"value": True, "lower": 1, "upper": 1}, {"value": 2**70, "lower": 2**70, "upper": 2**70 + 1},
    {"value": Near(), "lower": 1}, {"value": 99, "upper": 1, "result": "Pass"}, {"result": "oK"},
    {"result": Shout("NG")}, {"result": 1}, {"result": b"NG"},
]  # fmt: skip
FAILING: list[dict[str, Any]] = [
    {"value": 5.0001, "upper": 5}, {"value": 4.9999, "lower": 5, "upper": 6},
    {"value": float("nan"), "lower": 0}, {"value": 2**53 + 1, "upper": float(2**53)},
    {"value": Near(), "lower": 1, "upper": 1}, {"result": "ng"},
    {"value": 3, "result": "fail"}, {"result": ""}, {"result": 0}, {"result": []},
]  # fmt: skip
VERDICTS = [
    (case, verdict)
    for cases, verdict in ((NOT_JUDGED, None), (PASSING, True), (FAILING, False))
    for case in cases
]


@pytest.mark.parametrize(("arguments", "verdict"), VERDICTS)
def test_verdict(arguments: dict[str, Any], verdict: bool | None) -> None:
    made = Assertion("item", **arguments)
    updated = Assertion("item")
    updated.update(**arguments)
    for assertion in (made, updated):
        assert assertion.get_result_as_bool() is verdict
        states = assertion.is_ok(), assertion.is_ng(), assertion.is_tbd()
        assert states == (verdict is True, verdict is False, verdict is None)
        word = {True: "OK", False: "NG", None: "TBD"}[verdict]
        assert assertion.result == assertion.get_result() == word


def test_update_judges_by_its_own_arguments_only() -> None:
    assertion = Assertion("v", 5, 0, 10, "V")
    assertion.update(value=20)
    assert (assertion.result, assertion.value, assertion.upper, assertion.unit) == ("OK", 20, 10, "V")
    assertion.update(unit="mV")
    assert (assertion.result, assertion.value, assertion.unit) == ("TBD", 20, "mV")
    assertion.update(value=None, lower=None, upper=None, result=True)
    assert (assertion.value, assertion.lower, assertion.upper, assertion.result) == (20, 0, 10, "OK")
    with pytest.raises(TypeError):  # a comparison that fails leaves the new fields and the old verdict
        assertion.update(value="five", lower=1)
    assert (assertion.value, assertion.lower, assertion.result) == ("five", 1, "OK")


def test_the_constructor_judges_through_update() -> None:
    calls: list[dict[str, Any]] = []

    class Recording(Assertion):
        def update(self, **arguments: Any) -> None:
            calls.append(arguments)
            super().update(**arguments | {"result": False})

    assertion = Recording("x", 1, 0, 2, "V", assert_time=3.0)
    given = {"value": 1, "lower": 0, "upper": 2, "unit": "V", "result": None, "assert_time": 3.0}
    assert calls == [given] and assertion.is_ng()


def test_export_makes_a_parameter_of_seven_arguments(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(qon_testparameters, "Parameter", lambda *given: given)
    assert Assertion("v", 1.5, 1, 2, "V").export_config() == ("v", "v", 1.5, 1, 2, "V", "float")
    assert Assertion("s", True).export_config() == ("s", "s", True, None, None, "", "bool")
    assert Assertion("none").export_config() == ("none", "none", "", None, None, "", "str")


OK = {"value": 1}
NG = {"value": 1, "upper": 0}
TBD: dict[str, Any] = {}


def unit(*items: dict[str, Any], done: bool = False) -> UUT:
    uut = UUT("SN1", 2)
    for index, arguments in enumerate(items):
        uut.append_assertion(Assertion(f"item{index}", **arguments))
    if done:
        uut.done = True
    return uut


@pytest.mark.parametrize(
    ("items", "done", "summer", "first_ng"),
    [
        ((), False, "TBD", ""),
        ((OK,), False, "TBD", ""),
        ((OK, OK), True, "OK", ""),
        ((OK, NG, NG), False, "NG", "item1"),
        ((OK, NG, NG), True, "NG", "item1"),
        ((TBD, NG), False, "NG", "item1"),
    ],
)
def test_verdict_of_the_unit(items: tuple[Any, ...], done: bool, summer: str, first_ng: str) -> None:
    uut = unit(*items, done=done)
    assert (uut.summer, uut.is_ok, uut.is_ng) == (summer, summer == "OK", summer == "NG")
    assert uut.first_ng_item_name() == first_ng
    assert uut.first_ng is uut.get_assertion_by_name(first_ng)


def test_times_of_the_unit(monkeypatch: pytest.MonkeyPatch) -> None:
    now = 100.0
    monkeypatch.setattr(time, "time", lambda: now)
    uut = unit(OK, TBD)
    now = 107.5
    assert (uut.begin_time, uut.end_time, uut.elapse) == (100.0, 107.5, 7.5)
    with pytest.raises(ValueError):
        uut.done = True
    now = 108.0
    assert uut.end_time == 108.0
    uut.assertions[1].update(1)
    uut.done = True
    now = 200.0
    assert (uut.end_time, uut.elapse) == (108.0, 8.0)
    uut.end_time = 150
    assert uut.end_time == 150.0 and isinstance(uut.end_time, float)


def test_done_is_told_once_and_for_ever() -> None:
    uut = unit()
    told: list[Any] = []

    def listener(*arguments: Any) -> None:
        told.append((arguments, uut.done, uut.summer))
        with pytest.raises(ValueError):  # nor does it wait for a lock held while telling
            uut.append_assertion(Assertion("late", 1))

    uut.done_event.subscribe(listener)
    with pytest.raises(ValueError, match=r"^At least one assertion is needed when an UUT is done\.$"):
        uut.done = True
    for arguments in (OK, TBD, TBD):
        uut.append_assertion(Assertion(f"item{len(uut.assertions)}", **arguments))
    with pytest.raises(ValueError, match=r'^Assertion "item1" is still in "TBD" state\.$'):
        uut.done = True
    uut.done = False
    assert (uut.done, told) == (False, [])
    for item in uut.assertions[1:]:
        item.update(1)
    uut.done = True
    end = uut.end_time
    uut.done = True
    assert told == [((uut,), True, "OK")] and uut.end_time == end
    with pytest.raises(ValueError, match="Once an UUT is done, it could not be converted to not done."):
        uut.done = False
    with pytest.raises(ValueError, match=r"^UUT has done, no assertion could be added\.$"):
        uut.append_assertion(Assertion("late", 1))
    assert len(uut.assertions) == 3


def test_verdicts_are_asked_of_the_assertions_as_they_are_overridden() -> None:
    class Odd(Assertion):
        def is_ng(self) -> bool:
            return self.name == "bad"

        def is_tbd(self) -> bool:
            return self.name == "open"

        def get_name(self) -> str:
            return "shown"

    uut = UUT()
    uut.append_assertion(Odd("open", 1))
    with pytest.raises(ValueError, match='"shown"'):
        uut.done = True
    uut.append_assertion(Odd("bad", 1))
    assert (uut.summer, uut.first_ng) == ("NG", uut.assertions[1])


FIELDS = {
    Assertion: "name value lower upper unit result assert_time report_needed elapse_time",
    UUT: "begin_time end_time serial_number done assertions lock done_event cell_number",
    TestItem: "name assertion test_func before_test after_test retry_count retry_interval",
}


@pytest.mark.parametrize("kind", FIELDS)
def test_private_fields_have_their_mangled_names(kind: type) -> None:
    made = {Assertion: Assertion("a", 1.5), UUT: unit(OK), TestItem: TestItem("t", Assertion(), print)}[kind]
    for name in FIELDS[kind].split():
        private, new = f"_{kind.__name__}__{name}", [name]
        getattr(made, private)
        setattr(made, private, new if name not in ("result", "report_needed") else False)
        assert getattr(made, private) in (new, False), name
        delattr(made, private)


def test_what_is_given_is_kept_and_the_unit_is_a_text() -> None:
    assert Assertion("a", assert_time="noon").assert_time == "noon"
    assert not gc.is_tracked(Assertion("a", 1.5, 1, 2, "V"))
    updated = Assertion("a", 1, 0, unit=None)
    updated.update(2, assert_time=7)
    assert (updated.assert_time, type(updated.assert_time), updated.unit) == (7, int, None)
    for wrong in (lambda: updated.set_unit(None), lambda: setattr(updated, "unit", 5)):  # type: ignore[arg-type]
        with pytest.raises(TypeError, match="must be str"):
            wrong()


def test_the_lock_of_a_unit_holds_back_who_appends() -> None:
    uut = unit(OK)
    late = threading.Thread(target=uut.append_assertion, args=(Assertion("late", 1),))
    with uut._UUT__lock:
        late.start()
        late.join(0.05)
        assert late.is_alive() and len(uut.assertions) == 1
    late.join(60)
    assert len(uut.assertions) == 2


@pytest.mark.parametrize("copy_of", [copy.deepcopy, *(partial(repickled, way=way) for way in (0, 2, 5))])
def test_records_are_copied_and_pickled(copy_of: Any) -> None:
    original = unit(OK, {"value": 1.5, "lower": 1, "assert_time": 3, "report_needed": False}, done=True)
    original.done_event.subscribe(print)
    original.assertions[0].note = original.note = "kept"
    with original._UUT__lock:
        made = copy_of(original)
    assert (made.serial_number, made.cell_number, made.summer) == ("SN1", 2, "OK")
    assert (made.elapse, made.note, made.assertions[0].note) == (original.elapse, "kept", "kept")
    second = made.assertions[1]
    assert (second.value, second.lower, second.assert_time, second.report_needed) == (1.5, 1, 3, False)
    assert second is not original.assertions[1] and "0 listeners" in repr(made.done_event)
    with made._UUT__lock:
        pass
    step = copy_of(TestItem("t", second, print, retry_count=2))
    assert (step.name, step.assertion.value, step.test_func, step.retry_count) == ("t", 1.5, print, 2)
    statistics = copy_of(Statistics(ok=1, ng=3))
    statistics.increase(False)
    assert (statistics.get_total(), statistics.get_ng_percent()) == (5, 80.0)
    statistics.clear()
    assert (statistics.get_ok_percent(), type(statistics.get_ok_percent())) == (0, int)


STATE = Assertion("a").__getstate__()
WRONG_STATES = [
    (), ("a", 1, None, None, "", 9, True, 1.0, {}), None, {}, {1: 2}, {**STATE, "_Assertion__result": 3},
    {**STATE, "_Assertion__report_needed": None}, {k: v for k, v in STATE.items() if "upper" not in k},
]  # fmt: skip


@pytest.mark.parametrize("state", WRONG_STATES)
def test_a_wrong_state_is_refused_and_changes_nothing(state: Any) -> None:
    assertion = Assertion("a", 1, 0, 2)
    with pytest.raises(TypeError):
        assertion.__setstate__(state)
    assert (assertion.name, assertion.value, assertion.result) == ("a", 1, "OK")
