"""A station's windows around its units: starts that are refused, the list, the report, scripts that kill their cell."""

import threading
from pathlib import Path
from typing import Any

import openpyxl
import pytest
import qon_station
from qon_station.hooks import Check
from station import Station, file_dialog, prompt, texts
from support import click, pump, pump_for

pytestmark = pytest.mark.usefixtures("english")
OK_ITEM = "self.append_ok('volts', 5.0)"


@pytest.fixture
def make(station: Station, installed: None) -> Station:
    """A station whose frames are those of `qon_station`."""
    return station


def listed(frame: Any) -> list[list[str]]:
    grid = frame._ATSFrame__test_data_viewer.test_data_viewer_panel.ui_history
    return [row[2:5] for row in texts(grid)]


def test_cell_and_list_tell_the_same_of_every_run(make: Any) -> None:
    def store(unit: Any, _outcome: Any) -> None:
        if unit.serial_number == "SN4":
            raise qon_station.NotRecorded("disk full")

    frame = make(
        "serial = self.uut.serial_number\n"
        "if serial == 'SN3': raise OSError('no meter')\n"
        f"{OK_ITEM}\n"
        "if serial == 'SN2': self.abort('lid opened')"
    )
    qon_station.run_ended.subscribe(store)
    cell = frame.cells[0]
    shown = []
    for number in range(1, 5):
        make.run(cell, f"SN{number}")
        shown.append(prompt(cell))
    assert shown == [
        ("OK", "green"),
        ("lid opened", "cyan"),
        ("OSError: no meter", "cyan"),
        ("disk full", "cyan"),
    ]
    pump(lambda: len(listed(frame)) == 4)
    assert listed(frame) == [
        ["SN1", "OK", ""],
        ["SN2", "TBD", "aborted"],
        ["SN3", "TBD", "exception"],
        ["SN4", "TBD", "exception"],
    ]
    words = [row[3:] for row in texts(cell.ui_history_grid)]
    assert words[1:] == [
        ["Aborted", "lid opened"],
        ["Exception Aborted", "OSError: no meter"],
        ["Exception Aborted", "disk full"],
    ]
    assert cell._statistics.get_total() == 1


def test_a_report_tells_the_whole_run(make: Any, boxes: Any, tmp_path: Path) -> None:
    frame = make(OK_ITEM)
    unit = make.run(frame.cells[0], "SN1").uut
    panel = frame._ATSFrame__test_data_viewer.test_data_viewer_panel
    pump(lambda: panel.ui_history.GetNumberRows() == 1)
    panel.ui_history.SelectRow(0)
    path = tmp_path / "SN1.xlsx"
    with file_dialog(path):
        panel.on_save_single_uut_test_data(None)
    saved = openpyxl.load_workbook(path)
    first, second = (list(sheet.values) for sheet in saved)
    assert first[2][0] == "Result: OK" and first[4][:2] == ("volts", 5)
    told = dict(second)
    assert (told["Serial number"], told["Outcome"], told["Script"]) == ("SN1", "OK", unit.script)


def test_a_unit_that_may_not_start_is_refused_in_words_whatever_starts_it(make: Any) -> None:
    frame = make(OK_ITEM, OK_ITEM)
    qon_station.start_checks.subscribe(lambda _cell, serial: "step 1 is missing" if serial == "BAD" else "")
    make.type(frame.cells[0].ui_serial_number, "BAD")
    frame.start_cell(2, "BAD")
    pump(lambda: all(prompt(cell)[0] == "BAD: step 1 is missing" for cell in frame.cells))
    assert all(cell.is_ready() and cell.uut is None for cell in frame.cells)
    frame.start_cell(2, "GOOD")
    pump(lambda: frame.cells[1].uut is not None)
    make.finish(frame.cells[1])


def test_a_slow_check_holds_up_its_cell_alone(make: Any) -> None:
    """The window goes on while a database thinks; a second start and an abort meet the one that waits."""
    answer, asked = threading.Event(), []

    def database(_cell: Any, serial_number: str) -> str:
        asked.append(serial_number)
        answer.wait(60)
        return ""

    frame = make(OK_ITEM, OK_ITEM)
    cell = frame.cells[0]
    qon_station.start_checks.subscribe(database, timeout=60.0)
    frame.start_cell(1, "SN1")
    pump(lambda: asked == ["SN1"] and "asking whether it may start" in prompt(cell)[0])
    frame.start_cell(1, "SN2")
    pump_for(0.05)
    assert asked == ["SN1"] and cell.uut is None and not cell.is_ready() and not cell.is_running()
    answer.set()
    pump(lambda: cell.uut is not None)
    make.finish(cell)
    answer.clear()
    frame.start_cell(1, "SN3")
    pump(lambda: asked[-1] == "SN3")
    click(cell.ui_abort)
    pump(lambda: cell._asking.is_given_up)
    answer.set()
    pump(cell.is_ready)
    assert cell.uut.serial_number == "SN1" and "given up" in prompt(cell)[0]


@pytest.mark.parametrize(("policy", "words"), [("refuse", "no answer within 0.05 s"), ("start", "")])
def test_a_check_without_an_answer_follows_its_policy(make: Any, policy: Any, words: str) -> None:
    never = threading.Event()
    frame = make(OK_ITEM)
    cell = frame.cells[0]
    qon_station.start_checks.subscribe(lambda *_: str(never.wait(60)), timeout=0.05, without_answer=policy)
    frame.start_cell(1, "SN1")
    pump(lambda: words in prompt(cell)[0] if words else cell.uut is not None)
    make.finish(cell)
    assert (cell.uut is None) == bool(words)
    never.set()
    failing = Check(lambda *_: str(1 / 0), None, policy)
    assert bool(failing.words(cell, "SN1")) == bool(words)


def test_a_script_that_kills_its_cell_says_what_to_do(make: Any) -> None:
    frame = make("import sys\nsys.exit(3)")
    cell = frame.cells[0]
    cell.start("SN1")
    pump(lambda: cell.ui_prompt.face.text == "Restart the station (SystemExit: 3)")
    pump_for(0.2)  # a blink does not stand over it
    assert cell.is_running() and not cell.has_done() and cell.ui_prompt.face.word == "EXCEPTION"
    pump(lambda: listed(frame) == [["SN1", "TBD", "exception"]])
