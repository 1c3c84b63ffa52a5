"""The default layouts: what the operator reads, where it stands, who gets the keyboard."""

import threading
from collections.abc import Callable, Iterator
from typing import Any

import pytest
import wx
from layouts import Cell, Frame, press, shown, type_text
from qon_atsui import sizing
from support import pump, pump_for

SCREENS = ((1280, 1024), (1920, 1080))


@pytest.fixture
def frame(app: wx.App) -> Iterator[Frame]:
    """Three cells side by side."""
    with shown(Frame(3, 3, (1200, 900))) as window:
        yield window


# What the operator reads.

RUNS: dict[str, tuple[Callable[[Cell], Any], tuple[str, str, str]]] = {
    "new": (lambda c: None, ("ready", "READY", "Scan or type the serial number, then Enter")),
    "asked for a unit": (lambda c: c.prompt("Next, please", "white"), ("ready", "READY", "Next, please")),
    "started": (lambda c: c.started(), ("testing", "TESTING", "")),
    "instruction": (
        lambda c: (c.started(), c.prompt("Close the lid", "green")),
        ("testing", "TESTING", "Close the lid"),
    ),
    "paused": (lambda c: (c.started(), c.button("Resume")), ("paused", "PAUSED", "")),
    "resumed": (lambda c: (c.started(), c.button("Resume"), c.button("Pause")), ("testing", "TESTING", "")),
    "passed": (lambda c: (c.started(), c.ended("OK", "green")), ("ok", "OK", "")),
    "own word": (lambda c: (c.started(), c.ended("合格", "green")), ("ok", "合格", "")),
    "failed": (lambda c: (c.started(), c.ended("NG", "red")), ("ng", "NG", "")),
    "failed item": (lambda c: (c.started(), c.ended("NG", "red", "VOUT")), ("ng", "NG", "VOUT")),
    "failed items": (lambda c: (c.started(), c.judged("V", "I"), c.ended("NG", "red")), ("ng", "NG", "V  +1")),
    "aborted": (lambda c: (c.started(), c.ended("Aborted", "cyan")), ("aborted", "ABORTED", "")),
    "exception": (
        lambda c: (c.started(), c.ended("Exception Aborted", "cyan")),
        ("exception", "EXCEPTION", ""),
    ),
    "told after an exception": (
        lambda c: (c.started(), c.ended("Exception Aborted", "cyan", "no meter")),
        ("exception", "EXCEPTION", "no meter"),
    ),
    "over before its first blink": (
        lambda c: (
            c.ui_serial_number.Disable(),
            c.prompt("Running"),
            c.ui_test_logger.AppendText("Traceback (most recent call last):\nOSError: gone\n"),
            c.ended("Exception Aborted", "cyan"),
        ),
        ("exception", "EXCEPTION", "OSError: gone"),
    ),
    "again": (
        lambda c: (c.started(), c.ended("NG", "red"), c.started(), c.button("Pause")),
        ("testing", "TESTING", ""),
    ),
    "entry not used": (lambda c: c.ui_serial_number.Disable(), ("ready", "READY", None)),
}


@pytest.mark.parametrize("name", RUNS)
def test_the_band_says_the_state(app: wx.App, monkeypatch: pytest.MonkeyPatch, name: str) -> None:
    monkeypatch.setenv("QON_LANG", "en")
    act, (state, word, text) = RUNS[name]
    with shown(Frame(1, 1, (900, 700))) as window:
        cell = window.cells[0]
        act(cell)
        face = cell.ui_prompt.face
        assert (face.state, face.word) == (state, word)
        assert text is None or face.text == text
        assert cell.ui_abort.IsEnabled() is (state in ("testing", "paused"))


# Where things stand.


def visible_parts(cell: Cell) -> dict[str, wx.Rect]:
    names = (
        "ui_prompt",
        "ui_serial_number",
        "ui_start",
        "ui_abort",
        "ui_view_notebook",
        "_ui_details_button",
    )
    windows = {name: getattr(cell, name) for name in names}
    head = ("name", "serial", "elapsed", "gauge")
    windows |= {name: getattr(cell._ui_head, name) for name in head}
    return {name: window.GetRect() for name, window in windows.items() if window.IsShown()}


