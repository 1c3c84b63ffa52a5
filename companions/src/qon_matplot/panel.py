"""A panel that holds a plot.  Matplotlib takes half a second to import, so that happens late and beside the work."""

from __future__ import annotations

import threading
from collections.abc import Callable
from typing import TYPE_CHECKING

import wx
from qon_companions.gui_thread import is_gui_thread, post
from qon_companions.i18n import _

if TYPE_CHECKING:
    from matplotlib.axes import Axes
    from matplotlib.figure import Figure

    from .plot import Plot

MIN_SIZE = (420, 280)  # DIP


class MatplotPanel(wx.Panel):
    """A plot with a tool bar for pan, zoom and save.  All calls belong to the GUI thread.

    The plot itself is made when it is used first.  The import starts in a thread as soon as the panel is seen.
    """

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self._plot: Plot | None = None
        self.before_drawing: Callable[[Axes], None] | None = None  # adds what belongs to the plot
        self._empty = wx.StaticText(self, label=_("No plot yet"), style=wx.ALIGN_CENTRE_HORIZONTAL)
        self._empty.SetForegroundColour(wx.SystemSettings.GetColour(wx.SYS_COLOUR_GRAYTEXT))
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self._empty, 1, wx.ALIGN_CENTRE_HORIZONTAL | wx.TOP, self.FromDIP(40))
        self.SetSizer(column)
        self.SetMinSize(self.FromDIP(wx.Size(*MIN_SIZE)))
        self.Bind(wx.EVT_PAINT, self._on_first_paint)
        self.Bind(wx.EVT_WINDOW_DESTROY, self._on_destroy)

    def subplots(self) -> tuple[Figure, Axes]:
        """An empty plot: its figure, and axes to plot into."""
        plot = self._needed()
        return plot.figure, plot.fresh_axes()

    def clear(self) -> None:
        """Remove the plot; `draw` shows that it is gone."""
        if self._plot is not None:
            self._plot.clear()

    def draw(self) -> None:
        """Show what was plotted."""
        if self._plot is not None:
            if self.before_drawing is not None:
                for axes in self._plot.figure.axes:
                    self.before_drawing(axes)
            self._plot.draw()

    @property
    def plot(self) -> Plot:
        """Figure, canvas and tool bar, for more than this panel offers."""
        return self._needed()

    def _needed(self) -> Plot:
        if not is_gui_thread():
            raise RuntimeError("A MatplotPanel can be used in the GUI thread only; hand the call over to it.")
        if self._plot is None:
            from .plot import Plot

            self._plot = Plot(self)
            self.GetSizer().Clear(delete_windows=True)
            self.GetSizer().Add(self._plot.canvas, 1, wx.EXPAND)
            self.GetSizer().Add(self._plot.toolbar, 0, wx.EXPAND)
            self.Layout()
        return self._plot

    def _on_first_paint(self, event: wx.PaintEvent) -> None:
        event.Skip()
        self.Unbind(wx.EVT_PAINT)
        threading.Thread(
            target=_import_ahead, args=(self._prepare,), name="matplotlib import", daemon=True
        ).start()

    def _prepare(self) -> None:
        """Make the first real plot a fast one: create everything, and draw text once."""
        if self._plot is None:
            self.subplots()
            self.draw()
            self.clear()
            self.draw()

    def _on_destroy(self, event: wx.WindowDestroyEvent) -> None:
        event.Skip()
        if event.GetEventObject() is self and self._plot is not None:
            self._plot.close()
            self._plot = None


def _import_ahead(then: Callable[[], None]) -> None:
    from . import plot  # noqa: F401 - what it takes is the import itself

    post(then)
