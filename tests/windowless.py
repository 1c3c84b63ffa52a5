"""A pytest plugin for an interpreter without wxPython: `pytest -p windowless` runs what opens no window.

`import wx` gives names alone, enough to define classes by.  Nothing of it can be made or called but the few harmless
things below, so that a test which does need a window fails instead of passing on an imitation.
"""

import importlib.util
import itertools
import sys
import threading
from importlib.machinery import ModuleSpec
from types import FunctionType, ModuleType
from typing import Any, ClassVar

import pytest

_numbers = itertools.count(1)


class Nothing(type):
    """The type of every stand-in class."""

    def __getattr__(cls, name: str) -> Any:
        if name.startswith("__"):
            raise AttributeError(name)
        return StandIn.value(name)


def refuse(self: Any, *_args: Any, **_kwargs: Any) -> None:
    """The constructor of every stand-in class."""
    raise RuntimeError(f"{type(self).__name__}: there is no wx here, this needs a window")


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
        return next(_numbers) if name.isupper() or "_" in name else Nothing(name, (), {"__init__": refuse})


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


STARTERS = {"subprocess", "python"}  # the second is that of support.py


def starts_a_process(function: FunctionType) -> bool:
    """Itself, or by a helper that it calls: a process of its own would import the real wx."""
    used = function.__code__.co_names
    helpers = [function.__globals__.get(name) for name in used]
    return any(
        STARTERS & {*each.__code__.co_names}
        for each in (function, *helpers)
        if isinstance(each, FunctionType)
    )


def needs_windows(item: pytest.Item) -> bool:
    """Itself, or what a fixture of its own makes ready."""
    known = getattr(item, "_fixtureinfo", None)
    fixtures = [found[-1].func for found in known.name2fixturedefs.values()] if known else []
    functions = [getattr(item, "function", None), *fixtures]
    return "app" in getattr(item, "fixturenames", ()) or any(
        isinstance(each, FunctionType) and starts_a_process(each) for each in functions
    )


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    windowed = [item for item in items if needs_windows(item)]
    config.hook.pytest_deselected(items=windowed)
    items[:] = [item for item in items if not needs_windows(item)]


if importlib.util.find_spec("wx") is None:
    install()
