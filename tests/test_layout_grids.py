"""The default layouts' grids and log page: fast writes, the operator's view and keys, test threads."""

import threading
from collections.abc import Callable, Iterator
from typing import Any

import pytest
import qon_atsui
import wx
import wx.grid
from qon_atsui.cell.log_view import CAP, LogView
from qon_atsui.grid.item_grid import ItemGrid
from qon_atsui.grid.record_grid import RecordGrid
from station import click_row
from support import in_thread, press, pump, pump_for, shown

DOUBLE_CLICK = 0.6  # seconds; clicks that are to count as two are further apart


@pytest.fixture
def grid(frame: wx.Frame) -> RecordGrid:
    """An assertion grid of the engine's columns."""
    made = ItemGrid(frame)
    frame.SendSizeEvent()
    for title in ("Name", "Value", "Lower", "Upper", "Unit", "Result"):
        made.AppendCols(1)
        made.SetColSize(made.GetNumberCols() - 1, 200)
        made.SetColLabelValue(made.GetNumberCols() - 1, title)
    made.SetSelectionMode(wx.grid.Grid.SelectRows)
    return made


def add(grid: RecordGrid, count: int, ng: int = -1) -> None:
    """Rows as the engine writes them."""
    for index in range(count):
        row = grid.GetNumberRows()
        grid.AppendRows()
        texts = (f"item {row}", str(row * 1.5), "0", "", "V", "NG" if index == ng else "OK")
        for column, text in enumerate(texts):
            grid.SetCellValue(row, column, text)
            grid.SetCellBackgroundColour(row, column, "red" if index == ng else "white")
        grid.MakeCellVisible(row, 0)


def in_view(grid: RecordGrid, row: int) -> bool:
    return bool(grid.IsVisible(row, 0, False))


def column(grid: RecordGrid, number: int) -> list[str]:
    return [grid.GetCellValue(row, number) for row in range(grid.GetNumberRows())]


def test_cells_answer_what_was_written_in_any_order(grid: RecordGrid) -> None:
    add(grid, 4, ng=2)
    grid.SetCellValue(0, 5, "TBD")  # a row that was packed away
    grid.SetCellValue(3, 0, "odd\x1ftext")
    grid.SetCellValue(1, 1, "")
    grid.SetCellBackgroundColour(0, 5, wx.Colour("cyan"))
    assert column(grid, 0) == ["item 0", "item 1", "item 2", "odd\x1ftext"]
    assert (column(grid, 5), grid.GetCellValue(1, 1)) == (["TBD", "OK", "NG", "OK"], "")
    shades = [grid.GetCellBackgroundColour(*place) for place in ((2, 4), (0, 5), (0, 4))]
    assert shades == [wx.Colour("red"), wx.Colour("cyan"), wx.Colour("white")]
    grid.AppendCols(1)
    grid.SetCellValue(2, 6, "new column")
    assert column(grid, 6) == ["", "", "new column", ""] and grid.GetCellValue(2, 0) == "item 2"
    grid.DeleteRows(1, 2)
    assert column(grid, 0) == ["item 0", "odd\x1ftext"]
    writes = (grid.SetCellValue, 2, 0, "x"), (grid.SetCellValue, -1, 0, "x"), (grid.DeleteRows, 1, 2)
    for write, *beyond in writes:
        with pytest.raises(IndexError):
            write(*beyond)
    with pytest.raises(TypeError, match="Row 0, column 3: a cell holds a text, not None"):
        grid.SetCellValue(0, 3, None)


# Value, lower and upper limit as they were recorded, and as they are shown.
SHOWN = {
    ("5.0123456789", "4.9", "5.1"): ("5.01235", "4.9", "5.1"),
    ("0.30000000000000004", "", ""): ("0.3", "", ""),
    ("-1234567.8912", "", "0"): ("-1.23457e+06", "", "0"),
    ("1.2345678e-09", "", ""): ("1.23457e-09", "", ""),
    ("123456789", "1000000.0", "1e+300"): ("123456789", "1000000.0", "1e+300"),  # an integer, short floats
    ("1.2.3456789", "nan", "inf"): ("1.2.3456789", "nan", "inf"),
    ("1.23456780", "", ""): ("1.23456780", "", ""),  # no float is written like this
    ("5.0000004", "4", "5.0"): ("5.0000004", "4", "5.0"),  # NG, and it has to look NG
    ("4.99999951234", "", "4.9999995"): ("4.99999951", "", "4.9999995"),
    ("4.99999951234", "4.99999958", "6"): ("4.9999995", "4.9999996", "6"),
}


