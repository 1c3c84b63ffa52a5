"""Scanners: what is a scan, where it goes whatever has the keyboard, and what is asked or refused before a start."""

import time
from collections.abc import Callable, Iterator
from typing import Any

import pytest
import qon_ats
import qon_wxtools
import wx
from journey_support import button, state
from qon_companions import scans
from qon_companions.boxes import Box
from scanner import burst
from station import Station, dialogs
from support import click, has_focus, press, pump, pump_for

pytestmark = pytest.mark.usefixtures("english")

PATIENT = {"scan_key_ms": 150}  # a display that is busy, too, makes pauses
# What is typed, with so many milliseconds between keys, and what of it is a scan at 100 ms at most.
KEYS: list[tuple[str, int, list[str]]] = [
    ("4711\n", 10, ["4711"]),
    ("SN-7a\t", 40, ["SN-7a"]),
    ("471\n", 10, []),
    ("4711\n", 130, []),
    ("4711\n\n4712\n", 10, ["4711", "4712"]),
]


@pytest.fixture
def taken(frame: wx.Frame) -> Iterator[list[str]]:
    """What is taken for a scan while an entry has the keyboard."""
    found: list[str] = []

    def take(text: str, _whole: bool) -> None:
        found.append(text)

    frame.entry = wx.TextCtrl(frame, style=wx.TE_PROCESS_ENTER)
    frame.entered = []
    frame.entry.Bind(wx.EVT_TEXT_ENTER, lambda _event: frame.entered.append(frame.entry.GetValue()))
    frame.entry.SetFocus()
    pump(frame.entry.HasFocus)
    scans.watch(take, gap_ms=100)
    yield found
    scans.leave(take)


@pytest.mark.parametrize("busy", [False, True])
@pytest.mark.parametrize(("text", "ms", "expected"), KEYS)
def test_what_is_a_scan(
    text: str, ms: int, expected: list[str], busy: bool, frame: Any, taken: list[str]
) -> None:
    """By the times of the keys, also when the window was busy and gets them all at once."""
    burst(text, ms)
    if busy:
        time.sleep(len(text) * ms / 1000 + 0.05)
    typed = [] if expected else [text.strip()]
    pump(lambda: (taken, frame.entered) == (expected, typed))
    pump_for(0.1)
    assert (taken, frame.entered, frame.entry.GetValue()) == (expected, typed, "".join(typed))


def test_a_held_key_is_no_scan(frame: Any, taken: list[str]) -> None:
    scans.watch(scans._run.take, gap_ms=150)  # keys repeat each 40 ms
    burst("7", hold=900)
    burst("\n")
    pump(lambda: frame.entered)
    assert len(frame.entered[0]) > scans.FEWEST_KEYS and not taken


def test_without_keys_that_can_be_held_back(frame: Any, taken: list[str]) -> None:
    run = scans.WxKeys()
    run.take, scans._run.take = scans._run.take, None
    try:
        frame.entry.SetValue("half")
        burst("4711-3\n")
        pump(lambda: taken == ["4711-3"])
        assert (frame.entry.GetValue(), frame.entered) == ("half", [])
    finally:
        wx.EvtHandler.RemoveFilter(run._filter)


def test_a_scan_goes_to_the_cell_whatever_has_the_keyboard(station: Station) -> None:
    frame = station("meet()\nself.append_ok('a', 1)", "self.pause()", main=PATIENT, show_debug_shell=True)
    cell, paused = frame.cells
    paused.start()
    pump(lambda: state(paused)[0] == "PAUSED")
    pages = cell.ui_view_notebook
    numbers = (f"SN-{number:04d}" for number in range(1, 100))

    def scan_here() -> None:
        pump_for(0.1)
        assert not cell.is_running()
        number = next(numbers)
        burst(number + "\n")
        pump(lambda: cell.uut and cell.uut.serial_number == number, what="the cell has the number")

    def in_window(window: wx.Window) -> None:
        window.SetFocus()
        assert not has_focus(cell.ui_serial_number)
        scan_here()
        station.finish(cell)

    def in_box(opens: Callable[[], int]) -> None:

        def close() -> None:
            try:
                scan_here()
                station.finish(cell)
            finally:
                end()

        def end() -> None:
            ours = [w for w in wx.GetTopLevelWindows() if isinstance(w, Box) and w.IsModal()]
            if ours:
                ours[-1].Close()
            else:
                press(wx.WXK_ESCAPE)

        wx.CallLater(200, close)
        assert opens() not in (wx.YES, wx.ID_OK)

    in_window(cell.ui_assertions)
    in_window(paused.ui_start)  # Enter would resume
    in_window(paused.ui_abort)
    shell = pages.GetPage(3)
    pages.SetSelection(3)
    before = shell.GetText()
    in_window(shell)
    assert shell.GetText() == before
    pages.SetSelection(0)
    in_window(pages)
    press(wx.WXK_F7)
    viewer = pump(lambda: next((w for w in wx.GetTopLevelWindows() if isinstance(w, qon_ats.TestDataViewerFrame) and w.IsShown()), None))  # fmt: skip
    in_window(viewer.test_data_viewer_panel.ui_history)
    viewer.Hide()
    in_box(lambda: qon_wxtools.MB.Confirm("Clear?"))
    in_box(lambda: wx.MessageBox("Exit?", "Info", style=wx.YES_NO | wx.ICON_QUESTION))
    in_box(lambda: wx.FileDialog(frame, defaultFile="a.xlsx", style=wx.FD_SAVE).ShowModal())
    press("T", wx.MOD_ALT)  # a menu is open
    scan_here()
    station.finish(cell)
    assert state(paused)[0] == "PAUSED"


