"""The station's window: its configuration, cells, totals, hooks, shared objects and closing."""

import os
from pathlib import Path
from typing import Any

import pytest
import qon_ats
import wx
from station import Station, counters, texts
from support import Boxes, in_thread, pump, pump_for, write_book, write_script

ALL_KEYS = {
    "mop_block_ticker": False, "show_toolbar": True, "show_statistics_panel": False, "cell_count": 5,
    "column_count": 3, "startup_in_debug_mode": True, "run_ticker": False, "ticker_interval": 7,
}  # fmt: skip


# Shown: tool bar, statistics; debug mode and its menu item; dialog blocks the ticker; interval.
@pytest.mark.parametrize(
    ("main", "cells", "columns", "state"),
    [
        ({}, 1, 1, [0, 1, 0, 0, 1, 100]),
        (ALL_KEYS, 5, 3, [1, 0, 1, 1, 0, 7]),
        ({"column_count": 9, "cell_count": 2}, 2, 2, [0, 1, 0, 0, 1, 100]),
    ],
)
def test_main_sheet(main: dict[str, Any], cells: int, columns: int, state: Any, station: Station) -> None:
    write_book(station.book, {"main": main, "cell1": {"script": "s.py"}})
    frame = station.build()
    assert [cell.cell_number for cell in frame.cells] == list(range(1, cells + 1))
    sizer = frame.ui_cell_panel.GetSizer()
    assert (sizer.GetCols(), sizer.GetHGap(), sizer.GetVGap()) == (columns, 0, 0)
    assert [item.GetWindow() for item in sizer.GetChildren()] == frame.cells
    shown = [frame.ui_toolbar.IsShown(), frame.ui_statistics_panel.IsShown()]
    debug = [frame.is_in_debug_mode(), frame.ui_in_debug_mode.IsChecked()]
    assert [*shown, *debug, frame._mop_block_ticker, frame._ticker_interval] == state
    assert (frame.app_config, frame.cells[0].assertion_configs, frame._run_ticker) == (None, None, False)


def test_default_places_are_in_the_working_directory(station: Station) -> None:
    Path("app_config").mkdir()
    write_book(Path("app_config/bench.xlsx"), {"supply": {"volts": 12.5}})
    write_script(Path(), station.script("self.append_ok('U', self.app_config.bench.supply.volts)"), "here")
    write_book(Path("ats_config.xlsx"), {"main": {}, "cell1": {"script": "here.py"}})
    [cell] = station.use(qon_ats.ATSFrame()).cells
    assert station.run(cell).uut.assertions[0].value == 12.5
    assert cell.script == str(station.folder / "here.py")


NAME = "Veltrano自动化测试系统"


def test_titles_and_cells_by_index_and_by_number(station: Station) -> None:
    frame = station("meet()\nself.append_ok('a', 1)", "")
    for title, shown in (("@Line 3", "Line 3"), ("Line 3", f"{NAME} - Line 3"), ("@", ""), ("", NAME)):
        frame = station.build(title=title)
        assert frame.GetTitle() == shown
    assert frame.get_cell() is frame.get_cell(-2) is frame.cells[0] and frame.get_cell_count() == 2
    assert frame.is_in_ui_thread() and not in_thread(frame.is_in_ui_thread)
    for number in (0, 3, -1):
        assert frame.start_cell(number, "SN") is None
    pump_for(0.02)
    assert not frame.is_running()
    frame.start_cell(1, "SN1")
    station.meetings[1].arrived()
    assert [frame.is_running(n) for n in (None, 0, 1, 2, 3, -1)] == [True, False, True, False, False, False]
    assert frame.cells[0].uut.serial_number == "SN1"


