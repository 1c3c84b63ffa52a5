"""Write parameters as workbook sheets in the layout that they are read in."""

import io
import os
from collections.abc import Iterable, Mapping
from typing import Any

import openpyxl
from openpyxl.styles import Alignment, Font, PatternFill
from openpyxl.utils.exceptions import IllegalCharacterError
from openpyxl.worksheet.worksheet import Worksheet

from ..files import write_atomically
from . import kinds
from .errors import BadValueError, Fault, Place
from .header import TITLES
from .parameter import Parameter

# A workbook's cell takes no longer text; openpyxl would cut it silently.
MAX_TEXT = 32_767
_WIDTHS = {"desc": 40, "value": 28, "low": 14, "up": 14, "unit": 10, "name": 28, "type": 10}
_HEADER_FILL = PatternFill("solid", fgColor="D9E1F2")


def write_workbook(path: str | os.PathLike[str], sheets: Mapping[str, Iterable[Parameter]]) -> None:
    """Write a new parameter workbook; an existing one is replaced, or kept whole when that fails."""
    book = openpyxl.Workbook()
    book.remove(book.active)
    try:
        for name, parameters in sheets.items():
            write_sheet(book.create_sheet(name), parameters)
    except BadValueError as error:
        raise error.placed(os.fspath(path)) from None
    if not book.sheetnames:
        raise ValueError(f"{os.fspath(path)}: a workbook needs at least one sheet.")
    write_atomically(path, workbook_bytes(book))


def write_sheet(sheet: Worksheet, parameters: Iterable[Parameter]) -> None:
    """Fill an empty sheet with the header and one row per parameter."""
    sheet.append(list(TITLES.values()))
    for cell in sheet[1]:
        cell.font, cell.fill = Font(bold=True), _HEADER_FILL
        cell.alignment = Alignment(vertical="center")
    for cell, width in zip(sheet[1], _WIDTHS.values(), strict=True):
        sheet.column_dimensions[cell.column_letter].width = width
    sheet.freeze_panes = "A2"
    for row, parameter in enumerate(parameters, 2):
        for column, field in enumerate(TITLES, 1):
            put(sheet.cell(row, column), parameter, field)


def put(cell: Any, parameter: Parameter, field: str) -> None:
    """Write one field of a parameter into a cell, so that the same is read again."""
    kind = parameter.kind if field in ("value", "low", "up") else kinds.STR
    value = getattr(parameter, field)
    try:
        content = kinds.to_cell(kind, value)
        if isinstance(content, str) and len(content) > MAX_TEXT:
            raise ValueError(f"it is {len(content)} characters long; a workbook's cell takes {MAX_TEXT}")
        if isinstance(content, str):
            content.encode()
        cell.value = content
    except (IllegalCharacterError, UnicodeEncodeError):
        text = f"{value!r} has a character that a workbook cannot hold"
    except ValueError as error:
        text = str(error)
    else:
        if isinstance(content, str):
            cell.data_type = "s"  # text that begins with "=" is no formula
        return
    raise BadValueError(
        Fault(Place(sheet=cell.parent.title, variable=parameter.name), f'"{TITLES[field]}": {text}.')
    )


def workbook_bytes(book: openpyxl.Workbook) -> bytes:
    """The .xlsx file of a workbook."""
    buffer = io.BytesIO()
    book.save(buffer)
    return buffer.getvalue()
