"""What the station's people meet of the results: list and totals after a restart, process steps, badges, events."""

import json
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest
import qon_results
import qon_station
import wx
from qon_companions import notices, session
from qon_results.recorder.recorder import Recorder
from qon_results.recorder.settings import Settings
from qon_results.recorder.telling import Telling
from qon_results.station import history
from qon_results.writer.messages import InterruptedUnit
from scanner import burst
from station import Answers, Station, counters, texts
from support import click, pump

pytestmark = pytest.mark.usefixtures("english")
SCRIPT = """
n = self.uut.serial_number
self.update_percentage(40)
self.append_ok('mode', 'fast')
self.assert_limits('volts', 9.0 if n == 'BAD' else 5.0, 4.5, 5.5, 'V', stop_if_ng=False)
if n == 'ASK': self.ask_true_or_false('lit?', 'Lit', 'Dark')
if n == 'WAIT': meet(); self.check_pause()
"""
Make = Callable[..., tuple[Recorder, Any]]


@pytest.fixture
def make(station: Station, installed: None, tmp_path: Path) -> Iterator[Make]:
    """Starts the station once more: a recorder and its window; the one before is closed."""
    recorders: list[Recorder] = []

    def start(main: Any = None, **settings: Any) -> tuple[Recorder, Any]:
        if recorders:
            station.close()
            recorders.pop().close()
        recorders.append(qon_results.record(tmp_path / "results", **{"min_free_mb": 1, **settings}))
        assert recorders[-1].wait_until_open() == ""
        frame = station(SCRIPT, main=main)
        qon_station.opened(frame)
        return recorders[-1], frame

    yield start
    station.close()
    session.change("", "")
    session.use_badges(None)
    for recorder in recorders:
        recorder.close()


def listed(frame: Any) -> list[list[str]]:
    return texts(frame._ATSFrame__test_data_viewer.test_data_viewer_panel.ui_history)