def test_numbers_are_shown_short_and_kept_whole(grid: ItemGrid) -> None:
    for row, texts in enumerate((*SHOWN, ("3.14159265", "", ""))):
        grid.AppendRows()
        for col, text in enumerate(("3.14159265", *texts), 0):
            grid.SetCellValue(row, col, text)
    grid.keep_whole(len(SHOWN), 1)
    seen = [[grid.shown_text(row, col) for col in range(4)] for row in range(grid.GetNumberRows())]
    assert seen == [["3.14159265", *texts] for texts in (*SHOWN.values(), ("3.14159265", "", ""))]
    assert column(grid, 1)[:-1] == [texts[0] for texts in SHOWN]
    grid.DeleteRows(0, len(SHOWN))
    assert grid.shown_text(0, 1) == "3.14159265"
    grid.DeleteRows(0, 1)
    add(grid, 1)
    grid.SetCellValue(0, 1, "3.14159265")
    assert grid.shown_text(0, 1) == "3.14159"
    grid.show_titles(["Test", "Measured"])
    assert [wx.grid.Grid.GetColLabelValue(grid, col) for col in range(3)] == ["Test", "Measured", "Lower"]
    assert grid.GetColLabelValue(1) == "Value"


def test_a_burst_reaches_the_window_in_one_message(grid: RecordGrid, monkeypatch: pytest.MonkeyPatch) -> None:
    messages: list[int] = []
    process = grid.ProcessTableMessage
    note = lambda message: (messages.append(message.GetCommandInt()), process(message))
    monkeypatch.setattr(grid, "ProcessTableMessage", note)
    add(grid, 500)
    assert not messages and grid.GetNumberRows() == 500
    pump(lambda: messages)
    pump_for(0.05)
    assert messages == [500] and wx.grid.Grid.GetNumberRows(grid) == 500


def test_the_newest_row_stays_in_view_until_the_operator_looks_elsewhere(grid: RecordGrid) -> None:
    add(grid, 100)
    pump(lambda: in_view(grid, 99))
    grid.SetFocus()
    pump(lambda: grid.GetGridWindow().HasFocus())
    click_row(grid, 95)
    add(grid, 100)
    pump_for(0.1)
    assert in_view(grid, 95) and not in_view(grid, 199)
    grid.Scroll(-1, 10_000)
    wx.PostEvent(grid, wx.ScrollWinEvent(wx.wxEVT_SCROLLWIN_THUMBRELEASE, 0, wx.VERTICAL))
    pump(lambda: grid.follows)  # back at the end
    add(grid, 100)
    pump(lambda: in_view(grid, 299))
    grid.SelectRow(3)
    grid.DeleteRows(0, grid.GetNumberRows())
    assert grid.GetSelectedRows() == [] and grid.GetNumberRows() == 0
    add(grid, 50)
    pump(lambda: in_view(grid, 49))


