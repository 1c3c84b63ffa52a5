"""The record of one unit: its assertions, its verdict, its one way to being done."""

import threading
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
    assert uut.summer == summer
    assert uut.is_ok is (summer == "OK")
    assert uut.is_ng is (summer == "NG")
    assert uut.first_ng_item_name() == first_ng
    assert uut.first_ng is uut.get_assertion_by_name(first_ng)


def test_times_of_the_unit(monkeypatch: pytest.MonkeyPatch) -> None:
    now = 100.0
    monkeypatch.setattr(time, "time", lambda: now)
    uut = unit(OK)
    now = 107.5
    assert (uut.begin_time, uut.end_time, uut.elapse) == (100.0, 107.5, 7.5)
    uut.done = True
    now = 200.0
    assert (uut.end_time, uut.elapse) == (107.5, 7.5)
    uut.end_time = 150
    assert uut.end_time == 150.0 and isinstance(uut.end_time, float)


@pytest.mark.parametrize(
    ("items", "message"),
    [
        ((), "At least one assertion is needed when an UUT is done."),
        ((OK, TBD, TBD), 'Assertion "item1" is still in "TBD" state.'),
    ],
)
def test_a_unit_that_cannot_be_done_stays_as_it_was(items: tuple[Any, ...], message: str) -> None:
    uut = unit(*items)
    told: list[UUT] = []
    uut.done_event.subscribe(told.append)
    with pytest.raises(ValueError) as caught:
        uut.done = True
    assert str(caught.value) == message
    assert (uut.done, told) == (False, [])
    first = uut.end_time
    while time.time() == first:
        pass
    assert uut.end_time > first


def test_done_is_told_once_and_for_ever() -> None:
    uut = unit(OK)
    told: list[Any] = []

    def listener(*arguments: Any) -> None:
        told.append((arguments, uut.done, uut.summer))
        with pytest.raises(ValueError):  # nor does it wait for a lock held while telling
            uut.append_assertion(Assertion("late", 1))

    uut.done_event.subscribe(listener)
    uut.done = False
    assert uut.done is False
    uut.done = True
    end = uut.end_time
    uut.done = True
    assert told == [((uut,), True, "OK")]
    assert uut.end_time == end
    with pytest.raises(ValueError, match=STILL_RUNNING):
        uut.done = False
    with pytest.raises(ValueError, match=r"^UUT has done, no assertion could be added\.$"):
        uut.append_assertion(Assertion("late", 1))
    assert [a.name for a in uut.assertions] == ["item0"]


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


REFUSED = [
    "UUT(serial_number=5)", "UUT('a', '1')", "UUT('a', None)", "UUT('a', 1.0)",
    "uut.append_assertion('item')",
    "uut.append_assertion(None)", "uut.get_assertion_by_name(5)", "setattr(uut, 'serial_number', 5)",
    "setattr(uut, 'cell_number', '1')", "setattr(uut, 'end_time', 'now')", "setattr(uut, 'done', 1)",
]  # fmt: skip


@pytest.mark.parametrize("call", REFUSED)
def test_arguments_of_a_wrong_type_are_refused(call: str) -> None:
    uut = unit(OK)
    with pytest.raises(TypeError):
        eval(call, {"UUT": UUT, "uut": uut})
    assert (uut.serial_number, uut.cell_number, uut.done, len(uut.assertions)) == ("SN1", 2, False, 1)
    uut.serial_number, uut.cell_number = "SN9", 4
    assert (uut.serial_number, uut.cell_number) == ("SN9", 4)


def test_appends_while_the_unit_becomes_done() -> None:
    uut = unit(OK)
    refused = [0, 0]
    half = threading.Event()

    def work(number: int) -> None:
        for index in range(2000):
            try:
                uut.append_assertion(Assertion(f"{number}.{index}", 1))
            except ValueError:
                refused[number] += 1
            if index == 1000:
                half.set()

    threads = [threading.Thread(target=work, args=(number,)) for number in (0, 1)]
    for thread in threads:
        thread.start()
    assert half.wait(10)
    uut.done = True
    recorded = len(uut.assertions)
    for thread in threads:
        thread.join(10)
    assert len(uut.assertions) == recorded == 1 + 4000 - sum(refused)
