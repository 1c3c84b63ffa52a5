"""Which cell waits for an answer: boxes that belong to a cell, open or waiting for their turn, are noticed."""

from __future__ import annotations

import logging
import weakref
from typing import Any

import wx
from qon_companions.boxes import Box, TextBox, TurnDialog, asking, loops, turns
from qon_companions.i18n import _

from qon_atsui.cell.serial_entry import settle_focus
from qon_atsui.cell.text_question import TextQuestion

log = logging.getLogger(__name__)


class Questions(wx.ModalDialogHook):
    """Hears of every box; it belongs to the cell it hangs on or whose name it carries.

    A cell in `hosts` answers its name (`_ui_title`) and whether a test can be aborted (`_ui_can_abort`), is told what
    it is asked (`_ui_questions`), and can be told to abort (`_ui_abort`).
    """

    def __init__(self) -> None:
        super().__init__()
        self.hosts: weakref.WeakSet[wx.Window] = weakref.WeakSet()
        # Dialogs and posted calls that wait, with their cells and what they ask.
        self._open: list[tuple[Any, weakref.ref[wx.Window], str]] = []
        self._dropped: list[Any] = []  # posted calls of tests that were aborted before they could ask
        self._not_asked: weakref.WeakSet[wx.Window] = weakref.WeakSet()
        self._texts: list[TextQuestion] = []

    # Boxes that take turns.

    def asked(self, box: TurnDialog) -> None:
        """The box may have to wait for its turn; its cell waits from now on."""
        try:
            host = self._host(box)
            box.Bind(wx.EVT_CHAR_HOOK, self._on_key)
            if isinstance(box, Box):
                self._offer_abort(box, host)
            if host is not None and host in self._not_asked:
                self._not_asked.discard(host)
                self._tell(host)
                box.EndModal(wx.ID_CANCEL)
            elif host is not None:
                self._notice(box, host, getattr(box, "message", ""))
            if host is not None and isinstance(box, TextBox):
                self._texts.append(TextQuestion(box, host))
        except Exception:  # a box must open, whatever goes wrong here
            log.exception("A question was not noticed.")

    def answered(self, box: TurnDialog) -> None:
        self._forget(box)

    def _offer_abort(self, box: Box, host: wx.Window | None) -> None:
        if host is not None:
            box.belongs_to(host, host.ui_prompt)
            if host._ui_can_abort:
                box.offer(_("Abort test"), _("Abort the test of this cell"), host._ui_abort)
        elif any(cell._ui_can_abort for cell in self.hosts if cell):
            box.offer(_("Abort all"), _("Abort the tests of all cells (Shift+F5)"), self.abort_all)

    def waits(self, call: Any, waits: bool) -> None:
        """A script's question waits while another box is open, or is asked now."""
        self._open = [entry for entry in self._open if entry[0] is not call]
        host, text = self._of_call(call)
        if not waits and host is not None and call in self._dropped:
            self._dropped.remove(call)
            self._not_asked.add(host)
        if waits and host is not None:
            self._open.append((call, weakref.ref(host), text))
            self._tell(host)

    def _of_call(self, call: Any) -> tuple[wx.Window | None, str]:
        arguments, keywords = getattr(call, "arg", ()), getattr(call, "kwarg", {})
        host = getattr(call.function, "__self__", None)
        if host not in self.hosts:
            host = self._named(str(keywords.get("title", "")))
        text = keywords.get("question") or keywords.get("message") or (arguments[0] if arguments else "")
        return host, str(text)

    # Other dialogs.

    def Enter(self, dialog: wx.Dialog) -> int:
        if isinstance(dialog, TurnDialog):
            return int(wx.ID_NONE)
        try:
            dialog.Bind(wx.EVT_CHAR_HOOK, self._on_key)
            host = self._host(dialog)
            if host is not None and type(dialog) is wx.TextEntryDialog:
                answer = _ask_for_text(dialog, host)
                if answer is not None:
                    return answer
            if host is not None:
                self._notice(dialog, host, "")
                _place_over(dialog, host)
        except Exception:
            log.exception("A question was not noticed.")
        return int(wx.ID_NONE)

    def Exit(self, dialog: wx.Dialog) -> None:
        self._forget(dialog)

    # Scans.

    def answer(self, text: str) -> bool:
        """A scan answers the box that is shown when it is one of its words, or a text it asks for."""
        shown = [entry[0] for entry in self._open if isinstance(entry[0], TurnDialog) and entry[0].IsShown()]
        for box in shown:
            question = next((each for each in self._texts if each.box is box), None)
            if question is not None and question.wants_scans():
                question.enter(text)
                return True
            answers = getattr(box, "scanned", None)
            if answers is not None and answers(text):
                return True
        return False

    def mark_moved(self, by_hand: bool) -> None:
        """The questions say where the next scan goes."""
        self._texts = [each for each in self._texts if each.box]
        for each in self._texts:
            each.tell(give_up=by_hand)

    # All of them.

    def abort_all(self) -> None:
        for frame in {wx.GetTopLevelParent(host) for host in self.hosts if host}:
            getattr(frame, "_ui_abort_all", lambda: None)()

    def end(self, host: wx.Window) -> None:
        """The test is to be aborted: what it asks is asked no more."""
        for dialog in [entry[0] for entry in self._open if entry[1]() is host]:
            if not isinstance(dialog, wx.Dialog):
                self._dropped.append(dialog)
            elif dialog.IsModal():
                dialog.EndModal(wx.ID_CANCEL)

    def _on_key(self, event: wx.KeyEvent) -> None:
        if event.GetKeyCode() == wx.WXK_F5 and event.GetModifiers() == wx.MOD_SHIFT:
            self.abort_all()
        else:
            event.Skip()

    def _notice(self, dialog: wx.Dialog, host: wx.Window, text: str) -> None:
        if all(entry[0] is not dialog for entry in self._open):
            self._open.append((dialog, weakref.ref(host), text))
            dialog.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)
            self._tell(host)

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
        host._ui_questions([text for _dialog, reference, text in self._open if reference() is host])

    def _host(self, dialog: wx.Dialog) -> wx.Window | None:
        window = dialog.GetParent()
        while window is not None and window not in self.hosts:
            window = window.GetParent()
        return window if window is not None else self._named(dialog.GetTitle())

    def _named(self, title: str) -> wx.Window | None:
        return next((host for host in self.hosts if host and title and host._ui_title() == title), None)


