"""Message boxes for whatever thread needs one."""

import logging
import sys
from typing import Any

import wx
from qon_companions import gui_thread
from qon_companions.boxes import Box, station_window
from qon_companions.boxes.asking import opens_box
from qon_companions.check_points import cell_of_thread
from qon_companions.i18n import _

log = logging.getLogger(__name__)


class MB:
    """Boxes that the operator closes, or answers with yes or no.

    Called in another thread than the GUI's, the GUI thread shows the box and the caller waits for the answer.
    When it can no longer be shown, because the program ends, the text goes to the log and the answer is no.
    A second text without a keyword is the other half of the box: the shorter of both becomes the heading.
    """

    @staticmethod
    @opens_box
    def Error(message: Any = "", *more: Any, title: Any = None) -> int:
        """Say what went wrong; wx.OK when the operator has closed the box."""
        return _show(_ErrorBox, message, more, title, wx.OK)

    @staticmethod
    @opens_box
    def Notice(message: Any = "", *more: Any, title: Any = None) -> int:
        """Tell something; wx.OK when the operator has closed the box."""
        return _show(_NoticeBox, message, more, title, wx.OK)

    @staticmethod
    @opens_box
    def Confirm(message: Any = "", *more: Any, title: Any = None) -> int:
        """Ask; wx.YES or wx.NO.  A box that is closed without an answer counts as no."""
        return _show(_ConfirmBox, message, more, title, wx.NO)


class _NoticeBox(Box):
    icon = wx.ART_INFORMATION
    copy = False
    level = logging.INFO

    def __init__(self, title: str, message: str) -> None:
        super().__init__(station_window(), title or self.default_title(), message, self.icon)
        long = message.count("\n") > 5
        self.build(self.answers(), self.hint(), self.copy or long)

    def default_title(self) -> str:
        return _("Notice")

    def answers(self) -> list[tuple[int, str]]:
        return [(wx.ID_OK, _("&OK"))]

    def hint(self) -> str:
        return ""

    def result(self, _answer: int) -> int:
        return int(wx.OK)

    def entered(self) -> None:
        self.EndModal(wx.ID_OK)


class _ErrorBox(_NoticeBox):
    icon = wx.ART_ERROR
    copy = True
    level = logging.ERROR

    def default_title(self) -> str:
        return _("Error")


class _ConfirmBox(_NoticeBox):
    icon = wx.ART_QUESTION

    def default_title(self) -> str:
        return _("Please confirm")

    def answers(self) -> list[tuple[int, str]]:
        return [(wx.ID_YES, _("&Yes")), (wx.ID_NO, _("&No"))]

    def hint(self) -> str:
        return _("Keys: Alt and the underlined letter, or Tab and the space bar.")

    def result(self, answer: int) -> int:
        return int(wx.YES if answer == wx.ID_YES else wx.NO)

    def entered(self) -> None:
        """A question has no default answer."""


def _show(kind: type[_NoticeBox], message: Any, more: tuple[Any, ...], title: Any, otherwise: int) -> int:
    heading, text = _texts(message, more, title)
    shows = getattr(cell_of_thread(), "show_message", None)  # a cell without windows says what becomes of boxes
    if shows is not None:
        return int(shows(text, otherwise))
    if kind is _ErrorBox:
        _log_handled(text)
    try:
        return gui_thread.call(_show_here, kind, heading, text)
    except (RuntimeError, wx.PyNoAppError) as error:  # no application, no event loop, or a window that went
        log.log(kind.level, "%s\n%s\n(not shown: %s)", heading, text, error)
        return otherwise


def _log_handled(text: str) -> None:
    """A box about the exception at hand: its traceback belongs to whoever mends it, with the cell it happened in."""
    error = sys.exc_info()[1]
    if error is not None and not text.startswith("Traceback"):
        cell = cell_of_thread()
        where = f"{cell.get_cell_name()}: " if cell is not None else ""
        log.error("%s%s", where, text.partition("\n")[0], exc_info=error)


@opens_box
def _show_here(kind: type[_NoticeBox], heading: str, text: str) -> int:
    box = kind(heading, text)
    log.log(kind.level, "%s\n%s", box.GetTitle(), text)
    try:
        result = box.result(box.ShowModal())
    finally:
        box.Destroy()
    if kind is _ConfirmBox:
        log.info("Answer: %s", "yes" if result == wx.YES else "no")
    return result


def _texts(message: Any, more: tuple[Any, ...], title: Any) -> tuple[str, str]:
    """Heading and message.  With two texts in a row callers disagree about which is the title."""
    texts = [str(text) for text in (message, *more) if text is not None]
    if title is not None or len(texts) < 2:
        return "" if title is None else str(title), "\n".join(texts)
    heading = min(texts, key=len)
    texts.remove(heading)
    return heading, "\n".join(texts)
