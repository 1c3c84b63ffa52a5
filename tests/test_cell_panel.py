"""The panel of a cell: what the operator sees and does, from the scan to the verdict."""

import builtins
import time
from typing import Any

import pytest
import qon_ats
import wx
from station import Answers, Station, colours, counters, named, prompt, texts
from support import Boxes, click, in_thread, press, pump, pump_for, scan


def test_from_the_scan_through_a_running_test(station: Station) -> None:
    [cell] = station("""
        self.assert_limits('VOUT', 5.01, 4.9, 5.1, 'V')
        self.append_ok('版本', '1.0')
        self.assert_limits('RIPPLE', 7, None, 5, 'mV', stop_if_ng=False)
        self.assert_limits('LATER', None, 0, 1)
        meet()
        self.set_prompt('Fit the board', 'white')
        meet()
        self.pause()
        meet()""").cells
    meeting = station.meetings[1]
    station.type(cell.ui_serial_number, "SN-4711")
    meeting.arrived()
    assert not cell.ui_serial_number.IsEnabled() and prompt(cell) == ("Running", "gray")
    pump(lambda: cell.ui_start.GetLabel() == "Pause")
    assert named(cell.ui_start.GetBackgroundColour()) == "yellow"
    assert texts(cell.ui_assertions) == [
        ["VOUT", "5.01", "4.9", "5.1", "V", "OK"], ["版本", "1.0", "", "", "", "OK"],
        ["RIPPLE", "7", "", "5", "mV", "NG"], ["LATER", "", "0", "1", "", "TBD"],
    ]  # fmt: skip
    assert [colours(cell.ui_assertions, row)[0] for row in range(4)] == ["white", "white", "red", "white"]
    click(cell.ui_start)  # "Pause" on it does not pause, and nothing starts
    meeting.go_on()
    meeting.arrived()
    pump(lambda: prompt(cell) == ("Fit the board", "white"))
    for colour in ("yellow", "gray", "yellow"):  # the words stay
        cell.on_blink_timer_event()
        assert prompt(cell) == ("Fit the board", colour)
    for seconds, text in ((3725.9, "01:02:05"), (100000.5, "27:46:40")):
        cell._start_time = time.time() - seconds
        cell.on_refresh_timer_event()
        assert cell.ui_elapse_time.GetValue() == text
    meeting.go_on()
    pump(lambda: cell.ui_start.GetLabel() == "Resume")
    for _ in range(2):
        cell.on_blink_timer_event()
        assert prompt(cell)[1] == "yellow"
    cell.start("SN2")  # resumes nothing
    pump_for(0.05)
    assert cell.is_paused()
    click(cell.ui_start)
    meeting.arrived()
    assert cell.is_busy() and cell.uut.serial_number == cell.get_serial_number() == "SN-4711"


EXCEPTION = "Exception Aborted"
UNDECIDED = "self.assert_limits('LED', None, 0, 1)\n"
PASSED, FAILED = ["1", "0", "100.00%"], ["0", "1", "0.00%"]
TBD_LEFT = 'ValueError: Assertion "LED" is still in "TBD" state.'
# Body of run(); result, prompt, colour, counted, gauge, description (the layout's where the engine has none), part of
# the log.
VERDICTS: dict[str, tuple[Any, ...]] = {
    "ok": ("", "OK", "OK", "green", PASSED, 100, "", ""),
    "ng": ("self.append_ng('V', 9)", "NG", "V", "red", FAILED, 100, "V", ""),
    "ng_goes_on": ("self.append_ng('V', 9, False)", "NG", "NG", "red", FAILED, 100, "V", ""),
    "aborted": ("self.abort('why')", "Aborted", "Aborted", "cyan", None, 30, "", ""),
    "exception": ("raise OSError('电源')", EXCEPTION, EXCEPTION, "cyan", None, 30, "OSError: 电源", "OSError: 电源"),
    "undecided": (UNDECIDED, EXCEPTION, EXCEPTION, "cyan", None, 30, TBD_LEFT, TBD_LEFT),
    "done": (UNDECIDED + "self.done()", "TBD", "TBD", "red", FAILED, 100, "", '"LED" is still in'),
}


