"""A parameter workbook and the sheets that were loaded from it."""

import os
from typing import Any

from openpyxl.workbook import Workbook
from qon_companions.parameters import Fault, MissingSheetError, Place, WorkbookError, open_source, read_table

from .sheet import SheetParameters


class BookParameters:
    """The sheets of a workbook, loaded one by one when they are asked for.

    The file is read when the object is made and is not open afterwards; make a new object to see later edits.
    An openpyxl workbook that was opened read-only is read and closed here.
    """

    def __init__(self, source: str | os.PathLike[str] | Workbook) -> None:
        self._source = open_source(source)
        self._sheets: dict[str, SheetParameters] = {}

    @property
    def sheet_names(self) -> list[str]:
        """The sheets of the workbook, loaded or not."""
        return list(self._source.sheet_names)

    def has_sheet(self, name: str) -> bool:
        """Whether the sheet is loaded."""
        return name in self._sheets

    def load_sheet(self, name: str) -> SheetParameters:
        """Load a sheet; one that is loaded already stays as it is, changed values included.

        MissingSheetError (a ValueError) when there is none; WorkbookError with all that is wrong in it.
        """
        if name in self._sheets:
            return self._sheets[name]
        label = self._source.label
        if name not in self._source.sheet_names:
            text = f"no such sheet; the workbook has: {', '.join(self._source.sheet_names) or 'none'}."
            raise MissingSheetError(Fault(Place(label, name), text))
        table = read_table(self._source, name)
        if table.faults:
            raise WorkbookError(table.faults)
        self._sheets[name] = SheetParameters(name, table.parameters.values(), label, self)
        return self._sheets[name]

    def get_sheet_parameters(self, name: str) -> SheetParameters:
        """The sheet, loaded when it is not yet."""
        return self.load_sheet(name)

    def get(self, key: str, default: Any = None) -> Any:
        """The value of a parameter, from the first loaded sheet that has it; otherwise the default."""
        for sheet in self._sheets.values():
            if key in sheet:
                return sheet.get(key)
        return default

    def __contains__(self, key: object) -> bool:
        return any(key in sheet for sheet in self._sheets.values())

    def __repr__(self) -> str:
        return f"<BookParameters {self._source.label}, loaded: {', '.join(self._sheets) or 'none'}>"
