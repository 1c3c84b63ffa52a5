"""Parameters in workbooks: what `qon_testparameters` and `qon_paratree` have in common."""

from .errors import BadValueError, Fault, MissingSheetError, ParameterError, Place, WorkbookError
from .parameter import Parameter
from .source import Source, open_source
from .table import Table, read_table
from .writing import write_sheet, write_workbook

__all__ = [
    "BadValueError",
    "Fault",
    "MissingSheetError",
    "Parameter",
    "ParameterError",
    "Place",
    "Source",
    "Table",
    "WorkbookError",
    "open_source",
    "read_table",
    "write_sheet",
    "write_workbook",
]
