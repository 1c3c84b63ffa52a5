"""The ways of a station's people, from the first key to the last: mouse, keyboard alone, scanner."""

from collections.abc import Callable
from pathlib import Path
from typing import Any

import openpyxl
import pytest
import qon_ats
import qon_atsui
import qon_touch
import qon_wxtools
import wx
from journey_support import Keyboard, Mouse, Scanner, button, commands, letter, state, told
from qon_atsui.cell.details import DetailsWindow
from qon_station.fault_window import FaultWindow
from qon_station.faults import Faults
from station import Answers, Station, counters, dialogs, file_dialog, texts
from support import click, has_focus, inside, parameter_row, press, pump, pump_for, scan, write_book

pytestmark = pytest.mark.usefixtures("english")


def on_screen(kind: type[wx.Window]) -> wx.Window | None:
    return next((w for w in wx.GetTopLevelWindows() if isinstance(w, kind) and w.IsShownOnScreen()), None)


QUESTIONS = """
    meet()
    lit = self.ask_true_or_false('Is the green LED lit?', 'Lit', 'Dark')
    self.append_ok('BATCH', self.input_text('Batch number?'))
    self.assert_true('LED', lit)"""


@pytest.mark.parametrize("kind", [Mouse, Keyboard, Scanner])
def test_scan_answer_type_and_retry_the_same_unit(kind: type[Any], station: Station) -> None:
    cell, other = station(QUESTIONS, "", main={"show_toolbar": True}).cells
    hands = kind(station)
    for label, verdict, items in (("Dark", ("NG", "LED"), ["OK", "NG"]), ("Lit", ("OK", ""), ["OK", "OK"])):

        def answer(box: Any, label: str = label) -> None:
            pump(lambda: state(cell)[0] == "WAITING", what="whose question it is")
            assert box.GetTitle() == "Cell 1" and state(other)[0] == "READY"
            hands.press(button(box, label))

        def enter(box: Any) -> None:
            assert box.GetTitle() == "Cell 1"
            hands.enter(box, "B-17")

        hands.start(cell, "4711-7")
        pump(lambda: state(cell)[0] == "TESTING" and cell.ui_abort.IsEnabled(), what="the test starts")
        assert not cell.ui_serial_number.IsEnabled() and cell.uut.serial_number == "4711-7"
        pump(other.is_ready)
        pump(lambda: has_focus(other.ui_serial_number), what="the next scan is for the next cell")
        station.meetings[1].arrived()
        with dialogs(answer, enter):
            station.meetings[1].go_on()
        pump(lambda verdict=verdict: state(cell) == verdict)
        assert not cell.ui_abort.IsEnabled() and cell.uut.assertions[0].value == "B-17"
        assert [row[5] for row in texts(cell.ui_assertions)] == items
    assert [row[2:4] for row in texts(cell.ui_history_grid)] == [["4711-7", "NG"], ["4711-7", "OK"]]


@pytest.mark.parametrize("kind", [Mouse, Keyboard])
def test_pause_resume_and_abort(kind: type[Any], station: Station) -> None:
    pause = "self.pause()\n"
    [cell] = station(f"self.append_ok('a', 1)\n{pause}self.append_ok('b', 2)\n{pause}").cells
    hands = kind(station)
    hands.start(cell, "SN1")
    pump(lambda: state(cell)[0] == "PAUSED")
    assert cell.ui_start.GetLabel() == "Resume" and has_focus(cell.ui_start)  # the only cell
    hands.press(cell.ui_start)
    pump(lambda: cell.ui_assertions.GetNumberRows() == 2 and state(cell)[0] == "PAUSED")
    hands.press(cell.ui_abort)
    pump(lambda: state(cell)[0] == "ABORTED")
    assert counters(cell) == ["0", "0", "0.00%"] and [a.value for a in cell.uut.assertions] == [1, 2]
    pump(lambda: has_focus(cell.ui_serial_number))