def test_list_and_totals_go_on_after_a_restart(make: Make, station: Station) -> None:
    _, frame = make()
    for serial in ("GOOD", "BAD"):
        station.run(frame.cells[0], serial)
    before = listed(frame)
    _, frame = make()
    pump(lambda: counters(frame) == ["1", "1", "50.00%"])
    assert counters(frame.cells[0]) == counters(frame)
    pump(lambda: len(listed(frame)) == 2)
    assert listed(frame) == before
    station.run(frame.cells[0], "GOOD")
    assert [row[2:5] for row in listed(frame)] == [
        ["GOOD", "OK", ""],
        ["BAD", "NG", "volts"],
        ["GOOD", "OK", ""],
    ]
    panel = frame._ATSFrame__test_data_viewer.test_data_viewer_panel
    old, new = panel.get_uut_list()[0], frame.cells[0].uut
    shown = [[one.get_name(), one.get_value(), one.get_result()] for one in old.assertions]
    assert shown == [[one.get_name(), one.get_value(), one.get_result()] for one in new.assertions]
    for name, values in (("volts", [5.0, 9.0, 5.0]), ("mode", ["fast"] * 3)):
        found = panel._TestDataViewerPanel__get_all_assertions_by_name(name)
        assert [one.value for one in found] == values
    frame.clear_statistics()
    assert counters(frame) == ["0", "0", "0.00%"]
    station.run(frame.cells[0], "LAST")
    _, frame = make()
    pump(lambda: counters(frame) == ["1", "0", "100.00%"])
    pump(lambda: [row[2] for row in listed(frame)] == ["LAST"])
    recorder, frame = make(history_hours=0)
    recorder.close()
    assert counters(frame) == ["0", "0", "0.00%"] and not listed(frame)
    assert history.read(recorder.path, 12, time.time_ns() // 1000).counts == {}  # nor does the next start go on


def test_what_happens_around_a_run_is_on_record(make: Make, station: Station, tmp_path: Path) -> None:
    recorder, frame = make()
    cell = frame.cells[0]
    cell.start("WAIT")
    meeting = station.meetings[1]
    meeting.arrived()
    pump(lambda: (now := recorder_now(tmp_path)) and now[0].progress == pytest.approx(0.4))
    cell.pause()
    cell.resume()
    cell.abort("lid opened")
    station.finish(cell)
    with Answers(lambda dialog: click(dialog.buttons[wx.ID_OK])):
        station.run(cell, "ASK")
    cell.set_assertion_config_file("")
    recorder.close()
    with qon_results.open(tmp_path / "results") as store:
        runs = {run.id: run.serial_number for run in store.runs()}
        events = [(each.kind, each.text, runs.get(each.run)) for each in reversed(store.events())]
        asked = next(each for each in store.events() if each.kind == "question")
    assert events == [
        ("pause", "", "WAIT"),
        ("resume", "", "WAIT"),
        ("abort", "lid opened", "WAIT"),
        ("question", "lit?", "ASK"),
        ("limits", "", None),
    ]
    assert json.loads(asked.data) == {"answer": True, "words": "Lit"}


def recorder_now(folder: Path) -> list[qon_results.records.Now]:
    time.sleep(0.05)  # another process writes it
    with qon_results.open(folder / "results") as store:
        return store.now()


def test_units_of_cells_that_are_gone_are_told_to_all_cells(tmp_path: Path) -> None:
    telling = Telling(Settings(tmp_path))
    telling.cells = {1, 2}
    telling.interrupted([InterruptedUnit(5, 1, "HERE", 0, 0, 9), InterruptedUnit(6, 3, "GONE", 0, 0, 9)])
    for cell, serials in ((1, ["HERE", "GONE"]), (2, ["GONE"])):
        words = "; ".join(notice.text for notice in notices.of_cell(cell))
        assert [serial for serial in ("HERE", "GONE") if serial in words] == serials
    assert "GONE (Cell 3, 1970-01-01 00:00)" in words
    assert telling.seen(2) == 4 and telling.seen(1) == 5  # up to where all was seen
    assert not notices.of_cell(1)


class TestStepBefore:
    """`require_operation` in the store of this station and in the line's database."""

    def refusal(self, frame: Any, serial_number: str) -> str:
        cell = frame.cells[0]
        before = cell.uut
        cell.start(serial_number)
        pump(lambda: cell.uut is not before or serial_number in cell.ui_prompt.GetLabel() and cell.is_ready())
        if cell.uut is before:
            return str(cell.ui_prompt.GetLabel())
        pump(cell.is_ready)
        return ""

    def test_the_newest_run_of_the_operation_counts(self, make: Make, station: Station) -> None:
        _, frame = make(operation="ICT", product="PSU")
        for serial in ("GOOD", "BAD"):
            station.run(frame.cells[0], serial)
        _, frame = make(operation="FCT", product="PSU", require_operation="ICT")
        assert self.refusal(frame, "GOOD") == ""
        assert self.refusal(frame, "NEW") == "NEW: Operation ICT is missing"
        assert self.refusal(frame, "G*") == "G*: Operation ICT is missing"
        assert self.refusal(frame, "BAD").startswith("BAD: Operation ICT was NG on 20")
        _, frame = make(operation="FCT", product="FAN", require_operation="ICT")
        assert self.refusal(frame, "GOOD") == "GOOD: Operation ICT was done for product PSU, not for FAN"

    @pytest.mark.parametrize(
        ("offline", "good", "new"),
        [
            ("refuse", "GOOD: The line's database is away", "NEW: The line's database is away"),
            ("allow", "", ""),
            ("local", "", "NEW: Operation ICT is missing"),
        ],
    )
    def test_while_the_line_is_away(
        self, make: Make, station: Station, tmp_path: Path, offline: str, good: str, new: str
    ) -> None:
        _, frame = make(operation="ICT")
        station.run(frame.cells[0], "GOOD")
        away = {"line": f"host={tmp_path} dbname=line", "require_operation_offline": offline}
        recorder, frame = make(operation="FCT", require_operation="ICT", **away)
        for serial, words in (("GOOD", good), ("NEW", new)):
            said = self.refusal(frame, serial)
            assert said.startswith(words) and bool(said) == bool(words)
        recorder.close()
        with qon_results.open(tmp_path / "results") as store:
            events = [json.loads(each.data) for each in store.events() if each.kind == "interlock"]
        assert [each["policy"] for each in events if "policy" in each] == [offline] * 2


def asking() -> Any:
    """The window that asks who works here."""
    return next((each for each in wx.GetTopLevelWindows() if hasattr(each, "ui_batch")), None)


def test_a_badge_sets_the_operator_and_no_name_is_kept(make: Make, station: Station, tmp_path: Path) -> None:
    _, frame = make(main={"ask_operator": True, "ask_batch": True, "operator_pattern": "BADGE-(.+)"})
    dialog = pump(asking)
    burst("BADGE-Meyer\n", 5)
    pump(lambda: dialog.ui_operator.GetValue() == "Meyer")
    pump(dialog.ui_batch.HasFocus)
    burst("B-18\n", 5)
    pump(lambda: dialog.ui_batch.GetValue() == "B-18")
    click(dialog.FindWindow(wx.ID_OK))
    pump(lambda: not dialog)
    bar = frame.GetStatusBar()
    pump(lambda: "Operator: Meyer · Batch: B-18" in [bar.GetStatusText(n) for n in range(bar.GetFieldsCount())])
    assert frame.cells[0].uut is None  # the badge has started nothing
    station.run(frame.cells[0], "GOOD")
    frame._ui_desk.shift._ends = 0.1  # the shift is over
    pump(lambda: session.current() == session.Session() and asking())
    recorder, frame = make()
    session.change(operator="meyer")
    recorder.event("end")
    recorder.close()
    with qon_results.open(tmp_path / "results") as store:
        [run], events = store.runs(), store.events()
        assert run.batch == "B-18" and run.operator.startswith("op-") and len(run.operator) == 13
        assert {each.text for each in events if each.kind == "operator"} == {run.operator, ""}
    assert not any(b"eyer" in file.read_bytes() for file in (tmp_path / "results").iterdir())
