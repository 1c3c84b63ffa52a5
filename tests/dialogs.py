"""An operator for tests of modal dialogs: works in the dialog's own event loop, with real keys and clicks."""

import time
from collections.abc import Callable, Iterator
from typing import Any, Self

import wx
from qon_companions.boxes import TurnDialog
from support import pump

Steps = Callable[[], Iterator[Any]]
SECONDS = 8.0


class Operator:
    """Runs steps, a generator that yields what to wait for: a condition, or seconds.

    with Operator(steps):
        answer = dialog.ShowModal()
    """

    def __init__(self, steps: Steps) -> None:
        self._steps = steps()
        self._until: Callable[[], Any] = lambda: True
        self._deadline = 0.0
        self._error: BaseException | None = None
        self._over = False
        self._timer = wx.Timer()
        self._timer.Bind(wx.EVT_TIMER, lambda event: self._go_on())

    def __enter__(self) -> Self:
        self._wait_for(lambda: True)
        self._timer.Start(15)
        return self

    def __exit__(self, kind: type[BaseException] | None, *_error: object) -> None:
        if kind is None:  # the last step may still wait for what the answer did
            pump(lambda: self._over or self._error, SECONDS, "the operator comes to an end")
        self._timer.Stop()
        if self._error is not None:
            raise self._error

    def _go_on(self) -> None:
        self._timer.Stop()  # a step may run an event loop of its own
        try:
            if self._until():
                waited = next(self._steps)
                self._wait_for(waited)
            assert time.monotonic() < self._deadline, "what the operator waits for does not happen"
            self._timer.Start(15)
        except StopIteration:
            self._over = True
        except BaseException as error:  # noqa: BLE001 - raised when the dialog is closed
            self._error = error
            give_up()

    def _wait_for(self, told: Any) -> None:
        self._deadline = time.monotonic() + SECONDS
        self._until = told if callable(told) else lambda: True
        if isinstance(told, float):
            end = time.monotonic() + told
            self._until = lambda: time.monotonic() >= end


def give_up() -> None:
    """End every modal dialog, so that the test can fail instead of hanging."""
    for window in reversed(list(wx.GetTopLevelWindows())):
        if isinstance(window, TurnDialog) or (isinstance(window, wx.Dialog) and window.IsModal()):
            window.EndModal(wx.ID_CANCEL)


def on_screen() -> list[TurnDialog]:
    """The boxes that an operator sees."""
    return [
        window for window in wx.GetTopLevelWindows() if isinstance(window, TurnDialog) and window.IsShown()
    ]


def box() -> Any:
    """The one box on the screen, else None."""
    boxes = on_screen()
    assert len(boxes) < 2, "two boxes at the same time"
    return boxes[0] if boxes and boxes[0].IsModal() else None


def texts(window: wx.Window) -> str:
    """All texts in a window, wrapped lines joined."""
    parts = [window.GetLabelText()] if isinstance(window, wx.StaticText) and window.IsShown() else []
    parts += [window.GetValue()] if isinstance(window, wx.TextCtrl) else []
    return " ".join(" ".join(parts + [texts(child) for child in window.GetChildren()]).split())


def click(window: wx.Window) -> None:
    simulator = wx.UIActionSimulator()
    simulator.MouseMove(window.ClientToScreen(wx.Point(*(window.GetClientSize() / 2))))
    simulator.MouseClick()


def press(window: wx.Window, key: int, modifiers: int = wx.MOD_NONE) -> None:
    """A key; without a window manager it goes to the window under the mouse."""
    simulator = wx.UIActionSimulator()
    simulator.MouseMove(window.GetScreenPosition() + wx.Point(6, 6))
    simulator.Char(key, modifiers)


def scan(window: wx.Window, text: str, enter: bool = True) -> None:
    """As a barcode scanner types."""
    simulator = wx.UIActionSimulator()
    simulator.MouseMove(window.GetScreenPosition() + wx.Point(6, 6))
    simulator.Text(text.encode())
    if enter:
        simulator.Char(wx.WXK_RETURN)
