"""`wx.CallAfter` of a station: any rate, in order, and the event loop keeps turning."""

import collections
import itertools
import threading
import time
from collections.abc import Iterator
from types import SimpleNamespace

import pytest
import wx
from conftest import Uncaught
from qon_companions.posted_calls import MOST_WAITING, PostedCalls
from support import pump, python

POSTS = 2_000


@pytest.fixture
def posted(app: wx.App, monkeypatch: pytest.MonkeyPatch) -> Iterator[PostedCalls]:
    calls = PostedCalls()
    monkeypatch.setattr(wx, "CallAfter", calls)
    yield calls
    pump(lambda: not calls._calls)


def test_calls_of_many_threads_are_made_once_in_the_order_of_each(posted: PostedCalls) -> None:
    made: dict[int, list[int]] = {number: [] for number in range(4)}
    makers = set()

    def make(number: int, count: int) -> None:
        made[number].append(count)
        makers.add(threading.current_thread())

    def post(number: int) -> None:
        for count in range(POSTS):
            wx.CallAfter(make, number, count=count)

    threads = [threading.Thread(target=post, args=(number,)) for number in made]
    for thread in threads:
        thread.start()
    pump(lambda: all(len(counts) == POSTS for counts in made.values()))
    for thread in threads:
        thread.join(60)
    assert all(counts == list(range(POSTS)) for counts in made.values())
    assert makers == {threading.main_thread()}


def test_the_loop_turns_while_more_is_posted_than_it_can_make(posted: PostedCalls) -> None:
    ticks: list[float] = []
    made: list[int] = []
    timer = wx.Timer()
    timer.Notify = lambda: ticks.append(time.monotonic())  # type: ignore[method-assign]
    timer.Start(10)

    def work(number: int) -> None:
        time.sleep(0.002)
        made.append(number)
        if number < 300:
            wx.CallAfter(work, number + 100)  # what is posted faster than made

    for number in range(100):
        wx.CallAfter(work, number)
    pump(lambda: len(made) == 400)
    timer.Stop()
    gaps = [after - before for before, after in itertools.pairwise(ticks)]
    assert len(ticks) > 20 and max(gaps) < 0.3


def test_a_call_that_raises_is_told_and_the_next_one_is_made(posted: PostedCalls, uncaught: Uncaught) -> None:
    made: list[str] = []
    wx.CallAfter(int, "no number")
    wx.CallAfter(made.append, "next")
    pump(lambda: made)
    uncaught.take(ValueError)
    with pytest.raises(AssertionError):
        wx.CallAfter("no function")


def test_calls_are_made_inside_the_loop_of_a_dialog_that_one_of_them_shows(posted: PostedCalls) -> None:
    made: list[str] = []

    def dialog() -> None:
        wx.CallAfter(made.append, "posted inside")
        pump(lambda: made == ["waiting", "posted inside"])
        made.append("dialog closed")

    wx.CallAfter(dialog)
    wx.CallAfter(made.append, "waiting")
    pump(lambda: len(made) == 3)
    assert made[-1] == "dialog closed"


ANOTHER_APP = """\
import wx
from qon_companions.posted_calls import PostedCalls
calls, made = PostedCalls(), []
def refused():
    try:
        calls(made.append, "of none")
    except AssertionError:
        return True
assert refused()
first = wx.App(False)
calls(made.append, "of the first")
first.Destroy()
assert refused()
second = wx.App(False)
wx.Frame(None).Show()
calls(made.append, "of the second")
calls(second.ExitMainLoop)
second.MainLoop()
assert made == ["of the second"], made
"""


def test_calls_go_with_their_application() -> None:
    done = python("-c", ANOTHER_APP)
    assert done.returncode == 0, done.stderr


class Cell:
    """What a test thread's cell answers a thread that waits."""

    def __init__(self) -> None:
        self.uut, self._exception_object, self.aborted = SimpleNamespace(done=False), None, False

    def check_abort(self) -> None:
        if self.aborted:
            raise InterruptedError


def test_a_test_thread_that_posts_without_end_waits_for_the_windows_but_not_in_cleanup(
    posted: PostedCalls,
) -> None:
    cell, made, seen = Cell(), collections.Counter[str](), []
    many = MOST_WAITING + 500

    def script() -> None:
        try:
            for _ in range(many):
                wx.CallAfter(made.update, ["kept"])
            for _ in itertools.count():
                wx.CallAfter(made.update, ["endless"])
        except InterruptedError:
            seen.append("aborted")
        cell.uut.done = True
        for _ in range(many):
            wx.CallAfter(made.update, ["cleanup"])

    thread = threading.Thread(target=script, daemon=True)
    thread.cell_proxy = cell
    thread.start()
    try:
        while len(posted._calls) < MOST_WAITING:
            time.sleep(0.001)
        for _ in range(many):
            wx.CallAfter(made.update, ["window"])  # would stand still for ever
        assert made.total() == 0 and len(posted._calls) == MOST_WAITING + many
        pump(lambda: made["kept"] == many)
        thread.join(0.2)
        assert thread.is_alive()
    finally:
        cell.aborted = True
        thread.join(60)
    assert not thread.is_alive() and seen == ["aborted"]
    pump(lambda: made["cleanup"] == made["window"] == many)
