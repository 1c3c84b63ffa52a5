"""Values of any kind, as they are kept: exactly where SQLite has a place for them, else as text, array or file."""

import fractions
import io
import math
import numbers
from collections.abc import Iterable
from decimal import Decimal
from typing import Any

import numpy as np

from ..records import Kind
from ..writer.messages import Odd

TEXT_LIMIT = 20_000  # characters; a longer text is kept whole as an attachment
ARRAY_LENGTH = 32  # a list of so many numbers is kept as an array
_MOST_DIGITS = 4000  # Python refuses to write longer integers
_INT64 = 1 << 63

PLAIN = frozenset((float, int, str, bool, type(None)))


def clean(text: str) -> str:
    """What UTF-8 or a database cannot hold (lone surrogates, NUL) is written as Python writes it in a literal."""
    if text.isascii() and "\0" not in text:
        return text if type(text) is str else str.__str__(text)
    return text.encode("utf-8", "backslashreplace").decode("utf-8").replace("\0", "\\x00")


def represented(value: Any) -> str:
    """The repr of anything; that it fails is no reason to lose the measurement."""
    try:
        return clean(repr(value))
    except Exception as error:  # noqa: BLE001 - it is the script's class
        return f"<{type(value).__name__}; its repr raises {type(error).__name__}>"


def kept(value: Any, most_bytes: int) -> Any:
    """The value itself where a message can hold it, else an `Odd`; bigger attachments than `most_bytes` are left out."""
    try:
        return _limited(_plain_or_odd(value), most_bytes)
    except Exception as error:  # noqa: BLE001 - a class of the script may do anything when it is looked at
        note = f"could not be looked at: {type(error).__name__}: {error}"
        return Odd(Kind.OTHER, text=represented(value), note=clean(note))


def _plain_or_odd(value: Any) -> Any:
    if value is None or type(value) is float or type(value) is bool:
        return value
    if isinstance(value, (bool, np.bool_)):
        return bool(value)
    if isinstance(value, str):
        return _text(value)
    if isinstance(value, np.generic) and not isinstance(value, (np.number, np.bool_)):
        return _other(value)
    if isinstance(value, (int, np.integer)):
        return _integer(int.__int__(value) if isinstance(value, int) else int(value))
    if isinstance(value, (float, np.floating)):
        return float.__float__(value) if isinstance(value, float) else float(value)
    if isinstance(value, (Decimal, fractions.Fraction)):
        return _rational(value)
    return _array(value) or _other(value)


def _text(value: str) -> Any:
    text = clean(value)
    if len(text) <= TEXT_LIMIT:
        return text
    note = f"{len(text)} characters; whole in the attachment"
    return Odd(Kind.TEXT, text=text[:TEXT_LIMIT], note=note, data=text.encode(), name="text.txt")


def _integer(value: int) -> Any:
    if -_INT64 <= value < _INT64:
        return value
    if value.bit_length() > _MOST_DIGITS * 3:
        return Odd(Kind.OTHER, text=hex(value)[:TEXT_LIMIT], note=f"an integer of {value.bit_length()} bits")
    return Odd(Kind.INTEGER, number=_float(value), text=str(value))


def _rational(value: Decimal | fractions.Fraction) -> Any:
    number = _float(value)
    if number is None or not math.isfinite(number):
        return _other(value)
    return Odd(Kind.NUMBER, number=number, note=represented(value))


def _float(value: Any) -> float | None:
    try:
        return float(value)
    except (OverflowError, ValueError):
        return None


def _array(value: Any) -> Odd | None:
    """An array, or a long list of numbers, in NumPy's own format."""
    array: Any = None
    if isinstance(value, np.ndarray):
        array = value
    elif isinstance(value, (list, tuple)) and len(value) >= ARRAY_LENGTH and _are_numbers(value):
        array = np.asarray(value)
    if array is None or array.dtype.hasobject:
        return None
    file = io.BytesIO()
    np.save(file, array, allow_pickle=False)
    shape = ", ".join(map(str, array.shape))
    return Odd(Kind.ARRAY, text=f"{array.dtype}[{shape}]", data=file.getvalue(), name="array.npy")


def _are_numbers(values: Iterable[Any]) -> bool:
    return all(isinstance(one, numbers.Real) for one in values)


def _other(value: Any) -> Odd:
    text, note = represented(value), type(value).__qualname__
    if len(text) <= TEXT_LIMIT:
        return Odd(Kind.OTHER, text=text, note=note)
    return Odd(Kind.OTHER, text=text[:TEXT_LIMIT], note=note, data=text.encode(), name="repr.txt")


def _limited(value: Any, most_bytes: int) -> Any:
    if isinstance(value, Odd) and value.data is not None and len(value.data) > most_bytes:
        value.note = f"{value.note or value.text}; {len(value.data)} bytes, which is too large to be kept"
        value.data, value.name = None, ""
    return value


def moment(value: Any) -> float | None:
    """Seconds as a float; None for what is no time."""
    return _float(value) if isinstance(value, (int, float, np.number)) else None


def asked(record: Any, name: str, otherwise: Any) -> Any:
    """What a record of the script's own class answers, or something else when it does not know the question."""
    try:
        found = getattr(record, name)
        return found() if callable(found) else found
    except Exception:  # noqa: BLE001 - as above
        return otherwise
