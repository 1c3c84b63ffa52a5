"""The tree of parameters as an editor walks it: directories, workbooks, sheets and parameters."""

from __future__ import annotations

import contextlib
from collections.abc import Iterator
from pathlib import Path
from typing import Any, ClassVar

from qon_companions.parameters import BadValueError, Fault, Parameter, Place, typed


class Node:
    """One line of the tree.  `name` is what paths use, `children` are in the order to show them."""

    kind: ClassVar[str] = ""

    def __init__(self, name: str, parent: Node | None) -> None:
        self.name = name
        self.parent = parent
        self.children: list[Node] = []
        self._by_name: dict[str, Node] = {}

    def add(self, child: Node) -> None:
        """Append a child."""
        self.children.append(child)
        self._by_name.setdefault(child.name, child)

    @property
    def path(self) -> str:
        """The names from below the root to here, such as "instruments/main/psu_resource"; "" for the root."""
        if self.parent is None:
            return ""
        above = self.parent.path
        return f"{above}/{self.name}" if above else self.name

    @property
    def changed(self) -> bool:
        """Whether a parameter here or below differs from what is stored."""
        return any(child.changed for child in self.children)

    @property
    def locked(self) -> str:
        """Why nothing here can be changed and saved; "" when it can."""
        return self.parent.locked if self.parent else ""

    def child(self, name: str) -> Node | None:
        """The child of this name."""
        return self._by_name.get(name)

    def walk(self) -> Iterator[ParameterNode]:
        """The parameters here and below."""
        for child in self.children:
            yield from child.walk()

    def revert(self) -> None:
        """Undo every change here and below that was not saved."""
        for child in self.children:
            child.revert()

    def __repr__(self) -> str:
        return f"<{type(self).__name__} {self.path or self.name}>"


class DirectoryNode(Node):
    """A directory; the root's name is the directory as it was loaded."""

    kind = "directory"


class WorkbookNode(Node):
    """A workbook, named without its ending."""

    kind = "workbook"

    def __init__(self, name: str, parent: Node, file: Path) -> None:
        super().__init__(name, parent)
        self.file = file
        # The place of a formula that a parameter's cell holds: saving would lose its result.
        self.formula = ""

    @property
    def locked(self) -> str:
        if not self.formula:
            return ""
        return f"{self.formula} is a formula; change this workbook in a spreadsheet program."


class SheetNode(Node):
    """A sheet with parameters."""

    kind = "sheet"


class ParameterNode(Node):
    """A parameter; it has no children."""

    kind = "parameter"

    def __init__(self, parent: Node, parameter: Parameter) -> None:
        super().__init__(parameter.name, parent)
        self.parameter = parameter
        self._stored = parameter.copy()

    @property
    def value(self) -> Any:
        """The value; setting one that type or limits forbid raises BadValueError and changes nothing."""
        return self.parameter.value

    @value.setter
    def value(self, value: Any) -> None:
        with self._placed():
            self.parameter.set_value(value)

    @property
    def text(self) -> str:
        """The value as it is shown and typed."""
        return self.parameter.text

    @property
    def stored_text(self) -> str:
        """The value that is stored, for an editor to show beside a changed one."""
        return self._stored.text

    def check(self, text: str) -> Any:
        """The value that a typed text stands for; BadValueError says what is wrong with it.

        `error.faults[0].text` is the reason alone, for showing it at the field.
        """
        with self._placed():
            value = self.parameter.check(text)
            if value is None and self._stored.value is not None:
                raise BadValueError(
                    Fault(Place(variable=self.name), f"a value of type {self.parameter.type} is needed.")
                )
        return value

    def set_text(self, text: str) -> None:
        """Change the value to what a person typed; BadValueError, and no change, when that is not allowed."""
        self.parameter.value = self.check(text)

    @property
    def changed(self) -> bool:
        return bool(self.changed_fields())

    def changed_fields(self, parameter: Parameter | None = None) -> list[str]:
        """The fields of the parameter, or of a copy of it, that differ from what is stored."""
        now, then = parameter or self.parameter, self._stored
        kind = then.kind
        fields = [
            name
            for name in ("value", "low", "up")
            if not _same(kind, getattr(now, name), getattr(then, name))
        ]
        return fields + [name for name in ("desc", "unit") if getattr(now, name) != getattr(then, name)]

    def revert(self) -> None:
        for name in self.changed_fields():
            setattr(self.parameter, name, getattr(self._stored.copy(), name))

    def mark_stored(self, written: Parameter) -> None:
        """From now on this is the stored state."""
        self._stored = written

    def walk(self) -> Iterator[ParameterNode]:
        yield self

    def place(self) -> Place:
        """Where the parameter stands, for messages."""
        book = self.parent.parent if self.parent else None
        file = str(book.file) if isinstance(book, WorkbookNode) else ""
        return Place(file, self.parent.name if self.parent else "", variable=self.name)

    @contextlib.contextmanager
    def _placed(self) -> Iterator[None]:
        try:
            yield
        except BadValueError as error:
            place = self.place()
            raise error.placed(place.file, place.sheet) from None


def _same(kind: str, one: Any, other: Any) -> bool:
    """Compared as text, so that 1, 1.0 and true differ also within lists."""
    return typed.to_text(kind, one) == typed.to_text(kind, other)
