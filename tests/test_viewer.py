"""The test data viewer: the list of units, details, reports, and one item across units."""

from collections.abc import Iterator
from datetime import datetime
from pathlib import Path
from typing import Any
from unittest import mock

import numpy
import openpyxl
import pytest
import qon_ats
import qon_handy
import qon_station
import wx
import wx.grid
from conftest import Uncaught
from qon_ats import UUT, Assertion, TestDataViewerFrame, TestDataViewerPanel
from qon_companions.files import safe_name
from station import Station, choose, click_row, colours, file_dialog, texts, unit
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


def save(panel: TestDataViewerPanel, path: Path | None, row: int = 0) -> Any:
    """Save the report of a row: the file name that was proposed."""
    panel.ui_history.SelectRow(row)
    with file_dialog(path) as asked:
        panel.on_save_single_uut_test_data(None)
    asked.assert_called_once_with(
        panel, message="Give a file name to save", defaultDir=mock.ANY, defaultFile=mock.ANY,
        wildcard="Excel File(*.xlsx)|*.xlsx", style=wx.FD_SAVE | wx.FD_OVERWRITE_PROMPT,
    )  # fmt: skip
    return asked.call_args.kwargs["defaultFile"]


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


FIGURES = ("ok_count", "ng_count", "yield", "max", "min", "middle", "average", "variance", "std_deviation")


def figures(panel: TestDataViewerPanel) -> list[str]:
    return [getattr(panel, f"ui_single_item_{name}").GetValue() for name in FIGURES]


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


# The viewer of a station.


@pytest.fixture
def installed(english: None, boxes: Boxes) -> Iterator[None]:
    """The classes of a station stand in qon_ats."""
    undo = qon_station.install()
    yield
    undo()


@pytest.fixture
def kept(station: Station, installed: None) -> TestDataViewerPanel:
    """The test data viewer as a station has it."""
    frame = qon_ats.TestDataViewerFrame(None)
    frame.Show()
    pump(frame.IsShownOnScreen)
    return frame.test_data_viewer_panel


class Odd:
    def __str__(self) -> str:
        raise RuntimeError("no text")


def buttons(panel: TestDataViewerPanel) -> list[str]:
    return [each.GetLabelText() for each in panel.GetChildren() if isinstance(each, wx.Button)]


def test_only_what_can_be_done_is_offered(panel: TestDataViewerPanel, english: None) -> None:
    assert len(buttons(panel)) == 2 and panel.ui_save_report.IsEnabled()
    panel.extend([unit("A", 1), unit("B", 2)])
    for text, offered in (("2", False), ("all", True)):
        choose(panel, text)
        assert panel.ui_save_report.IsEnabled() is offered
    own = type("OwnPanel", (TestDataViewerPanel,), {"on_export_data": lambda self, event: None})
    assert len(buttons(own(panel.GetParent()))) == 3
    window = panel.GetParent()
    with mock.patch.object(window, "Raise") as raised:
        window.Show()  # it is shown already, perhaps behind the station
    assert raised.called


def test_a_column_is_one_entry(station: Station, installed: None, monkeypatch: pytest.MonkeyPatch) -> None:
    columns = [("Get", 50), *qon_ats._DefaultColumnInfo]
    monkeypatch.setattr(qon_ats, "_DefaultColumnInfo", columns)
    monkeypatch.setattr(Assertion, "get_get", lambda self: "got", raising=False)
    panel = qon_ats.TestDataViewerFrame(None).test_data_viewer_panel
    panel.append(unit("A", 3, Assertion("a", 9, 0, 1)))
    panel.ui_history.SelectRow(0)
    panel.on_view_uut_detail(None)
    assert texts(panel.ui_assertions) == [["got", "a", "9", "0", "1", "", "NG"]]
    assert colours(panel.ui_assertions, 0) == ["white"] * 6 + ["red"] and texts(panel.ui_history)[0][5:] == [
        "3"
    ]


