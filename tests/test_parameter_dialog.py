"""The editor of the test parameters, operated with keys and mouse: what it shows, refuses and saves."""

from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
import wx
from qon_companions.boxes import keys
from qon_paratree import ParameterDirectory, ParameterNode
from qon_wxtools import ParameterTreeDialog
from qon_wxtools.parameter_editor.table import REMARK, VALUE, VARIABLE
from station import dialogs
from support import click, parameter_row, press, pump, pump_for, scan, shown, words, write_book

SUPPLY = [
    parameter_row("volts", 12.0, 9.5, 18.0, "V"),
    parameter_row("samples", 5, 1, 100),
    parameter_row("名称", "稳压电源"),
    parameter_row("steps", [1, 2]),
]
SAMPLES, VOLTS = "bench/supply/samples", "bench/supply/volts"


@pytest.fixture
def folder(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    monkeypatch.setattr(keys, "GUARD_SECONDS", 0.0)
    folder = tmp_path / "app_config"
    (folder / "line 3").mkdir(parents=True)
    write_book(folder / "bench.xlsx", {"supply": SUPPLY, "meter": {"range": 10.0}})
    write_book(folder / "line 3" / "fixture.xlsx", {"pins": {"count": 128}})
    return folder


class Editor(ParameterTreeDialog):
    """The dialog with what an operator does in it."""

    def node(self, name: str) -> ParameterNode:
        return next(node for node in self.directory.root.walk() if node.name == name)

    def row(self, name: str) -> list[str]:
        table = self.grid.table
        row = [node.name for node in table.rows].index(name)
        return [table.GetValue(row, column) for column in range(table.GetNumberCols())]

    def type(self, name: str, text: str) -> None:
        """Go to the value, type over it, Enter."""
        self.tree.select(self.node(name).parent)
        self.grid.go_to(self.node(name))
        self.grid.SetFocus()
        pump(self.grid.GetGridWindow().HasFocus)
        scan(text, self.grid)
        pump(lambda: self.row(name)[VALUE] == text and not self.grid.IsCellEditControlShown())


@pytest.fixture
def editor(frame: wx.Frame, folder: Path) -> Iterator[Editor]:
    """Not modal, so that tests run the event loop; the journeys open it from the menu."""
    with shown(Editor(frame, str(folder))) as dialog:
        yield dialog


def stored(folder: Path, path: str) -> Any:
    return ParameterDirectory.load(folder)[path]


def test_the_whole_tree_and_what_is_searched_in_it(editor: Editor) -> None:
    editor.tree.select(editor.directory.root)
    names = [editor.grid.table.GetValue(row, VARIABLE) for row in range(len(editor.grid.table.rows))]
    assert len(names) == 6 and names[0] == "line 3/fixture/pins/count" and names[4] == "bench/supply/steps"
    assert editor.row("volts")[1:-1] == ["volts", "12.0", "9.5", "18.0", "V", "float"]
    assert editor.row("名称")[VALUE] == "稳压电源" and editor.row("steps")[VALUE] == "[1, 2]"
    editor.find.SetValue("SUP")
    assert len(editor.grid.table.rows) == 4


def test_a_value_is_edited_checked_and_saved_with_the_keyboard_alone(editor: Editor, folder: Path) -> None:
    """A refused text stays in its field, with the reason beside it, and keeps the rest from being saved."""
    editor.tree.SetFocus()
    pump(editor.tree.HasFocus)
    for _ in range(3):  # from the pins to the supply
        press(wx.WXK_DOWN, over=editor.tree) if editor.tree.selection().name != "supply" else None
        pump_for(0.1)
    assert editor.tree.selection().name == "supply"
    press(wx.WXK_F6, over=editor)
    pump(lambda: not editor.tree.HasFocus())
    press(wx.WXK_F2, over=editor.grid)
    pump(editor.grid.IsCellEditControlShown)
    scan("18.5", editor.grid)
    pump(lambda: editor.row("volts")[VALUE] == "18.5")
    assert editor.row("volts")[REMARK] == "✗ 18.5 is above the upper limit 18.0."
    assert "1 not accepted" in words(editor) and editor.node("volts").value == 12.0
    editor.type("samples", "7")
    assert editor.row("samples")[REMARK] == "● changed, was 5"

    def refused(box: Any) -> None:
        assert f"{VOLTS}: 18.5 is above" in words(box)
        click(box.buttons[wx.ID_OK])

    with dialogs(refused):
        press("S", wx.MOD_CONTROL, over=editor)
    assert stored(folder, SAMPLES) == 5
    editor.type("volts", "17.5")
    press("S", wx.MOD_CONTROL, over=editor)
    pump(lambda: "Everything is saved." in words(editor))
    assert (stored(folder, VOLTS), stored(folder, SAMPLES)) == (17.5, 7)


@pytest.mark.parametrize(("answer", "value"), [(wx.ID_SAVE, 6), (wx.ID_NO, 5), (wx.ID_CANCEL, 5)])
def test_closing_asks_about_what_is_not_saved(answer: int, value: int, editor: Editor, folder: Path) -> None:
    editor.type("samples", "6")
    with dialogs(lambda box: click(box.buttons[answer])):
        press(wx.WXK_ESCAPE, over=editor)
    assert editor.IsShown() is (answer == wx.ID_CANCEL) and editor.row("samples")[VALUE] == "6"
    assert stored(folder, SAMPLES) == value
    if answer == wx.ID_CANCEL:
        editor.undo()
        editor.Close()
        assert not editor.IsShown()


def test_a_save_that_fails_keeps_the_dialog_open(editor: Editor, folder: Path) -> None:
    editor.type("samples", "6")
    (folder / "bench.xlsx").write_bytes(b"damaged meanwhile")
    with dialogs(lambda box: click(box.buttons[wx.ID_SAVE]), lambda box: box.Close()):
        editor.Close()
    assert editor.IsShown() and editor.row("samples")[VALUE] == "6" and editor.directory.changed


@pytest.mark.parametrize(
    ("path", "told"),
    [
        ("", ["names no directory"]),
        ("nowhere", ["nowhere", "does not exist"]),
        ("bench.xlsx", ["bench.xlsx", "cannot be read"]),
        (".", ["x.xlsx", 'sheet "s"', "row 2", 'variable "a"']),
    ],
)
def test_why_a_directory_cannot_be_edited(path: str, told: list[str], frame: Any, folder: Path) -> None:
    wrong = write_book(folder / "x.xlsx", {"s": [parameter_row("a", "b")[:6] + ("int",)]})
    with shown(Editor(frame, path and folder / path)) as editor:
        assert [part for part in told if part not in words(editor)] == []
        if path == ".":
            wrong.unlink()  # mended meanwhile
            click(editor.buttons[wx.ID_REFRESH])
            pump(lambda: editor.directory is not None and editor.grid.table.rows)
        press(wx.WXK_ESCAPE, over=editor)
        pump(lambda: not editor.IsShown())
