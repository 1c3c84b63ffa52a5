"""Parameter workbooks: what loads, what is refused with which words, what an export gives back."""

import gc
import os
from decimal import Decimal
from pathlib import Path
from typing import Any

import malformed
import numpy as np
import openpyxl
import pytest
from qon_testparameters import (
    BadValueError,
    BookParameters,
    MissingSheetError,
    Parameter,
    ParameterError,
    SheetParameters,
    WorkbookError,
    write_workbook,
)
from support import HEADER, write_book

Rows = list[tuple[Any, ...]]


def load(path: Path, rows: Rows, header: tuple[Any, ...] = HEADER) -> SheetParameters:
    book = openpyxl.Workbook()
    for row in (header, *rows):
        book.active.append(row)
    book.save(path / "book.xlsx")
    return BookParameters(str(path / "book.xlsx")).load_sheet("Sheet")


def row(value: Any, kind: str, low: Any = None, up: Any = None, name: str = "v") -> tuple[Any, ...]:
    return ("an item", value, low, up, "V", name, kind)


VALUES: list[tuple[Any, str, Any]] = [
    (5.0, "int32", 5), (5, "float", 5.0), ("-inf", "float64", float("-inf")), (None, "str", ""),
    (None, "float", None), (True, "bool_", True), ("true", "Bool", True), (0, "bool", False),
    ("[1, null]", "json", [1, None]), ("(1, 'a')", "tuple", (1, "a")), (None, "NoneType", None),
]  # fmt: skip


def test_values_come_back_typed(tmp_path: Path) -> None:
    sheet = load(tmp_path, [row(value, kind, name=f"v{i}") for i, (value, kind, _) in enumerate(VALUES)])
    for i, (_, kind, expected) in enumerate(VALUES):
        parameter = sheet.get_parameter(f"v{i}")
        assert parameter.value == expected and type(parameter.value) is type(expected), kind
        assert (parameter.desc, parameter.unit, parameter.type) == ("an item", "V", kind)


FAULTS: list[tuple[tuple[Any, ...], str]] = [
    (row("5", "int"), 'the text "5" stands in a number cell'),
    (row(1.5, "int"), "1.5 is not of type int"),
    (row(True, "float"), "True is not of type float"),
    (row(True, "int"), "True is not of type int"),
    (row(1.1, "str"), "1.1 is not text; format the cell as text"),
    (row("yes", "bool"), "enter TRUE or FALSE"),
    (row("[1,", "json"), "is not JSON"),
    (row(1, "flaot"), 'unknown type "flaot" (did you mean "float"?)'),
    (row(1, ""), "the type is missing"),
    (row(1, "int", 6, 4), "the lower limit 6 is above the upper limit 4"),
    (row(1, "str", "a", 4), "cannot be compared"),
    (row(1, "float", "low"), 'lower limit: the text "low"'),
    (row(1.0, "float", "nan"), "leave the cell empty for no limit"),
    (row("=1+1", "int"), "formula without a stored result"),
    (row("#DIV/0!", "float"), "holds the error #DIV/0!"),
    (row(1, "int", name="same"), "stands in row 2 already"),
]


@pytest.mark.parametrize(("wrong", "words"), FAULTS)
def test_a_fault_is_named_with_its_place(wrong: tuple[Any, ...], words: str, tmp_path: Path) -> None:
    with pytest.raises(WorkbookError) as caught:
        load(tmp_path, [row(1, "int", name="same"), (None,) * 7, ("# a comment",), wrong])
    told = str(caught.value)
    assert told.startswith(f'{tmp_path / "book.xlsx"}, sheet "Sheet", row 5, variable "{wrong[5]}": ')
    assert words in told
    assert not isinstance(caught.value, ValueError), "a cell would fall back to another sheet in silence"


def test_all_faults_of_a_sheet_come_in_one_error(tmp_path: Path) -> None:
    rows = [row("x", "int", name="a"), row(1, "int", 3, 2, name="b"), ("left", 5, *[None] * 4, "int")]
    with pytest.raises(WorkbookError) as caught:
        load(tmp_path, rows + [row("x", "int", name=f"n{i}") for i in range(30)])
    assert [fault.place.variable for fault in caught.value.faults[:3]] == ["a", "b", ""]
    assert len(caught.value.faults) == 33 and "... and 13 more." in str(caught.value)
    for header, words in (
        ((*HEADER[:2], *HEADER[5:], HEADER[3]), 'columns are missing: "Lower Limit", "Unit"'),
        ((*HEADER, "upper limit"), 'two columns for "Upper Limit"'),
        ((), "the sheet is empty; it needs a header row"),
    ):
        with pytest.raises(WorkbookError, match=words):
            load(tmp_path, [], header)