def test_start_all_abort_all_totals_and_clearing(station: Station, boxes: Boxes) -> None:
    long = "meet()\nself.append_ok('a', 1)\nself.sleep(60)"
    frame = station("self.append_ok('a', 1)\nmeet()", "meet()\nself.append_ng('VOUT', 1)", long)
    viewer = frame._ATSFrame__test_data_viewer
    assert not viewer.IsShown()
    frame.on_show_test_data_window(None)
    assert viewer.IsShown()
    listed = viewer.test_data_viewer_panel.ui_history
    told: list[Any] = []
    frame.cell_start_event.subscribe(told.append)
    frame.on_start_all(None)
    for meeting in station.meetings.values():
        meeting.arrived()
    assert told == frame.cells and len({cell._test_thread for cell in frame.cells}) == 3
    pump(lambda: [row[3] for row in texts(listed)] == ["TBD"] * 3)  # as they start
    station.finish(*frame.cells[:2])
    frame.on_abort_all(None)
    station.finish()
    assert [cell.ui_history_grid.GetCellValue(0, 3) for cell in frame.cells] == ["OK", "NG", "Aborted"]
    pump(lambda: [row[3:] for row in texts(listed)] == [["OK", ""], ["NG", "VOUT"], ["OK", ""]])
    assert viewer.get_uut_list() == [cell.uut for cell in frame.cells]
    for answer, units in ((wx.NO, 3), (wx.YES, 0)):
        boxes.answer = answer
        frame.on_clear_statistics(None)
        none = ["0", "0", "0.00%"]
        assert counters(frame) == (["1", "1", "50.00%"] if units else none)
        assert counters(frame.cells[1]) == (["0", "1", "0.00%"] if units else none)
        assert [cell.ui_history_grid.GetNumberRows() for cell in frame.cells] == [units // 3] * 3
        assert len(viewer.get_uut_list()) == units
    assert boxes.of("Confirm") == ["Are you sure to clear statistics data?\nIt's not reversible!"] * 2


def test_own_words_for_ok_and_ng(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    frame, words = station("self.append_ok('a', 1)", "self.append_ng('a', 1)"), ("合格", "不良")
    for name in ("OK_STR", "NG_STR"):
        monkeypatch.setattr(qon_ats.Assertion, name, "set back at the end")
    frame.ok_str, frame.ng_str = words
    assert (frame.ok_str, frame.ng_str) == words
    assert (frame.ui_ok_count_label.GetLabel(), frame.ui_ng_count_label.GetLabel()) == words
    for cell, word in zip(frame.cells, words, strict=True):
        station.run(cell)
        assert cell.ui_history_grid.GetCellValue(0, 3) == cell.ui_assertions.GetCellValue(0, 5) == word
    grid = frame._ATSFrame__test_data_viewer.test_data_viewer_panel.ui_history
    pump(lambda: tuple(row[3] for row in texts(grid)) == words)


class Hooked(qon_ats.ATSFrame):
    """Hooks that take part in the test; with an `error` they raise it."""

    error: Exception | None = None

    def startup_initializer(self, name: str = "started") -> None:
        vars(self).setdefault("calls", []).append(name)
        if self.error:
            raise self.error

    def exit_finalizer(self) -> None:
        self.startup_initializer("ended")


@pytest.fixture
def exits(monkeypatch: pytest.MonkeyPatch) -> list[int]:
    codes: list[int] = []
    monkeypatch.setattr(os, "_exit", codes.append)
    return codes


@pytest.mark.parametrize("error", [None, OSError("no fixture on COM3")])
def test_hooks(error: Exception | None, station: Station, boxes: Boxes, exits: list[int]) -> None:
    frame = Hooked(None, "", str(write_book(station.book, {"main": {}, "cell1": {"script": "s.py"}})))
    assert not hasattr(frame, "calls")  # once, from the event loop
    calls = pump(lambda: getattr(frame, "calls", None))
    pump_for(0.05)
    assert calls == ["started"]
    frame.error = error
    frame.on_trigger_initializer(None)
    assert ["OSError: no fixture on COM3" in text for text in boxes.of("Error")] == [True] * bool(error)
    boxes.shown.clear()
    frame.Close()  # no test is running: not asked
    assert calls[2:] == ["ended"] and exits == [0]
    told = [f"Exit finalizer function raise exception: {error}. Exit anyway."] if error else []
    assert boxes.of() == told and pump(lambda: not frame)


@pytest.mark.parametrize("force", [False, True])
def test_closing_a_running_station(force: bool, station: Station, boxes: Boxes, exits: list[int]) -> None:
    frame = station("meet()\nself.append_ok('a', 1)", frame_type=Hooked)
    [cell] = frame.cells
    cell.start("SN1")
    station.meetings[1].arrived()
    boxes.answer = wx.NO
    assert frame.Close(force) is force  # a forced close cannot be vetoed, only declined
    assert (exits, "ended" in frame.calls, frame.IsShown()) == ([], False, True)
    [(_kind, *asked)] = boxes.shown
    question = ("Test is still running...\nAre you sure to exit?", "Info")
    assert asked == [question, {"style": wx.YES_NO | wx.ICON_QUESTION}]
    station.finish(cell)  # the run went on
    assert cell.ui_history_grid.GetCellValue(0, 3) == "OK"
    cell.start("SN2")
    pump(cell.is_running)
    boxes.answer = wx.YES
    frame.Close(force)
    assert exits == [0]  # at once, whatever the thread does
