"""Saves the tree: edits the workbooks in place, so that everything in them that is not a parameter stays."""

import math
from pathlib import Path

import openpyxl
from openpyxl.worksheet.worksheet import Worksheet
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
from qon_companions.parameters.header import TITLES
from qon_companions.parameters.source import FileSource, read_file

from .nodes import DirectoryNode, Node, ParameterNode, SheetNode, WorkbookNode

# The state of a workbook that is written: scripts may go on setting values meanwhile.
State = dict[ParameterNode, Parameter]

_NOT_KEPT = 'a save would not keep "{}": the cell lies in merged cells, or a workbook cannot hold its text.'


def save_tree(root: DirectoryNode, source: Path, target: Path) -> list[Path]:
    """Write what changed or is not there yet; nothing is written when one of the workbooks cannot be made."""
    files: dict[Path, bytes] = {}
    written: State = {}
    faults: list[Fault] = []
    for book in _books(root):
        file = target / book.file.relative_to(source)
        state = {node: node.parameter.copy() for node in book.walk()}
        try:
            if _changed(state) or not file.exists():
                files[file] = _edited(book, state)
                written |= state
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


def _changed(state: State) -> list[tuple[ParameterNode, Parameter, list[str]]]:
    """The changed parameters with the fields that changed."""
    found = [(node, parameter, node.changed_fields(parameter)) for node, parameter in state.items()]
    return [(node, parameter, fields) for node, parameter, fields in found if fields]


def _books(node: Node) -> list[WorkbookNode]:
    if isinstance(node, WorkbookNode):
        return [node]
    return [book for child in node.children for book in _books(child)]


def _directories(node: Node) -> list[DirectoryNode]:
    if not isinstance(node, DirectoryNode):
        return []
    return [node, *(below for child in node.children for below in _directories(child))]


def _edited(book: WorkbookNode, state: State) -> bytes:
    """The workbook's file as it is now on the disk, with our changes."""
    try:
        data = read_file(book.file)
    except FileNotFoundError:
        return _rebuilt(book, state)
    if not _changed(state):
        return data
    if book.locked:
        raise WorkbookError(Fault(Place(str(book.file)), book.locked))
    source = FileSource(data, str(book.file))
    edited = source.editable()
    tables: dict[str, Table] = {}
    for node, parameter, fields in _changed(state):
        sheet = node.place().sheet
        if sheet not in tables:
            tables[sheet] = _table(source, sheet)
        for field in fields:
            _put(node, parameter, field, tables[sheet], edited[sheet])
    result = writing.workbook_bytes(edited)
    _verify(state, source, FileSource(result, source.label))
    return result


def _rebuilt(book: WorkbookNode, state: State) -> bytes:
    """Somebody deleted the file: our parameters are all that is left of it."""
    new = openpyxl.Workbook()
    new.remove(new.active)
    for sheet in book.children or [SheetNode("Sheet", book)]:
        writing.write_sheet(new.create_sheet(sheet.name), [state[node] for node in sheet.walk()])
    return writing.workbook_bytes(new)


def _table(source: FileSource, sheet: str) -> Table:
    place = Place(source.label, sheet)
    if sheet not in source.sheet_names:
        raise WorkbookError(Fault(place, "the sheet is gone; reload the parameters."))
    table = read_table(source, sheet)
    if table.faults:
        raise WorkbookError(table.faults)
    if table.formula:
        text = f'"{table.formula}" is a formula now; change this workbook in a spreadsheet program.'
        raise WorkbookError(Fault(place, text))
    return table


def _put(node: ParameterNode, parameter: Parameter, field: str, table: Table, sheet: Worksheet) -> None:
    if node.name not in table.rows:
        raise WorkbookError(
            Fault(node.place(), "the parameter is gone from the file; reload the parameters.")
        )
    if field not in table.columns:
        raise WorkbookError(Fault(node.place(), f'the sheet has no column for "{field}".'))
    try:
        writing.put(sheet.cell(table.rows[node.name], table.columns[field]), parameter, field)
    except BadValueError as error:
        raise error.placed(node.place().file) from None
    except AttributeError:
        text = f'the cell for "{field}" is part of merged cells; split them.'
        raise WorkbookError(Fault(node.place(), text)) from None


def _verify(state: State, before: FileSource, after: FileSource) -> None:
    """What was changed must be read again as it is, and everything else as it was: else nothing is written."""
    changes = {
        (node.place().sheet, node.name): (parameter, fields) for node, parameter, fields in _changed(state)
    }
    for sheet in before.sheet_names:
        old, new = read_table(before, sheet).parameters, read_table(after, sheet).parameters
        for name, parameter in old.items():
            ours, fields = changes.get((sheet, name), (parameter, []))
            for field in TITLES:
                wanted = getattr(ours if field in fields else parameter, field)
                if name not in new or not _equal(wanted, getattr(new[name], field)):
                    place = Place(before.label, sheet, variable=name)
                    raise WorkbookError(Fault(place, _NOT_KEPT.format(TITLES[field])))


def _equal(one: object, other: object) -> bool:
    if isinstance(one, float) and isinstance(other, float):
        return math.isclose(one, other, rel_tol=1e-14) or (math.isnan(one) and math.isnan(other))
    return one == other or (one in (None, "") and other in (None, ""))
