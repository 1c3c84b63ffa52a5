"""The default layouts' grids and log page: fast writes, the operator's view and keys, test threads."""

import threading
from collections.abc import Callable, Iterator
from typing import Any

import pytest
import qon_atsui
import wx
import wx.grid
from layouts import COLUMNS, press, shown
from qon_atsui.log_view import CAP, LogView
from qon_atsui.record_grid import RecordGrid
from support import pump, pump_for

DOUBLE_CLICK = 0.6  # seconds; clicks that are to count as two are further apart


@pytest.fixture
def grid(app: wx.App) -> Iterator[RecordGrid]:
    """An assertion grid of the product's columns."""
    with shown(wx.Frame(None, size=wx.Size(700, 400))) as window:
        made = RecordGrid(window)
        window.SendSizeEvent()
        for index, (title, width) in enumerate(COLUMNS):
            made.AppendCols(1)
            made.SetColSize(index, width)
            made.SetColLabelValue(index, title)
        made.SetSelectionMode(wx.grid.Grid.SelectRows)
        yield made


def add(grid: RecordGrid, count: int, ng: tuple[int, ...] = ()) -> None:
    """Rows as the product writes them."""
    for index in range(count):
        row = grid.GetNumberRows()
        grid.AppendRows()
        for column, text in enumerate(
            (f"item {row}", str(row * 1.5), "0", "", "V", "NG" if index in ng else "OK")
        ):
            grid.SetCellValue(row, column, text)
            grid.SetCellBackgroundColour(row, column, "red" if index in ng else "white")
        grid.MakeCellVisible(row, 0)


def click(grid: RecordGrid, row: int, column: int = 0) -> None:
    place = grid.CellToRect(row, column).GetPosition() + wx.Point(8, 8)
    simulator = wx.UIActionSimulator()
    simulator.MouseMove(grid.GetGridWindow().ClientToScreen(grid.CalcScrolledPosition(place)))
    simulator.MouseClick()


def in_view(grid: RecordGrid, row: int) -> bool:
    return bool(grid.IsVisible(row, 0, False))


def in_thread(*calls: Callable[[], Any]) -> list[Any]:
    """The calls, one after the other, as a test thread makes them."""
    results: list[Any] = []
    thread = threading.Thread(target=lambda: results.extend(call() for call in calls))
    thread.start()
    thread.join(5)
    assert len(results) == len(calls)
    return results


def test_cells_answer_what_was_written_in_any_order(grid: RecordGrid) -> None:
    add(grid, 4, ng=(2,))
    grid.SetCellValue(0, 5, "TBD")  # a row that was packed away
    grid.SetCellValue(3, 0, "odd\x1ftext")
    grid.SetCellValue(1, 1, "")
    grid.SetCellBackgroundColour(0, 5, wx.Colour("cyan"))
    assert [grid.GetCellValue(row, 0) for row in range(4)] == ["item 0", "item 1", "item 2", "odd\x1ftext"]
    assert (grid.GetCellValue(0, 5), grid.GetCellValue(1, 1), grid.GetCellValue(3, 5)) == ("TBD", "", "OK")
    assert grid.GetCellBackgroundColour(2, 4) == wx.Colour("red")
    assert grid.GetCellBackgroundColour(0, 5) == wx.Colour("cyan")
    assert grid.GetCellBackgroundColour(0, 4) == wx.Colour("white")
    grid.AppendCols(1)
    grid.SetCellValue(2, 6, "new column")
    assert (grid.GetCellValue(2, 6), grid.GetCellValue(2, 0), grid.GetCellValue(3, 6)) == (
        "new column",
        "item 2",
        "",
    )
    grid.DeleteRows(1, 2)
    assert [grid.GetCellValue(row, 0) for row in range(grid.GetNumberRows())] == ["item 0", "odd\x1ftext"]
    beyond = (
        lambda: grid.SetCellValue(2, 0, "x"),
        lambda: grid.SetCellValue(-1, 0, "x"),
        lambda: grid.DeleteRows(1, 2),
    )
    for write in beyond:
        with pytest.raises(IndexError):
            write()
    with pytest.raises(TypeError, match="Row 0, column 3: a cell holds a text, not None"):
        grid.SetCellValue(0, 3, None)


