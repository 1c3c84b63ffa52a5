"""The viewer with 10,000 units of 100 items: listing, filtering, analysing one item; milliseconds."""

import gc
import random
import time
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import wx
from sides import report, side_of_this_process

UNITS = 10_000
ITEMS = 100
CELLS = 4
REPEATS = 5


def units(module: Any) -> list[Any]:
    """Values scatter as measured ones do, which is what makes their plot dear."""
    scatter = random.Random(1)
    noise = [scatter.gauss(0.0, 0.01) for _ in range(UNITS)]
    made = []
    for number in range(UNITS):
        uut = module.UUT(f"SN{number:06d}", number % CELLS + 1)
        for item in range(ITEMS):
            value = item + noise[(number + item * 97) % UNITS]
            uut.append_assertion(module.Assertion(f"item{item}", value, item - 1.0, item + 0.09, "V"))
        uut.done = True
        made.append(uut)
    return made


def timed(action: Callable[[], Any]) -> float:
    begin = time.perf_counter()
    action()
    return (time.perf_counter() - begin) * 1e3


def pump(seconds: float = 0.5) -> None:
    end = time.perf_counter() + seconds
    while time.perf_counter() < end:
        wx.Yield()
        time.sleep(0.01)


def canvas_in(window: wx.Window) -> Any:
    """The plot's canvas, once there is one."""
    found = (canvas_in(child) if child.GetChildren() else child for child in window.GetChildren())
    return next((child for child in found if hasattr(child, "figure")), None)


def select_items(panel: Any, show: Callable[[], None]) -> float:
    """The fewest milliseconds of selecting an item through the grid's own event; `show` belongs to it."""
    grid = panel.ui_assertions
    times = []
    for row in range(1, REPEATS + 1):
        grid.SelectRow(row)
        times.append(timed(lambda row=row: (grid.SetGridCursor(row, 0), show())))
        pump(0.05)
        assert panel.ui_single_item_ok_count.GetValue() != ""
    return min(times)


def main() -> None:
    _side, module = side_of_this_process()
    app = wx.App(False)
    frame = module.TestDataViewerFrame(None)
    panel = frame.test_data_viewer_panel
    frame.Show()
    pump()
    uuts = units(module)
    gc.collect()
    figures = {"listing": timed(lambda: panel.extend(uuts))}
    panel.ui_history.SelectRow(0)
    panel.on_view_uut_detail(None)
    panel.ui_assertions.SelectRow(0)
    panel.ui_assertions.SetGridCursor(0, 1)
    pump()
    canvas = canvas_in(panel)
    figures["analysis with plot"] = select_items(panel, canvas.Update)  # to the painted plot
    axes = SimpleNamespace(plot=lambda x, y: None)
    plot = type(canvas.GetParent())
    plot.subplots = lambda self: (None, axes)
    plot.draw = plot.clear = lambda self: None
    figures["analysis"] = select_items(panel, lambda: None)
    filtered = wx.CommandEvent(wx.wxEVT_CHOICE)
    filtered.SetString("2")
    panel.ui_cell_filter.SetStringSelection("2")
    figures["filtering"] = timed(lambda: panel.on_cell_filter_changed(filtered))
    assert panel.ui_history.GetNumberRows() == UNITS // CELLS
    report(figures)
    app.Destroy()


if __name__ == "__main__":
    main()
