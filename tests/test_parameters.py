"""Parameter workbooks: what loads, what is refused with which words, what an export gives back."""

import gc
import os
import time
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


@pytest.mark.parametrize(
    ("value", "kind", "expected"),
    [
        (5.0, "int32", 5),
        (5, "float", 5.0),
        ("-inf", "float64", float("-inf")),
        (None, "str", ""),
        (None, "float", None),
        (True, "bool_", True),
        ("true", "Bool", True),
        (0, "bool", False),
        ("[1, null]", "json", [1, None]),
        ("(1, 'a')", "tuple", (1, "a")),
        (None, "NoneType", None),
    ],
)
def test_values_come_back_typed(value: Any, kind: str, expected: Any, tmp_path: Path) -> None:
    parameter = load(tmp_path, [row(value, kind)]).get_parameter("v")
    assert parameter.value == expected and type(parameter.value) is type(expected)
    assert (parameter.desc, parameter.unit, parameter.type) == ("an item", "V", kind)


@pytest.mark.parametrize(
    ("wrong", "words"),
    [
        (row("5", "int"), 'the text "5" stands in a number cell'),
        (row(1.5, "int"), "1.5 is not of type int"),
        (row(True, "float"), "True is not of type float"),
        (row(1.1, "str"), "1.1 is not text; format the cell as text"),
        (row("yes", "bool"), "enter TRUE or FALSE"),
        (row("[1,", "json"), "is not JSON"),
        (row(1, "flaot"), 'unknown type "flaot" (did you mean "float"?)'),
        (row(1, ""), "the type is missing"),
        (row(1, "int", 6, 4), "the lower limit 6 is above the upper limit 4"),
        (row(1, "str", "a", 4), "cannot be compared"),
        (row(1, "float", "low"), 'lower limit: the text "low"'),
        (row("=1+1", "int"), "formula without a stored result"),
        (row("#DIV/0!", "float"), "holds the error #DIV/0!"),
        (row(1, "int", name="same"), "stands in row 2 already"),
    ],
)
def test_a_fault_is_named_with_file_sheet_row_and_variable(
    wrong: tuple[Any, ...], words: str, tmp_path: Path
) -> None:
    with pytest.raises(WorkbookError) as caught:
        load(tmp_path, [row(1, "int", name="same"), (None,) * 7, ("# a comment",), wrong])
    assert str(caught.value).startswith(
        f'{tmp_path / "book.xlsx"}, sheet "Sheet", row 5, variable "{wrong[5]}": '
    )
    assert words in str(caught.value)
    assert not isinstance(caught.value, ValueError), "a cell would fall back to another sheet in silence"


def test_all_faults_of_a_sheet_come_in_one_error(tmp_path: Path) -> None:
    rows = [
        row("x", "int", name="a"),
        row(1, "int", 3, 2, name="b"),
        ("left", 5, None, None, None, None, "int"),
    ]
    with pytest.raises(WorkbookError) as caught:
        load(tmp_path, rows + [row("x", "int", name=f"n{i}") for i in range(30)])
    assert [fault.place.variable for fault in caught.value.faults[:3]] == ["a", "b", ""]
    assert len(caught.value.faults) == 33 and "... and 13 more." in str(caught.value)
    with pytest.raises(WorkbookError, match='columns are missing: "Lower Limit", "Unit"'):
        load(tmp_path, [], tuple(title for title in HEADER if title not in ("Lower Limit", "Unit")))
    with pytest.raises(WorkbookError, match='two columns for "Upper Limit"'):
        load(tmp_path, [], (*HEADER, "upper limit"))
    with pytest.raises(WorkbookError, match="the sheet is empty; it needs a header row"):
        load(tmp_path, [], ())


