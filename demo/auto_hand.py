"""Mouse and keyboard events, made by a process of its own.

wx handles events inside the calls that simulate them.  In the station's own process a question could open in
there, and nobody would be left to answer it.
"""

import select
import subprocess
import sys
from collections.abc import Iterator

import wx


class Hand:
    """Gives the process one order after the other; GUI thread, which it never keeps waiting."""

    def __init__(self) -> None:
        # GTK complains at each move over a window of another process; that is shown only with a real fault.
        self._process = subprocess.Popen(
            [sys.executable, __file__],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )

    def move(self, point: wx.Point) -> Iterator[None]:
        return self._do(f"move {point.x} {point.y}")

    def click(self) -> Iterator[None]:
        return self._do("click")

    def type(self, text: str) -> Iterator[None]:
        return self._do(f"type {text}")

    def press_enter(self) -> Iterator[None]:
        return self._do("enter")

    def select_all(self) -> Iterator[None]:
        return self._do("select-all")

    def close(self) -> None:
        self._process.communicate(timeout=10.0)

    def _do(self, order: str) -> Iterator[None]:
        """Until the events have been sent."""
        assert self._process.stdin and self._process.stdout
        self._process.stdin.write(order + "\n")
        self._process.stdin.flush()
        while not select.select([self._process.stdout], [], [], 0.0)[0]:
            yield
        if not self._process.stdout.readline():
            _, reason = self._process.communicate(timeout=10.0)
            raise RuntimeError(f'the process that makes events ended at "{order}": {reason}')
        yield


def main() -> None:
    application = wx.App()
    simulator = wx.UIActionSimulator()
    for line in sys.stdin:
        order, _, rest = line.rstrip("\n").partition(" ")
        if order == "move":
            simulator.MouseMove(*map(int, rest.split()))
        elif order == "click":
            simulator.MouseClick()
        elif order == "type":
            simulator.Text(rest.encode())
        elif order == "enter":
            simulator.Char(wx.WXK_RETURN)
        elif order == "select-all":
            simulator.Char(ord("A"), wx.MOD_CONTROL)
        else:
            raise ValueError(f'unknown order "{order}"')
        print("done", flush=True)
    application.Destroy()


if __name__ == "__main__":
    main()