def test_a_report_of_what_is_selected(kept: TestDataViewerPanel, boxes: Boxes, tmp_path: Path) -> None:
    odd: list[Any] = [
        "=1+1",
        "#N/A",
        "a\x07b\ud800",
        "x" * 40_000,
        [1, 2],
        numpy.array([1.5]),
        Odd(),
        b"\x00",
    ]
    numbers: list[Any] = [
        float("nan"),
        float("-inf"),
        10**20,
        numpy.float32(0.5),
        numpy.bool_(True),
        0.1 + 0.2,
    ]
    items = [
        Assertion(f"={value_number}", value, result=True) for value_number, value in enumerate(odd + numbers)
    ]
    kept.extend([unit("A", 1), unit("../B:1", 2, *items)])
    choose(kept, "2")
    assert kept.ui_save_report.IsEnabled()
    path = tmp_path / "report.xlsx"
    assert save(kept, path) == "_B_1.xlsx"
    book = openpyxl.load_workbook(path)
    cells = [row[:2] for row in book.active.iter_rows(min_row=5)]
    assert [cell.value for cell, _ in cells] == [f"={index}" for index in range(len(items))]
    assert {cell.data_type for cell, _ in cells} == {"s"}
    texts = ["=1+1", "#N/A", "a\\x07b\\ud800", "x" * 32_766 + "…", "[1, 2]", "[1.5]", "<...>", "b'\\x00'"]
    assert [value.value for _, value in cells] == [
        *texts,
        "nan",
        "-inf",
        str(10**20),
        0.5,
        True,
        pytest.approx(0.3),
    ]
    assert {value.data_type for _, value in cells[: len(odd) + 3]} == {"s"}
    assert boxes.of() == [f"The report of ../B:1 was saved:\n{path}"]
    before = path.read_bytes()
    save(kept, path.with_suffix(""))  # asks nothing about the file that it would replace
    assert boxes.of("Error").pop().endswith(f"{path}:\nThis file is there already; choose it to replace it")
    boxes.shown.clear()
    for _ in range(2):  # each time, not only the first
        with mock.patch(
            "qon_companions.files.os.replace", side_effect=OSError(28, "No space left on device")
        ):
            save(kept, path)
    assert (
        boxes.of("Error")
        == [f"The report of ../B:1 could not be saved:\n{path}:\nNo space left on device"] * 2
    )
    assert path.read_bytes() == before and [each.name for each in tmp_path.iterdir()] == ["report.xlsx"]


@pytest.mark.parametrize(
    ("serial", "name"),
    [("SN1", "SN1"), ("/etc/passwd", "_etc_passwd"), ("C:\\x", "C__x"), ("..", ""), ("con", "_con"), ("Lpt1.a", "_Lpt1.a"),
     (" a. ", "a"), ("产品\n1", "产品_1"), (".bashrc", "bashrc"), ("/", ""), ("a" * 300, "a" * 120)],
)  # fmt: skip
def test_a_serial_number_as_a_file_name(serial: str, name: str) -> None:
    assert safe_name(serial, otherwise="") == name


