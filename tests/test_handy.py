"""Listeners and exception texts of qon_handy."""

import threading
from concurrent.futures import ThreadPoolExecutor
from unittest.mock import Mock

import pytest
from qon_handy import Callback, format_exception


def test_listeners_are_called_in_order_until_they_are_removed() -> None:
    event, first, second = Callback(), [], []
    event.subscribe(first.append)
    event.subscribe(lambda value: second.append((value, list(first))))
    event(7)
    assert second == [(7, [7])], "the first listener was called before the second"
    assert event.unsubscribe(first.append), "another object for the same bound method"
    assert not event.unsubscribe(first.append)
    event(8)
    assert first == [7] and len(second) == 2
    with pytest.raises(TypeError, match="'no function'"):
        event.subscribe("no function")  # type: ignore[arg-type]


def test_listeners_may_come_and_go_while_the_event_fires() -> None:
    event, called = Callback(), []

    def first() -> None:
        called.append("first")
        event.unsubscribe(removed)
        event.unsubscribe(first)
        event.subscribe(lambda: called.append("late"))

    removed = lambda: called.append("removed")
    event.subscribe(first)
    event.subscribe(removed)
    event()
    assert called == ["first"]
    event()
    assert called == ["first", "late"]


def test_a_failing_listener_keeps_no_other_from_being_called_and_is_not_lost() -> None:
    event, got = Callback(), []
    failures: list[BaseException] = [KeyError("one"), ValueError("two"), SystemExit(3)]
    for count, failure in enumerate(failures, 1):
        event.subscribe(Mock(side_effect=failure))
        event.subscribe(got.append)
        with pytest.raises((KeyError, BaseExceptionGroup)) as caught:
            event(count)
        assert list(getattr(caught.value, "exceptions", [caught.value])) == failures[:count]
    assert got == [1, 2, 2, 3, 3, 3]


def test_no_subscription_is_lost_among_threads(hasty_switching: None) -> None:
    event, calls, start = Callback(), [], threading.Barrier(4)

    def work(number: int) -> None:
        start.wait(60)
        for i in range(300):
            event.subscribe(temporary := (lambda: None))
            event.subscribe(lambda i=i: calls.append((number, i)))
            assert event.unsubscribe(temporary)

    with ThreadPoolExecutor(4) as pool:
        list(pool.map(work, range(4)))
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