@pytest.mark.parametrize("kind", [Mouse, Keyboard])
def test_abort_while_a_question_is_open(kind: type[Any], station: Station) -> None:
    """The box does not keep the station from being used; a test that cannot end yet says what it waits for."""
    asks = "self.ask_true_or_false('Lit?')\nself.sleep(60)"
    frame = station(asks, "meet()\nself.sleep(60)", main={"show_toolbar": True})
    asking, busy = frame.cells

    def abort_all(_box: Any) -> None:
        assert state(asking) == ("WAITING", "Lit?")
        station.meetings[2].arrived()
        press(wx.WXK_F5, wx.MOD_SHIFT) if kind is Keyboard else kind(station).command(frame, "on_abort_all")

    with dialogs(abort_all):
        for cell in frame.cells:
            cell.start()
    pump(lambda: state(busy)[0] == "ABORTING" and "meet() (line " in state(busy)[1])
    pump(lambda: state(asking)[0] == "ABORTED", what="its question is asked no more")
    station.finish(busy)
    with dialogs(lambda box: kind(station).press(button(box, "Abort test"))):
        asking.start()
    pump(lambda: state(asking)[0] == "ABORTED")
    assert [row[4] for row in texts(asking.ui_history_grid)] == ["Aborted by the operator"] * 2


def test_three_scans_in_a_row_and_a_broken_script_is_mended(station: Station) -> None:
    judge = "meet()\nself.assert_limits('VOUT', 9, 4.9, 5.1, 'V')\nself.append_ng('LAST', 1)"
    frame = station(judge, judge, "meet()\nself.no_such_call()", main={"column_count": 3}, stop_if_ng=True)
    _, goes_on, broken = frame.cells
    goes_on.cell_config.get_parameter("stop_if_ng").value = False
    for cell in frame.cells:
        pump(lambda cell=cell: has_focus(cell.ui_serial_number), what="the next scan is for the next cell")
        scan(f"SN{cell.cell_number}")
        pump(cell.is_running)
    assert [cell.uut.serial_number for cell in frame.cells] == ["SN1", "SN2", "SN3"]
    station.finish()
    error = "AttributeError: 'CellRunner' object has no attribute 'no_such_call'"
    assert [state(cell) for cell in frame.cells] == [("NG", "VOUT"), ("NG", "VOUT  +1"), ("EXCEPTION", error)]
    assert [len(cell.uut.assertions) for cell in frame.cells] == [1, 2, 0]
    assert broken.script in broken.ui_test_logger.GetValue()
    pump(lambda: has_focus(frame.cells[0].ui_serial_number), what="it was ready first")
    click(broken.ui_serial_number)
    Path(broken.script).write_text(station.script("self.append_ok('MENDED', 1)"), encoding="utf-8")
    scan("SN3")
    pump(lambda: state(broken) == ("OK", ""))
    assert [row[3:] for row in texts(broken.ui_history_grid)] == [["Exception Aborted", error], ["OK", ""]]
    assert texts(goes_on.ui_history_grid)[0][3:] == ["NG", "VOUT  +1"]
    assert counters(frame) == ["1", "2", "33.33%"]


DEBUG = "self.debug_print('volts so far')\nself.debug_pause()\nmeet()\nself.append_ok('item', 1)"