def test_the_analysis_tells_what_it_shows(kept: TestDataViewerPanel, boxes: Boxes, tmp_path: Path) -> None:
    values = [(5.0123456789, 5.1), (4.9, 5.1), (5.05, 5.0)]
    for number, (value, upper) in enumerate(values):
        kept.append(
            unit(
                f"SN{number}",
                1,
                Assertion("other", 1),
                Assertion("V", value, None, upper, "V"),
                Assertion("T", "x"),
            )
        )
    kept.append(unit("SN3", 1, Assertion("W", 1), Assertion("T", result=False)))
    click_row(kept.ui_history, 0)
    click_row(kept.ui_assertions, 1)
    pump(lambda: kept.ui_single_item_name.GetValue() == "V")
    maximum = kept.ui_single_item_min
    assert kept.ui_assertions.shown_text(1, 1) == "5.01235" and maximum.GetValue() == "4.9"
    [axes] = kept._TestDataViewerPanel__matplot_panel.plot.figure.axes
    drawn, limits = axes.get_lines()
    assert drawn.get_ydata().tolist() == [value for value, _ in values] and "V [V]" in [
        each.get_text() for each in axes.texts
    ]
    assert limits.get_xydata().tolist() == [[-0.5, 5.1], [1.5, 5.1], [1.5, 5.0], [2.5, 5.0]]
    ticks = [axes.xaxis.get_major_formatter()(place) for place in axes.get_xticks()]
    assert ticks[:3] == ["1", "2", "3"]  # counted, not measured
    path = tmp_path / "plot.png"
    for error in (None, OSError(28, "No space left on device")):
        with file_dialog(path) as asked, mock.patch("qon_companions.files.os.fsync", side_effect=error):
            axes.figure.canvas.toolbar.save_figure()
    assert asked.call_args.kwargs["defaultFile"] == "V [V].png" and path.read_bytes()[1:4] == b"PNG"
    assert [kind for kind, *_ in boxes.shown] == ["Notice", "Error"]
    click_row(kept.ui_history, 2)  # the same item of another unit
    pump(lambda: list(kept.ui_assertions.GetSelectedRows()) == [1])
    assert kept.ui_single_item_name.GetValue() == "V" and figures(kept)[0] == "2"
    click_row(kept.ui_assertions, 2)
    pump(lambda: kept.ui_single_item_name.GetValue() == "T")
    assert figures(kept) == ["3", "1", "75.00%", *[""] * 6]
    assert "4 of them without a number" in kept.ui_single_item_note.GetValue()
    click_row(kept.ui_assertions, 1)
    click_row(kept.ui_history, 3)  # a unit without that item
    pump(lambda: kept.ui_single_item_name.GetValue() == "")
    assert figures(kept) == [""] * 9
    click_row(kept.ui_assertions, 0)
    pump(lambda: kept.ui_single_item_name.GetValue() == "W")
    kept.clear()
    assert figures(kept) == [""] * 9 and kept.ui_single_item_name.GetValue() == ""


ODD = """
class Odd:
    def __str__(self):
        raise RuntimeError("no text")
self.append_ok("ODD", Odd())
self.append_ok("TEXT", "3.14159265")
self.append_ok("FLOAT", 3.14159265)
"""


def test_a_value_that_cannot_be_told_stops_no_run(station: Station, installed: None) -> None:
    columns = [["Name", 100], ["Value", 100], ["Elapse_Time", 50]]
    cell = station.run(station(ODD, column_info=columns, column_titles=["Test", "Measured"]).cells[0])
    grid = cell.ui_assertions
    assert [row[:2] for row in texts(grid)] == [
        ["ODD", "<...>"],
        ["TEXT", "3.14159265"],
        ["FLOAT", "3.14159265"],
    ]
    assert [grid.shown_text(row, 1) for row in range(3)] == ["<...>", "3.14159265", "3.14159"]
    assert [wx.grid.Grid.GetColLabelValue(grid, col) for col in range(3)] == [
        "Test",
        "Measured",
        "Elapse_Time",
    ]
    viewer = station.frame._ATSFrame__test_data_viewer.test_data_viewer_panel
    viewer.ui_history.SelectRow(0)
    viewer.on_view_uut_detail(None)
    assert [row[1] for row in texts(viewer.ui_assertions)] == ["<...>", "3.14159265", "3.14159265"]
    for keys, words in (
        ({"column_info": [["Voltage", 100]]}, "'Voltage' is to show; there are: .*Value"),
        ({"column_info": 5}, "a list of titles and widths is needed"),
        ({"column_titles": ["a"] * 7}, "at most 6 texts"),
    ):
        with pytest.raises(ValueError, match=f"ats_config.xlsx.*cell1.*{words}"):
            station(**keys)
