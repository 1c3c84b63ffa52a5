"""One named value with its limits, unit and type."""

import copy
import dataclasses
from typing import Any

from qon_companions.i18n import _

from . import kinds, typed
from .errors import BadValueError, Fault, Place


@dataclasses.dataclass(slots=True)
class Parameter:
    """A parameter of a station, or the limits of one test item.

    Nothing is checked when it is made, because exported limits may hold a value that failed its test;
    `set_value` and `check` hold on to type and limits.
    """

    name: str
    desc: str
    value: Any
    low: Any
    up: Any
    unit: str | None
    type: str

    @property
    def kind(self) -> str:
        """The kind of value that the type name stands for."""
        try:
            return kinds.kind_of(self.type)
        except ValueError as error:
            raise self._bad(str(error)) from None

    @property
    def text(self) -> str:
        """The value as an editor shows it."""
        return typed.to_text(self.kind, self.value)

    def accept(self, value: Any) -> Any:
        """The value as this parameter would keep it; BadValueError when type or limits forbid it."""
        try:
            accepted = kinds.accept(self.kind, value)
            self.check_limits(accepted)
        except BadValueError:
            raise
        except ValueError as error:
            raise self._bad(str(error)) from None
        return accepted

    def check(self, text: str) -> Any:
        """The value of a text that a person typed; BadValueError says what is wrong with it."""
        try:
            return self.accept(typed.from_text(self.kind, text))
        except BadValueError:
            raise
        except ValueError as error:
            raise self._bad(str(error)) from None

    def set_value(self, value: Any) -> None:
        """Change the value; BadValueError, and no change, when type or limits forbid it."""
        self.value = self.accept(value)

    def check_limits(self, value: Any) -> None:
        """ValueError when the value lies outside the limits (both inclusive); no value is never outside."""
        if value is None:
            return
        try:
            if self.low is not None and not value >= self.low:
                raise ValueError(_not_within(_("{value} is below the lower limit {limit}"), value, self.low))
            if self.up is not None and not value <= self.up:
                raise ValueError(_not_within(_("{value} is above the upper limit {limit}"), value, self.up))
        except TypeError:
            limits = f"{kinds.shown(self.low)} and {kinds.shown(self.up)}"
            raise ValueError(f"{kinds.shown(value)} cannot be compared with the limits {limits}") from None

    def copy(self) -> "Parameter":
        """An independent parameter with the same fields, lists and dictionaries included."""
        return copy.deepcopy(self)

    def _bad(self, text: str) -> BadValueError:
        return BadValueError(Fault(Place(variable=self.name), _("{text}.").format(text=text)))


def _not_within(text: str, value: Any, limit: Any) -> str:
    return text.format(value=kinds.shown(value), limit=kinds.shown(limit))