_questions: Questions | None = None


def watch(cell: wx.Window) -> None:
    """From now on the cell hears of its questions."""
    global _questions
    if _questions is None:
        _questions = Questions()
        _questions.Register()
        loops.watch()
        turns.listeners.append(_questions)
        asking.listeners.append(_questions.waits)
    _questions.hosts.add(cell)


def answer(text: str) -> bool:
    """Whether an open question takes the scan for its answer."""
    return _questions is not None and _questions.answer(text)


def mark_moved(by_hand: bool = False) -> None:
    """Another cell takes the next scan; `by_hand` when the operator went to a cell."""
    if _questions is not None:
        _questions.mark_moved(by_hand)


def end(cell: wx.Window) -> None:
    """Close what the cell's test asks."""
    if _questions is not None:
        _questions.end(cell)


def _ask_for_text(dialog: wx.TextEntryDialog, host: wx.Window) -> int | None:
    """In place of wx's own box, which is small and keeps the station from being used; its text is set."""
    fields = [child for child in dialog.GetChildren() if isinstance(child, wx.TextCtrl)]
    if any(field.HasFlag(wx.TE_PASSWORD) or field.IsMultiLine() for field in fields):
        return None
    lines = [child.GetLabelText() for child in dialog.GetChildren() if isinstance(child, wx.StaticText)]
    box = TextBox(host, dialog.GetTitle(), "\n".join(lines), dialog.GetValue())
    try:
        answer = box.ShowModal()
        dialog.SetValue(box.text)
    finally:
        box.Destroy()
    return int(answer)


def _place_over(dialog: wx.Dialog, host: wx.Window) -> None:
    """Put the box over the cell that asks, below its band where the screen allows it."""
    if isinstance(dialog, (wx.FileDialog, wx.MessageDialog)) or not host.IsShownOnScreen():
        return  # the desktop places its own boxes
    screen = wx.Display(max(0, wx.Display.GetFromWindow(host))).GetClientArea()
    box, cell = dialog.GetSize(), host.GetScreenRect()
    x = min(max(cell.x + (cell.width - box.width) // 2, screen.x), screen.GetRight() - box.width)
    below_band = host.ui_prompt.GetScreenRect().GetBottom() + host.FromDIP(8)
    y = max(screen.y, min(below_band, screen.GetBottom() - box.height))
    dialog.SetPosition(wx.Point(x, y))
