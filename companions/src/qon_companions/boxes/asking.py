"""Questions that scripts ask wait while a box is open, so that one is over, and its script goes on, before the next.

A script's question comes as a call posted to the GUI thread.  Made while another box is open it would stand above
that one on the stack, and the answer to the first could not be handed over before the second one has its own.
"""

from collections.abc import Callable
from typing import Any, TypeVar

import wx

from . import loops, turns

F = TypeVar("F", bound=Callable[..., Any])

# What a cell hands to the GUI thread for its script.
_OF_A_CELL = ("_do_ask_true_or_false", "_do_input_text")

_waiting: list[Callable[[], Any]] = []
listeners: list[Callable[[Any, bool], None]] = []  # called with a question, and whether it has to wait


def opens_box(function: F) -> F:
    """Marks a function that shows a box and returns when it is answered."""
    vars(function)["opens_box"] = True
    return function


def has_to_wait(call: Any) -> bool:
    """Whether a posted call is a question that cannot be asked now; it is posted again later.  GUI thread."""
    function = getattr(call, "function", None)  # of those that a cell or another thread posts
    if function is None or not _asks(function):
        return False
    waits = turns.box_is_open()
    if waits:
        _waiting.append(call)
    for listener in listeners:
        listener(call, waits)
    return waits


def _asks(function: Any) -> bool:
    return getattr(function, "opens_box", False) or getattr(function, "__name__", "") in _OF_A_CELL


def _post_again() -> None:
    """Those that have to wait once more keep their order."""
    if not turns.box_is_open():
        calls, _waiting[:] = _waiting[:], []
        for call in calls:
            wx.CallAfter(call)


loops.when_left.append(_post_again)
