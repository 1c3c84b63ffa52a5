"""The editor of the test parameters, operated with keys and mouse: what it shows, refuses, undoes and saves."""

from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest
import wx
from qon_companions import files
from qon_companions.boxes import Box, keys
from qon_paratree import ParameterDirectory, ParameterNode
from qon_wxtools import ParameterTreeDialog
from qon_wxtools.parameter_editor.table import REMARK, VALUE, VARIABLE
from station import Answers
from support import click, parameter_row, press, scan, words, write_book

SUPPLY = [
    parameter_row("volts", 12.0, 9.5, 18.0, "V"),
    parameter_row("samples", 5, 1, 100),
    parameter_row("remote", True),
    parameter_row("名称", "稳压电源"),
    parameter_row("steps", [1, 2]),
]
SAVED, DISCARDED = wx.ID_OK, wx.ID_CANCEL


@pytest.fixture
def folder(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    monkeypatch.setattr(keys, "GUARD_SECONDS", 0.0)
    folder = tmp_path / "app_config"
    (folder / "line 3").mkdir(parents=True)
    write_book(folder / "bench.xlsx", {"supply": SUPPLY, "meter": {"range": 10.0}})
    write_book(folder / "line 3" / "fixture.xlsx", {"pins": {"count": 128}})
    return folder


class Editor:
    """The dialog with what an operator does in it."""

    def __init__(self, parent: wx.Frame, path: Any) -> None:
        self.dialog = ParameterTreeDialog(parent=parent, path=path)

    def run(self, operate: Callable[[], Iterator[Any]]) -> int:
        """What the dialog answers."""
        with Answers(lambda dialog: operate() if dialog is self.dialog else None):
            answer = self.dialog.ShowModal()
            self.dialog.Destroy()
        return answer

    def node(self, name: str) -> ParameterNode:
        return next(node for node in self.dialog.directory.root.walk() if node.name == name)

    def row(self, name: str) -> list[str]:
        table = self.dialog.grid.table
        row = [node.name for node in table.rows].index(name)
        return [table.GetValue(row, column) for column in range(table.GetNumberCols())]

    def type(self, name: str, text: str) -> Iterator[Any]:
        """Go to the value, type over it, Enter."""
        grid = self.dialog.grid
        grid.go_to(self.node(name))
        grid.SetFocus()
        yield grid.GetGridWindow().HasFocus
        scan(text, grid)
        yield lambda: self.row(name)[VALUE] == text and not grid.IsCellEditControlShown()


def box() -> Any:
    """The message box on the screen."""
    return next((w for w in wx.GetTopLevelWindows() if isinstance(w, Box) and w.IsModal()), None)


def stored(folder: Path, path: str) -> Any:
    return ParameterDirectory.load(folder)[path]


def test_it_shows_the_whole_tree_with_limits_units_and_types(frame: wx.Frame, folder: Path) -> None:
    editor = Editor(frame, str(folder))
    dialog = editor.dialog
    rows = dialog.grid.table

    def operate() -> Iterator[Any]:
        dialog.tree.select(dialog.directory.root)
        yield lambda: len(rows.rows) == 7
        names = [rows.GetValue(row, VARIABLE) for row in (0, 1, 5)]
        assert names == ["line 3/fixture/pins/count", "bench/supply/volts", "bench/supply/steps"]
        assert editor.row("volts")[1:-1] == ["volts", "12.0", "9.5", "18.0", "V", "float"]
        assert editor.row("名称")[VALUE] == "稳压电源" and editor.row("steps")[VALUE] == "[1, 2]"
        press("F", wx.MOD_CONTROL, over=dialog)
        yield dialog.find.HasFocus
        scan("sup", dialog.find, enter=False)
        yield lambda: len(rows.rows) == 5
        press(wx.WXK_ESCAPE, over=dialog.find)
        yield lambda: len(rows.rows) == 7
        dialog.Close()

    assert editor.run(operate) == DISCARDED


def test_a_value_is_edited_checked_and_saved_with_the_keyboard_alone(frame: wx.Frame, folder: Path) -> None:
    """A refused text stays in its field, with the reason beside it, and keeps the rest from being saved."""
    editor = Editor(frame, folder)
    dialog = editor.dialog

    def operate() -> Iterator[Any]:
        dialog.tree.SetFocus()
        yield dialog.tree.HasFocus
        for _ in range(3):  # from the pins to the supply
            press(wx.WXK_DOWN, over=dialog.tree) if dialog.tree.selection().name != "supply" else None
            yield 0.1
        assert dialog.tree.selection().name == "supply"
        press(wx.WXK_F6, over=dialog)
        yield lambda: not dialog.tree.HasFocus()
        press(wx.WXK_F2, over=dialog.grid)
        yield dialog.grid.IsCellEditControlShown
        scan("18.5", dialog.grid)
        yield lambda: editor.row("volts")[VALUE] == "18.5"
        assert editor.row("volts")[REMARK] == "✗ 18.5 is above the upper limit 18.0."
        assert "1 not accepted" in words(dialog) and editor.node("volts").value == 12.0
        yield from editor.type("samples", "7")
        assert editor.row("samples")[REMARK] == "● changed, was 5"
        press("S", wx.MOD_CONTROL, over=dialog)
        yield box
        assert "bench/supply/volts: 18.5 is above" in words(box())
        press(wx.WXK_ESCAPE, over=box())
        yield lambda: not box()
        assert stored(folder, "bench/supply/samples") == 5
        yield from editor.type("volts", "17.5")
        press("S", wx.MOD_CONTROL, over=dialog)
        yield lambda: "Everything is saved." in words(dialog)
        press(wx.WXK_ESCAPE, over=dialog)

    assert editor.run(operate) == SAVED
    assert (stored(folder, "bench/supply/volts"), stored(folder, "bench/supply/samples")) == (17.5, 7)


@pytest.mark.parametrize(
    ("answer", "value", "result"),
    [(wx.ID_SAVE, 6, SAVED), (wx.ID_NO, 5, DISCARDED), (wx.ID_CANCEL, 5, DISCARDED)],
)
def test_closing_asks_about_what_is_not_saved(
    answer: int, value: int, result: int, frame: wx.Frame, folder: Path
) -> None:
    editor = Editor(frame, folder)
    dialog = editor.dialog

    def operate() -> Iterator[Any]:
        dialog.tree.select(editor.node("samples").parent)
        yield from editor.type("samples", "6")
        press(wx.WXK_ESCAPE, over=dialog)
        yield box
        click(box().buttons[answer])
        if answer == wx.ID_CANCEL:
            yield lambda: not box()
            assert dialog.IsModal() and editor.row("samples")[VALUE] == "6"
            dialog.undo()
            dialog.Close()

    assert editor.run(operate) == result
    assert stored(folder, "bench/supply/samples") == value


def test_a_failing_save_names_the_file_and_loses_nothing(
    frame: wx.Frame, folder: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    editor = Editor(frame, folder)
    dialog = editor.dialog
    before = (folder / "bench.xlsx").read_bytes()

    def full(*_paths: Any) -> None:
        raise OSError(28, "No space left on device")

    def operate() -> Iterator[Any]:
        dialog.tree.select(editor.node("samples").parent)
        yield from editor.type("samples", "6")
        with monkeypatch.context() as disk:
            disk.setattr(files.os, "replace", full)
            click(dialog.buttons[wx.ID_SAVE])
            yield box
            assert "bench.xlsx: No space left on device" in words(box())
            click(box().buttons[wx.ID_OK])
            yield lambda: not box()
        assert (folder / "bench.xlsx").read_bytes() == before
        assert editor.row("samples")[VALUE] == "6" and dialog.directory.changed
        dialog.save()
        dialog.Close()

    assert editor.run(operate) == SAVED
    assert stored(folder, "bench/supply/samples") == 6


def half_a_workbook(folder: Path) -> Path:
    (folder / "half.xlsx").write_bytes(b"PK\3\4half")
    return folder


def wrong_type(folder: Path) -> Path:
    write_book(folder / "x.xlsx", {"s": [parameter_row("a", "b")[:6] + ("int",)]})
    return folder


@pytest.mark.parametrize(
    ("spoil", "told"),
    [
        (lambda folder: "", ["names no directory"]),
        (lambda folder: None, ["names no directory"]),
        (lambda folder: folder / "nowhere", ["nowhere", "does not exist"]),
        (lambda folder: folder / "bench.xlsx", ["bench.xlsx", "cannot be read"]),
        (half_a_workbook, ["half.xlsx", "spreadsheet"]),
        (wrong_type, ["x.xlsx", 'sheet "s"', "row 2", 'variable "a"']),
    ],
)
def test_a_directory_that_cannot_be_edited_says_why(
    spoil: Callable[[Path], Any], told: list[str], frame: wx.Frame, folder: Path
) -> None:
    editor = Editor(frame, spoil(folder))
    dialog = editor.dialog

    def operate() -> Iterator[Any]:
        assert [part for part in told if part not in words(dialog)] == []
        if spoil is half_a_workbook:  # mended meanwhile
            (folder / "half.xlsx").unlink()
            click(dialog.buttons[wx.ID_REFRESH])
            yield lambda: dialog.directory is not None
            assert dialog.grid.table.rows
        yield 0.05
        press(wx.WXK_ESCAPE, over=dialog)

    assert editor.run(operate) == DISCARDED