@pytest.mark.parametrize("kind", [Mouse, Keyboard])
def test_commands_for_all_cells(kind: type[Any], station: Station) -> None:
    frame = station(DEBUG, DEBUG, DEBUG, main={"show_toolbar": True})
    hands = kind(station)
    hands.command(frame, "on_start_all")
    for meeting in station.meetings.values():
        meeting.arrived()
    hands.command(frame, "on_abort_all")
    pump(lambda: {state(cell)[0] for cell in frame.cells} == {"ABORTING"}, what="all will end")
    station.finish()
    assert {state(cell) for cell in frame.cells} == {("ABORTED", "Abort Voluntarily")}
    assert {cell.ui_test_logger.GetValue() for cell in frame.cells} == {""}
    press(wx.WXK_F12)
    pump(lambda: frame.is_in_debug_mode() and frame.ui_in_debug_mode.IsChecked())
    assert any("DEBUG MODE" in w.GetLabel() and w.IsShown() for w in frame.GetChildren())
    hands.command(frame, "on_start_all")
    pump(lambda: all(state(cell)[0] == "PAUSED" for cell in frame.cells))
    for cell in frame.cells:
        assert cell.ui_test_logger.GetValue() == "volts so far\n"
        click(cell.ui_start)
    station.finish()
    with dialogs(lambda box: hands.press(button(box, "Yes"))):
        hands.command(frame, "on_clear_statistics")
    pump(lambda: frame.ui_ok_count.GetValue() == "0")


@pytest.mark.parametrize("kind", [Mouse, Keyboard])
def test_look_at_units_filter_analyse_and_save_a_report(kind: type[Any], station: Station) -> None:
    frame = station("self.assert_limits('VOUT', 5.0, 4.9, 5.1, 'V')", "self.append_ok('VOUT', 5.5)\nmeet()")
    hands = kind(station)
    station.run(frame.cells[0], "SN1")
    frame.cells[1].start("SN2")
    station.meetings[2].arrived()
    pump(lambda: has_focus(frame.cells[0].ui_serial_number))
    press(wx.WXK_F7)
    viewer = pump(lambda: on_screen(qon_ats.TestDataViewerFrame)).test_data_viewer_panel
    pump(lambda: has_focus(viewer.ui_history))
    hands.choose_row(viewer.ui_history, 1)
    pump(lambda: texts(viewer.ui_assertions) == [["VOUT", "5.5", "", "", "", "OK"]])
    assert [row[2:4] for row in texts(viewer.ui_history)] == [["SN1", "OK"], ["SN2", "TBD"]]
    station.finish(frame.cells[1])
    pump(lambda: texts(viewer.ui_history)[1][3] == "OK")
    hands.choose_row(viewer.ui_assertions, 0)
    pump(lambda: viewer.ui_single_item_max.GetValue() == "5.5", what="the figures")
    with file_dialog(station.folder / "SN2.xlsx") as asked:
        hands.press(button(viewer, "Save report…"))
        pump(lambda: asked.called)
    assert (station.folder / "SN2.xlsx").exists()
    hands.choose(viewer.ui_cell_filter, 1)
    pump(lambda: [row[2] for row in texts(viewer.ui_history)] == ["SN1"], what="the units of cell 1")
    hands.choose_row(viewer.ui_history, 0)
    pump(lambda: viewer.ui_assertions.GetNumberRows() == 1)
    press(wx.WXK_ESCAPE)
    pump(lambda: not viewer.IsShownOnScreen())
    pump(lambda: has_focus(frame.cells[0].ui_serial_number), what="back where the next scan goes, whatever ended")


