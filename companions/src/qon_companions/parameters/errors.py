"""What is wrong with parameters, and exactly where."""

from collections.abc import Iterable
from dataclasses import dataclass, replace
from typing import Self

# A message box with more lines than this helps nobody; `ParameterError.faults` has all of them.
SHOWN_FAULTS = 20


@dataclass(frozen=True)
class Place:
    """Where something stands; empty parts are left out of the text."""

    file: str = ""
    sheet: str = ""
    row: int = 0
    variable: str = ""

    def __str__(self) -> str:
        parts = (
            self.file,
            f'sheet "{self.sheet}"' if self.sheet else "",
            f"row {self.row}" if self.row else "",
            f'variable "{self.variable}"' if self.variable else "",
        )
        return ", ".join(part for part in parts if part)


@dataclass(frozen=True)
class Fault:
    """One thing that is wrong; the text says what is and what is allowed."""

    place: Place
    text: str

    def __str__(self) -> str:
        place = str(self.place)
        return f"{place}: {self.text}" if place else self.text


class ParameterError(Exception):
    """Parameters cannot be used; `faults` lists everything that was found, not only the first fault."""

    def __init__(self, faults: Fault | Iterable[Fault]) -> None:
        self.faults: tuple[Fault, ...] = (faults,) if isinstance(faults, Fault) else tuple(faults)
        super().__init__(self._message())

    def placed(self, file: str, sheet: str = "") -> Self:
        """The same error for parameters of this file and sheet."""
        return type(self)(
            Fault(replace(fault.place, file=file, sheet=sheet or fault.place.sheet), fault.text)
            for fault in self.faults
        )

    def _message(self) -> str:
        lines = [str(fault) for fault in self.faults[:SHOWN_FAULTS]]
        if len(self.faults) > SHOWN_FAULTS:
            lines.append(f"... and {len(self.faults) - SHOWN_FAULTS} more.")
        return "\n".join(lines)


class WorkbookError(ParameterError):
    """A workbook or a sheet in it is damaged or filled in wrongly.

    Deliberately no ValueError: a station takes that for "no such sheet" and falls back to another sheet,
    which would hide the fault.
    """


class MissingSheetError(ParameterError, ValueError):
    """The workbook has no sheet of this name."""


class BadValueError(ParameterError, ValueError):
    """A value that the parameter's type or limits do not allow."""
