"""Keys of the configuration workbook that the layouts read; a wrong value is explained when the station starts."""

from __future__ import annotations

import re
from dataclasses import dataclass
from typing import Any

from qon_companions.parameters import BadValueError, Fault, Place
from qon_companions.scans import GAP_MS

_SHORTEST_GAP, _LONGEST_GAP = 5, 200


@dataclass(frozen=True)
class NumberRules:
    """What a cell takes for a serial number, by the keys of its sheet."""

    allow_empty: bool = True
    pattern: re.Pattern[str] | None = None
    acknowledge_ng: bool = False

    @classmethod
    def of(cls, sheet: Any) -> NumberRules:
        """The rules of a cell's sheet, the defaults where it has none."""
        pattern = _value(sheet, "serial_number_pattern", "", str)
        try:
            compiled = re.compile(pattern) if pattern else None
        except re.error as error:
            text = f'"{pattern}" is no regular expression: {error}.'
            raise _wrong(sheet, "serial_number_pattern", text) from None
        return cls(
            _value(sheet, "allow_empty_serial_number", True, bool),
            compiled,
            _value(sheet, "acknowledge_ng", False, bool),
        )

    def fits(self, number: str) -> bool:
        """Whether it is a serial number, as a whole; an empty one is another matter."""
        return not number or self.pattern is None or self.pattern.fullmatch(number) is not None


@dataclass(frozen=True)
class SessionRules:
    """What is asked about operator and batch, by the keys of the sheet "main"."""

    ask_operator: bool = False
    ask_batch: bool = False
    shift_hours: int = 8
    badge: re.Pattern[str] | None = None

    @classmethod
    def beside(cls, sheet: Any) -> SessionRules:
        """The rules of the sheet "main" beside a cell's own one."""
        main = _main_of(sheet)
        hours = _value(main, "shift_hours", cls.shift_hours, int)
        if hours < 1:
            raise _wrong(main, "shift_hours", f"{hours} is not allowed; give 1 or more hours.")
        pattern = _value(main, "operator_pattern", "", str)
        try:
            badge = re.compile(pattern) if pattern else None
        except re.error as error:
            text = f'"{pattern}" is no regular expression: {error}.'
            raise _wrong(main, "operator_pattern", text) from None
        operator, batch = (_value(main, key, False, bool) for key in ("ask_operator", "ask_batch"))
        return cls(operator, batch, hours, badge)


def _main_of(sheet: Any) -> Any:
    book = getattr(sheet, "book", None)
    try:
        return book.get_sheet_parameters("main") if book is not None else None
    except ValueError:  # a book of cells only
        return None


def scan_gap(sheet: Any) -> int:
    """The longest time between two keys of a scanner, of the sheet "main" beside a cell's own one."""
    main = _main_of(sheet)
    gap = _value(main, "scan_key_ms", GAP_MS, int)
    if not _SHORTEST_GAP <= gap <= _LONGEST_GAP:
        text = f"{gap} is not allowed; give {_SHORTEST_GAP} to {_LONGEST_GAP} milliseconds (usual: {GAP_MS})."
        raise _wrong(main, "scan_key_ms", text)
    return int(gap)


def _value(sheet: Any, key: str, default: Any, kind: type[Any]) -> Any:
    value = default if sheet is None else sheet.get(key, default)
    if value is None:  # an empty cell
        return default
    if type(value) is not kind:
        raise _wrong(sheet, key, f"the value {value!r} must be of type {kind.__name__}.")
    return value


def _wrong(sheet: Any, key: str, text: str) -> BadValueError:
    place = Place(str(getattr(sheet, "file", "")), str(getattr(sheet, "name", "")), 0, key)
    return BadValueError(Fault(place, text))
