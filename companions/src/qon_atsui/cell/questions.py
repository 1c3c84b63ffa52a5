"""Which cell waits for an answer: boxes that belong to a cell, open or waiting for their turn, are noticed."""

from __future__ import annotations

import logging
import weakref

import wx
from qon_companions.boxes import loops, when_asked

from qon_atsui.cell.serial_entry import settle_focus

log = logging.getLogger(__name__)


class QuestionHook(wx.ModalDialogHook):
    """Hears of every modal box; a box belongs to the cell it hangs on or whose name it carries.

    A cell in `hosts` answers its name (`_ui_title`) and is told how many boxes it has (`_ui_questions`).
    """

    def __init__(self) -> None:
        super().__init__()
        self.hosts: weakref.WeakSet[wx.Window] = weakref.WeakSet()
        self._open: list[tuple[wx.Dialog, weakref.ref[wx.Window]]] = []

    def Enter(self, dialog: wx.Dialog) -> int:
        self._notice(dialog, opens=True)
        return int(wx.ID_NONE)

    def asked(self, dialog: wx.Dialog) -> None:
        """The box may have to wait for its turn; its cell waits from now on."""
        self._notice(dialog, opens=False)

    def _notice(self, dialog: wx.Dialog, opens: bool) -> None:
        try:
            host = self._host(dialog)
            if host is None:
                return
            if all(entry[0] is not dialog for entry in self._open):
                self._open.append((dialog, weakref.ref(host)))
                dialog.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)
                self._tell(host)
            if opens:
                place_over(dialog, host)
        except Exception:  # a box must open, whatever goes wrong here
            log.exception("A question was not noticed.")

    def Exit(self, dialog: wx.Dialog) -> None:
        self._forget(dialog)

    def _on_destroy(self, event: wx.WindowDestroyEvent) -> None:
        """A box that another hook kept from opening never reaches `Exit`."""
        event.Skip()
        self._forget(event.GetWindow())

    def _forget(self, dialog: wx.Window) -> None:
        for entry in [entry for entry in self._open if entry[0] is dialog or not entry[0]]:
            self._open.remove(entry)
            host = entry[1]()
            if host:
                self._tell(host)
                wx.CallAfter(settle_focus, host)  # an entry may have asked for the keyboard meanwhile

    def _tell(self, host: wx.Window) -> None:
        host._ui_questions(sum(1 for _dialog, reference in self._open if reference() is host))

    def _host(self, dialog: wx.Dialog) -> wx.Window | None:
        window = dialog.GetParent()
        while window is not None and window not in self.hosts:
            window = window.GetParent()
        if window is not None:
            return window
        title = dialog.GetTitle()
        return next((host for host in self.hosts if host and title and host._ui_title() == title), None)


_hook: QuestionHook | None = None


def watch(cell: wx.Window) -> None:
    """From now on the cell hears of its questions."""
    global _hook
    if _hook is None:
        _hook = QuestionHook()
        _hook.Register()
        loops.watch()
        when_asked.append(_hook.asked)
    _hook.hosts.add(cell)


def place_over(dialog: wx.Dialog, host: wx.Window) -> None:
    """Put the box over the cell that asks, below its band where the screen allows it."""
    if isinstance(dialog, (wx.FileDialog, wx.MessageDialog)) or not host.IsShownOnScreen():
        return  # the desktop places its own boxes
    screen = wx.Display(max(0, wx.Display.GetFromWindow(host))).GetClientArea()
    box, cell = dialog.GetSize(), host.GetScreenRect()
    x = min(max(cell.x + (cell.width - box.width) // 2, screen.x), screen.GetRight() - box.width)
    below_band = host.ui_prompt.GetScreenRect().GetBottom() + host.FromDIP(8)
    y = max(screen.y, min(below_band, screen.GetBottom() - box.height))
    dialog.SetPosition(wx.Point(x, y))
