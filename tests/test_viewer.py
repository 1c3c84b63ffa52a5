"""The test data viewer: the list of units, details, reports, and one item across units."""

from datetime import datetime
from pathlib import Path
from typing import Any
from unittest import mock

import numpy
import openpyxl
import pytest
import qon_handy
import wx
import wx.grid
from conftest import Uncaught
from qon_ats import UUT, Assertion, TestDataViewerFrame, TestDataViewerPanel
from station import FIGURES, choose, click_row, colours, figures, save, texts, unit
from support import Boxes, in_thread, press, pump, pump_for, shown


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
    assert [args for _kind, args, _keywords in boxes.shown[3:]] == [sorry] * 2


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


def rows(path: Path) -> list[tuple[Any, ...]]:
    return list(openpyxl.load_workbook(path).active.values)


def test_contents(panel: TestDataViewerPanel, tmp_path: Path) -> None:
    ng, on = Assertion("版本", "1.0", result=False), Assertion("t", True)
    items = Assertion("a", 1.5, 1, 2, "V"), Assertion("b"), ng, on
    uut = unit("SN001", 1, *items, done=False)
    bare = UUT(None)
    panel.extend([uut, bare, UUT("")])
    uut.end_time = uut.begin_time + 90
    path = tmp_path / "report.xlsx"
    path.write_text("an older report")
    assert save(panel, path) == "SN001.xlsx"
    assert rows(path) == [
        (f"Begin : {qon_handy.timestamp(uut.begin_time)}", *[None] * 5),
        (f"End   : {qon_handy.timestamp(uut.end_time)}", *[None] * 5),
        ("Result: NG", *[None] * 5),
        ("Test Item Name", "Value", "Limit Low", "Limit Up", "Unit", "Result"),
        ("a", 1.5, 1, 2, "V", "OK"),
        ("b", None, None, None, None, "TBD"),
        ("版本", "1.0", None, None, None, "NG"),
        ("t", True, None, None, None, "OK"),
    ]
    for row in (1, 2):
        assert save(panel, path, row) == qon_handy.timestamp_as_filename(bare.begin_time) + ".xlsx"
        assert [cells[0] for cells in rows(path)[2:]] == ["Result: TBD", "Test Item Name"]


def test_reports_of_none_and_of_two(panel: TestDataViewerPanel, boxes: Boxes, tmp_path: Path) -> None:
    panel.extend([unit("A", 1), unit("B", 2)])
    panel.on_save_single_uut_test_data(None)
    panel.ui_history.SelectRow(0)
    panel.ui_history.SelectRow(1, True)
    panel.on_save_single_uut_test_data(None)
    assert boxes.of("Notice") == ["Please select one and only one UUT first."] * 2
    choose(panel, "2")
    assert save(panel, None) == "A.xlsx"  # the row counts in the whole list, whatever the filter shows
    assert not list(tmp_path.iterdir()) and len(boxes.shown) == 2




@pytest.fixture
def plot(panel: TestDataViewerPanel) -> mock.Mock:
    """The panel's plot, watched."""
    panel._TestDataViewerPanel__matplot_panel = mock.Mock(wraps=panel._TestDataViewerPanel__matplot_panel)
    return panel._TestDataViewerPanel__matplot_panel


def calls(plot: mock.Mock) -> list[str]:
    return [call[0] for call in plot.mock_calls]


def select(panel: TestDataViewerPanel, plot: mock.Mock, row: int) -> None:
    """The operator clicks on a unit and on its second item."""
    plot.reset_mock()
    click_row(panel.ui_history, row)
    click_row(panel.ui_assertions, 1)
    pump(lambda: calls(plot))


def plotted(plot: mock.Mock) -> list[list[float]]:
    [line] = plot._mock_wraps.plot.figure.axes[0].get_lines()
    return line.get_xydata().tolist()


def judged(value: Any, upper: float = 5) -> Assertion:
    return Assertion("V", value, 0, upper)


def undecided(value: Any) -> Assertion:
    item = Assertion("V", value)
    item.update()
    return item


CASES: dict[str, tuple[list[Assertion], str]] = {
    "gathering_order": (
        [judged(3), judged(1), judged(2)], "3 0 100.00% 3.0 1.0 2.0 2.0 0.6666666666666666 0.816496580927726",
    ),
    "upper_middle": ([judged(v) for v in (1, 2, 3, 4)], "4 0 100.00% 4.0 1.0 3.0 2.5 1.25 1.118033988749895"),
    "yield": ([judged(5), judged(7)], "1 1 50.00% 7.0 5.0 7.0 6.0 1.0 1.0"),
    "undecided_values_count": ([judged(5), undecided(4)], "1 0 100.00% 5.0 4.0 5.0 4.5 0.25 0.5"),
    "whatever_float_reads": (
        [Assertion("V", "1e1"), Assertion("V", True), Assertion("V", numpy.float32(4))],
        "3 0 100.00% 10.0 1.0 4.0 5.0 14.0 3.7416573867739413",
    ),
}  # fmt: skip


@pytest.mark.parametrize("case", CASES)
def test_figures_and_plot(case: str, panel: TestDataViewerPanel, plot: mock.Mock) -> None:
    items, shown = CASES[case]
    panel.extend([unit("SN", 1, Assertion("other", 99), item, done=False) for item in items])
    select(panel, plot, 1)
    assert figures(panel) == shown.split() and calls(plot) == ["subplots", "draw"]
    assert plotted(plot) == [[i, float(item.value)] for i, item in enumerate(items)]


def test_what_the_filter_lists_counts_every_time(panel: TestDataViewerPanel, plot: mock.Mock) -> None:
    twice, other = unit("A", 2, judged(1), judged(9)), unit("B", 1, judged(100))
    panel.extend([twice, other, unit("C", 2, Assertion("v", 50), judged(3))])
    select(panel, plot, 0)
    assert figures(panel)[:5] == ["2", "2", "50.00%", "100.0", "1.0"]
    choose(panel, "2")
    assert figures(panel) == [""] * 9 and calls(plot)[2:] == ["clear", "draw"]
    select(panel, plot, 1)
    assert figures(panel)[:6] == ["2", "1", "66.67%", "9.0", "1.0", "3.0"]
    assert [y for _, y in plotted(plot)] == [1, 9, 3]


@pytest.mark.parametrize(
    ("value", "error"), [(4, None), ("v1.2", ValueError), (None, ValueError), ([1, 2], TypeError)]
)
def test_items_that_have_no_figures(
    value: Any, error: type[Exception] | None, panel: TestDataViewerPanel, plot: mock.Mock, uncaught: Uncaught
) -> None:
    odd = undecided(value) if error is None else Assertion("V", value, result=True)
    panel.append(unit("A", 1, Assertion("W", 1), odd, done=False))
    for name in FIGURES:
        getattr(panel, f"ui_single_item_{name}").SetValue("left over")
    click_row(panel.ui_history, 0)
    click_row(panel.ui_assertions, 1)
    pump(lambda: calls(plot) or uncaught.errors)
    if error:
        uncaught.take(error)  # out of the event loop; the plot stays as it was
    assert calls(plot) == ([] if error else ["clear", "draw"])
    assert figures(panel) == ([""] * 9 if error else ["0", "0"] + [""] * 7)
