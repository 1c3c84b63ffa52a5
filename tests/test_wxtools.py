"""Message boxes and questions: answers, threads, turns, and keys that were not meant for them."""

import threading
from collections.abc import Callable, Iterator
from typing import Any

import pytest
import wx
from dialogs import Operator, box, click, on_screen, press, scan, texts
from qon_companions import gui_thread
from qon_companions.boxes import turns
from qon_companions.boxes.keys import GUARD_SECONDS
from qon_wxtools import MB, TrueOrFalseDialog
from support import pump

LONG = "\n".join(f'  File "script_{number}.py", line {number}, in run' for number in range(60))


@pytest.fixture(autouse=True)
def english(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("QON_LANG", "en")


@pytest.fixture
def frame(app: wx.App) -> Iterator[wx.Frame]:
    """A station's window with four places for cells."""
    window = wx.Frame(None, title="Station", size=wx.Size(1000, 700))
    window.cells = [
        wx.Panel(window, pos=wx.Point(500 * (i % 2), 350 * (i // 2)), size=wx.Size(495, 345))
        for i in range(4)
    ]
    window.Show()
    pump(window.IsShownOnScreen)
    yield window
    if window:
        window.Destroy()
    pump(lambda: not on_screen())


class Asked(threading.Thread):
    """A test thread that asks something; `result` is what it was told."""

    def __init__(self, ask: Callable[[], Any]) -> None:
        super().__init__(daemon=True)
        self._ask = ask
        self.result: Any = None
        self.start()

    def run(self) -> None:
        self.result = self._ask()

    def ended(self) -> Any:
        pump(lambda: not self.is_alive(), 10.0, "the thread gets its answer")
        return self.result


def ask(cell: wx.Window, title: str, **labels: str) -> int:
    """As a cell asks on behalf of its script, in the GUI thread."""
    dialog = TrueOrFalseDialog(cell, title, question=f"{title}: LED lit?", **labels)
    answer = dialog.ShowModal()
    dialog.Destroy()
    return answer


# Message boxes.


@pytest.mark.parametrize(
    ("show", "press_button", "answer", "shown"),
    [
        (lambda: MB.Error("no meter"), wx.ID_OK, wx.OK, ["Error", "no meter"]),
        (
            lambda: MB.Notice("保存测试项参数设置成功。"),
            wx.ID_OK,
            wx.OK,
            ["Notice", "保存测试项参数设置成功。"],
        ),
        (
            lambda: MB.Notice(message="Put it in & close", title="Cell 2"),
            wx.ID_OK,
            wx.OK,
            ["Cell 2", "Put it in & close"],
        ),
        (
            lambda: MB.Notice("Sorry", "It is not there yet."),
            wx.ID_OK,
            wx.OK,
            ["Sorry", "It is not there yet."],
        ),
        (lambda: MB.Error(ValueError("a value")), None, wx.OK, ["a value"]),
        (lambda: MB.Confirm("Clear?\nFor ever!"), wx.ID_YES, wx.YES, ["Clear?", "For ever!"]),
        (lambda: MB.Confirm("Clear?"), wx.ID_NO, wx.NO, ["Clear?"]),
        (lambda: MB.Confirm("Clear?"), None, wx.NO, ["Clear?"]),
        (lambda: MB.Error(LONG), wx.ID_OK, wx.OK, ["script_0.py", "script_59.py"]),
    ],
)
def test_a_box_shows_its_texts_and_gives_the_answer(
    frame: wx.Frame, show: Callable[[], int], press_button: int | None, answer: int, shown: list[str]
) -> None:
    def operate() -> Iterator[Any]:
        yield box
        assert all(text in texts(box()) for text in shown)
        area = wx.Display(0).GetClientArea()
        assert area.Contains(box().GetRect()), "the box is larger than the screen"
        click(box().buttons[press_button]) if press_button else box().Close()

    with Operator(operate):
        assert show() == answer


# Threads and turns.


def test_boxes_of_two_threads_come_one_after_the_other_and_each_gets_its_answer(frame: wx.Frame) -> None:
    threads = [Asked(lambda: MB.Confirm("first?"))]
    seen: list[str] = []

    def operate() -> Iterator[Any]:
        yield box
        threads.append(Asked(lambda: MB.Confirm("second?")))
        yield lambda: len(turns._asked) == 2
        for answer in (wx.ID_YES, wx.ID_NO):
            yield lambda: box() and box().message not in seen
            seen.append(box().message)
            click(box().buttons[answer])

    with Operator(operate):
        assert [threads[0].ended(), threads[1].ended()] == [wx.YES, wx.NO]
    assert seen == ["first?", "second?"]


def test_cells_that_ask_at_the_same_time_are_answered_in_turn(frame: wx.Frame) -> None:
    """Each over its cell; who was answered and still waits for the others is named."""
    given = {f"Cell {number}": wx.ID_OK if number % 2 else wx.ID_CANCEL for number in range(1, 5)}
    got: dict[str, int] = {}
    seen: list[str] = []

    def operate() -> Iterator[Any]:
        yield lambda: len(turns._asked) == 4
        while len(seen) < 4:
            yield lambda: box() and box().GetTitle() not in seen
            title = box().GetTitle()
            cell = frame.cells[int(title[-1]) - 1]
            assert cell.GetScreenRect().Contains(box().GetRect())
            if len(seen) > 1:
                assert f"{seen[0]} goes on" in texts(box()) or f"{seen[1]}" in texts(box())
            seen.append(title)
            click(box().buttons[given[title]])

    def asks(cell: wx.Window, title: str) -> None:
        got[title] = ask(cell, title)

    for number, title in enumerate(given):
        wx.CallAfter(asks, frame.cells[number], title)
    with Operator(operate):
        pump(lambda: len(got) == 4, 20.0)
    assert got == given and seen == list(given)


@pytest.mark.parametrize("where", ["window", "cell"])
def test_a_box_of_a_thread_ends_when_its_window_goes(frame: wx.Frame, where: str) -> None:
    """The one that is open and the one that waits for its turn; nobody hangs, nothing crashes."""
    other = wx.Frame(None)
    threads: list[Asked] = []

    def operate() -> Iterator[Any]:
        question = lambda: gui_thread.call(ask, frame.cells[2], "Cell 3")
        threads.append(Asked(question))
        yield box
        threads.append(Asked(question))
        yield lambda: len(turns._asked) == 2
        (frame if where == "window" else frame.cells[2]).Destroy()

    with Operator(operate):
        pump(lambda: len(threads) == 2 and not any(thread.is_alive() for thread in threads), 10.0)
    assert [thread.result for thread in threads] == [wx.ID_CANCEL, wx.ID_CANCEL]
    other.Destroy()
    pump(lambda: not [window for window in wx.GetTopLevelWindows() if window is not frame])


# Keys.


def test_what_a_scanner_types_answers_nothing(frame: wx.Frame) -> None:
    """Neither a number with Y and N in it, nor its Enter, nor Enter alone."""

    def operate() -> Iterator[Any]:
        yield box
        scan(box(), "YN-4711")
        yield lambda: "“YN-4711” is no answer" in texts(box())
        yield GUARD_SECONDS
        press(box(), wx.WXK_RETURN)
        press(box(), wx.WXK_SPACE)
        yield 0.3
        assert box(), "it was answered"
        scan(box(), "good")  # a word that is on a button is an answer
        yield lambda: not box()

    with Operator(operate):
        assert ask(frame.cells[0], "Cell 1", true="Good", false="Bad") == wx.ID_OK


@pytest.mark.parametrize(
    ("keys", "labels", "answer"),
    [
        ([(ord("Y"), wx.MOD_ALT)], {}, wx.ID_OK),
        ([(ord("N"), wx.MOD_ALT)], {"true": "Yes", "false": "no"}, wx.ID_CANCEL),
        ([(ord("E"), wx.MOD_ALT)], {"true": "Red & on", "false": "Red"}, wx.ID_CANCEL),
        ([(ord("N"), wx.MOD_ALT)], {"true": "是", "false": "否"}, wx.ID_CANCEL),
        ([(wx.WXK_TAB, 0), (wx.WXK_SPACE, 0)], {}, wx.ID_OK),
        ([(wx.WXK_TAB, 0), (wx.WXK_TAB, 0), (wx.WXK_RETURN, 0)], {}, wx.ID_CANCEL),
        ([(wx.WXK_ESCAPE, 0)], {}, wx.ID_CANCEL),
    ],
)
def test_the_keyboard_alone_answers(
    frame: wx.Frame, keys: list[tuple[int, int]], labels: dict[str, str], answer: int
) -> None:
    def operate() -> Iterator[Any]:
        yield box
        yield GUARD_SECONDS
        for key, modifiers in keys:
            press(box(), key, modifiers)
            yield 0.2
        yield lambda: not box()

    with Operator(operate):
        assert ask(frame.cells[0], "Cell 1", **labels) == answer


# Window sizes.
