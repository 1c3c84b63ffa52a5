"""One sheet of parameters: its header row, one row per parameter, comment rows and blank rows between them."""

from dataclasses import dataclass, field
from typing import Any

from . import kinds
from .errors import Fault, Place
from .header import EMPTY, TITLES, Header, text_of
from .parameter import Parameter
from .source import ERROR, FORMULA, Cell, Row, Source

COMMENT = "#"
# Whoever points a station at a huge log of data by mistake gets an answer at once.
MAX_FAULTS = 1_000
MAX_PARAMETERS = 50_000


@dataclass
class Table:
    """What was read from a sheet; with faults in it the parameters are not complete."""

    parameters: dict[str, Parameter] = field(default_factory=dict)
    rows: dict[str, int] = field(default_factory=dict)
    # Column numbers, counted from 1 as workbooks do, of the fields that the sheet has.
    columns: dict[str, int] = field(default_factory=dict)
    faults: list[Fault] = field(default_factory=list)
    # The first variable with a formula among its cells, "" when there is none.
    formula: str = ""
    is_table: bool = False


def read_table(source: Source, sheet: str) -> Table:
    """Read a sheet and collect everything that is wrong in it.  A damaged sheet raises WorkbookError."""
    return _Reader(source, sheet).read()


def _name_of(row: Row, header: Header) -> str:
    """The variable name without blanks at its ends, unless the description is the very same text: an export writes
    an item's name twice, and it is to be found under just this name again.
    """
    name = header.cell(row.cells, "name").value
    same = isinstance(name, str) and name.strip() and name == header.cell(row.cells, "desc").value
    return str(name) if same else text_of(name)


class _Reader:
    def __init__(self, source: Source, sheet: str) -> None:
        self._source = source
        self._place = Place(source.label, sheet)
        self._table = Table()
        self._header: Header | None = None
        self._results: dict[int, Row] | None = None

    def read(self) -> Table:
        for row in self._source.rows(self._place.sheet):
            if self._header is not None:
                self._read_row(row, self._header)
            elif not self._read_header(row):
                break
            if len(self._table.faults) >= MAX_FAULTS or len(self._table.parameters) > MAX_PARAMETERS:
                self._fault(f"reading stopped here: no station has a sheet like this ({row.number} rows).")
                break
        if self._header is None:
            titles = ", ".join(f'"{title}"' for title in TITLES.values())
            self._fault(f"the sheet is empty; it needs a header row: {titles}.")
        return self._table

    def _read_header(self, row: Row) -> bool:
        """Take the row as header, unless it is a comment; False when nothing can be read below it."""
        header = Header(row.cells)
        first = next(cell.value for cell in row.cells if cell.value is not None)
        if text_of(first).startswith(COMMENT) and not header.is_table:
            return True
        self._header = header
        self._table.is_table = header.is_table
        self._table.columns = {name: column + 1 for name, column in header.columns.items()}
        self._table.faults += header.faults(Place(self._place.file, self._place.sheet, row.number))
        return not self._table.faults

    def _read_row(self, row: Row, header: Header) -> None:
        name = _name_of(row, header)
        if self._is_comment(row, header, name) or self._is_blank(row, header):
            return
        if not name:
            self._fault("the variable name is missing.", row.number)
            return
        first = self._table.rows.setdefault(name, row.number)
        if first != row.number:
            self._fault(
                f"the variable name stands in row {first} already; names must differ.", row.number, name
            )
            return
        parameter = self._parameter(row, header, name)
        if parameter is not None:
            self._table.parameters[name] = parameter

    def _is_comment(self, row: Row, header: Header, name: str) -> bool:
        """An exported item may be called "#1 ...": its description is its name, then it is no comment."""
        cells = row.cells[: header.first_column + 1]
        first = next((cell for cell in cells if cell.value is not None), EMPTY)
        text = text_of(first.value)
        return text.startswith(COMMENT) and first.kind != ERROR and text != name.strip()

    def _is_blank(self, row: Row, header: Header) -> bool:
        return not any(text_of(header.cell(row.cells, column).value) for column in header.columns)

    def _parameter(self, row: Row, header: Header, name: str) -> Parameter | None:
        before = len(self._table.faults)
        cells = {column: self._cell(row, header, column, name) for column in TITLES}
        type_name = text_of(cells["type"])
        kind = self._checked(row, name, "", kinds.kind_of, type_name)
        if kind is None or len(self._table.faults) > before:
            return None
        low = self._checked(row, name, "lower limit: ", kinds.limit_from_cell, kind, cells["low"])
        up = self._checked(row, name, "upper limit: ", kinds.limit_from_cell, kind, cells["up"])
        value = self._checked(row, name, "value: ", kinds.from_cell, kind, cells["value"])
        self._check_order(row, name, low, up)
        if len(self._table.faults) > before:
            return None
        unit = text_of(cells["unit"])
        return Parameter(name, text_of(cells["desc"]) or name, value, low, up, unit, type_name)

    def _cell(self, row: Row, header: Header, column: str, name: str) -> Any:
        """The value of one cell; of a formula its stored result."""
        cell = header.cell(row.cells, column)
        if cell.kind == FORMULA:
            self._table.formula = self._table.formula or name
            cell = self._result(row, header, column)
            if cell.value is None:
                text = f'"{TITLES[column]}" is a formula without a stored result; calculate and save the workbook.'
                self._fault(text, row.number, name)
        if cell.kind == ERROR:
            self._fault(f'"{TITLES[column]}" holds the error {cell.value}.', row.number, name)
        return cell.value

    def _result(self, row: Row, header: Header, column: str) -> Cell:
        if self._results is None:
            self._results = self._source.results(self._place.sheet)
        found = self._results.get(row.number)
        return header.cell(found.cells, column) if found else EMPTY

    def _checked(self, row: Row, name: str, what: str, convert: Any, *values: Any) -> Any:
        try:
            return convert(*values)
        except ValueError as error:
            self._fault(f"{what}{error}.", row.number, name)
            return None

    def _check_order(self, row: Row, name: str, low: Any, up: Any) -> None:
        if low is None or up is None:
            return
        limits = f"lower limit {kinds.shown(low)}", f"upper limit {kinds.shown(up)}"
        try:
            if low > up:
                self._fault(f"the {limits[0]} is above the {limits[1]}.", row.number, name)
        except TypeError:
            self._fault(f"the {limits[0]} cannot be compared with the {limits[1]}.", row.number, name)

    def _fault(self, text: str, row: int = 0, name: str = "") -> None:
        self._table.faults.append(Fault(Place(self._place.file, self._place.sheet, row, name), text))
