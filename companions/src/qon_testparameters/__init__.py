"""Parameter workbooks: the station's configuration, the limits of its test items, exported limits.

A sheet has a header row and one row per parameter: test item name, default value, lower limit, upper limit,
unit, variable name and type (int, float, str, bool or json).
"""

from qon_companions.parameters import (
    BadValueError,
    Fault,
    MissingSheetError,
    Parameter,
    ParameterError,
    WorkbookError,
    write_sheet,
    write_workbook,
)

from .book import BookParameters
from .sheet import SheetParameters

__all__ = [
    "BadValueError",
    "BookParameters",
    "Fault",
    "MissingSheetError",
    "Parameter",
    "ParameterError",
    "SheetParameters",
    "WorkbookError",
    "write_sheet",
    "write_workbook",
]
