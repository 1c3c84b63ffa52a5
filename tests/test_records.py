"""The records: one measurement and its verdict, one unit and its end, counters of units."""

import time
from typing import Any

import pytest
import qon_testparameters
from qon_ats import UUT, Assertion, Statistics


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


def test_missing_fields_are_empty_where_they_are_shown() -> None:
    empty = Assertion("a")
    assert (empty.value, empty.get_value(), empty.get_lower(), empty.get_upper()) == ("", "", "", "")
    assert (empty.lower, empty.upper, empty.unit, empty.get_elapse_time()) == (None, None, "", None)
    full = Assertion("b", 1, 0, 2, "V", None, 7.0, False)
    assert (full.get_name(), full.get_value(), full.get_lower(), full.get_upper()) == ("b", 1, 0, 2)
    assert (full.name, full.value, full.lower, full.upper, full.get_unit()) == ("b", 1, 0, 2, "V")
    assert (full.report_needed, full.assert_time) == (False, 7.0)
    full.report_needed, full.unit = True, "mV"
    full.set_elapse_time(1.5)
    assert (full.report_needed, full.get_elapse_time(), full.unit) == (True, 1.5, "mV")
    for attribute in ("name", "value", "lower", "upper", "result"):
        with pytest.raises(AttributeError):
            setattr(full, attribute, "x")


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


@pytest.mark.parametrize(
    ("ok", "ng", "ok_percent", "ng_percent"),
    [(0, 0, 0, 0), (2, 1, 200 / 3, 100 / 3), (1, 3, 25.0, 75.0), (7, 0, 100.0, 0.0)],
)
def test_counts_and_percentages(ok: int, ng: int, ok_percent: float, ng_percent: float) -> None:
    counted = Statistics()
    for result in [True] * ok + [False] * ng:
        counted.increase(result)
    for statistics in (Statistics(ok=ok, ng=ng), counted):
        figures = (statistics.get_total(), statistics.get_ok(), statistics.get_ng())
        assert figures == (ok + ng, ok, ng)
        percents = statistics.get_ok_percent(), statistics.get_ng_percent()
        assert percents == pytest.approx((ok_percent, ng_percent), abs=1e-12)
        assert {type(percent) for percent in percents} == {float if ok + ng else int}
    counted.clear()
    assert (counted.get_total(), counted._ok, counted._ng) == (0, 0, 0)