def red_words(frame: Any) -> str:
    return frame._ui_desk._words.words if frame._ui_desk._words else ""


def test_a_scan_is_for_the_marked_cell_and_no_answer_of_another_one(station: Station) -> None:
    ask = "self.append_ok('BATCH', self.input_text('Batch?'))"
    frame = station("meet()\nself.append_ok('a', 1)", ask, "meet()\nself.append_ok('a', 1)", main=PATIENT)
    first, asks, third = frame.cells
    click(asks.ui_prompt)
    burst("SN-2222\n")

    def answer(box: Any) -> None:
        burst("SN-3333\nSN-1111\n")  # one close behind the other
        pump(lambda: first.is_running() and third.is_running())
        assert (third.uut.serial_number, first.uut.serial_number) == ("SN-3333", "SN-1111")
        assert not box.text
        burst("B-17\n")  # no cell is ready: it is for the question

    with dialogs(answer):
        pump(lambda: asks.uut and asks.is_ready())
    assert asks.uut.assertions[0].value == "B-17"
    assert asks.ui_serial_number.marked, "no cell was ready: the next one that is"


def test_what_nobody_can_take_is_told(station: Station) -> None:
    frame = station("meet()\nself.append_ok('a', 1)", main=PATIENT)
    [cell] = frame.cells
    burst("SN-1111\n")
    pump(cell.is_running)
    burst("SN-2222\n")
    pump(lambda: "SN-2222" in red_words(frame))
    station.finish(cell)
    assert [unit.serial_number for unit in (cell.uut,)] == ["SN-1111"] and cell.ui_serial_number.marked


RULES = {"allow_empty_serial_number": False, "serial_number_pattern": r"SN-\d{4}", "acknowledge_ng": True}


def test_numbers_are_looked_at_before_a_start(station: Station) -> None:
    frame = station("meet()\nself.append_ng('a', 1)", "", main=PATIENT, **RULES)
    cell, other = frame.cells
    pump(lambda: has_focus(cell.ui_serial_number))
    for keys, words in (("\n", "serial number first"), ("BOX-22\n", "BOX-22")):
        burst(keys)
        pump(lambda words=words: words in red_words(frame))
    asked: list[str] = []

    def answers(*labels: str) -> Any:
        def act(box: Any, label: str) -> None:
            asked.append(box.message)
            click(button(box, label))

        return dialogs(*[lambda box, label=label: act(box, label) for label in labels])

    burst("SN-1111\n")
    pump(cell.is_running)
    with answers("Do not test"):
        burst("SN-1111\n")  # the trigger bounced: the next cell is marked by now
    station.finish(cell)
    click(cell.ui_prompt)
    with answers("Not yet"):
        burst("SN-2222\n")
    with answers("It is there", "Test it"):
        burst("SN-1111\n")
    pump(lambda: cell.ui_history_grid.GetNumberRows() == 2)
    assert [text.split()[0] for text in asked] == ["SN-1111", "Unit", "Unit", "SN-1111"]
    assert not other.uut


@pytest.mark.parametrize(
    ("main", "keys", "named"),
    [
        ({"scan_key_ms": 1000}, {}, ("main", "scan_key_ms")),
        ({}, {"serial_number_pattern": "SN-("}, ("cell1", "serial_number_pattern")),
        ({}, {"acknowledge_ng": "sometimes"}, ("cell1", "acknowledge_ng")),
    ],
)
def test_a_wrong_key_is_named_when_the_station_starts(
    main: Any, keys: Any, named: tuple[str, str], station: Station
) -> None:
    with pytest.raises(ValueError) as error:
        station("", main=main, **keys)
    assert all(part in str(error.value) for part in ("ats_config.xlsx", *named))
