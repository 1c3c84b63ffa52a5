"""The parameters of one sheet."""

from collections.abc import Callable, Iterable, Iterator
from typing import Any, TypeVar

from qon_companions.parameters import BadValueError, Parameter, Place

_Method = TypeVar("_Method", bound=Callable[..., Any])


def _reads(slot: str, attribute: str) -> Callable[[_Method], _Method]:
    """Tells who asks for a value at each measurement what the method reads: a dictionary in a slot, and an
    attribute of what is in it.  An overridden method has no such mark and is called.
    """

    def mark(method: _Method) -> _Method:
        method.__dict__["reads"] = (slot, attribute)
        return method

    return mark


class SheetParameters:
    """Parameters by variable name, in the order of the sheet.  A script may change their values."""

    __slots__ = ("__weakref__", "_parameters", "book", "file", "name")

    def __init__(
        self, name: str = "", parameters: Iterable[Parameter] = (), file: str = "", book: Any = None
    ) -> None:
        self.name = name
        self.file = file
        self.book = book  # the BookParameters that it was loaded from, or None
        self._parameters = {parameter.name: parameter for parameter in parameters}

    @_reads("_parameters", "value")
    def get(self, key: str, default: Any = None) -> Any:
        """The value of a parameter; the default when the sheet does not have it.

        A parameter with an empty cell gives None, or "" when it is text, not the default.
        """
        parameter = self._parameters.get(key)
        return default if parameter is None else parameter.value

    def set(self, key: str, value: Any) -> None:
        """Change a value until the program ends; BadValueError when its type or limits forbid it."""
        try:
            self.get_parameter(key).set_value(value)
        except BadValueError as error:
            raise error.placed(self.file, self.name) from None

    @property
    def parameter_names(self) -> list[str]:
        """The variable names in the order of the sheet."""
        return list(self._parameters)

    def get_parameter(self, name: str) -> Parameter:
        """The parameter itself; KeyError when the sheet does not have it."""
        try:
            return self._parameters[name]
        except KeyError:
            known = ", ".join(self._parameters) or "none"
            where = Place(self.file, self.name)
            raise KeyError(f'{where}: no variable "{name}"; there are: {known}.') from None

    def __getitem__(self, key: str) -> Any:
        return self.get_parameter(key).value

    __setitem__ = set

    def __contains__(self, key: object) -> bool:
        return key in self._parameters

    def __iter__(self) -> Iterator[str]:
        return iter(self._parameters)

    def __len__(self) -> int:
        return len(self._parameters)

    def __repr__(self) -> str:
        return f"<SheetParameters {Place(self.file, self.name)}: {', '.join(self._parameters)}>"
