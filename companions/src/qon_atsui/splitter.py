"""A splitter that keeps its proportion while its window is resized, until the operator moves its sash."""

from __future__ import annotations

import wx


class RatioSplitter(wx.SplitterWindow):
    """`ratio` is the share of the first pane."""

    def __init__(self, parent: wx.Window, ratio: float) -> None:
        super().__init__(parent, style=wx.SP_LIVE_UPDATE | wx.SP_THIN_SASH)
        self._ratio = ratio
        self._moved = False
        self.SetMinimumPaneSize(self.FromDIP(150))
        self.Bind(wx.EVT_SIZE, self._on_size)
        self.Bind(wx.EVT_SPLITTER_SASH_POS_CHANGED, self._on_moved)

    def _on_size(self, event: wx.SizeEvent) -> None:
        event.Skip()
        if self.IsSplit():
            size = self.GetClientSize()
            whole = size.width if self.GetSplitMode() == wx.SPLIT_VERTICAL else size.height
            if not self._moved:
                self.SetSashPosition(int(whole * self._ratio))

    def _on_moved(self, event: wx.SplitterEvent) -> None:
        event.Skip()
        if wx.GetMouseState().LeftIsDown() or wx.Window.GetCapture() is self:
            self._moved = True
