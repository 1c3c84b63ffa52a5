"""The test data viewer: the list of units, whatever thread ends them, the filter and the details."""

from datetime import datetime
from typing import Any

import wx
from qon_ats import UUT, Assertion, TestDataViewerFrame, TestDataViewerPanel
from station import choose, click_row, colours, texts, unit
from support import Boxes, in_thread, press, pump, pump_for, shown

pytest_plugins = ["stationplugin"]


def end(*units: UUT) -> None:
    """Each unit ends in a thread of its own, as in a test."""
    for uut in units:
        in_thread(setattr, uut, "done", True)


def listed(panel: TestDataViewerPanel) -> list[tuple[str, str]]:
    return [(row[2], row[3]) for row in texts(panel.ui_history)]


def test_listed_units_and_the_filter(panel: TestDataViewerPanel) -> None:
    bad = Assertion("ok", 1), Assertion("VOUT", 9, 0, 5), Assertion("late", 9, 0, 5)
    units = [unit("A", 2), unit("B", 1, *bad), unit("C", 2, done=False), UUT(None, 3)]
    panel.extend(units)
    rows = texts(panel.ui_history)
    ends = [["OK", ""], ["NG", "VOUT"], ["TBD", ""], ["TBD", ""]]
    assert [row[3:] for row in rows] == ends and [row[2] for row in rows] == ["A", "B", "C", ""]
    assert [colours(panel.ui_history, row)[3] for row in range(4)] == ["green", "red", "white", "white"]
    assert set(colours(panel.ui_history, 1)[:3]) == {"white"}
    for row, uut in zip(rows[:2], units[:2], strict=True):
        assert row[:2] == [str(datetime.fromtimestamp(t))[:19] for t in (uut.begin_time, uut.end_time)]
    assert panel.ui_cell_filter.GetItems() == ["all", "2", "1", "3"]  # in the order of appearance
    choose(panel, "2")
    panel.extend([unit("D", 1), unit("E", 2)])
    assert listed(panel) == [("A", "OK"), ("C", "TBD"), ("E", "OK")]
    for text, names in (("1", "BD"), ("3", ""), ("all", "ABCDE")):
        choose(panel, text)
        assert "".join(name for name, _ in listed(panel)) == names
    assert panel.get_uut_list()[:4] == units and panel.get_uut_list() is panel._uut_list


def test_a_row_follows_its_unit_to_the_end(panel: TestDataViewerPanel) -> None:
    units = [unit(name, cell, done=False) for name, cell in (("A", 2), ("B", 1), ("C", 2), ("D", 2))]
    panel.extend(units)
    units[2].append_assertion(Assertion("VOUT", 9, 0, 5))
    choose(panel, "2")
    end(units[2])
    end(units[1])  # of a cell that is not shown
    pump_for(0.05)
    assert listed(panel) == [("A", "TBD"), ("C", "NG"), ("D", "TBD")]
    assert colours(panel.ui_history, 1)[3] == "red" and texts(panel.ui_history)[1][4] == "VOUT"
    choose(panel, "all")
    end(units[0])
    pump(lambda: [verdict for _, verdict in listed(panel)] == ["OK", "OK", "NG", "TBD"])
    units[3].done = True  # in the GUI thread, too
    assert listed(panel)[3] == ("D", "OK") and colours(panel.ui_history, 3)[3] == "green"


def test_a_late_end_writes_no_other_units_row(panel: TestDataViewerPanel) -> None:
    units = [unit(name, cell, done=False) for name, cell in (("A", 1), ("B", 2))]
    panel.extend(units)
    end(*units)  # their rows are still to be written when the list changes
    panel.clear()
    panel.extend([unit("C", 2, done=False), unit("D", 1, done=False)])
    pump_for(0.05)
    assert listed(panel) == [("C", "TBD"), ("D", "TBD")]
    late = panel.get_uut_list()[0]
    panel.clear()
    end(late)
    pump_for(0.05)
    assert listed(panel) == []


def test_a_unit_that_ends_while_it_is_being_listed(panel: TestDataViewerPanel) -> None:
    class Hasty(UUT):
        @property
        def done_event(self) -> Any:
            self.done = True  # after its row was written, before the viewer listens
            return super().done_event

    uut = Hasty("SN")
    uut.append_assertion(Assertion("a", 1))
    panel.append(uut)
    assert listed(panel) == [("SN", "OK")]


def test_details_by_mouse_and_keys(panel: TestDataViewerPanel) -> None:
    running = unit("B", 2, Assertion("x", 7, unit="V"), done=False)
    panel.extend([unit("A"), running, unit("C", 2, Assertion("z"), done=False)])
    running.append_assertion(Assertion("y", 9, None, 5))
    click_row(panel.ui_history, 1)
    assert texts(panel.ui_history)[1][3:] == ["NG", "y"]  # its row is brought up to date, too
    pump(lambda: texts(panel.ui_assertions) == [["x", "7", "", "", "V", "OK"], ["y", "9", "", "5", "", "NG"]])
    assert colours(panel.ui_assertions, 0)[5] == "white"
    assert colours(panel.ui_assertions, 1) == ["white"] * 5 + ["red"]
    press(wx.WXK_DOWN)
    pump(lambda: texts(panel.ui_assertions) == [["z", "", "", "", "", "TBD"]])
    choose(panel, "2")
    assert panel.ui_assertions.GetNumberRows() == 0
    click_row(panel.ui_history, 0)
    pump(lambda: [row[0] for row in texts(panel.ui_assertions)] == ["x", "y"])
    selected = panel._TestDataViewerPanel__get_selected_uut
    assert selected() == (running, 0)
    panel.ui_history.SelectRow(1, True)
    assert selected() == (None, -1)
    panel.ui_history.ClearSelection()
    assert selected() == (None, -1)


def test_clearing_is_asked_first(panel: TestDataViewerPanel, boxes: Boxes) -> None:
    panel.append(unit("A", 2))
    for answer, kept in ((wx.NO, 1), (wx.CANCEL, 1), (wx.YES, 0)):
        boxes.answer = answer
        panel.on_clear_data(None)
        assert len(listed(panel)) == len(panel.get_uut_list()) == kept
    assert boxes.of("Confirm") == ["Are you sure to clear all datas?"] * 3
    assert panel.ui_cell_filter.GetItems() == ["all", "2"]
    for command in (panel.on_export_data, panel.on_import_data, panel.on_refresh_statistics_analizer):
        command(None)
    sorry = ("Sorry", "This function has not been implemented yet.")
    assert [box.args for box in boxes.shown[3:]] == [sorry] * 2


def test_the_window_is_hidden_not_closed(app: wx.App) -> None:
    own = type("OwnPanel", (TestDataViewerPanel,), {})
    with shown(TestDataViewerFrame(None, viewer_class=own)) as frame:
        assert (frame.GetTitle(), type(frame.test_data_viewer_panel)) == ("测试数据历史纪录", own)
        frame.append(unit("A"))
        frame.extend([unit("B")])
        frame.Close()
        assert not frame.IsShown() and [uut.serial_number for uut in frame.get_uut_list()] == ["A", "B"]
        frame.clear()
        assert frame.get_uut_list() == []
