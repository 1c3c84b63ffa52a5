"""Loads the tree from a directory."""

import errno
import os
from pathlib import Path

from qon_companions.parameters import Fault, Parameter, Place, Source, WorkbookError, open_source, read_table

from .nodes import DirectoryNode, Node, ParameterNode, SheetNode, WorkbookNode

SUFFIX = ".xlsx"
# Files that spreadsheet programs keep beside an open workbook, and our own half-written ones, begin like this.
IGNORED = (".", "~$")


def load_tree(path: Path) -> DirectoryNode:
    """Read every workbook below the directory; WorkbookError with the faults of all of them."""
    if not path.exists():
        text = "Parameter directory not found; create it or correct its path"
        raise FileNotFoundError(errno.ENOENT, text, os.path.abspath(path))
    if not path.is_dir():
        text = "This is a file; the parameters are kept in a directory of workbooks"
        raise NotADirectoryError(errno.ENOTDIR, text, os.path.abspath(path))
    loader = _Loader()
    root = DirectoryNode(path.name or str(path), None)
    loader.fill(root, path)
    if loader.faults:
        raise WorkbookError(loader.faults)
    return root


class _Loader:
    def __init__(self) -> None:
        self.faults: list[Fault] = []
        self._above: list[Path] = []

    def fill(self, node: DirectoryNode, path: Path) -> None:
        """Directories first, then workbooks, each in the order of their names."""
        real = path.resolve()
        if real in self._above:  # a link that leads back up
            return
        self._above.append(real)
        entries = [entry for entry in sorted(path.iterdir()) if not entry.name.startswith(IGNORED)]
        for entry in entries:
            if entry.is_dir():
                directory = DirectoryNode(entry.name, node)
                self._add(node, directory, entry)
                self.fill(directory, entry)
        for entry in entries:
            if entry.is_file() and entry.suffix.lower() == SUFFIX:
                book = WorkbookNode(entry.stem, node, entry)
                self._add(node, book, entry)
                self._fill_book(book)
        self._above.pop()

    def _add(self, parent: Node, child: Node, entry: Path) -> None:
        if parent.child(child.name):
            text = f'there are two entries named "{child.name}"; rename the directory or the workbook.'
            self.faults.append(Fault(Place(str(entry)), text))
        parent.add(child)

    def _fill_book(self, book: WorkbookNode) -> None:
        try:
            source = open_source(book.file)
            for name in source.sheet_names:
                self._fill_sheet(book, source, name)
        except WorkbookError as error:
            self.faults += error.faults
        except OSError as error:
            self.faults.append(Fault(Place(str(book.file)), f"{error.strerror or error}."))

    def _fill_sheet(self, book: WorkbookNode, source: Source, name: str) -> None:
        table = read_table(source, name)
        if not table.is_table:
            return  # notes, a picture, an empty sheet: not ours
        sheet = SheetNode(name, book)
        book.add(sheet)
        if table.formula and not book.formula:
            book.formula = str(Place(str(book.file), name, table.rows.get(table.formula, 0), table.formula))
        self.faults += table.faults
        for parameter in table.parameters.values():
            self._check_limits(book, name, parameter, table.rows[parameter.name])
            sheet.add(ParameterNode(sheet, parameter))

    def _check_limits(self, book: WorkbookNode, sheet: str, parameter: Parameter, row: int) -> None:
        # A setting outside its own limits is a mistake; in an exported limits workbook it would be a result.
        try:
            parameter.check_limits(parameter.value)
        except ValueError as error:
            self.faults.append(Fault(Place(str(book.file), sheet, row, parameter.name), f"{error}."))
