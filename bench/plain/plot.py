"""A plot in a window, as matplotlib's own example for wx has it; made when it is used first."""

from typing import Any

import wx


class MatplotPanel(wx.Panel):
    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self.SetSizer(wx.BoxSizer(wx.VERTICAL))
        self._figure: Any = None

    def _create(self) -> None:
        from matplotlib.backends.backend_wxagg import FigureCanvasWxAgg, NavigationToolbar2WxAgg
        from matplotlib.figure import Figure

        self._figure = Figure()
        self.canvas = FigureCanvasWxAgg(self, wx.ID_ANY, self._figure)
        toolbar = NavigationToolbar2WxAgg(self.canvas)
        toolbar.Realize()
        self.GetSizer().Add(self.canvas, 1, wx.EXPAND)
        self.GetSizer().Add(toolbar, 0, wx.EXPAND)
        self.Layout()

    def subplots(self) -> tuple[Any, Any]:
        if self._figure is None:
            self._create()
        self._figure.clear()
        return self._figure, self._figure.subplots()

    def clear(self) -> None:
        if self._figure is not None:
            self._figure.clear()

    def draw(self) -> None:
        if self._figure is not None:
            self.canvas.draw()