@pytest.mark.parametrize("case", VERDICTS)
def test_verdict(case: str, station: Station) -> None:
    body, result, words, colour, counted, gauge, description, log = VERDICTS[case]
    frame = station(f"self.append_ok('first', 1)\nself.update_percentage(30)\n{body}")
    cell = frame.cells[0]
    cell.ui_start.SetFocus()
    station.run(cell, "SN1")
    assert prompt(cell) == (words, colour)
    pump(lambda: texts(cell.ui_history_grid)[0][2:] == ["SN1", result, description])
    [[begin, end, *_rest]] = texts(cell.ui_history_grid)
    assert texts(cell.ui_assertions)[0][0] == "first"
    assert begin <= end and len(begin) == len(end) == 19 and begin[10] == " "
    assert colours(cell.ui_history_grid, 0)[2:] == ["white", colour, "white"]
    pump(lambda: cell.ui_gauge.GetValue() == gauge)
    assert log in cell.ui_test_logger.GetValue() and bool(log) is bool(cell.ui_test_logger.GetValue())
    assert counters(cell) == counters(frame) == (counted or ["0", "0", "0.00%"])
    assert cell._statistics.get_total() == frame._statistics.get_total() == bool(counted)
    assert (cell.ui_serial_number.IsEnabled(), cell.ui_serial_number.GetValue()) == (True, "")
    pump(cell.ui_serial_number.HasFocus)
    assert (cell.ui_start.GetLabel(), named(cell.ui_start.GetBackgroundColour())) == ("Start", "green")
    cell.on_blink_timer_event()
    assert prompt(cell) == (words, colour) and cell._test_thread is None  # blinking leaves a verdict alone


def test_a_burst_is_shown_100_rows_a_tick_and_whole_at_the_end(station: Station) -> None:
    burst = "for i in range(250): self.append_ok(f'i{i}', i)\n"
    [cell] = station(f"{burst}meet()\n{burst}").cells
    cell.do_start("SN1")
    station.meetings[1].arrived(events=False)
    shown = []
    for _ in range(4):
        cell.on_refresh_timer_event()
        shown.append(cell.ui_assertions.GetNumberRows())
    assert shown == [100, 200, 250, 250]
    station.meetings[1].go_on()
    cell._test_thread.join(60)
    cell.on_refresh_timer_event()
    cell.ui_refresh_timer.Stop()  # was armed by the ticks before
    assert [row[0] for row in texts(cell.ui_assertions)] == [f"i{i}" for i in range(250)] * 2


def test_what_a_script_posts_last_does_not_cover_the_verdict(station: Station) -> None:
    [cell] = station("""
        self.append_ok('first', 1)
        self.set_serial_number('SN2')
        self.set_prompt('Take it out', 'white')""").cells
    cell.do_start("SN1")
    cell._test_thread.join(60)
    cell.ui_refresh_timer.Stop()  # it may be due already
    cell.ui_refresh_timer.Notify()  # a due timer is served before posted calls
    pump(cell.is_ready)
    assert prompt(cell) == ("OK", "green") and cell.ui_serial_number.GetValue() == ""
    assert texts(cell.ui_history_grid)[0][2:4] == ["SN2", "OK"]


