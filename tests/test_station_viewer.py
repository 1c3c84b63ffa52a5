"""The test data viewer as a station has it: what it offers, reports, the figures of an item, values nobody can read."""

from pathlib import Path
from typing import Any
from unittest import mock

import numpy
import openpyxl
import pytest
import qon_ats
import wx
import wx.grid
from qon_ats import Assertion, TestDataViewerPanel
from qon_companions.files import safe_name
from station import Station, choose, click_row, colours, figures, file_dialog, save, texts, unit
from support import Boxes, pump

pytestmark = pytest.mark.usefixtures("english", "boxes")


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
