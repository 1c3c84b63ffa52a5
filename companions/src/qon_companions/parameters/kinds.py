"""The kinds of values that parameters hold: their names, and what a workbook's cell may contain for them.

Functions raise ValueError with a text that says what is wrong and what is allowed; the caller adds the place.
"""

import ast
import datetime
import difflib
import json
import math
import numbers
from typing import Any

INT, FLOAT, STR, BOOL, JSON, RAW = "int", "float", "str", "bool", "json", "raw"

# Besides the five documented names: what `type(value).__name__` gives for values that scripts measure.
_NAMES = {
    INT: "int integer long int8 int16 int32 int64 uint8 uint16 uint32 uint64 intc uintc intp longlong",
    FLOAT: "float double number real float16 float32 float64 float128 longdouble decimal fraction",
    STR: "str string text str_",
    BOOL: "bool boolean bool_",
    JSON: "json list tuple dict set frozenset ndarray array ordereddict defaultdict",
    RAW: "nonetype none datetime date time timedelta",
}
_KINDS = {name: kind for kind, names in _NAMES.items() for name in names.split()}
_INFINITE = {"inf", "+inf", "-inf", "infinity", "-infinity", "nan"}
_BOOLS = {"true": True, "false": False}
# Digits that the workbook format keeps: longer whole numbers would be rounded silently.
_EXACT_INT = 10**15


def kind_of(type_name: Any) -> str:
    """The kind that a type name stands for."""
    if not isinstance(type_name, str) or not type_name.strip():
        raise ValueError("the type is missing; give one of int, float, str, bool, json")
    name = type_name.strip().lower()
    kind = _KINDS.get(name)
    if kind is None:
        near = difflib.get_close_matches(name, _KINDS, 1)
        hint = f' (did you mean "{near[0]}"?)' if near else ""
        raise ValueError(f'unknown type "{type_name}"{hint}; give one of int, float, str, bool, json')
    return kind


def from_cell(kind: str, value: Any) -> Any:
    """The parameter's value for what a cell contains; an empty cell is None, or "" for text."""
    if value is None or value == "":
        return "" if kind == STR else None
    if kind in (INT, FLOAT) and isinstance(value, str):
        if kind == FLOAT and value.strip().lower() in _INFINITE:
            return float(value)
        raise ValueError(f"the text {shown(value)} stands in a number cell; enter a number")
    if kind == INT and isinstance(value, float) and value.is_integer():
        return int(value)
    if kind == STR and not isinstance(value, str):
        raise ValueError(f"{shown(value)} is not text; format the cell as text and enter it again")
    if kind == BOOL:
        return _bool_from_cell(value)
    if kind == JSON:
        return _json_from_cell(value)
    return accept(kind, value)


def limit_from_cell(kind: str, value: Any) -> Any:
    """A limit for what a cell contains: of the kind, or a number; None where there is no limit."""
    if value is None or value == "":
        return None
    number = isinstance(value, int | float) and not isinstance(value, bool)
    if kind in (INT, FLOAT, STR, BOOL) and number:
        return float(value) if kind == FLOAT else value
    limit = from_cell(kind, value)
    if isinstance(limit, float) and math.isnan(limit):
        raise ValueError("not a number (nan) is no limit; leave the cell empty for no limit")
    return limit


def accept(kind: str, value: Any) -> Any:
    """The value as a parameter of this kind keeps it; ValueError when it is of another kind."""
    if value is None:
        return None
    if kind == RAW:
        return value
    if kind == BOOL and type(value).__name__ in ("bool", "bool_"):
        return bool(value)
    if kind == INT and isinstance(value, numbers.Integral) and not isinstance(value, bool):
        return int(value)
    if kind == FLOAT and _is_real(value):
        return float(value)
    if kind == STR and isinstance(value, str):
        return str(value)
    if kind == JSON:
        return _checked_json(value)
    raise ValueError(f"{shown(value)} is not of type {kind}")


def to_cell(kind: str, value: Any) -> Any:
    """What to write into a cell, so that `from_cell` gives the same value again."""
    if kind == JSON and value is not None:
        return json.dumps(value, ensure_ascii=False)
    if isinstance(value, float) and not math.isfinite(value):
        return str(value)
    if isinstance(value, int) and not isinstance(value, bool) and abs(value) > _EXACT_INT:
        raise ValueError(
            f"{value} has more than 15 digits, which a workbook rounds; use the type str or json"
        )
    return value


def shown(value: Any) -> str:
    """A value as messages show it: quoted when it is text, cut when it is long."""
    text = f'"{value}"' if isinstance(value, str) else str(value)
    return text if len(text) <= 80 else f"{text[:77]}..."


def _is_real(value: Any) -> bool:
    real = isinstance(value, numbers.Real) or type(value).__name__ == "Decimal"
    return real and not isinstance(value, bool)


def _bool_from_cell(value: Any) -> bool:
    if isinstance(value, bool):
        return value
    known = _BOOLS.get(value.strip().lower()) if isinstance(value, str) else {0: False, 1: True}.get(value)
    if known is None:
        raise ValueError(f"{shown(value)} is not of type bool; enter TRUE or FALSE")
    return known


def _json_from_cell(value: Any) -> Any:
    if not isinstance(value, str):
        return _checked_json(value)
    try:
        return json.loads(value)
    except ValueError as error:
        reason = error
    except RecursionError:
        raise ValueError("JSON nested too deeply") from None
    try:  # a Python list or tuple, as str() writes it
        return _checked_json(ast.literal_eval(value.strip()))
    except (ValueError, SyntaxError, MemoryError, RecursionError, TypeError):
        raise ValueError(f"{shown(value)} is not JSON ({reason})") from None


def _checked_json(value: Any) -> Any:
    if isinstance(value, datetime.date | datetime.time | datetime.timedelta):
        text = f"{shown(value)} is a date or time; format the cell as text"
        raise ValueError(text)  # noqa: TRY004 - one kind of error for all that does not fit
    try:
        json.dumps(value)
    except (TypeError, ValueError, RecursionError) as error:
        raise ValueError(f"{shown(value)} cannot be written as JSON ({error})") from None
    return value
