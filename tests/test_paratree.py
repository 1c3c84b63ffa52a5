"""The tree of parameters: reading and setting, the editor's nodes, saving without losing anything."""

import copy
import errno
import stat
from pathlib import Path
from typing import Any

import openpyxl
import pytest
from openpyxl.comments import Comment
from openpyxl.styles import Font
from qon_companions import files
from qon_paratree import ParameterDirectory
from qon_testparameters import BadValueError, WorkbookError
from support import write_book

VOLTAGE = "instruments/main/psu-voltage"


@pytest.fixture
def directory(tmp_path: Path) -> Path:
    """instruments.xlsx with sheets main and "load 1", products/board.xlsx, products/empty/."""
    top = tmp_path / "app_config"
    (top / "products" / "empty").mkdir(parents=True)
    psu = [
        ("# supply",),
        ("PSU address", "sim::1", None, None, None, "psu_resource", "str"),
        (None,) * 7,
        ("PSU voltage", 12.0, 0, 30, "V", "psu-voltage", "float"),
        ("Columns", '[["Name", 300]]', None, None, None, "columns", "json"),
    ]
    write_book(top / "instruments.xlsx", {"main": psu, "load 1": {"on": True, "get": 5}})
    write_book(top / "products" / "board.xlsx", {"limits": {"retries": 2}})
    (top / "~$instruments.xlsx").write_bytes(b"lock of a spreadsheet program")
    (top / ".board.xlsx.1234.tmp").write_bytes(b"half written")
    return top


@pytest.fixture
def tree(directory: Path) -> Any:
    return ParameterDirectory.load(directory)


def contents(directory: Path) -> dict[Path, bytes]:
    return {file: file.read_bytes() for file in directory.rglob("*") if file.is_file()}


def test_values_are_reached_by_attribute_and_by_path(tree: Any) -> None:
    assert tree.instruments.main.psu_resource == "sim::1" == tree["instruments/main/psu_resource"]
    assert tree["products/board"].limits.retries == 2 == tree.get("products/board/limits/retries")
    assert tree.instruments["load 1/get"] == 5 and tree.get("products/none", 7) == 7
    assert VOLTAGE in tree and "instruments/main/psu" not in tree
    assert list(tree) == ["products", "instruments"] and list(tree.products) == ["empty", "board"]
    assert tree.parameter(VOLTAGE).up == 30.0
    assert copy.copy(tree.instruments).main.psu_resource == "sim::1"
    near = 'no "psu_resorce" in sheet "instruments/main". Did you mean "psu_resource"'
    with pytest.raises(AttributeError, match=near):
        _ = tree.instruments.main.psu_resorce
    with pytest.raises(KeyError, match='no "scope" in directory "products". There are: empty, board.'):
        tree["products/scope/main/x"]
    with pytest.raises(KeyError, match="is a sheet, not a parameter"):
        tree.parameter("instruments/main")


def test_setting_a_value_is_checked_and_never_makes_a_new_one(tree: Any) -> None:
    tree.instruments.main.psu_resource = "sim::2"
    tree[VOLTAGE] = 5
    assert tree.instruments.main["psu-voltage"] == 5.0 and tree.changed
    for path, value, words in (
        (VOLTAGE, 31, "31.0 is above the upper limit 30.0"),
        (VOLTAGE, "5", "is not of type float"),
        ("instruments/main/columns", {1, 2}, "cannot be written as JSON"),
    ):
        with pytest.raises(BadValueError, match=f'instruments.xlsx, sheet "main", variable ".*": .*{words}'):
            tree[path] = value
    with pytest.raises(AttributeError, match="psu_resorce"):
        tree.instruments.main.psu_resorce = "sim::3"
    with pytest.raises(AttributeError, match="only parameters have a value"):
        tree.instruments = 5
    tree.revert()
    assert tree[VOLTAGE] == 12.0 and not tree.changed


