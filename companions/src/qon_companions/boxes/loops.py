"""Modal loops that are answered out of turn.

wx can end the innermost modal loop only.  A box that is answered while a later one's loop has not been left yet
(a third box waits in it for its turn) is hidden, and its own loop would go on for ever.
"""

from collections.abc import Callable

import wx

when_left: list[Callable[[], None]] = []  # called after a box or a modal dialog has ended


class Loops(wx.ModalDialogHook):
    """Keeps the stack of modal loops; one whose box has gone is left as soon as it is innermost.  GUI thread."""

    def __init__(self) -> None:
        super().__init__()
        self._open: list[wx.Dialog] = []
        self._covered: list[wx.Dialog] = []  # those of them that were in use when another one came

    def Enter(self, dialog: wx.Dialog) -> int:
        if self._open and self._open[-1] and self._open[-1].IsModal():
            self._covered.append(self._open[-1])
        self._open.append(dialog)
        return int(wx.ID_NONE)

    def Exit(self, dialog: wx.Dialog) -> None:
        while self._open and self._open.pop() is not dialog:
            pass  # a box that another hook kept from opening does not come here
        self._covered = [each for each in self._covered if each in self._open]
        wx.CallAfter(left)  # it still is modal
        if self._open and self._is_left_over(self._open[-1]):
            wx.CallAfter(self._leave, self._open[-1])

    def _is_left_over(self, dialog: wx.Dialog) -> bool:
        return bool(dialog) and dialog in self._covered and not dialog.IsModal()

    def _leave(self, dialog: wx.Dialog) -> None:
        if self._open and self._open[-1] is dialog and self._is_left_over(dialog):
            wx.EventLoopBase.GetActive().Exit()


def left() -> None:
    for call in when_left:
        call()


_loops: Loops | None = None


def watch() -> None:
    """From now on, for all dialogs of the process."""
    global _loops
    if _loops is None:
        _loops = Loops()
        _loops.Register()
