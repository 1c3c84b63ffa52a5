"""The configuration workbook and the parameters directory, as the frame and its cells read them."""

from pathlib import Path
from typing import Any

import pytest
import qon_ats
from station import Station
from support import write_book, write_script

pytest_plugins = ["stationplugin"]

ALL_KEYS = {
    "mop_block_ticker": False, "show_toolbar": True, "show_statistics_panel": False, "cell_count": 5,
    "column_count": 3, "startup_in_debug_mode": True, "run_ticker": False, "ticker_interval": 7,
}  # fmt: skip


# Shown: tool bar, statistics; debug mode and its menu item; dialog blocks the ticker; interval.
@pytest.mark.parametrize(
    ("main", "cells", "columns", "state"),
    [
        ({}, 1, 1, [0, 1, 0, 0, 1, 100]),
        (ALL_KEYS, 5, 3, [1, 0, 1, 1, 0, 7]),
        ({"column_count": 9, "cell_count": 2}, 2, 2, [0, 1, 0, 0, 1, 100]),
    ],
)
def test_main_sheet(main: dict[str, Any], cells: int, columns: int, state: Any, station: Station) -> None:
    write_book(station.book, {"main": main, "cell1": {"script": "s.py"}})
    frame = station.build()
    assert [cell.cell_number for cell in frame.cells] == list(range(1, cells + 1))
    sizer = frame.ui_cell_panel.GetSizer()
    assert (sizer.GetCols(), sizer.GetHGap(), sizer.GetVGap()) == (columns, 0, 0)
    assert [item.GetWindow() for item in sizer.GetChildren()] == frame.cells
    shown = [frame.ui_toolbar.IsShown(), frame.ui_statistics_panel.IsShown()]
    debug = [frame.is_in_debug_mode(), frame.ui_in_debug_mode.IsChecked()]
    assert [*shown, *debug, frame._mop_block_ticker, frame._ticker_interval] == state
    assert (frame.app_config, frame.cells[0].assertion_configs, frame._run_ticker) == (None, None, False)


def test_cells_without_a_sheet_share_the_first_cells(station: Station) -> None:
    own, shared = (write_script(station.folder, station.script("self.append_ok('a', 1)")) for _ in range(2))
    first = {"script": str(shared), "none_unit": "pcs"}
    write_book(station.book, {"main": {"cell_count": 3}, "cell1": first, "cell2": {"script": str(own)}})
    frame = station.build()
    assert [cell.script for cell in frame.cells] == [str(shared), str(own), str(shared)]
    assert frame.cells[0].cell_config is frame.cells[2].cell_config
    units = [station.run(cell).uut.assertions[0].unit for cell in frame.cells]
    assert units == ["pcs", "", "pcs"]


def test_default_places_are_in_the_working_directory(station: Station) -> None:
    Path("app_config").mkdir()
    write_book(Path("app_config/bench.xlsx"), {"supply": {"volts": 12.5}})
    write_script(Path(), station.script("self.append_ok('U', self.app_config.bench.supply.volts)"), "here")
    write_book(Path("ats_config.xlsx"), {"main": {}, "cell1": {"script": "here.py"}})
    [cell] = station.use(qon_ats.ATSFrame()).cells
    assert station.run(cell).uut.assertions[0].value == 12.5
    assert cell.script == str(station.folder / "here.py")
