"""Puts the classes of a station where the engine looks for its own."""

import contextlib
from collections.abc import Callable
from typing import Any

import qon_ats

from .book import SafeBook
from .cell import StationCell
from .leftovers import watched
from .viewer import StationViewerFrame, StationViewerPanel

CLASSES: dict[str, type[Any]] = {
    "Cell": StationCell,
    "TestDataViewerFrame": StationViewerFrame,
    "TestDataViewerPanel": StationViewerPanel,
    "_Book": SafeBook,
}


def install() -> Callable[[], None]:
    """Frames that are built from now on are those of a station; returns what undoes it.

    A class that an application has put there itself, derived from the engine's, becomes a base of the station's.
    """
    stack = contextlib.ExitStack()
    for name, ours in CLASSES.items():
        there = getattr(qon_ats, name)
        if not issubclass(there, ours):
            setattr(qon_ats, name, _joined(ours, there))
            stack.callback(setattr, qon_ats, name, there)
    stack.enter_context(watched())
    return stack.pop_all().close


def _joined(ours: type[Any], there: type[Any]) -> type[Any]:
    """The station's class, with the application's own one below it where there is such a class."""
    return ours if there in ours.__mro__ else type(ours.__name__, (ours, there), {})
