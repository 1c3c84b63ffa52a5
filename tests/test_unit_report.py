"""The report workbook of one unit, read back."""

from pathlib import Path
from typing import Any
from unittest import mock

import openpyxl
import pytest
import qon_handy
import wx
from openpyxl.utils.exceptions import IllegalCharacterError
from qon_ats import UUT, Assertion, TestDataViewerPanel
from station import choose, file_dialog, unit
from support import Boxes

pytest_plugins = ["stationplugin"]


def save(panel: TestDataViewerPanel, path: Path | None, row: int = 0) -> Any:
    """Save the report of a row: the file name that was proposed."""
    panel.ui_history.SelectRow(row)
    with file_dialog(path) as asked:
        panel.on_save_single_uut_test_data(None)
    asked.assert_called_once_with(
        panel, message="Give a file name to save", defaultDir="", defaultFile=mock.ANY,
        wildcard="Excel File(*.xlsx)|*.xlsx", style=wx.FD_SAVE | wx.FD_OVERWRITE_PROMPT,
    )  # fmt: skip
    return asked.call_args.kwargs["defaultFile"]


def rows(path: Path) -> list[tuple[Any, ...]]:
    return list(openpyxl.load_workbook(path).active.values)


def test_contents(panel: TestDataViewerPanel, tmp_path: Path) -> None:
    items = Assertion("a", 1.5, 1, 2, "V"), Assertion("b"), Assertion("版本", "1.0", result=False), Assertion("t", True)
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


def test_one_unit_must_be_selected_and_cancel_writes_nothing(
    panel: TestDataViewerPanel, boxes: Boxes, tmp_path: Path
) -> None:
    panel.extend([unit("A", 1), unit("B", 2)])
    panel.on_save_single_uut_test_data(None)
    panel.ui_history.SelectRow(0)
    panel.ui_history.SelectRow(1, True)
    panel.on_save_single_uut_test_data(None)
    assert boxes.of("Notice") == ["Please select one and only one UUT first."] * 2
    choose(panel, "2")
    assert save(panel, None) == "A.xlsx"  # the row counts in the whole list, whatever the filter shows
    assert not list(tmp_path.iterdir()) and len(boxes.shown) == 2


def test_what_cannot_be_written_raises_and_the_unit_stays(panel: TestDataViewerPanel, tmp_path: Path) -> None:
    odd = unit("A", 1, Assertion("raw", "\x07")), unit("B", 1, Assertion("array", [1, 2]))
    panel.extend([*odd, unit("C")])
    path = tmp_path / "report.xlsx"
    errors = {(0, path): IllegalCharacterError, (1, path): ValueError, (2, tmp_path): OSError}
    for (row, target), error in errors.items():
        with pytest.raises(error):
            save(panel, target, row)
    assert [uut.serial_number for uut in panel.get_uut_list()] == ["A", "B", "C"]
    save(panel, path, 2)
    assert rows(path)[4][0] == "a"
