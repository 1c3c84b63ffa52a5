"""What was typed in the editor: accepted values, texts that were refused and why, and the steps to undo.

A refused text stays where it was typed until it is corrected; the parameter keeps its last good value meanwhile.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable
from dataclasses import dataclass
from typing import TYPE_CHECKING

from qon_companions.parameters import BadValueError

if TYPE_CHECKING:
    from qon_paratree import ParameterNode


@dataclass(frozen=True)
class Refusal:
    """A text that is no value for its parameter."""

    text: str
    reason: str


@dataclass(frozen=True)
class _Entry:
    node: ParameterNode
    before: str
    after: str


class Edits:
    """Changes of one loaded directory."""

    def __init__(self) -> None:
        self.refused: dict[ParameterNode, Refusal] = {}
        self._done: list[list[_Entry]] = []
        self._undone: list[list[_Entry]] = []

    def shown(self, node: ParameterNode) -> str:
        """The text in the parameter's field."""
        refusal = self.refused.get(node)
        return refusal.text if refusal else node.text

    def is_changed(self, node: ParameterNode) -> bool:
        return node in self.refused or node.changed

    def enter(self, node: ParameterNode, text: str) -> None:
        """Take a typed text: as the value, or as refused."""
        self._enter_all([_Entry(node, self.shown(node), text)])

    def revert(self, nodes: Iterable[ParameterNode]) -> None:
        """Back to what is stored; one step to undo."""
        changed = [node for node in nodes if self.is_changed(node)]
        self._enter_all([_Entry(node, self.shown(node), node.stored_text) for node in changed])

    def undo(self) -> ParameterNode | None:
        """Take the last step back; a parameter that it concerned, None when there is no step."""
        return self._move(self._done, self._undone, lambda entry: entry.before)

    def redo(self) -> ParameterNode | None:
        """The opposite of `undo`."""
        return self._move(self._undone, self._done, lambda entry: entry.after)

    @property
    def can_undo(self) -> bool:
        return bool(self._done)

    @property
    def can_redo(self) -> bool:
        return bool(self._undone)

    def _enter_all(self, entries: list[_Entry]) -> None:
        entries = [entry for entry in entries if entry.before != entry.after]
        for entry in entries:
            self._put(entry.node, entry.after)
        if entries:
            self._done.append(entries)
            self._undone.clear()

    def _move(
        self, source: list[list[_Entry]], target: list[list[_Entry]], text_of: Callable[[_Entry], str]
    ) -> ParameterNode | None:
        if not source:
            return None
        entries = source.pop()
        for entry in entries:
            self._put(entry.node, text_of(entry))
        target.append(entries)
        return entries[0].node

    def _put(self, node: ParameterNode, text: str) -> None:
        self.refused.pop(node, None)
        if text == node.stored_text:
            node.revert()  # exactly what is stored, whether typing it would be accepted or not
            return
        try:
            node.set_text(text)
        except BadValueError as error:
            self.refused[node] = Refusal(text, reason_of(error))


def reason_of(error: BadValueError) -> str:
    """What is wrong, without the place: it is shown there."""
    return "\n".join(fault.text for fault in error.faults)