def test_book_and_sheets_find_keys_as_the_station_asks(tmp_path: Path) -> None:
    path = write_book(
        tmp_path / "c.xlsx", {"main": {"count": 4, "both": 1}, "cell1": {"both": 2, "note": ""}}
    )
    book = BookParameters(path)
    assert book.get("count", 1) == 1 and not book.has_sheet("main")
    book.load_sheet("main")
    assert book.has_sheet("main") and book.get("count", 1) == 4
    cell = book.get_sheet_parameters("cell1")
    assert book.get("both") == 1 and cell.get("both") == 2 and cell.get("none", default="x") == "x"
    assert cell.get("note", "x") == "" and book.get("note", "x") == "" and "note" in book
    with pytest.raises(
        MissingSheetError, match='sheet "cell2": no such sheet; the workbook has: main, cell1'
    ):
        book.load_sheet("cell2")
    assert issubclass(MissingSheetError, ValueError)
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
    with pytest.raises(FileNotFoundError, match="Parameter workbook not found.*none.xlsx"):
        BookParameters(str(tmp_path / "none.xlsx"))
    with pytest.raises(IsADirectoryError):
        BookParameters(tmp_path)
    with pytest.raises(TypeError, match="not 5"):
        BookParameters(5)  # type: ignore[arg-type]
    (tmp_path / "old.xlsx").write_bytes(b"\xd0\xcf\x11\xe0" + bytes(600))
    with pytest.raises(WorkbookError, match=r"old.xlsx: it is password-protected or in the old .xls format"):
        BookParameters(tmp_path / "old.xlsx")


def test_malformed_workbooks_load_or_are_named(tmp_path: Path) -> None:
    good = write_book(
        tmp_path / "good.xlsx", {"main": {"a": 1, "b": 2.5, "c": "x", "d": True, "e": [1], "f": None}}
    )
    path, refused, slowest = tmp_path / "bad.xlsx", 0, 0.0
    for number in range(240):
        path.write_bytes(malformed.damaged(good, number))
        begin = time.monotonic()
        try:
            book = BookParameters(path)
            for name in book.sheet_names:
                book.load_sheet(name)
        except ParameterError as error:
            refused += 1
            assert "bad.xlsx" in str(error), number
        except Exception as error:
            raise AssertionError(f"malformed workbook {number}: {error!r}") from error
        slowest = max(slowest, time.monotonic() - begin)
    assert refused > 60 and slowest < 5.0


def test_an_export_is_read_back_with_the_same_limits_types_and_units(tmp_path: Path) -> None:
    values = [1, 2.5, "1.0.3", True, np.float32(0.5), np.int16(3), Decimal("1.25"), "", 99.0]
    exported = [
        Parameter(f"#{i} item", f"#{i} item", value, 0, 10.5, "V", type(value).__name__)
        for i, value in enumerate(values)
    ]
    book = openpyxl.Workbook()
    book.active.append(HEADER)
    for p in exported:
        book.active.append((p.desc, p.value, p.low, p.up, p.unit, p.name, p.type))
    book.save(tmp_path / "limits.xlsx")
    sheet = BookParameters(openpyxl.load_workbook(tmp_path / "limits.xlsx", read_only=True)).load_sheet(
        "Sheet"
    )
    again = [sheet.get_parameter(name) for name in sheet.parameter_names]
    for one, other in zip(exported, again, strict=True):
        for field in ("name", "desc", "value", "low", "up", "unit", "type"):
            assert getattr(one, field) == getattr(other, field), (one, field)


def test_written_workbooks_are_read_again_and_replace_a_file_whole(tmp_path: Path) -> None:
    path = tmp_path / "new.xlsx"
    values = {
        "text": "=1+1",
        "note": "#N/A",
        "list": [["Name", 300]],
        "far": float("inf"),
        "count": 7,
        "on": False,
    }
    kinds = {"list": "json", "text": "str", "note": "str", "far": "float", "count": "int", "on": "bool"}
    write_workbook(path, {"main": [Parameter(k, k, v, None, None, "", kinds[k]) for k, v in values.items()]})
    sheet = BookParameters(path).load_sheet("main")
    assert {name: sheet[name] for name in sheet} == values
    whole = path.read_bytes()
    for value, words in (
        ("\x07", "has a character"),
        ("x" * 40_000, "40000 characters"),
        ("\ud800", "has a character"),
    ):
        with pytest.raises(BadValueError, match=f'new.xlsx, sheet "main", variable "a".*{words}'):
            write_workbook(path, {"main": [Parameter("a", "a", value, None, None, "", "str")]})
    assert path.read_bytes() == whole and os.listdir(tmp_path) == ["new.xlsx"]