def test_keys_and_clicks_select_the_row_before_they_are_heard(grid: RecordGrid) -> None:
    heard: list[tuple[int, list[int]]] = []
    grid.Bind(wx.grid.EVT_GRID_SELECT_CELL, lambda e: heard.append((e.GetRow(), grid.GetSelectedRows())))
    add(grid, 30)
    pump(lambda: wx.grid.Grid.GetNumberRows(grid) == 30)
    grid.SetFocus()
    pump(lambda: grid.GetGridWindow().HasFocus())
    pump_for(0.05)
    steps = [(wx.WXK_DOWN, 0), (wx.WXK_DOWN, 1), (wx.WXK_RIGHT, 1), (wx.WXK_END, 29), (wx.WXK_UP, 28)]
    for key, row in (*steps, (wx.WXK_HOME, 0)):  # at first nothing was selected
        heard.clear()
        press(key)
        pump(lambda: heard)
        assert heard == [(row, [row])]
    press(wx.WXK_DOWN, wx.MOD_SHIFT)
    pump(lambda: sorted(grid.GetSelectedRows()) == [0, 1])
    press("C", wx.MOD_CONTROL)
    pump_for(0.05)
    clip = wx.TextDataObject()
    with wx.TheClipboard:
        wx.TheClipboard.GetData(clip)
    assert clip.GetText() == "item 0\t0.0\t0\t\tV\tOK\nitem 1\t1.5\t0\t\tV\tOK"
    for row in (4, 4):  # the second click on a cell is heard too: its unit may have gone on
        heard.clear()
        click_row(grid, row)
        pump(lambda: heard)
        assert heard == [(row, [row])]
        pump_for(DOUBLE_CLICK)
    grid.DeleteRows(0, 30)
    add(grid, 10)
    pump(lambda: wx.grid.Grid.GetNumberRows(grid) == 10)
    heard.clear()
    click_row(grid, 0)
    pump(lambda: (0, [0]) in heard)


def test_the_log_keeps_the_order_and_the_newest_of_too_much(frame: wx.Frame) -> None:
    log = LogView(frame)
    frame.SendSizeEvent()
    log.AppendText("before it was cleared")
    log.SetValue("")
    log.AppendText("first \udc80 中文\n")
    log.AppendText("second\n")
    pump(lambda: log.GetTextLength())
    assert log.GetValue() == "first \\udc80 中文\nsecond\n"
    for index in range(30):
        log.AppendText(f"{index} " + "x" * 100_000 + "\n")
        log.flush()
    assert log.GetTextLength() <= CAP and log.GetValue()[:3].strip().isdigit()
    assert log.GetValue().splitlines()[-1].startswith("29 ")
    log.SetValue("".join(f"{index}\n" for index in range(1000)))
    log.ScrollToStart()
    log.AppendText("more\n")
    log.flush()
    pump_for(0.05)
    assert log.GetFirstVisibleLine() == 0, "somebody reads"
    log.ScrollToEnd()
    log.AppendText("more\n" * 50)
    log.flush()
    pump(lambda: log.GetFirstVisibleLine() + log.LinesOnScreen() >= log.GetLineCount() - 1)
    assert log.GetReadOnly()


@pytest.fixture
def viewer(app: wx.App) -> Iterator[qon_atsui.TestDataViewerPanel]:
    with shown(qon_atsui.TestDataViewerFrame(None)) as window:
        panel = qon_atsui.TestDataViewerPanel(window)
        window.ui_root_sizer.Add(panel, 1, wx.EXPAND)
        window.Layout()
        panel.ui_cell_filter.Append("1")
        yield panel


CHANGES: list[Callable[[Any], Any]] = [
    lambda viewer: (viewer.ui_history.DeleteRows(0, 3), viewer.ui_history.AppendRows(3)),
    lambda viewer: viewer.ui_cell_filter.SetSelection(1),
    lambda viewer: viewer.ui_history.DeleteRows(0, 3),
]


@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("when", ["between", "after"])
def test_a_row_counted_in_an_older_listing_is_not_written(when: str, change: Any, viewer: Any) -> None:
    units, choice = viewer.ui_history, viewer.ui_cell_filter
    units.AppendRows(3)
    counted, changed = threading.Event(), threading.Event()
    write = lambda: units.SetCellValue(1, 2, "another unit")
    steps = (choice.GetStringSelection, counted.set, changed.wait, write)
    thread = threading.Thread(target=lambda: [step() for step in steps])
    thread.start()
    assert counted.wait(60)
    if when == "after":
        changed.set()
        thread.join(60)
    change(viewer)
    changed.set()
    thread.join(60)
    pump_for(0.05)
    assert set(column(units, 2)) <= {""}
    in_thread(lambda: (choice.GetStringSelection(), units.SetCellValue(0, 2, "current")))
    pump(lambda: units.GetNumberRows() == 0 or units.GetCellValue(0, 2) == "current")
