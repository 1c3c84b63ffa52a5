"""What tests of every topic use: the event loop, message boxes, workbooks and script files."""

import json
import textwrap
import time
import uuid
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import openpyxl
import wx

HEADER = ("Test Item Name", "Default Value", "Lower Limit", "Upper Limit", "Unit", "Variable Name", "Type")


def pump(condition: Callable[[], Any], timeout: float = 5.0, what: str = "") -> Any:
    """Run the real event loop (events, CallAfter, timers, idle) until the condition holds: its value."""
    loop = wx.GUIEventLoop()
    activator = wx.EventLoopActivator(loop)
    deadline = time.monotonic() + timeout
    try:
        while True:
            dispatch(loop)
            result = condition()
            if result:
                return result
            assert time.monotonic() < deadline, f"not within {timeout:g} s: {what or _describe(condition)}"
            time.sleep(0.001)
    finally:
        del activator


def dispatch(loop: wx.GUIEventLoop) -> None:
    """One turn of the loop; bounded, so that a timer of 0 ms cannot keep it for ever."""
    for _ in range(200):
        if not loop.Pending():
            break
        loop.Dispatch()
    wx.GetApp().ProcessPendingEvents()
    loop.ProcessIdle()


def pump_for(seconds: float) -> None:
    """Run the event loop for a fixed time: for tests that something does not happen."""
    end = time.monotonic() + seconds
    pump(lambda: time.monotonic() >= end, seconds + 5.0)


def _describe(condition: Callable[[], Any]) -> str:
    code = condition.__code__
    return f"{condition.__qualname__} ({Path(code.co_filename).name}:{code.co_firstlineno})"


@dataclass
class Box:
    """One message box that would have been shown."""

    kind: str
    args: tuple[Any, ...]
    kwargs: dict[str, Any]

    @property
    def texts(self) -> tuple[Any, ...]:
        return (*self.args, *self.kwargs.values())

    @property
    def text(self) -> str:
        """The message itself, however it was passed."""
        return self.kwargs.get("message", self.args[0] if self.args else "")


@dataclass
class Boxes:
    """Stand-ins for the message boxes: they record, and answer at once with `answer`."""

    answer: int = wx.YES
    shown: list[Box] = field(default_factory=list)

    def stand_in(self, kind: str) -> Callable[..., int]:
        def box(*args: Any, **kwargs: Any) -> int:
            self.shown.append(Box(kind, args, kwargs))
            return self.answer

        return box

    @property
    def texts(self) -> list[str]:
        return [box.text for box in self.shown]

    def of(self, kind: str) -> list[str]:
        return [box.text for box in self.shown if box.kind == kind]


def parameter_row(
    name: str, value: Any, lower: Any = None, upper: Any = None, unit: str = ""
) -> tuple[Any, ...]:
    kind = type(value).__name__ if isinstance(value, bool | int | float | str) else "json"
    stored = json.dumps(value) if kind == "json" else value
    return (name, stored, lower, upper, unit, name, kind)


def write_book(path: Path, sheets: Mapping[str, Iterable[tuple[Any, ...]] | Mapping[str, Any]]) -> Path:
    """Write a parameter workbook; a sheet is {key: value} or rows as `parameter_row` makes them."""
    book = openpyxl.Workbook()
    book.remove(book.active)
    for name, content in sheets.items():
        sheet = book.create_sheet(name)
        sheet.append(HEADER)
        rows = (parameter_row(k, v) for k, v in content.items()) if isinstance(content, Mapping) else content
        for row in rows:
            sheet.append(row)
    book.save(path)
    return path


def write_limits(path: Path, limits: Mapping[str, tuple[Any, Any]]) -> Path:
    """Write a limits workbook of numeric items: {item name: (lower, upper)}."""
    rows = [parameter_row(name, 0.0, lower, upper) for name, (lower, upper) in limits.items()]
    return write_book(path, {"limits": rows})


def unique_name(prefix: str = "script") -> str:
    """Scripts are imported by their bare name: every test needs names of its own."""
    return f"{prefix}_{uuid.uuid4().hex[:12]}"


RUNNER = """\
import threading, time
import qon_ats


class CellRunner(qon_ats.CellRunnerBase):
    def run(self):
{run}

    def cleanup(self):
{cleanup}
"""


def script_text(run: str, cleanup: str = "pass") -> str:
    """A whole script around the bodies of `run` and `cleanup`."""
    return RUNNER.format(run=_body(run), cleanup=_body(cleanup))


def _body(code: str) -> str:
    return textwrap.indent(textwrap.dedent(code).strip() or "pass", " " * 8)


def write_script(folder: Path, text: str, name: str = "") -> Path:
    path = folder / f"{name or unique_name()}.py"
    path.write_text(text, encoding="utf-8")
    return path