@pytest.mark.parametrize("screen", SCREENS)
@pytest.mark.parametrize(("cells", "columns"), [(1, 1), (4, 2), (8, 4), (20, 5)])
def test_cells_of_any_number_stay_usable(
    app: wx.App, screen: tuple[int, int], cells: int, columns: int
) -> None:
    with shown(Frame(cells, columns, screen)) as window:
        cell = window.cells[-1]
        pump(lambda: cell.GetSize().width * columns > screen[0] - 60)
        parts = visible_parts(cell)
        assert all(wx.Rect(cell.GetClientSize()).Contains(rect) for rect in parts.values()), parts
        placed = list(parts.items())
        for index, (name, rect) in enumerate(placed):
            for other, box in placed[index + 1 :]:
                assert not rect.Intersects(box), (name, other)
        band, height = parts["ui_prompt"].height, cell.GetSize().height
        full = "ui_view_notebook" in parts
        assert height / 5 <= band <= (height / 3 if full else height)
        assert full or "_ui_details_button" in parts
        assert parts["ui_serial_number"].width >= cell.FromDIP(140)
        for name in ("ui_start", "ui_abort"):
            assert parts[name].width >= cell.FromDIP(55) and parts[name].height >= cell.FromDIP(26)
        for child in cell.GetChildren():
            assert child.GetFont().GetPointSize() >= sizing.SMALLEST_POINTS
        for text in ("OK", "A much longer text than before, which goes on and on"):
            cell.started(text)
            cell.button("Pause")
            cell.ended("NG", "red", text)
            for field in (cell.ui_cell_name, cell.ui_ok_count, cell.ui_elapse_time):
                field.SetValue(text)
        pump_for(0.05)
        assert visible_parts(cell) == parts  # nothing moves for a text


# Who gets the keyboard.


def focused(frame: Frame) -> int | None:
    return next((i for i, cell in enumerate(frame.cells) if cell.ui_serial_number.HasFocus()), None)


def test_the_focus_goes_where_the_next_number_belongs_and_is_not_stolen(frame: Frame) -> None:
    first, second, third = frame.cells
    first.ui_serial_number.SetFocus()
    pump(lambda: focused(frame) == 0)
    type_text("A1")
    pump(lambda: first.ui_serial_number.GetValue() == "A1")
    press(wx.WXK_RETURN)
    press(wx.WXK_RETURN)  # the line feed of a scanner that sends two: starts no other cell
    pump(lambda: focused(frame) == 1)
    pump_for(0.2)
    assert (first.calls, second.calls) == (["start A1"], [])
    type_text("B")
    pump(lambda: second.ui_serial_number.GetValue() == "B")
    first.ended("OK", "green")
    third.ended("OK", "green")
    pump_for(0.1)
    assert focused(frame) == 1  # somebody types there
    type_text("2")
    pump(lambda: second.ui_serial_number.GetValue() == "B2")
    press(wx.WXK_RETURN)
    pump(lambda: focused(frame) == 0)  # who asked first
    assert second.calls == ["start B2"]
    second.ended("NG", "red")
    pump(lambda: focused(frame) == 1)  # nobody types: as the product wants it
    for cell in frame.cells:
        cell.ui_serial_number.Disable()
    pump(lambda: wx.Window.FindFocus() is third.ui_start)  # nobody is ready for a number


def test_a_question_takes_its_cell_alone_into_waiting_and_holds_the_focus_back(frame: Frame) -> None:
    first, second, third = frame.cells
    third.ui_serial_number.SetFocus()
    for cell in (first, second):
        cell.started()
    states: list[list[str]] = []
    inner = wx.Dialog(None, title="Cell 2")  # a notice, which only names its cell
    outer = wx.TextEntryDialog(first, "Colour?", "Cell 1")

    def within_inner() -> None:
        states.append([cell.state for cell in frame.cells])
        third.ui_serial_number.SetFocus()
        assert not third.ui_serial_number.HasFocus()
        inner.EndModal(wx.ID_OK)

    def within_outer() -> None:
        states.append([cell.state for cell in frame.cells])
        wx.CallAfter(within_inner)
        inner.ShowModal()
        states.append([cell.state for cell in frame.cells])
        outer.EndModal(wx.ID_OK)

    wx.CallAfter(within_outer)
    outer.ShowModal()
    assert states == [
        ["waiting", "testing", "ready"],
        ["waiting", "waiting", "ready"],
        ["waiting", "testing", "ready"],
    ]
    assert [cell.state for cell in frame.cells] == ["testing", "testing", "ready"]
    pump(lambda: focused(frame) == 2)
    for dialog in (inner, outer):
        dialog.Destroy()


def test_a_box_gives_the_focus_back_to_a_half_typed_number(frame: Frame) -> None:
    first, second, third = frame.cells
    first.started()
    second.started()
    third.ui_serial_number.SetFocus()
    pump(lambda: focused(frame) == 2)
    type_text("47")
    pump(lambda: third.ui_serial_number.GetValue() == "47")
    box = wx.TextEntryDialog(second, "Colour?", "Cell 2")

    def within() -> None:
        first.ended("OK", "green")
        box.EndModal(wx.ID_OK)

    wx.CallLater(100, within)
    box.ShowModal()
    box.Destroy()
    pump_for(0.2)
    type_text("11")
    pump(lambda: third.ui_serial_number.GetValue() == "4711")


def test_a_test_thread_reads_the_serial_number(frame: Frame) -> None:
    entry, read = frame.cells[0].ui_serial_number, []
    for act in (lambda: entry.SetValue("SN1"), lambda: entry.WriteText("x"), entry.Clear):
        act()
        thread = threading.Thread(target=lambda: read.append(entry.GetValue()))
        thread.start()
        thread.join(5)
    assert read == ["SN1", "xSN1" if read[1][0] == "x" else "SN1x", ""]
