"""Run code in the GUI thread, from whatever thread calls."""

import contextlib
import logging
import threading
import time
from collections.abc import Callable
from concurrent.futures import Future, wait
from typing import Any, ParamSpec, TypeVar

import wx

P = ParamSpec("P")
R = TypeVar("R")

POLL_SECONDS = 0.2
# A waiting thread gives up when no event loop was seen for this long: start-up, shut-down or a broken program.
NO_LOOP_SECONDS = 5.0

log = logging.getLogger(__name__)


def is_gui_thread() -> bool:
    """True in the thread that owns the windows."""
    return bool(wx.IsMainThread())


def call(function: Callable[P, R], *args: P.args, **kwargs: P.kwargs) -> R:
    """Run the function in the GUI thread and return its result or raise its exception.

    Another thread waits as long as the function needs (a dialog may stay open for hours), but not for an
    application that will never get to it: then RuntimeError is raised, and the function is not run later.
    """
    if is_gui_thread():
        return function(*args, **kwargs)
    if wx.GetApp() is None:
        raise RuntimeError(_text(function, "there is no application object (wx.App)"))
    future: Future[R] = Future()
    with contextlib.suppress(AssertionError):  # the application went since the check: _wait tells
        wx.CallAfter(_Call(future, function, args, kwargs))
    reason = _wait(future)
    if reason:
        raise RuntimeError(_text(function, reason))
    try:
        return future.result()
    finally:
        del future  # its exception holds this frame: no cycle for the collector


def post(function: Callable[P, Any], *args: P.args, **kwargs: P.kwargs) -> None:
    """Run the function in the GUI thread: at once when this is it, otherwise as soon as it gets to it.

    A method of a window that is destroyed by then, or a call without an application, is dropped.
    """
    if is_gui_thread():
        function(*args, **kwargs)
        return
    try:
        wx.CallAfter(_run_if_alive, function, args, kwargs)
    except AssertionError:
        log.debug("%s dropped: there is no application object", _name(function))


def _run_if_alive(function: Callable[..., Any], args: tuple[Any, ...], kwargs: dict[str, Any]) -> None:
    owner = getattr(function, "__self__", None)
    if isinstance(owner, wx.Window) and not owner:
        log.debug("%s dropped: its window is destroyed", _name(function))
        return
    function(*args, **kwargs)


class _Call:
    """GUI thread: either this runs the function or the waiting thread cancelled it, never both."""

    def __init__(self, future: Future[Any], function: Callable[..., Any], args: Any, kwargs: Any) -> None:
        self.function = function  # seen by those who let questions wait
        self._future, self._args, self._kwargs = future, args, kwargs

    def __call__(self) -> None:
        if not self._future.set_running_or_notify_cancel():
            return
        try:
            result = self.function(*self._args, **self._kwargs)
        except BaseException as error:  # noqa: BLE001 - it belongs to the thread that waits for it
            self._future.set_exception(error)
        else:
            self._future.set_result(result)


def _wait(future: Future[Any]) -> str:
    """Wait for the function's end; the reason when it had to be cancelled instead."""
    loop_seen = time.monotonic()
    while not wait([future], POLL_SECONDS).done:
        now = time.monotonic()
        if wx.EventLoopBase.GetActive() is not None:
            loop_seen = now
        reason = _hopeless(now - loop_seen)
        if reason and future.cancel():
            return reason
    return ""


def _hopeless(seconds_without_loop: float) -> str:
    if not threading.main_thread().is_alive():
        return "the program is ending"
    if wx.GetApp() is None:
        return "the application object is gone"
    if seconds_without_loop >= NO_LOOP_SECONDS:
        return f"no event loop has run for {NO_LOOP_SECONDS:g} s (start wx.App.MainLoop, or it has ended)"
    return ""


def _name(function: Callable[..., Any]) -> str:
    return getattr(function, "__qualname__", None) or repr(function)


def _text(function: Callable[..., Any], reason: str) -> str:
    return f"{_name(function)} cannot be run in the GUI thread: {reason}."
