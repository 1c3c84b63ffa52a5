"""Commands of the menus: test parameters, export of limits, operating by hand."""

import shutil
import sys
from pathlib import Path
from traceback import format_exception
from typing import Any
from unittest import mock

import openpyxl
import pytest
import qon_ats
import qon_touch
import wx
from qon_ats import ATSFrame
from qon_paratree import ParameterDirectory
from station import Answers, Station, file_dialog
from support import HEADER, Boxes, write_book


@pytest.fixture
def bench(station: Station) -> Path:
    """The workbook of a parameters directory."""
    (station.folder / "app_config").mkdir()
    return write_book(station.folder / "app_config" / "bench.xlsx", {"supply": {"volts": 12.0}})


def volts(frame: ATSFrame) -> Any:
    return frame.app_config["bench/supply/volts"]


@pytest.mark.parametrize("edit", [False, True])
def test_reload_and_edit(edit: bool, bench: Path, station: Station, boxes: Boxes) -> None:
    frame = station()
    command = frame.on_edit_test_parameters if edit else frame.on_reload_test_parameters
    edits = (lambda: write_book(bench, {"supply": {"volts": 13.5}}), lambda: bench.write_bytes(b"half a wor"))
    for write in edits:
        with Answers(lambda dialog, write=write: (write(), dialog.Close())) as shown:
            edit or write()  # while the editor is open, or before
            command(None)
        assert len(shown.titles) == edit and volts(frame) == 13.5  # what was loaded stays
    [failed] = boxes.of("Error")
    assert boxes.of("Notice") == ([] if edit else ["参数重新加载完成"])
    assert failed.startswith("参数重新加载失败：") and "bench.xlsx" in failed


def test_save(bench: Path, station: Station, boxes: Boxes) -> None:
    frame = station()
    frame.app_config["bench/supply/volts"] = 5.5
    frame.on_save_test_parameters(None)
    assert ParameterDirectory.load(bench.parent)["bench/supply/volts"] == 5.5
    shutil.rmtree(bench.parent)
    bench.parent.write_text("a file in the way")
    with pytest.raises(OSError, match="app_config"):
        frame.on_save_test_parameters(None)
    assert volts(frame) == 5.5
    for directory in ("", "nowhere"):
        station.use(ATSFrame(None, "", str(station.book), directory)).on_save_test_parameters(None)
    assert boxes.of("Notice") == ["参数保存成功。"]
    failures = ["程序未提供有效的参数存储路径，保存操作无法执行。", "尚未加载有效参数，保存操作无法执行。"]
    assert boxes.of("Error") == failures


ITEMS = """
    self.assert_limits('VOUT', 5.012, 4.9, 5.1, 'V')
    self.assert_limits('RIPPLE', 7, None, 9, 'mV')
    self.assert_equal('版本', '1.0.2', '1.0.2')
    self.append_ok('LED', True)
    self.append_ok('NONE', None)
    self.assert_limits('NG', -3.5, 0, None, 'Ω', stop_if_ng=False)"""


def export(frame: ATSFrame, path: Path | None) -> dict[str, Any]:
    """Export the limits: what the file dialog was asked for, {} without one."""
    with file_dialog(path) as asked:
        frame.on_export_assertion_config(None)
    return dict(asked.call_args.kwargs, message=asked.call_args.args[1]) if asked.called else {}


def test_exported_limits_are_read_back(station: Station, boxes: Boxes) -> None:
    frame = station(ITEMS)
    cell = station.run(frame.cells[0])
    path = station.folder / "new.xlsx"
    assert export(frame, path) == {
        "message": "请输入设置参数保存的文件名", "defaultFile": "limits.xlsx", "defaultDir": ".",
        "wildcard": "Excel File(*.xlsx)|*.xlsx", "style": wx.FD_SAVE | wx.FD_OVERWRITE_PROMPT,
    }  # fmt: skip
    rows = list(openpyxl.load_workbook(path).active.values)
    assert rows[0] == HEADER and [row[1] for row in rows[1:]] == [5.012, 7, "1.0.2", True, None, -3.5]
    cell.set_assertion_config_file(str(path))
    limits = {name: (p.low, p.up, p.unit, p.type) for name, p in cell.assertion_configs.items()}
    assert limits == {
        "VOUT": (4.9, 5.1, "V", "float"), "RIPPLE": (None, 9, "mV", "int"), "NG": (0, None, "Ω", "float"),
        "版本": ("1.0.2", "1.0.2", "", "str"), "LED": (None, None, "", "bool"), "NONE": (None, None, "", "str"),
    }  # fmt: skip
    station.run(cell)
    export(frame, path)
    assert list(openpyxl.load_workbook(path).active.values) == rows
    assert boxes.of() == ["保存测试项参数设置成功。"] * 2


