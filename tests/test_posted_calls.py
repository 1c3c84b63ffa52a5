"""Calls posted to the GUI thread: in order, one by one, and never so that the windows stand still."""

import threading
import time
from typing import Any

import pytest
import wx
from conftest import Uncaught
from qon_companions.posted_calls import PostedCalls
from support import pump


@pytest.fixture
def post(app: wx.App) -> PostedCalls:
    return PostedCalls()


def test_calls_keep_the_order_of_each_thread(post: PostedCalls) -> None:
    made: list[tuple[int, int]] = []
    threads = [
        threading.Thread(target=lambda n=n: [post(made.append, (n, i)) for i in range(2000)]) for n in range(4)
    ]
    for thread in threads:
        thread.start()
    pump(lambda: len(made) == 8000)
    for thread in threads:
        thread.join(5)
    assert all([i for n, i in made if n == number] == list(range(2000)) for number in range(4))


def test_a_failing_call_is_told_and_the_next_is_made(post: PostedCalls, uncaught: Uncaught) -> None:
    made: list[Any] = []
    post(int, "no number")
    post(lambda *args, **kw: made.append((args, kw)), 1, two=2)
    pump(lambda: made == [((1,), {"two": 2})])
    uncaught.take(ValueError)
    with pytest.raises(AssertionError, match="not callable"):
        post(None)


def test_calls_go_on_while_one_of_them_shows_a_dialog(post: PostedCalls) -> None:
    dialog, made = wx.Dialog(None), []
    post(lambda: made.append(dialog.ShowModal()))
    post(made.append, "during")
    post(lambda: wx.CallLater(50, post, dialog.EndModal, wx.ID_OK))
    pump(lambda: made == ["during", wx.ID_OK])
    dialog.Destroy()


def test_a_flood_leaves_the_event_loop_its_turn(post: PostedCalls) -> None:
    ticks, flooding = [], threading.Event()
    timer = wx.Timer()
    timer.Notify = lambda: ticks.append(time.monotonic())
    timer.Start(5)  # milliseconds

    def again() -> None:  # always one more call waits
        time.sleep(0.001)
        if not flooding.is_set():
            post(again)

    post(again)
    pump(lambda: len(ticks) >= 20, what="the timer has its turn")
    flooding.set()
    timer.Stop()
