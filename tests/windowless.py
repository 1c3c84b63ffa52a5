"""A pytest plugin for an interpreter without wxPython: `pytest -p windowless` runs what opens no window.

`import wx` gives names alone, enough to define classes by.  Nothing of it can be made or called but the few harmless
things below, so that a test which does need a window fails instead of passing on an imitation.
"""

import importlib.util
import itertools
import sys
import threading
from importlib.machinery import ModuleSpec
from pathlib import Path
from types import ModuleType
from typing import Any, ClassVar

import pytest

HERE = Path(__file__).parent
NEEDS_WINDOWS = ("import wx", "from wx", "stationplugin")
_numbers = itertools.count(1)


class Nothing(type):
    """The type of every stand-in class."""

    def __getattr__(cls, name: str) -> Any:
        if name.startswith("__"):
            raise AttributeError(name)
        return StandIn.value(name)

    def __call__(cls, *args: Any, **kwargs: Any) -> Any:
        raise RuntimeError(f"{cls.__name__}: there is no wx here, this needs a window")


class StandIn(ModuleType):
    """A module of wx."""

    __path__: ClassVar[list[str]] = []

    def __getattr__(self, name: str) -> Any:
        if name.startswith("__"):
            raise AttributeError(name)
        found = self.value(name)
        setattr(self, name, found)
        return found

    @staticmethod
    def value(name: str) -> Any:
        """A number for a constant, a class for everything else."""
        return next(_numbers) if name.isupper() or "_" in name else Nothing(name, (), {})


class Finder:
    """Finds `wx` and whatever is below it."""

    @staticmethod
    def find_spec(name: str, path: Any = None, target: Any = None) -> ModuleSpec | None:
        return ModuleSpec(name, Finder, is_package=True) if name.partition(".")[0] == "wx" else None

    @staticmethod
    def create_module(spec: ModuleSpec) -> ModuleType:
        return StandIn(spec.name)

    @staticmethod
    def exec_module(module: ModuleType) -> None:
        pass


def install() -> None:
    """Give `import wx` the stand-in."""
    sys.meta_path.append(Finder)
    import wx

    wx.PyEventBinder = type("PyEventBinder", (), {"__init__": lambda self, *args: None})
    wx.PyNoAppError = type("PyNoAppError", (RuntimeError,), {})
    wx.NewEventType = lambda: next(_numbers)
    wx.GetApp = lambda: None
    wx.IsMainThread = lambda: threading.current_thread() is threading.main_thread()


def needs_windows(file: Path) -> bool:
    text = file.read_text(encoding="utf-8")
    return any(word in text for word in NEEDS_WINDOWS)


def pytest_ignore_collect(collection_path: Path) -> bool | None:
    is_test = collection_path.parent == HERE and collection_path.name.startswith("test_")
    return True if is_test and needs_windows(collection_path) else None


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    windowed = [item for item in items if "app" in getattr(item, "fixturenames", ())]
    config.hook.pytest_deselected(items=windowed)
    items[:] = [item for item in items if item not in windowed]


if importlib.util.find_spec("wx") is None:
    install()
