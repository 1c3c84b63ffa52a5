"""Workbooks that take every value and are saved whole or not at all."""

import logging
from io import BytesIO
from typing import Any

from openpyxl import Workbook
from openpyxl.cell import Cell
from openpyxl.worksheet.worksheet import Worksheet
from qon_companions.files import write_atomically
from qon_companions.openpyxl_private import become

from .report import describe
from .sheet_values import sheet_value


class _SafeCell(Cell):
    """A text stays a text, also one that begins with "=" or reads like an error."""

    __slots__ = ()

    @property
    def value(self) -> Any:
        return super().value

    @value.setter
    def value(self, value: Any) -> None:
        held = sheet_value(value)
        Cell.value.fset(self, held)
        if isinstance(held, str):
            self.data_type = "s"  # type: ignore[misc]
            if held.startswith("="):
                self.quotePrefix = True  # type: ignore[misc]  # it stays one when somebody edits it


class _SafeSheet(Worksheet):
    def cell(self, row: int, column: int, value: Any = None) -> Any:
        cell = super().cell(row, column)
        if type(cell) is Cell:
            become(cell, _SafeCell)
        if value is not None:
            cell.value = value
        return cell

log = logging.getLogger(__name__)


class SafeBook(Workbook):
    """Stands for `_Book` of `qon_ats`: reports and exported limits."""

    def __init__(self, *args: Any, **keywords: Any) -> None:
        super().__init__(*args, **keywords)
        for sheet in self.worksheets:
            become(sheet, _SafeSheet)

    def create_sheet(self, *args: Any, **keywords: Any) -> Any:
        sheet = super().create_sheet(*args, **keywords)
        become(sheet, _SafeSheet)
        return sheet

    def save(self, filename: Any) -> None:
        """Write beside the file, then take its place: what cannot be written leaves the old one as it was."""
        unit = getattr(filename, "unit", None)
        if unit is not None:
            describe(self, unit)
        try:
            written = BytesIO()
            super().save(written)
            write_atomically(filename, written.getvalue())
        except Exception:
            log.exception("%s could not be saved; a file that was there is as it was.", filename)
            raise
