"""What tests of every topic use: event loop, an operator's hands, message boxes, workbooks, script files."""

import json
import os
import subprocess
import sys
import textwrap
import time
import uuid
from collections.abc import Callable, Iterable, Iterator, Mapping
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import openpyxl
import wx

PATIENCE = 60.0  # seconds until a test gives up: a loaded machine is slow, not wrong
HEADER = ("Test Item Name", "Default Value", "Lower Limit", "Upper Limit", "Unit", "Variable Name", "Type")


def pump(condition: Callable[[], Any], timeout: float = PATIENCE, what: str = "") -> Any:
    """Run the real event loop (events, CallAfter, timers, idle) until the condition holds: its value."""
    loop = wx.GUIEventLoop()
    activator = wx.EventLoopActivator(loop)
    deadline = time.monotonic() + timeout
    try:
        while True:
            dispatch(loop)
            if result := condition():
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
    pump(lambda: time.monotonic() >= end, seconds + PATIENCE)


def _describe(condition: Callable[[], Any]) -> str:
    code = getattr(condition, "__code__", None)  # native methods have none
    return f"{condition} ({Path(code.co_filename).name}:{code.co_firstlineno})" if code else repr(condition)


def in_thread(call: Callable[..., Any], *args: Any) -> Any:
    """What the call gives or raises in another thread; this one waits."""
    with ThreadPoolExecutor(1) as pool:
        return pool.submit(call, *args).result(PATIENCE)


# An operator's hands.  Without a window manager keys go to the window under the mouse.


def point(window: wx.Window | None, at: wx.Point) -> None:
    """Move the mouse to this point of the window."""
    if window is not None:
        wx.UIActionSimulator().MouseMove(window.ClientToScreen(at))


def click(window: wx.Window, at: wx.Point | None = None) -> None:
    """A click in the middle of the window, or at this point of it."""
    point(window, at or wx.Point(*(window.GetClientSize() / 2)))
    wx.UIActionSimulator().MouseClick()


def press(code: int | str, modifiers: int = wx.MOD_NONE, over: wx.Window | None = None) -> None:
    point(over, wx.Point(6, 6))
    wx.UIActionSimulator().Char(ord(code) if isinstance(code, str) else code, modifiers)


def scan(text: str, over: wx.Window | None = None, enter: bool = True) -> None:
    """As a barcode scanner types it: at once, with Enter behind it."""
    point(over, wx.Point(6, 6))
    wx.UIActionSimulator().Text(text.encode())
    if enter:
        press(wx.WXK_RETURN)


def has_focus(window: wx.Window) -> bool:
    return wx.Window.FindFocus() is window


def inside(window: wx.Window) -> Iterator[wx.Window]:
    """The window and all windows in it."""
    yield window
    for child in window.GetChildren():
        yield from inside(child)


def words(window: wx.Window) -> str:
    """All that is to be read in a window, wrapped lines joined."""
    parts = [
        part.GetLabelText() if isinstance(part, wx.StaticText) else part.GetValue()
        for part in inside(window)
        if isinstance(part, wx.TextCtrl) or (isinstance(part, wx.StaticText) and part.IsShown())
    ]
    return " ".join(" ".join(parts).split())


def python(
    *arguments: str, cwd: Path | None = None, timeout: float = 2 * PATIENCE, **environment: str
) -> subprocess.CompletedProcess[str]:
    """Python run as a program of its own, to its end; tests are found by it."""
    command, variables = [sys.executable, *arguments], os.environ | environment
    return subprocess.run(
        command, cwd=cwd, env=variables, timeout=timeout, capture_output=True, text=True, check=False
    )


@contextmanager
def shown(window: Any) -> Iterator[Any]:
    """A window on the screen for the length of a test."""
    window.Show()
    pump(lambda: window.IsShownOnScreen() and window.GetClientSize().width > 50)
    try:
        yield window
    finally:
        if window:
            window.Destroy()
        pump(lambda: not window)


class Boxes:
    """Stand-ins for the message boxes: they record kind, arguments and keywords, and answer with `answer`."""

    def __init__(self) -> None:
        self.answer: int = wx.YES
        self.shown: list[tuple[str, tuple[Any, ...], dict[str, Any]]] = []

    def stand_in(self, kind: str) -> Callable[..., int]:
        def box(*args: Any, **kwargs: Any) -> int:
            self.shown.append((kind, args, kwargs))
            return self.answer

        return box

    def of(self, *kinds: str) -> list[str]:
        """The messages of the boxes of these kinds, of all without one."""
        boxes = [(args, keywords) for kind, args, keywords in self.shown if kind in kinds or not kinds]
        return [keywords["message"] if "message" in keywords else args[0] for args, keywords in boxes]


# Files.


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


def unique_name() -> str:
    """Scripts are imported by their bare name: every test needs names of its own."""
    return f"script_{uuid.uuid4().hex[:12]}"


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