def test_edit_save_reload_and_export(station: Station) -> None:
    (station.folder / "app_config").mkdir()
    volts = parameter_row("volts", 12.0, 5.0, 15.0, "V")
    write_book(station.folder / "app_config" / "supply.xlsx", {"bench": [volts]})
    frame = station("self.assert_limits('VOUT', self.app_config['supply/bench/volts'], 4.9, 13, 'V')", "")
    node = "supply/bench/volts"

    def edit(box: Any) -> None:
        save, undo = button(box, "Save"), button(box, "Undo")
        pump(lambda: has_focus(box.grid))
        assert not save.IsEnabled() and not undo.IsEnabled()
        for text, remark in (("99", "✗"), ("12.5", "●")):
            press(wx.WXK_RETURN)
            scan(text)
            pump(lambda remark=remark: remark in box.grid.GetCellValue(0, 7))
        assert save.IsEnabled() and undo.IsEnabled()
        press("S", wx.MOD_CONTROL)
        pump(lambda: not save.IsEnabled())
        press(wx.WXK_ESCAPE)

    def cell_number(box: Any) -> None:
        pump_for(0.5)  # what is typed sooner was not meant for the box
        press("3")
        pump(lambda: not button(box, "OK").IsEnabled(), what="there is no cell 3")
        press(wx.WXK_BACK)
        scan("1")

    with dialogs(edit):
        press(wx.WXK_F2)
    assert frame.app_config[node] == 12.5
    frame.app_config[node] = 13.5
    with dialogs(told("参数保存成功。")):
        press(wx.WXK_F2, wx.MOD_CONTROL)
    station.run(frame.cells[0])
    path = station.folder / "limits.xlsx"
    with file_dialog(path), dialogs(cell_number, told("保存测试项参数设置成功。")):
        Keyboard(station).command(frame, "on_export_assertion_config")
    [_titles, row, *_] = openpyxl.load_workbook(path).active.values
    assert row == ("VOUT", 13.5, 4.9, 13, "V", "VOUT", "float")
    assert has_focus(frame.cells[1].ui_serial_number), "cell 1 has run: the next one is marked"


def letters_of(window: wx.Window) -> list[str]:
    """The letters of all buttons in the window; each button tells what it does and has a key."""
    letters = []
    for control in inside(window):
        if isinstance(control, wx.AnyButton):
            label = wx.Control.GetLabel(control)
            assert control.GetToolTipText(), f"{label} in {window.GetTitle()} has no tool tip"
            if len(label) > 1:  # a key of the keypad is named like that of the keyboard
                assert "&" in label, f"{label} in {window.GetTitle()} has no key"
                letters.append(letter(label))
    return letters


def opens(call: Callable[..., Any], *arguments: Any) -> list[str]:
    """The letters of the box that the call opens; it is closed."""
    found: list[list[str]] = []
    with Answers(lambda box: (found.append(letters_of(box)), box.Close())):
        call(*arguments)
    return found[0]


@pytest.mark.parametrize("language", ["en", "zh_CN"])
def test_every_button_has_tip_and_key(language: str, station: Station, monkeypatch: Any) -> None:
    monkeypatch.setenv("QON_LANG", language)
    write_book(station.folder / "bench.xlsx", {"sheet": {"volts": 12.0}})
    frame = station(*[""] * 12, main={"show_toolbar": True, "column_count": 4})
    frame.SetSize(1200, 640)  # too small for pages in the cells
    cell = frame.cells[0]
    details = button(cell, wx.Control.GetLabelText(cell._ui_details_button))
    pump(details.IsShownOnScreen)
    menus = {menu for _command, menu, _entry in commands().values()}
    in_cell = letters_of(cell)
    assert len({*in_cell, "P", "R"} | menus) == len(in_cell) + 2 + len(menus)  # also as Pause and Resume
    click(details)
    assert letters_of(pump(lambda: on_screen(DetailsWindow)))
    viewer = qon_ats.TestDataViewerFrame(frame)
    viewer.test_data_viewer_panel._TestDataViewerPanel__matplot_panel.subplots()
    windows = [viewer, FaultWindow(frame, Faults()), qon_ats.ManualOperationDialog(frame),
               qon_atsui.TickerExceptionDialog(frame), qon_wxtools.ParameterTreeDialog(frame, station.folder),
               qon_wxtools.ParameterTreeDialog(frame, station.folder / "nowhere")]  # fmt: skip
    boxes = [
        opens(qon_wxtools.MB.Error, "text"),
        opens(qon_wxtools.MB.Confirm, "text"),
        opens(cell._do_ask_true_or_false, "Lit?", "Lit", "Line"),
        opens(qon_touch.input_integer, -5, 5),
        opens(frame.on_show_about_dialog, None),
    ]
    for letters in (*map(letters_of, windows), *boxes):
        assert letters and len(set(letters)) == len(letters), "a letter for each"
