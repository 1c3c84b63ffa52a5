"""The parameters as scripts use them: by attribute, by path, and the whole directory to load and save."""

from __future__ import annotations

import difflib
import os
import threading
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from qon_companions.parameters import Parameter

from .loading import load_tree
from .nodes import DirectoryNode, Node, ParameterNode
from .saving import save_tree


class Branch:
    """A directory, workbook or sheet of the tree.

    `app_config.instruments.main.psu_resource` and `app_config["instruments/main/psu_resource"]` are the value
    of a parameter, to read and to set.  Names that are no Python names, or names of a method, need the path.
    """

    __slots__ = ("__weakref__", "_node")
    _node: Node

    def __init__(self, node: Node) -> None:
        object.__setattr__(self, "_node", node)

    def get(self, path: str, default: Any = None) -> Any:
        """The value of a parameter or a branch by path; the default when there is none."""
        node = _find(self._node, path)
        return default if node is None else _given(node)

    def parameter(self, path: str) -> Parameter:
        """A parameter with its limits, unit and type; KeyError when there is none."""
        node = self._need(path)
        if not isinstance(node, ParameterNode):
            raise KeyError(f'"{node.path}" is a {node.kind}, not a parameter.')
        return node.parameter

    def __getitem__(self, path: str) -> Any:
        return _given(self._need(path))

    def __setitem__(self, path: str, value: Any) -> None:
        node = self._need(path)
        if not isinstance(node, ParameterNode):
            raise KeyError(f'"{node.path}" is a {node.kind}; only parameters have a value.')
        node.value = value

    def __getattr__(self, name: str) -> Any:
        node = self._node.child(name)
        if node is None:
            raise AttributeError(_missing(self._node, name))
        return _given(node)

    def __setattr__(self, name: str, value: Any) -> None:
        try:
            self[name] = value
        except KeyError as error:
            raise AttributeError(error.args[0]) from None

    def __contains__(self, path: object) -> bool:
        return isinstance(path, str) and _find(self._node, path) is not None

    def __iter__(self) -> Iterator[str]:
        return iter([child.name for child in self._node.children])

    def __len__(self) -> int:
        return len(self._node.children)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *(name for name in self if name.isidentifier())]

    def __reduce__(self) -> tuple[Any, ...]:
        return Branch, (self._node,)

    def __repr__(self) -> str:
        return f"<{self._node.kind} {self._node.path or self._node.name}: {', '.join(self)}>"

    def _need(self, path: str) -> Node:
        node = _find(self._node, path)
        if node is None:
            raise KeyError(_missing(self._node, path))
        return node


class ParameterDirectory(Branch):
    """A directory tree of parameter workbooks, loaded as a whole."""

    __slots__ = ("_lock", "_path")
    _node: DirectoryNode
    _path: Path
    _lock: threading.Lock

    def __init__(self, path: str | os.PathLike[str], root: DirectoryNode) -> None:
        super().__init__(root)
        object.__setattr__(self, "_path", Path(os.path.abspath(path)))
        object.__setattr__(self, "_lock", threading.Lock())

    @classmethod
    def load(cls, path: str | os.PathLike[str]) -> ParameterDirectory:
        """Load all workbooks below the directory.

        FileNotFoundError when there is no such directory; WorkbookError with everything that is wrong in it.
        """
        return cls(path, load_tree(Path(os.path.abspath(path))))

    def __reduce__(self) -> tuple[Any, ...]:
        return ParameterDirectory, (self._path, self._node)

    @property
    def root(self) -> DirectoryNode:
        """The tree as an editor walks it."""
        return self._node

    @property
    def directory(self) -> Path:
        """Where it was loaded from."""
        return self._path

    @property
    def changed(self) -> bool:
        """Whether anything is not saved."""
        return self._node.changed

    def revert(self) -> None:
        """Undo everything that was not saved."""
        self._node.revert()

    def save(self, path: str | os.PathLike[str] | None = None) -> list[Path]:
        """Write the workbooks that changed, or that the target directory does not have; returns those written.

        Each file is replaced at once or stays as it was.  OSError names the file that could not be written.
        """
        with self._lock:
            return save_tree(self._node, self._path, Path(os.path.abspath(path or self._path)))


def _find(node: Node, path: str) -> Node | None:
    """The node at a path below this one; the name of a variable may hold a slash itself."""
    found = node.child(path)
    if found is not None:
        return found
    first, _, rest = path.strip("/").partition("/")
    below = node.child(first)
    if below is None or not rest:
        return below
    return _find(below, rest)


def _given(node: Node) -> Any:
    return node.value if isinstance(node, ParameterNode) else Branch(node)


def _missing(node: Node, path: str) -> str:
    """Names the longest part of the path that is there, and what is below it."""
    parts = path.strip("/").split("/")
    while len(parts) > 1 and (below := node.child(parts[0])) is not None:
        node, parts = below, parts[1:]
    names = [child.name for child in node.children]
    near = difflib.get_close_matches(parts[0], names, 1)
    hint = f' Did you mean "{near[0]}"?' if near else f" There are: {', '.join(names) or 'none'}."
    return f'There is no "{parts[0]}" in {node.kind} "{node.path or node.name}".{hint}'
