"""What a cell of a workbook can hold; everything else becomes a text, and nothing becomes a formula."""

from __future__ import annotations

import datetime
import numbers
import re
from decimal import Decimal
from math import isfinite
from typing import Any

LONGEST_TEXT = 32767  # characters in a cell
_EXACT = 2**53  # whole numbers beyond lose digits in a sheet
_MOMENTS = (datetime.datetime, datetime.date, datetime.time, datetime.timedelta)
# Neither XML nor a sheet has these characters.
_ILLEGAL = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\ud800-\udfff\ufffe\uffff]")


def sheet_value(value: Any) -> Any:
    """The value itself where a sheet can hold it, else a text that tells it."""
    if value is None or isinstance(value, bool):
        return value
    if type(value).__name__ in ("bool", "bool_"):  # numpy's
        return bool(value)
    if isinstance(value, Decimal):
        return value if value.is_finite() else str(value)
    if isinstance(value, numbers.Integral):
        return int(value) if abs(int(value)) <= _EXACT else str(value)
    if isinstance(value, numbers.Real):
        return float(value) if isfinite(value) else str(value)
    if isinstance(value, _MOMENTS) and getattr(value, "tzinfo", None) is None:
        return value
    return sheet_text(value if isinstance(value, str) else told(value))


def sheet_text(text: str) -> str:
    """The text with what no sheet can hold spelled out."""
    text = _ILLEGAL.sub(lambda found: ascii(found.group())[1:-1], text)
    return text if len(text) <= LONGEST_TEXT else text[: LONGEST_TEXT - 1] + "\u2026"


def told(value: Any) -> str:
    """`str()` of whatever it is; "<...>" where that raises."""
    try:
        return str(value)
    except Exception:  # noqa: BLE001 - a value may raise anything
        return "<...>"