def test_an_editor_marks_checks_and_undoes(tree: Any) -> None:
    products, instruments = tree.root.children
    assert [node.kind for node in products.children] == ["directory", "workbook"]
    nodes = {node.path: node for node in tree.root.walk()}
    voltage, columns = nodes[VOLTAGE], nodes["instruments/main/columns"]
    with pytest.raises(BadValueError, match="a value of type float is needed"):
        voltage.set_text("")
    voltage.set_text("24")
    columns.value[0][1] = 200  # changed within the list
    assert [path for path, node in nodes.items() if node.changed] == [VOLTAGE, "instruments/main/columns"]
    assert (tree.changed, instruments.changed, products.changed) == (True, True, False)
    columns.revert()
    assert columns.value == [["Name", 300]] and (voltage.stored_text, voltage.text) == ("12.0", "24.0")
    voltage.set_text(voltage.stored_text)
    assert not tree.changed


def test_a_save_changes_the_values_and_nothing_else(directory: Path) -> None:
    path = directory / "instruments.xlsx"
    book = openpyxl.load_workbook(path)
    main = book["main"]
    main.column_dimensions["A"].width = 55
    main["A3"].font = Font(bold=True)
    main["B5"].comment = Comment("set by the line leader", "me")
    main.append((*[None] * 7, "a note at the side"))
    notes = book.create_sheet("notes")
    notes["A1"] = "what was calibrated when"
    notes.merge_cells("A1:C1")
    book.save(path)
    path.chmod(0o640)
    before = contents(directory)

    tree = ParameterDirectory.load(directory)
    assert tree.save(directory) == []
    tree[VOLTAGE] = 24
    tree.instruments.main.psu_resource = "=1+1"
    assert tree.save(directory) == [path] and not tree.changed and tree.save() == []

    again = ParameterDirectory.load(directory)
    values, wanted = ({n.path: n.value for n in each.root.walk()} for each in (again, tree))
    assert values == wanted and values[VOLTAGE] == 24
    main = (book := openpyxl.load_workbook(path))["main"]
    names = [main.cell(row, 1).value for row in range(2, 6)]
    assert names == ["# supply", "PSU address", None, "PSU voltage"]
    assert main.column_dimensions["A"].width == 55 and main["A3"].font.bold
    assert main["B5"].comment.text == "set by the line leader" and main["H7"].value == "a note at the side"
    assert book["notes"].merged_cells.ranges and book["notes"]["A1"].value == "what was calibrated when"
    assert stat.S_IMODE(path.stat().st_mode) == 0o640
    assert contents(directory) == before | {path: path.read_bytes()}


def test_faults_of_all_workbooks_come_together(directory: Path) -> None:
    write_book(directory / "instruments.xlsx", {"main": [("V", 31, 0, 30, "V", "volt", "int")]})
    (directory / "products" / "board.xlsx").write_bytes(b"no workbook")
    (directory / "instruments").mkdir()
    with pytest.raises(WorkbookError) as caught:
        ParameterDirectory.load(directory)
    texts = str(caught.value).splitlines()
    assert "board.xlsx: it cannot be read as an .xlsx workbook" in texts[0]
    assert texts[1].endswith('two entries named "instruments"; rename the directory or the workbook.')
    assert texts[2].endswith('sheet "main", row 2, variable "volt": 31 is above the upper limit 30.')
    with pytest.raises(FileNotFoundError, match="Parameter directory not found.*none"):
        ParameterDirectory.load(directory / "none")
    with pytest.raises(NotADirectoryError, match="This is a file"):
        ParameterDirectory.load(directory / "instruments.xlsx")


@pytest.mark.parametrize("call", ["fsync", "replace", "access"])
def test_a_failing_save_names_the_file_and_leaves_every_old_one_whole(
    call: str, directory: Path, tree: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    tree.products.board.limits.retries = 9
    tree.instruments.main.psu_resource = "sim::9"
    before = contents(directory)

    def fail(*_args: Any) -> Any:
        if call == "access":
            return False
        raise OSError(errno.ENOSPC, "No space left on device")

    with monkeypatch.context() as patch:
        patch.setattr(files.os, call, fail)
        with pytest.raises(OSError, match=r"(No space left on device|read-only).*board.xlsx'"):
            tree.save()
    assert contents(directory) == before
    assert tree.changed and len(tree.save()) == 2
