"""Reads the cells of a workbook: from a file, or from a workbook that openpyxl has opened already.

A file is read into memory at once, so that no handle stays open: a spreadsheet program may save over it meanwhile.
"""

import contextlib
import errno
import io
import os
import zipfile
from collections.abc import Iterator
from pathlib import Path
from typing import Any, NamedTuple, Protocol

import openpyxl
from openpyxl.workbook import Workbook

from ..openpyxl_private import archive_of
from .blank_rows import without_blank_rows
from .errors import Fault, Place, WorkbookError
from .merged_areas import MAX_MERGED_CELLS, merged_cells

FORMULA, ERROR = "f", "e"
MAX_ROWS = 1_048_576
# A table's columns stand left; cells further right are somebody's notes.
MAX_COLUMNS = 50
MAX_FILE_BYTES = 100_000_000
MAX_UNPACKED_BYTES = 500_000_000
_COMPOUND_FILE = b"\xd0\xcf\x11\xe0"


class Cell(NamedTuple):
    """What a cell holds; `kind` is openpyxl's data type letter."""

    value: Any
    kind: str


class Row(NamedTuple):
    number: int
    cells: tuple[Cell, ...]


class Source(Protocol):
    """A workbook to read parameters from."""

    label: str
    sheet_names: list[str]

    def rows(self, sheet: str) -> Iterator[Row]:
        """The rows that are not blank; a formula's cell holds its text."""
        ...

    def results(self, sheet: str) -> dict[int, Row]:
        """The rows with the stored results of formulas, by row number."""
        ...


class FileSource:
    """The bytes of an .xlsx file."""

    def __init__(self, data: bytes, label: str) -> None:
        self.label = label
        self._check_size(data)
        with self._naming_faults():
            self.data = without_blank_rows(data)
            self._book = openpyxl.load_workbook(io.BytesIO(self.data), read_only=True, keep_links=False)
            self.sheet_names = list(self._book.sheetnames)
        if len({name.casefold() for name in self.sheet_names}) < len(self.sheet_names):
            raise self._fault(f"two sheets have the same name: {', '.join(self.sheet_names)}; rename one")

    def rows(self, sheet: str) -> Iterator[Row]:
        with self._naming_faults(sheet):
            yield from _rows(self._book, sheet)

    def results(self, sheet: str) -> dict[int, Row]:
        with self._naming_faults(sheet):
            book = openpyxl.load_workbook(
                io.BytesIO(self.data), read_only=True, keep_links=False, data_only=True
            )
            return {row.number: row for row in _rows(book, sheet)}

    def _check_size(self, data: bytes) -> None:
        if data.startswith(_COMPOUND_FILE):
            raise self._fault("it is password-protected or in the old .xls format; save it as a plain .xlsx")
        with self._naming_faults(), zipfile.ZipFile(io.BytesIO(data)) as archive:
            unpacked = sum(info.file_size for info in archive.infolist())
        if max(len(data) / MAX_FILE_BYTES, unpacked / MAX_UNPACKED_BYTES) > 1:
            raise self._fault(f"it is too large for parameters ({unpacked / 1e6:.0f} MB unpacked)")

    def editable(self) -> Workbook:
        """The whole workbook with its formats, to be changed and written again."""
        with self._naming_faults():
            if merged_cells(self.data) > MAX_MERGED_CELLS:
                raise self._fault("its merged areas are too large to be edited here; split them")
            return openpyxl.load_workbook(io.BytesIO(self.data), rich_text=True)

    def _naming_faults(self, sheet: str = "") -> contextlib.AbstractContextManager[None]:
        return _naming_faults(Place(self.label, sheet))

    def _fault(self, text: str) -> WorkbookError:
        return WorkbookError(Fault(Place(self.label), f"{text}."))


class OpenedSource:
    """A workbook in memory that belongs to the caller; it holds formulas or results, not both."""

    def __init__(self, book: Workbook, label: str) -> None:
        self.label = label
        self._book = book
        self.sheet_names = list(book.sheetnames)

    def rows(self, sheet: str) -> Iterator[Row]:
        with _naming_faults(Place(self.label, sheet)):
            yield from _rows(self._book, sheet)

    def results(self, sheet: str) -> dict[int, Row]:
        return {}


@contextlib.contextmanager
def _naming_faults(place: Place) -> Iterator[None]:
    # A damaged file makes zipfile, the XML parser and openpyxl raise nearly anything.
    try:
        yield
    except WorkbookError:
        raise
    except Exception as error:
        reason = str(error).strip().rstrip(".") or type(error).__name__
        text = f"it cannot be read as an .xlsx workbook ({reason}); save it again in a spreadsheet program."
        raise WorkbookError(Fault(place, text)) from error


def open_source(told: str | os.PathLike[str] | Workbook) -> Source:
    """The source for a file name or an opened workbook.

    A workbook that was opened read-only is taken over: its file is read here and closed.
    """
    if isinstance(told, Workbook):
        return _opened(told)
    if not isinstance(told, str | os.PathLike):
        raise TypeError(f"A parameter workbook is a file name or an openpyxl Workbook, not {told!r}.")
    return FileSource(read_file(Path(told)), os.fspath(told))


def read_file(path: Path) -> bytes:
    """The file's bytes; an OSError names the file and says what to do."""
    try:
        return path.read_bytes()
    except FileNotFoundError:
        text = "Parameter workbook not found; put it there or correct its path"
        raise FileNotFoundError(errno.ENOENT, text, os.path.abspath(path)) from None
    except PermissionError:
        text = "Parameter workbook cannot be read: it is locked by another program or not permitted"
        raise PermissionError(errno.EACCES, text, os.path.abspath(path)) from None


def _opened(book: Workbook) -> Source:
    archive = archive_of(book)
    if archive is None or archive.fp is None:
        return OpenedSource(book, "the opened workbook")
    label = archive.filename or "the opened workbook"
    archive.fp.seek(0)
    data = archive.fp.read()
    book.close()
    return FileSource(data, label)


def _rows(book: Workbook, name: str) -> Iterator[Row]:
    sheet = book[name]
    if not hasattr(sheet, "iter_rows"):
        raise ValueError("the sheet is a chart, not a table")
    if book.read_only:
        sheet.reset_dimensions()  # what the file claims of its size may be wrong
        table = sheet.iter_rows(max_row=MAX_ROWS + 1, max_col=MAX_COLUMNS)
    else:
        table = sheet.iter_rows()
    blank: tuple[Any, ...] = ()  # gaps between rows come as one and the same tuple, up to a million times
    for number, cells in enumerate(table, 1):
        if number > MAX_ROWS:
            raise ValueError("a row has a number that no workbook may have")
        if cells is blank:
            continue
        if any(cell.value is not None for cell in cells):
            yield Row(number, tuple(Cell(cell.value, cell.data_type) for cell in _trimmed(cells)))
        else:
            blank = cells


def _trimmed(cells: tuple[Any, ...]) -> tuple[Any, ...]:
    """The cells up to the last one that is not blank."""
    end = len(cells)
    while cells[end - 1].value is None:
        end -= 1
    return cells[:end]
