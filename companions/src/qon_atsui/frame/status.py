"""The status bar: hints of the commands at its left, a field for each part of the station that tells something."""

from __future__ import annotations

import wx
from qon_companions import notices

from qon_atsui import notice_board
from qon_atsui.texts import displayable

_PADDING = 24  # DIP; a field's frame and the room beside its text
_LONGEST = 120  # characters of a field


class StatusBar(wx.StatusBar):
    """The hints' field is the first one and takes the room that the others leave."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self._shown: list[str] = []
        notice_board.watch(self)

    def _ui_notices(self) -> None:
        texts = [displayable(text, _LONGEST) for text in notices.status_fields()]
        if len(texts) != len(self._shown):
            self.SetFieldsCount(1 + len(texts))
        if texts != self._shown:
            widths = [self.GetTextExtent(text)[0] + self.FromDIP(_PADDING) for text in texts]
            self.SetStatusWidths([-1, *widths])
            for field, text in enumerate(texts, 1):
                self.SetStatusText(text, field)
            self._shown = texts
