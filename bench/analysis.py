"""The viewer with 10,000 units of 100 items: listing, filtering, analysing one item; milliseconds."""

import gc
import time
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import wx
from qon_matplot import MatplotPanel
from sides import report, side_of_this_process

UNITS = 10_000
ITEMS = 100
CELLS = 4
REPEATS = 5


def units(module: Any) -> list[Any]:
    made = []
    for number in range(UNITS):
        uut = module.UUT(f"SN{number:06d}", number % CELLS + 1)
        for item in range(ITEMS):
            value = item + number * 1e-5
            uut.append_assertion(module.Assertion(f"item{item}", value, item - 1.0, item + 0.09, "V"))
        uut.done = True
        made.append(uut)
    return made


def timed(action: Callable[[], Any]) -> float:
    begin = time.perf_counter()
    action()
    return (time.perf_counter() - begin) * 1e3


def select_items(panel: Any) -> float:
    """The fewest milliseconds of selecting an item, through the grid's own event."""
    grid = panel.ui_assertions
    times = []
    for row in range(1, REPEATS + 1):
        grid.SelectRow(row)
        times.append(timed(lambda row=row: grid.SetGridCursor(row, 0)))
        assert panel.ui_single_item_ok_count.GetValue() != ""
    return min(times)


def main() -> None:
    _side, module = side_of_this_process()
    app = wx.App(False)
    frame = module.TestDataViewerFrame(None)
    panel = frame.test_data_viewer_panel
    frame.Show()
    uuts = units(module)
    gc.collect()
    figures = {"listing": timed(lambda: panel.extend(uuts))}
    panel.ui_history.SelectRow(0)
    panel.on_view_uut_detail(None)
    figures["analysis with plot"] = select_items(panel)
    axes = SimpleNamespace(plot=lambda x, y: None)
    MatplotPanel.subplots = lambda self: (None, axes)
    MatplotPanel.draw = MatplotPanel.clear = lambda self: None
    figures["analysis"] = select_items(panel)
    filtered = wx.CommandEvent(wx.wxEVT_CHOICE)
    filtered.SetString("2")
    panel.ui_cell_filter.SetStringSelection("2")
    figures["filtering"] = timed(lambda: panel.on_cell_filter_changed(filtered))
    assert panel.ui_history.GetNumberRows() == UNITS // CELLS
    report(figures)
    app.Destroy()


if __name__ == "__main__":
    main()
