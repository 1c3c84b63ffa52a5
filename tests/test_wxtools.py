"""Message boxes and questions: answers, threads, turns, and keys that were not meant for them."""

import threading
from collections.abc import Callable
from typing import Any

import pytest
import wx
from qon_companions import gui_thread
from qon_companions.boxes import asking, keys, turns
from qon_wxtools import MB, TrueOrFalseDialog
from station import LATER, Answers, dialogs
from support import click, press, pump, pump_for, scan, words

LONG = "\n".join(f'  File "script_{number}.py", line {number}, in run' for number in range(60))
GUARD_SECONDS = 0.1


@pytest.fixture(autouse=True)
def quick(english: None, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(turns, "PAUSE_SECONDS", 0.05)
    monkeypatch.setattr(keys, "GUARD_SECONDS", GUARD_SECONDS)


@pytest.fixture
def cells(frame: wx.Frame) -> list[wx.Panel]:
    """A station's window with four places for cells."""
    places = [wx.Point(500 * (i % 2), 350 * (i // 2)) for i in range(4)]
    return [wx.Panel(frame, pos=place, size=wx.Size(495, 345)) for place in places]


class Asked(threading.Thread):
    """A test thread that asks something; `result` is what it was told."""

    def __init__(self, ask: Callable[[], Any]) -> None:
        super().__init__(daemon=True)
        self._ask = ask
        self.result: Any = None
        self.start()

    def run(self) -> None:
        self.result = self._ask()


def ask(cell: wx.Window, title: str, **labels: str) -> int:
    """As a cell asks on behalf of its script, in the GUI thread."""
    dialog = TrueOrFalseDialog(cell, title, question=f"{title}: LED lit?", **labels)
    answer = dialog.ShowModal()
    dialog.Destroy()
    return answer


# A box; the button that is clicked, None to close it; the answer; what is to be read.
BOXES: list[tuple[Callable[[], int], int | None, int, tuple[str, ...]]] = [
    (lambda: MB.Notice("参数保存成功。"), wx.ID_OK, wx.OK, ("Notice", "参数保存成功。")),
    (lambda: MB.Notice(message="In & close", title="Cell 2"), wx.ID_OK, wx.OK, ("Cell 2", "In & close")),
    (lambda: MB.Notice("Sorry", "Not there yet."), wx.ID_OK, wx.OK, ("Sorry", "Not there yet.")),
    (lambda: MB.Error(ValueError("a value")), None, wx.OK, ("Error", "a value")),
    (lambda: MB.Error(LONG), wx.ID_OK, wx.OK, ("script_0.py", "script_59.py")),
    (lambda: MB.Confirm("Clear?\nFor ever!"), wx.ID_YES, wx.YES, ("Clear? For ever!",)),
    (lambda: MB.Confirm("Clear?"), wx.ID_NO, wx.NO, ("Clear?",)),
    (lambda: MB.Confirm("Clear?"), None, wx.NO, ("Clear?",)),
]


def test_a_box_shows_its_texts_and_gives_the_answer(frame: wx.Frame) -> None:
    def act(box: Any) -> None:
        assert [text for text in case[3] if text not in words(box)] == []
        assert wx.Display(0).GetClientArea().Contains(box.GetRect()), "larger than the screen"
        click(box.buttons[case[1]]) if case[1] else box.Close()

    for case in BOXES:
        with dialogs(act):
            assert case[0]() == case[2], case[3]


def test_questions_come_one_after_the_other_and_each_gets_its_answer(cells: list[wx.Panel]) -> None:
    """Those of threads and of cells, over the cell; who was answered and still waits is named."""
    threads = [Asked(lambda: MB.Confirm("first?"))]
    given = {f"Cell {number}": wx.ID_OK if number % 2 else wx.ID_CANCEL for number in range(1, 5)}
    got: dict[str, int] = {}
    seen: list[str] = []

    def asks(cell: wx.Window, title: str) -> None:
        got[title] = ask(cell, title)

    def all_asked() -> bool:
        if len(threads) == 1:
            threads.append(Asked(lambda: MB.Confirm("second?")))
        elif len(turns._asked) + len(asking._waiting) == 2:  # it may have to wait unasked
            for each in zip(cells, given, strict=True):
                wx.CallAfter(asks, *each)
        return len(turns._asked) + len(asking._waiting) == 6

    def answer(box: Any) -> Any:
        if not seen and not all_asked():
            return LATER
        title = box.GetTitle() if box.GetTitle() in given else box.message
        if title in given:
            middle = box.GetPosition() + wx.Point(*(box.GetSize() / 2))
            assert cells[list(given).index(title)].GetScreenRect().Contains(middle)
            assert " goes on after this answer." in words(box)
        seen.append(title)
        return click(box.buttons[given.get(title, wx.ID_YES if title == "first?" else wx.ID_NO)])

    with Answers(answer):
        pump(lambda: len(got) == 4 and not any(thread.is_alive() for thread in threads))
    assert got == given and seen[0] == "first?" and [title for title in seen if title in given] == [*given]
    assert [thread.result for thread in threads] == [wx.YES, wx.NO]


def type_in(message: str, title: str) -> None:
    dialog = wx.TextEntryDialog(None, message, title)
    dialog.ShowModal()
    dialog.Destroy()


@pytest.mark.parametrize("first", [MB.Notice, type_in])
def test_a_box_under_an_input_in_which_a_third_one_waits_is_answered(first: Any, frame: wx.Frame) -> None:
    """wx hides a box that is answered while a later one's loop is still there, and would never return."""
    got: list[str] = []

    def ask_for(function: Callable[..., Any], title: str) -> None:
        function("Fit the board", title)
        got.append(title)

    boxes = 2 if first is MB.Notice else 1  # that take turns
    then = {"A": (type_in, "B"), "B": (MB.Notice, "C")}
    order = ["B", "A", "C"]

    def act(dialog: Any) -> Any:
        title = dialog.GetTitle()
        if title in then:
            wx.CallAfter(ask_for, *then.pop(title))
        elif title == order[0] and len(turns._asked) == boxes:
            order.remove(title)
            return dialog.EndModal(wx.ID_OK)
        return LATER

    with Answers(act):
        wx.CallAfter(ask_for, first, "A")
        pump(lambda: got == ["C", "B", "A"])


@pytest.mark.parametrize("where", ["window", "cell"])
def test_a_box_of_a_thread_ends_when_its_window_goes(where: str, frame: wx.Frame, cells: list[Any]) -> None:
    """The one that is open and the one that waits for its turn; nobody hangs, nothing crashes."""
    threads = [Asked(lambda: gui_thread.call(ask, cells[2], "Cell 3")) for _ in range(2)]

    def act(_box: Any) -> Any:
        return LATER if len(turns._asked) < 2 else (frame if where == "window" else cells[2]).Destroy()

    with Answers(act):
        pump(lambda: not any(thread.is_alive() for thread in threads))
    assert [thread.result for thread in threads] == [wx.ID_CANCEL, wx.ID_CANCEL]
    pump(lambda: not [window for window in wx.GetTopLevelWindows() if window is not frame])


def test_keys_not_meant_for_the_box(cells: list[wx.Panel], monkeypatch: pytest.MonkeyPatch) -> None:
    """Those for the window below it, a scanned number with Y and N in it, its Enter, Enter and space alone."""
    monkeypatch.setattr(keys, "GUARD_SECONDS", 60.0)

    def act(box: Any) -> None:
        for number in ("", "YN-4711"):
            box.buttons[wx.ID_OK].SetFocus() if not number else box._nowhere.SetFocus()
            scan(number, box)
            press(wx.WXK_SPACE)
            pump_for(0.2)
            assert box.IsModal(), "it was answered"
        assert "“YN-4711” is no answer" in words(box)
        monkeypatch.setattr(keys, "GUARD_SECONDS", 0.0)
        scan("", box)
        pump_for(0.2)
        assert box.IsModal(), "it was answered"
        scan("good", box)  # a word that is on a button is an answer

    with dialogs(act):
        assert ask(cells[0], "Cell 1", true="Good", false="Bad") == wx.ID_OK


KEYS: list[tuple[list[Any], dict[str, str], int]] = [
    ([("Y", wx.MOD_ALT)], {}, wx.ID_OK),
    ([("N", wx.MOD_ALT)], {"true": "Yes", "false": "no"}, wx.ID_CANCEL),
    ([("E", wx.MOD_ALT)], {"true": "Red & on", "false": "Red"}, wx.ID_CANCEL),
    ([("N", wx.MOD_ALT)], {"true": "是", "false": "否"}, wx.ID_CANCEL),
    ([(wx.WXK_TAB, 0), (wx.WXK_SPACE, 0)], {}, wx.ID_OK),
    ([(wx.WXK_TAB, 0), (wx.WXK_TAB, 0), (wx.WXK_RETURN, 0)], {}, wx.ID_CANCEL),
    ([(wx.WXK_ESCAPE, 0), ("Y", wx.MOD_ALT)], {}, wx.ID_OK),  # Escape answers nothing
]


@pytest.mark.parametrize("case", KEYS)
def test_the_keyboard_alone_answers(case: Any, cells: list[wx.Panel]) -> None:
    typed, labels, answer = case

    def act(box: Any) -> None:
        for key, modifiers in typed:
            pump_for(keys.BURST_SECONDS + 0.05)  # slower than a scanner
            press(key, modifiers, over=box)

    with dialogs(act):
        assert ask(cells[0], "Cell 1", **labels) == answer
