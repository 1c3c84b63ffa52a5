"""What a test script derives from."""

import threading
from abc import ABC, abstractmethod
from collections.abc import Callable
from typing import Any

from .checks import wrong
from .records import UUT, Assertion


class CallUserFunctionInfo:
    """A call handed to the GUI thread."""

    def __init__(self, function: Callable[..., Any], wait: bool, *args: Any, **kwargs: Any) -> None:
        if not isinstance(wait, bool):
            raise wrong("wait", wait, "bool")
        self.function = function
        self.arg = args
        self.kwarg = kwargs
        self.event = threading.Event() if wait else None
        self.result: Any = None

    def __call__(self) -> None:
        self.result = self.function(*self.arg, **self.kwarg)
        if self.event is not None:
            self.event.set()

    def wait(self) -> None:
        if self.event is None:
            raise TypeError("Not a waitable object")
        self.event.wait()


class CellRunnerBase(ABC):
    """The base of every script's runner; it holds no state of the test."""

    def __init__(self) -> None:
        cell = threading.current_thread().cell_proxy  # type: ignore[attr-defined]
        self._cell = cell
        self._frame = cell.main_frame
        self._abort_event = None

    @abstractmethod
    def run(self) -> None:
        self.print(f"Hello, this is {self.get_cell_name()}.")

    @abstractmethod
    def cleanup(self) -> None:
        """Called once after the script, however it ended."""

    @staticmethod
    def _to_bool(value: Any) -> bool:
        if isinstance(value, bool):
            return value
        if isinstance(value, str):
            return value != "" and value[0].upper() in "TYPO"
        if isinstance(value, bytes):
            return value != b"" and value[:1].upper() in b"TYPO"
        return bool(value != 0)

    @property
    def noumenon(self) -> Any:
        return self._cell

    @property
    def cell_config(self) -> Any:
        return self._cell.cell_config

    @property
    def uut(self) -> UUT:
        return self._cell.uut

    def get_cell_name(self) -> str:
        return self._cell.get_cell_name()

    def append(self, assertion: Assertion, stop_if_ng: bool | None = None) -> None:
        if not isinstance(assertion, Assertion):
            raise wrong("assertion", assertion, "Assertion")
        if stop_if_ng is not None and not isinstance(stop_if_ng, bool):
            raise wrong("stop_if_ng", stop_if_ng, "bool")
        return self._cell.append(assertion, stop_if_ng)

    def sleep(self, seconds: float, check_interval: float = 0.1) -> None:
        return self._cell.sleep(seconds, check_interval)

    def done(self) -> None:
        return self._cell.done()

    def abort(self, description: str = "") -> None:
        return self._cell.abort(description)

    def check_abort(self) -> None:
        return self._cell.check_abort()

    def print(self, message: Any, end: str = "\n") -> None:
        return self._cell.print(message, end)

    def assert_limits(
        self,
        name: str,
        value: Any,
        lower: Any,
        upper: Any,
        unit: str | None = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        if not isinstance(name, str):
            raise wrong("name", name, "str")
        if unit is not None and not isinstance(unit, str):
            raise wrong("unit", unit, "str")
        if stop_if_ng is not None and not isinstance(stop_if_ng, bool):
            raise wrong("stop_if_ng", stop_if_ng, "bool")
        if category is not None and not isinstance(category, str):
            raise wrong("category", category, "str")
        return self._cell.assert_with_limits(name, value, lower, upper, unit, None, stop_if_ng, category)

    def assert_result(
        self,
        name: str,
        value: Any,
        result: Any,
        unit: str | None = "N/A",
        lower: Any = None,
        upper: Any = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        verdict = CellRunnerBase._to_bool(result)
        return self._cell.assert_with_result(name, value, verdict, unit, lower, upper, stop_if_ng, category)