def test_refused_exports(station: Station, boxes: Boxes, monkeypatch: pytest.MonkeyPatch) -> None:
    input_integer = mock.Mock(side_effect=[2, None, 2, 2, 2, 2])
    monkeypatch.setattr(qon_touch, "input_integer", input_integer)
    export(station(main={"cell_count": 0}), None)
    frame = station("", "self.append_ok('list', [1, 2])", "", assertion_config_file=" ")
    cell = frame.cells[1]
    export(frame, None)
    assert boxes.of() == [
        "要导出测试项设置参数，必须要有一个测试工位（Cell），并且执行了测试（最好执行了完整的全部测试内容）。",
        "要导出测试项设置参数，必须要先执行一次测试，最好是执行了完整的、全部的测试内容。",
    ]
    station.run(cell)
    cell.cell_config.get_parameter("assertion_config_file").value = "sub/board.xlsx"
    assert export(frame, None) == {}  # no cell was given
    input_integer.assert_called_with(minimum=1, maximum=3, message="请输入测试工位号（Cell Number）:")
    asked = export(frame, None)
    assert (asked["defaultDir"], asked["defaultFile"]) == ("sub", "board.xlsx") and len(boxes.shown) == 2
    export(frame, station.folder / "list.xlsx")  # a cell cannot hold a list
    cell.uut.assertions[0].update(1)
    for path in (station.folder / "missing" / "limits.xlsx", station.folder):
        export(frame, path)
    failures = boxes.of("Error")[2:]
    assert [text.startswith("保存测试项参数设置到文件时发生异常：") for text in failures] == [True] * 3
    assert "missing/limits.xlsx" in failures[1] and len(boxes.shown) == 5


MODULE = """\
import wx
{before}
class ManualOperationDialog({base}):
    def __init__(self, frame):
        {first}
        super().__init__(frame, title={title!r})
"""


@pytest.fixture
def module(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """Where the application's module would stand, on the search path."""
    monkeypatch.syspath_prepend(tmp_path)
    monkeypatch.delitem(sys.modules, "manual_operation_dialog", raising=False)
    monkeypatch.setattr(sys, "dont_write_bytecode", False)
    return tmp_path / "manual_operation_dialog.py"


def write(path: Path, **parts: str) -> None:
    usual = {"title": "", "base": "wx.Dialog", "before": "", "first": "pass"}
    path.write_text(MODULE.format(**usual | parts))


def opened(frame: qon_ats.ATSFrame) -> str:
    """Opens the dialog and closes it: its title, or "built-in"."""
    seen: list[tuple[type, bool]] = []

    def act(dialog: Any) -> None:
        seen.append((type(dialog), frame.is_ticker_blocked()))
        dialog.Close()

    with Answers(act) as shown:
        frame.on_show_manual_operation_dialog(None)
    [(kind, blocked)] = seen
    assert (shown.parents, blocked) == ([frame], frame._mop_block_ticker) and not frame.is_ticker_blocked()
    return "built-in" if kind is qon_ats.ManualOperationDialog else shown.titles[0]


@pytest.mark.parametrize("block", [True, False])
def test_the_dialog_is_the_one_in_the_file_now(block: bool, module: Path, station: Station) -> None:
    frame = station(main={"mop_block_ticker": block})
    assert opened(frame) == "built-in" and frame._manual_module is None
    for title in ("one", "two", "six"):  # of one size, and mostly within one second
        write(module, title=title)
        assert opened(frame) == title
    write(module, base="wx.Frame")
    for text in (module.read_text(), "ManualOperationDialog = 'no class'", ""):
        module.write_text(text)
        vars(frame._manual_module).pop("ManualOperationDialog", None)
        assert opened(frame) == "built-in"
    module.unlink()
    assert opened(frame) == "built-in"
    write(module, title="back")
    assert opened(frame) == "back"


FAULTS: dict[str, tuple[dict[str, str], type[Exception]]] = {
    "syntax": ({"before": "def"}, SyntaxError),
    "import_of_a_driver": ({"before": "from wx import nonsense"}, ImportError),
    "constructor": ({"first": "raise OSError('no supply')"}, OSError),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_other_faults_escape_and_the_ticker_goes_on(fault: str, module: Path, station: Station) -> None:
    spoilt, error = FAULTS[fault]
    frame = station()
    for _ in range(2):  # at the import, and at the reload
        write(module, **spoilt)
        with pytest.raises(error) as caught:
            frame.on_show_manual_operation_dialog(None)
        assert not frame.is_ticker_blocked() and str(module) in "".join(format_exception(caught.value))
        write(module, title="mended")
        assert opened(frame) == "mended"
