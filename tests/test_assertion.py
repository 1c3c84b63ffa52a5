"""The verdict of one measurement and the views of it."""

from typing import Any

import pytest
import qon_ats
import qon_testparameters
from qon_ats import Assertion


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
OK: list[dict[str, Any]] = [
    {"value": 3}, {"value": 5, "lower": 5, "upper": 5}, {"value": "b", "lower": "a", "upper": "c"},
    {"value": True, "lower": 1, "upper": 1}, {"value": 2**70, "lower": 2**70, "upper": 2**70 + 1},
    {"value": Near(), "lower": 1}, {"value": 99, "upper": 1, "result": "Pass"}, {"result": "oK"},
    {"result": Shout("NG")}, {"result": 1}, {"result": b"NG"},
]  # fmt: skip
NG: list[dict[str, Any]] = [
    {"value": 5.0001, "upper": 5}, {"value": 4.9999, "lower": 5, "upper": 6},
    {"value": float("nan"), "lower": 0}, {"value": 2**53 + 1, "upper": float(2**53)},
    {"value": Near(), "lower": 1, "upper": 1}, {"result": "ng"},
    {"value": 3, "result": "fail"}, {"result": ""}, {"result": 0}, {"result": []},
]  # fmt: skip
VERDICTS = [
    (case, verdict) for cases, verdict in ((NOT_JUDGED, None), (OK, True), (NG, False)) for case in cases
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
    full.report_needed = True
    full.set_elapse_time(1.5)
    full.unit = "mV"
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


def test_verdict_words_can_be_changed_for_all_records(monkeypatch: pytest.MonkeyPatch) -> None:
    old, uut = Assertion("x", 1), qon_ats.UUT()
    uut.append_assertion(old)
    uut.done = True
    monkeypatch.setattr(Assertion, "OK_STR", "合格")
    assert old.result == Assertion("y", 1).get_result() == uut.summer == "合格"


def test_export_makes_a_parameter_of_seven_arguments(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(qon_testparameters, "Parameter", lambda *given: given)
    assert Assertion("v", 1.5, 1, 2, "V").export_config() == ("v", "v", 1.5, 1, 2, "V", "float")
    assert Assertion("s", True).export_config() == ("s", "s", True, None, None, "", "bool")
    assert Assertion("none").export_config() == ("none", "none", "", None, None, "", "str")