def test_book_and_sheets_find_keys_as_the_station_asks(tmp_path: Path) -> None:
    sheets = {"main": {"count": 4, "both": 1}, "cell1": {"both": 2, "note": ""}}
    book = BookParameters(write_book(tmp_path / "c.xlsx", sheets))
    assert book.get("count", 1) == 1 and not book.has_sheet("main")
    book.load_sheet("main")
    assert book.has_sheet("main") and book.get("count", 1) == 4
    cell = book.get_sheet_parameters("cell1")
    assert book.get("both") == 1 and cell.get("both") == 2 and cell.get("none", default="x") == "x"
    assert cell.get("note", "x") == "" and book.get("note", "x") == "" and "note" in book
    missing = 'sheet "cell2": no such sheet; the workbook has: main, cell1'
    with pytest.raises(MissingSheetError, match=missing) as caught:
        book.load_sheet("cell2")
    assert isinstance(caught.value, ValueError)
    cell["both"] = 3
    assert book.load_sheet("cell1").get("both") == 3, "a loaded sheet keeps what a script has set"
    with pytest.raises(BadValueError, match='c.xlsx, sheet "cell1", variable "both": "x" is not of type int'):
        cell.set("both", "x")
    with pytest.raises(KeyError, match='no variable "bth"; there are: both, note'):
        cell["bth"] = 1
    assert cell["both"] == 3


def test_no_handle_of_the_file_stays_open(tmp_path: Path) -> None:
    path = write_book(tmp_path / "limits.xlsx", {"limits": {"a": 1}})
    gc.collect()
    before = len(os.listdir("/proc/self/fd"))
    opened = openpyxl.load_workbook(path, read_only=True)
    kept = [BookParameters(str(path)), BookParameters(opened)]
    for book in kept:
        assert book.load_sheet(opened.sheetnames[0]).parameter_names == ["a"]
    assert len(os.listdir("/proc/self/fd")) == before


def test_files_that_cannot_be_read_keep_their_kind_of_error(tmp_path: Path) -> None:
    (tmp_path / "old.xlsx").write_bytes(b"\xd0\xcf\x11\xe0" + bytes(600))
    cases: list[tuple[Any, type[Exception], str]] = [
        (str(tmp_path / "none.xlsx"), FileNotFoundError, "Parameter workbook not found.*none.xlsx"),
        (tmp_path, IsADirectoryError, "directory"),
        (5, TypeError, "not 5"),
        (tmp_path / "old.xlsx", WorkbookError, "old.xlsx: it is password-protected or in the old .xls"),
    ]
    for path, error, words in cases:
        with pytest.raises(error, match=words):
            BookParameters(path)


def test_malformed_workbooks_load_or_are_named(tmp_path: Path) -> None:
    values = {"a": 1, "b": 2.5, "c": "x", "d": True, "e": [1], "f": None}
    good = write_book(tmp_path / "good.xlsx", {"main": values}).read_bytes()
    path, refused = tmp_path / "bad.xlsx", 0
    for number in range(240):
        path.write_bytes(malformed.damaged(good, number))
        try:
            book = BookParameters(path)
            for name in book.sheet_names:
                book.load_sheet(name)
        except ParameterError as error:
            refused += 1
            assert "bad.xlsx" in str(error), number
        except Exception as error:
            raise AssertionError(f"malformed workbook {number}: {error!r}") from error
    assert refused > 60


def test_an_export_is_read_back_with_the_same_limits_types_and_units(tmp_path: Path) -> None:
    values = [1, 2.5, "1.0.3", True, np.float32(0.5), np.int16(3), Decimal("1.25"), "", 99.0]
    rows: Rows = [
        (f"#{i} item", value, 0, 10.5, "V", f"#{i} item", type(value).__name__)
        for i, value in enumerate(values)
    ]
    load(tmp_path, rows)
    opened = openpyxl.load_workbook(tmp_path / "book.xlsx", read_only=True)
    sheet = BookParameters(opened).load_sheet("Sheet")
    parameters = [sheet.get_parameter(name) for name in sheet.parameter_names]
    assert [(p.desc, p.value, p.low, p.up, p.unit, p.name, p.type) for p in parameters] == rows


def test_written_workbooks_are_read_again_and_replace_a_file_whole(tmp_path: Path) -> None:
    path = tmp_path / "new.xlsx"
    values = {"str": "=1+1", "text": "#N/A", "json": [["Name", 300]], "float": float("inf"), "int": 7, "bool": False}
    write_workbook(path, {"main": [Parameter(k, k, v, None, None, "", k) for k, v in values.items()]})
    sheet = BookParameters(path).load_sheet("main")
    assert {name: sheet[name] for name in sheet} == values
    whole = path.read_bytes()
    for kind, value, words in (
        ("str", "\x07", "has a character"),
        ("str", "x" * 40_000, "40000 characters"),
        ("str", "\ud800", "has a character"),
        ("int", 10**16, "more than 15 digits"),
    ):
        with pytest.raises(BadValueError, match=f'new.xlsx, sheet "main", variable "a".*{words}'):
            write_workbook(path, {"main": [Parameter("a", "a", value, None, None, "", kind)]})
    assert path.read_bytes() == whole and os.listdir(tmp_path) == ["new.xlsx"]