def test_a_burst_reaches_the_window_in_one_message(grid: RecordGrid, monkeypatch: pytest.MonkeyPatch) -> None:
    messages: list[int] = []
    process = grid.ProcessTableMessage
    monkeypatch.setattr(
        grid, "ProcessTableMessage", lambda m: (messages.append(m.GetCommandInt()), process(m))
    )
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
    click(grid, 95)
    pump(lambda: grid.GetSelectedRows() == [95])
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
    grid.Bind(
        wx.grid.EVT_GRID_SELECT_CELL, lambda event: heard.append((event.GetRow(), grid.GetSelectedRows()))
    )
    add(grid, 30)
    pump(lambda: wx.grid.Grid.GetNumberRows(grid) == 30)
    grid.SetFocus()
    pump(lambda: grid.GetGridWindow().HasFocus())
    pump_for(0.05)
    for key, row in (
        (wx.WXK_DOWN, 0),  # nothing was selected
        (wx.WXK_DOWN, 1),
        (wx.WXK_RIGHT, 1),
        (wx.WXK_END, 29),
        (wx.WXK_UP, 28),
        (wx.WXK_HOME, 0),
    ):
        heard.clear()
        press(key)
        pump(lambda: heard)
        assert heard == [(row, [row])]
    press(wx.WXK_DOWN, modifiers=wx.MOD_SHIFT)
    pump(lambda: sorted(grid.GetSelectedRows()) == [0, 1])
    press(ord("C"), modifiers=wx.MOD_CONTROL)
    pump_for(0.05)
    clip = wx.TextDataObject()
    with wx.TheClipboard:
        wx.TheClipboard.GetData(clip)
    assert clip.GetText() == "item 0\t0.0\t0\t\tV\tOK\nitem 1\t1.5\t0\t\tV\tOK"
    for row in (4, 4, 5):  # the second click on a cell is heard too: its unit may have gone on
        heard.clear()
        click(grid, row)
        pump(lambda: heard)
        assert heard == [(row, [row])]
        pump_for(DOUBLE_CLICK)
    grid.DeleteRows(0, 30)
    add(grid, 10)
    pump(lambda: wx.grid.Grid.GetNumberRows(grid) == 10)
    heard.clear()
    click(grid, 0)
    pump(lambda: (0, [0]) in heard)


def test_the_log_keeps_the_order_and_the_newest_of_too_much(app: wx.App) -> None:
    with shown(wx.Frame(None, size=wx.Size(500, 300))) as window:
        log = LogView(window)
        window.SendSizeEvent()
        for index in range(3):
            log.AppendText(f"line {index}\n")
        assert log.GetValue() == "line 0\nline 1\nline 2\n"
        log.AppendText("before it was cleared")
        log.SetValue("")
        log.AppendText("first \udc80 中文\n")
        pump(lambda: log.GetTextLength())
        assert log.GetValue() == "first \\udc80 中文\n"
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
        assert log.GetFirstVisibleLine() == 0  # somebody reads
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


def relist(viewer: qon_atsui.TestDataViewerPanel) -> None:
    viewer.ui_history.DeleteRows(0, 3)
    viewer.ui_history.AppendRows(3)


@pytest.mark.parametrize(
    "change",
    [
        relist,
        lambda viewer: viewer.ui_cell_filter.SetSelection(1),
        lambda viewer: viewer.ui_history.DeleteRows(0, 3),
    ],
)
@pytest.mark.parametrize("when", ["between", "after"])
def test_a_row_counted_in_an_older_listing_is_not_written(
    viewer: qon_atsui.TestDataViewerPanel, change: Callable[[Any], Any], when: str
) -> None:
    units, choice = viewer.ui_history, viewer.ui_cell_filter
    units.AppendRows(3)
    counted, changed = threading.Event(), threading.Event()

    def done() -> None:
        choice.GetStringSelection()
        counted.set()
        assert when == "after" or changed.wait(5)
        units.SetCellValue(1, 2, "another unit")

    thread = threading.Thread(target=done)
    thread.start()
    assert counted.wait(5)
    if when == "after":
        thread.join(5)
    change(viewer)
    changed.set()
    thread.join(5)
    pump_for(0.05)
    assert all(units.GetCellValue(row, 2) == "" for row in range(units.GetNumberRows()))
    in_thread(choice.GetStringSelection, lambda: units.SetCellValue(0, 2, "current"))
    pump_for(0.05)
    assert units.GetNumberRows() == 0 or units.GetCellValue(0, 2) == "current"
