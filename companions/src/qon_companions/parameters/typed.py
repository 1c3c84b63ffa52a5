"""Values as a person types them and reads them in an editor."""

import json
from typing import Any

from qon_companions.i18n import _

from .kinds import BOOL, FLOAT, INT, JSON, RAW, STR, shown

_TRUE = {"true", "yes", "on", "1", "是"}
_FALSE = {"false", "no", "off", "0", "否"}


def to_text(kind: str, value: Any) -> str:
    """The value as it is shown; `from_text` of it gives the value again."""
    if value is None:
        return ""
    if kind == JSON:
        return json.dumps(value, ensure_ascii=False)
    return str(value)


def from_text(kind: str, text: str) -> Any:
    """The value of a typed text; an empty text is None, or "" for text.  ValueError says what is allowed."""
    typed = text.strip()
    if kind == STR:
        return text
    if not typed:
        return None
    if kind == INT:
        return _number(int, typed, _("{value} is not a whole number, such as 12"))
    if kind == FLOAT:
        problem = _("{value} is not a number, such as 1.5 or 2e-3, with a decimal point")
        return _number(float, typed, problem)
    if kind == BOOL:
        return _bool(typed)
    if kind == JSON:
        return _json(typed)
    if kind == RAW:
        raise ValueError(_("a value of this type can be changed in the workbook only"))
    raise ValueError(f'unknown kind "{kind}"')


def _number(parse: type[int] | type[float], typed: str, problem: str) -> int | float:
    try:
        if "_" in typed:
            raise ValueError
        return parse(typed.replace("\N{MINUS SIGN}", "-"))
    except ValueError:
        raise ValueError(problem.format(value=shown(typed))) from None


def _bool(typed: str) -> bool:
    if typed.lower() in _TRUE:
        return True
    if typed.lower() in _FALSE:
        return False
    raise ValueError(_("{value} is neither true nor false").format(value=shown(typed)))


def _json(typed: str) -> Any:
    try:
        return json.loads(typed)
    except (ValueError, RecursionError) as error:
        raise ValueError(_("{value} is not JSON: {error}").format(value=shown(typed), error=error)) from None