def test_what_a_test_thread_shows(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    [cell] = station("""
        meet.notes.append(self.uut.serial_number)
        meet.notes.append(self.call_user_function(sorted, [1, 2], reverse=True))
        meet.notes.append(self.call_user_function_no_wait(meet.notes.append, 'posted'))
        meet.notes.append(self.call_user_function(threading.current_thread) is threading.main_thread())
        for percent in (-5, 150, 42.5, 90): self.update_percentage(percent)
        self.increase_percentage(30)
        self.print('中文'); self.print('b', end=''); cell.print(None)
        self.debug_print('not in debug mode')
        self.append_ok('a', 1)
        self.set_serial_number('SN-NEW')
        meet.notes.append(self.uut.serial_number)
        try: cell.set_serial_number(123)
        except TypeError as error: meet.notes.append(str(error))
        meet()""").cells
    gauge: list[float] = []
    monkeypatch.setattr(cell.ui_gauge, "SetValue", gauge.append)
    monkeypatch.setattr(cell.ui_gauge, "GetValue", lambda: gauge[-1])
    in_thread(lambda: (cell.start("A"), cell.start("B")))
    assert not cell.is_running()  # it is the GUI thread that starts, once
    station.meetings[1].arrived()
    pump(lambda: cell.get_serial_number() == "SN-NEW")
    station.finish()
    notes = ["A", [2, 1], None, "posted", True, "SN-NEW", "Serial number must be a str object."]
    assert station.meetings[1].notes == notes
    assert gauge == [0, 0, 100, 42.5, 90, 100, 100]
    assert cell.ui_test_logger.GetValue() == "中文\nb\n"
    station.run(cell, "C")  # begins with nothing left of the first
    assert cell.ui_test_logger.GetValue() == "中文\nb\n" and len(texts(cell.ui_assertions)) == 1
    assert [row[2] for row in texts(cell.ui_history_grid)] == ["SN-NEW"] * 2
    cell.ui_serial_number.SetValue("  typed ")
    assert cell.get_serial_number() == "typed"
    cell.set_serial_number(None)
    pump(lambda: cell.ui_serial_number.GetValue() == "")
    assert cell.uut.serial_number == ""


def test_answers_that_are_none(station: Station, boxes: Boxes) -> None:
    """Closed and cancelled questions; the journeys answer them."""
    [cell] = station("""
        for _ in range(2): meet.notes.append(self.ask_true_or_false('LED lit?', 'Lit', 'Dark'))
        for _ in range(2): meet.notes.append(self.input_text('Batch?'))
        meet.notes.append(self.notice_box('Take the unit out'))
        self.append_ok('a', 1)""").cells
    acts = iter([
        lambda dialog: click(dialog.buttons[wx.ID_CANCEL]),
        wx.Dialog.Close,
        lambda dialog: press(wx.WXK_RETURN),
        lambda dialog: (scan("B-18", enter=False), press(wx.WXK_ESCAPE), click(dialog.buttons[wx.ID_CANCEL])),
    ])  # fmt: skip
    with Answers(lambda dialog: next(acts)(dialog)) as shown:
        station.run(cell)
    assert station.meetings[1].notes == [False, False, "", None, None]
    assert shown.parents[:2] == [cell] * 2 and all("Cell 1" in title for title in shown.titles)
    assert boxes.shown == [("Notice", (), {"message": "Take the unit out", "title": "Cell 1"})]


def test_a_subclass_of_the_cell_is_asked(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    class OwnCell(qon_ats.Cell):
        def clear_last_test_data(self) -> None:
            self.notes = ["cleared"]

        def print(self, message: str, end: str = "\n") -> None:
            super().print(message.upper(), end)

        def _show_an_assertion(self, assertion: qon_ats.Assertion) -> None:
            self.notes.append(assertion.name)

        def is_in_debug_mode(self) -> bool:
            return True

    monkeypatch.setattr(qon_ats, "Cell", OwnCell)
    cell = station.run(station("self.debug_print('hello')\nself.append_ok('item', 1)").cells[0])
    assert (cell.notes, texts(cell.ui_assertions)) == (["cleared", "item"], [])
    assert cell.ui_test_logger.GetValue() == "HELLO\n"


def test_own_columns_and_the_debug_shell(station: Station) -> None:
    before = {name: getattr(builtins, name, None) for name in ("exit", "quit", "close")}
    columns = [["Result", 90], ["Name", 120], ["Elapse_Time", 60]]
    frame = station("self.append_ng('b', 1)", column_info=columns, show_debug_shell=True)
    [cell] = frame.cells
    grid = station.run(cell).ui_assertions
    assert [grid.GetColLabelValue(col) for col in range(3)] == ["Result", "Name", "Elapse_Time"]
    assert (texts(grid), colours(grid, 0)) == ([["NG", "b", "None"]], ["red"] * 3)
    book = cell.ui_view_notebook
    assert [book.GetPageText(page) for page in range(book.GetPageCount())].index("Debug Shell") > 0
    shell = book.GetPage(book.GetPageCount() - 1)
    shell.push("found = (cell, frame, wx.ID_OK)", silent=True)
    assert shell.interp.locals["found"] == (cell, frame, wx.ID_OK)
    assert {name: getattr(builtins, name, None) for name in before} == before
