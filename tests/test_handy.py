"""Listeners and exception texts of qon_handy."""

import threading
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
    failures: list[BaseException] = [KeyError("one"), ValueError("two"), SystemExit(3)]
    event.subscribe(window.on_event)
    for count, failure in enumerate(failures, 1):

        def fail(_value: Any, failure: BaseException = failure) -> None:
            raise failure

        event.subscribe(fail)
        event.subscribe(window.on_event)
        with pytest.raises((KeyError, BaseExceptionGroup)) as caught:
            event(count)
        assert list(getattr(caught.value, "exceptions", [caught.value])) == failures[:count]
    assert window.got == [1, 1, 2, 2, 2, 3, 3, 3, 3]


def test_no_subscription_is_lost_among_threads() -> None:
    event, calls, start = Callback(), [], threading.Barrier(4)

    def work(number: int) -> None:
        start.wait(10)
        for i in range(300):
            event.subscribe(temporary := (lambda: None))
            event.subscribe(lambda i=i: calls.append((number, i)))
            assert event.unsubscribe(temporary)

    threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(30)
    event()
    assert len(calls) == len(set(calls)) == 4 * 300


def test_exception_text_leaves_out_the_outermost_frames_and_keeps_causes() -> None:
    def inner() -> None:
        raise ValueError("inner fault")

    def engine(skip: int) -> str:
        try:
            try:
                inner()
            except ValueError as error:
                raise RuntimeError("outer fault") from error
        except RuntimeError:
            return "".join(format_exception(skip))

    whole, cut = engine(0), engine(1)
    assert whole.count("in engine") == 2 and cut.count("in engine") == 1
    for text in (whole, cut, engine(99)):
        assert "ValueError: inner fault" in text and "in inner" in text
        assert text.endswith("RuntimeError: outer fault\n")
    assert format_exception(1) == []
