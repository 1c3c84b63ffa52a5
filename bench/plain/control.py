"""Pause, abort and sleep of a test cell: the script notices them at its check points."""

import threading
import time
from collections.abc import Callable
from typing import Any

from .checks import as_float, wrong
from .records import UserAbortError


class Control:
    _pause_event: threading.Event
    _pause_flag: bool
    _abort_flag: bool
    _result_description: str

    def pause(self) -> None:
        self._pause_event.clear()
        self._pause_flag = True
        if self.is_in_cell_test_thread():
            self.check_abort()

    def resume(self) -> None:
        self._pause_event.set()

    def check_pause(self) -> None:
        if self.is_paused():
            self._pause_event.wait()
            self._pause_flag = False

    def abort(self, description: str = "") -> None:
        if not isinstance(description, str):
            raise wrong("description", description, "str")
        self._abort_flag = True
        self._result_description = description
        self._pause_event.set()
        if self.is_in_cell_test_thread():
            self.check_abort()

    def check_abort(self) -> None:
        if not self.is_in_cell_test_thread():
            raise AttributeError("Not in cell test thread.")
        self.check_pause()
        if self._abort_flag:
            raise UserAbortError

    def is_aborted(self) -> bool:
        return self._abort_flag and (self.is_in_cell_test_thread() or self.has_done())

    def debug_pause(self) -> None:
        if self.is_in_debug_mode():
            self.pause()

    def sleep(self, seconds: float, check_interval: float = 0.1) -> None:
        seconds, check_interval = as_float("seconds", seconds), as_float("check_interval", check_interval)
        if check_interval == 0:
            raise ZeroDivisionError("float division")
        ratio = seconds / check_interval
        if ratio < 1.0:
            time.sleep(seconds)
            self.check_abort()
            return
        start = time.time()
        end = start + seconds
        slices_end = start + check_interval * int(ratio)
        while time.time() < slices_end:
            time.sleep(check_interval)
            self.check_abort()
        now = time.time()
        if now < end:
            time.sleep(end - now)
            self.check_abort()

    def pausable(self, func: Callable[..., Any]) -> Callable[..., Any]:
        def wrapper(*args: Any) -> Any:
            self.check_pause()
            result = func(*args)
            self.check_pause()
            return result

        return wrapper

    def abortable(self, func: Callable[..., Any]) -> Callable[..., Any]:
        def wrapper(*args: Any) -> Any:
            self.check_abort()
            result = func(*args)
            self.check_abort()
            return result

        return self.pausable(wrapper)
