"""Numbers as they are shown: six significant digits, more where fewer would contradict the verdict."""

from __future__ import annotations

from collections.abc import Sequence
from math import isfinite

DIGITS = 6
_ALL_DIGITS = 17  # of a float: what is shown is what was measured


def is_long_float(text: str) -> bool:
    """Whether a text is that of a float with more digits than are shown.  Integers and other texts are not."""
    if len(text) <= DIGITS + 1 or not (text[0].isdigit() or text[0] == "-"):
        return False
    number = as_number(text)
    if number is None or repr(number) != text:
        return False
    mantissa = text.partition("e")[0]
    return len(mantissa.replace(".", "").strip("-0")) > DIGITS


def shortened(text: str, digits: int = DIGITS) -> str:
    """The text of a long float with so many significant digits; any other text as it is."""
    return f"{float(text):.{digits}g}" if is_long_float(text) else text


def digits_for(value: str, lower: str, upper: str) -> int:
    """How many digits of these three are needed to see on which side of its limits the value lies."""
    numbers = [as_number(text) for text in (value, lower, upper)]
    return next(
        (
            digits
            for digits in range(DIGITS, _ALL_DIGITS)
            if _outside(_rounded(numbers, digits)) == _outside(numbers)
        ),
        _ALL_DIGITS,
    )


def as_number(text: str) -> float | None:
    """The finite number that a text tells."""
    try:
        number = float(text)
    except ValueError:
        return None
    return number if isfinite(number) else None


def _rounded(numbers: Sequence[float | None], digits: int) -> list[float | None]:
    return [None if number is None else float(f"{number:.{digits}g}") for number in numbers]


def _outside(numbers: Sequence[float | None]) -> tuple[bool, bool]:
    value, lower, upper = numbers
    if value is None:
        return False, False
    return lower is not None and value < lower, upper is not None and value > upper
