"""Listeners, exception texts and times of qon_handy."""

import threading
import weakref
from typing import Any

import pytest
from qon_handy import Callback, format_exception


class Window:
    def __init__(self) -> None:
        self.got: list[Any] = []

    def on_event(self, value: Any) -> None:
        self.got.append(value)


def test_listeners_are_called_in_order_until_they_are_removed() -> None:
    event, window, order = Callback(), Window(), []
    event.subscribe(window.on_event)
    event.subscribe(lambda value: order.append((value, list(window.got))))
    event(7)
    assert order == [(7, [7])], "the first listener was called before the second"
    assert event.unsubscribe(window.on_event), "another object for the same bound method"
    assert not event.unsubscribe(window.on_event)
    event(8)
    assert window.got == [7] and len(order) == 2
    assert weakref.ref(event)() is event
    with pytest.raises(TypeError, match="'no function'"):
        event.subscribe("no function")  # type: ignore[arg-type]


def test_listeners_may_come_and_go_while_the_event_fires() -> None:
    event, called = Callback(), []

    def late() -> None:
        called.append("late")

    def removed() -> None:
        called.append("removed")

    def first() -> None:
        called.append("first")
        event.unsubscribe(removed)
        event.unsubscribe(first)
        event.subscribe(late)

    for listener in (first, removed):
        event.subscribe(listener)
    event()
    assert called == ["first"]
    event()
    assert called == ["first", "late"]


def test_a_failing_listener_keeps_no_other_from_being_called_and_is_not_lost() -> None:
    event, window = Callback(), Window()

    def fail(error: BaseException) -> Any:
        def listener(_value: Any) -> None:
            raise error

        return listener

    event.subscribe(fail(KeyError("one")))
    event.subscribe(window.on_event)
    with pytest.raises(KeyError, match="one"):
        event(1)
    event.subscribe(fail(ValueError("two")))
    with pytest.raises(ExceptionGroup) as group:
        event(2)
    assert [type(error) for error in group.value.exceptions] == [KeyError, ValueError]
    event.subscribe(fail(SystemExit(3)))
    with pytest.raises(BaseExceptionGroup) as any_group:
        event(3)
    assert any_group.value.subgroup(SystemExit) and window.got == [1, 2, 3]


def test_no_subscription_is_lost_among_threads() -> None:
    event, calls, start = Callback(), [], threading.Barrier(5)

    def work(number: int) -> None:
        start.wait(10)
        for i in range(300):
            event.subscribe(temporary := (lambda: None))
            event.subscribe(lambda i=i: calls.append((number, i)))
            assert event.unsubscribe(temporary)

    threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    start.wait(10)
    for thread in threads:
        thread.join(30)
    event()
    assert len(calls) == len(set(calls)) == 4 * 300


def _inner() -> None:
    raise ValueError("inner fault")


def _engine(skip: int) -> str:
    try:
        try:
            _inner()
        except ValueError as error:
            raise RuntimeError("outer fault") from error
    except RuntimeError:
        return "".join(format_exception(skip))


def test_exception_text_leaves_out_the_outermost_frames_and_keeps_causes() -> None:
    whole, cut = _engine(0), _engine(1)
    assert whole.count("in _engine") == 2 and cut.count("in _engine") == 1
    for text in (whole, cut, _engine(99)):
        assert "ValueError: inner fault" in text and "in _inner" in text
        assert text.endswith("RuntimeError: outer fault\n")
    assert format_exception(1) == []
