"""The record of one unit: its assertions, its verdict, its one way to being done."""

import time
from typing import Any

import pytest
from qon_ats import UUT, Assertion

OK = {"value": 1}
NG = {"value": 1, "upper": 0}
TBD: dict[str, Any] = {}
STILL_RUNNING = "Once an UUT is done, it could not be converted to not done."


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
    with pytest.raises(ValueError, match=STILL_RUNNING):
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
