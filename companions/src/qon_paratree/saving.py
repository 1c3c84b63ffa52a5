"""Saves the tree: edits the workbooks in place, so that everything in them that is not a parameter stays."""

import math
from pathlib import Path

import openpyxl
from qon_companions.files import write_all_atomically
from qon_companions.parameters import (
    BadValueError,
    Fault,
    Parameter,
    Place,
    Table,
    WorkbookError,
    read_table,
    writing,
)
from qon_companions.parameters.source import FileSource, read_file

from .nodes import DirectoryNode, Node, ParameterNode, WorkbookNode


def save_tree(root: DirectoryNode, source: Path, target: Path) -> list[Path]:
    """Write what changed or is not there yet; nothing is written when one of the workbooks cannot be made."""
    files: dict[Path, bytes] = {}
    written: dict[ParameterNode, Parameter] = {}
    faults: list[Fault] = []
    for book in _books(root):
        file = target / book.file.relative_to(source)
        if file.exists() and not book.changed:
            continue
        # Scripts may go on setting values: what is stored from now on is what was written.
        written |= {node: node.parameter.copy() for node in book.walk()}
        try:
            files[file] = _edited(book)
        except (WorkbookError, BadValueError) as error:
            faults += error.faults
    if faults:
        raise WorkbookError(faults)
    for directory in _directories(root):
        (target / directory.path).mkdir(parents=True, exist_ok=True)
    write_all_atomically(files)
    if target.samefile(source):
        for node, parameter in written.items():
            node.mark_stored(parameter)
    return list(files)


def _books(node: Node) -> list[WorkbookNode]:
    if isinstance(node, WorkbookNode):
        return [node]
    return [book for child in node.children for book in _books(child)]


def _directories(node: Node) -> list[DirectoryNode]:
    if not isinstance(node, DirectoryNode):
        return []
    return [node, *(below for child in node.children for below in _directories(child))]


def _edited(book: WorkbookNode) -> bytes:
    """The workbook's file as it is now on the disk, with our changes."""
    try:
        data = read_file(book.file)
    except FileNotFoundError:
        return _rebuilt(book)
    if not book.changed:
        return data
    if book.locked:
        raise WorkbookError(Fault(Place(str(book.file)), book.locked))
    source = FileSource(data, str(book.file))
    edited = source.editable()
    for sheet in book.children:
        if sheet.changed:
            table = _table(source, sheet)
            for node in sheet.walk():
                _put(node, table, edited[sheet.name])
    result = writing.workbook_bytes(edited)
    _verify(book, result)
    return result


def _rebuilt(book: WorkbookNode) -> bytes:
    """Somebody deleted the file: our parameters are all that is left of it."""
    new = openpyxl.Workbook()
    new.remove(new.active)
    for sheet in book.children:
        writing.write_sheet(new.create_sheet(sheet.name), [node.parameter for node in sheet.walk()])
    return writing.workbook_bytes(new)


def _table(source: FileSource, sheet: Node) -> Table:
    place = Place(source.label, sheet.name)
    if sheet.name not in source.sheet_names:
        raise WorkbookError(Fault(place, "the sheet is gone; reload the parameters."))
    table = read_table(source, sheet.name)
    if table.faults:
        raise WorkbookError(table.faults)
    if table.formula:
        raise WorkbookError(
            Fault(place, f'"{table.formula}" is a formula now; change it in a spreadsheet program.')
        )
    return table


def _put(node: ParameterNode, table: Table, sheet: openpyxl.worksheet.worksheet.Worksheet) -> None:
    for field in node.changed_fields():
        if node.name not in table.rows:
            raise WorkbookError(
                Fault(node.place(), "the parameter is gone from the file; reload the parameters.")
            )
        if field not in table.columns:
            raise WorkbookError(Fault(node.place(), f'the sheet has no column for "{field}".'))
        try:
            writing.put(sheet.cell(table.rows[node.name], table.columns[field]), node.parameter, field)
        except BadValueError as error:
            raise error.placed(node.place().file) from None
        except AttributeError:
            text = f'the cell for "{field}" is part of merged cells; split them.'
            raise WorkbookError(Fault(node.place(), text)) from None


def _verify(book: WorkbookNode, data: bytes) -> None:
    """What was changed must be read again as it is: a workbook normalises some texts."""
    source = FileSource(data, str(book.file))
    for sheet in book.children:
        table = read_table(source, sheet.name)
        for node in sheet.walk():
            again = table.parameters.get(node.name)
            for field in node.changed_fields():
                if again is None or not _equal(getattr(again, field), getattr(node.parameter, field)):
                    raise WorkbookError(
                        Fault(node.place(), f'a workbook cannot hold this "{field}" unchanged.')
                    )


def _equal(one: object, other: object) -> bool:
    if isinstance(one, float) and isinstance(other, float):
        return math.isclose(one, other, rel_tol=1e-14) or (math.isnan(one) and math.isnan(other))
    return one == other or (one in (None, "") and other in (None, ""))
