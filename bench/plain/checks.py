"""The error of an argument of the wrong type; the checks themselves stand where they are cheap: in line."""

from typing import Any


def wrong(name: str, value: Any, wanted: str) -> TypeError:
    return TypeError(f"argument {name!r} must be {wanted}, not {type(value).__name__}")


def as_float(name: str, value: Any) -> float:
    """A float argument takes any real number and no string."""
    if isinstance(value, str | bytes):
        raise wrong(name, value, "a number")
    try:
        return float(value)
    except (TypeError, ValueError):
        raise wrong(name, value, "a number") from None
