"""A plot in a window, as matplotlib's own example for wx has it."""

import wx
from matplotlib.axes import Axes
from matplotlib.backends.backend_wxagg import FigureCanvasWxAgg, NavigationToolbar2WxAgg
from matplotlib.figure import Figure


class MatplotPanel(wx.Panel):
    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self.figure = Figure()
        self.canvas = FigureCanvasWxAgg(self, wx.ID_ANY, self.figure)
        self.toolbar = NavigationToolbar2WxAgg(self.canvas)
        self.toolbar.Realize()
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self.canvas, 1, wx.EXPAND)
        column.Add(self.toolbar, 0, wx.EXPAND)
        self.SetSizer(column)

    def subplots(self) -> tuple[Figure, Axes]:
        self.figure.clear()
        return self.figure, self.figure.subplots()

    def clear(self) -> None:
        self.figure.clear()

    def draw(self) -> None:
        self.canvas.draw()
