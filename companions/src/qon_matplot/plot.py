"""The matplotlib side of the panel: figure, canvas, tool bar."""

import logging
from io import BytesIO
from pathlib import Path
from typing import Any, ClassVar

import matplotlib
import qon_wxtools
import wx
from matplotlib import font_manager
from matplotlib.axes import Axes
from matplotlib.backend_bases import KeyEvent, key_press_handler
from matplotlib.backends.backend_wx import NavigationToolbar2Wx
from matplotlib.backends.backend_wxagg import FigureCanvasWxAgg
from matplotlib.figure import Figure
from qon_companions.files import safe_name, with_suffix, write_atomically
from qon_companions.i18n import _

from .envelope import PlotAxes

# Matplotlib's default font has no Chinese glyphs; the first of these that is installed is asked for them.
_CHINESE_FONTS = (
    "Noto Sans CJK SC",
    "Source Han Sans SC",
    "Microsoft YaHei",
    "PingFang SC",
    "SimHei",
    "WenQuanYi Micro Hei",
    "WenQuanYi Zen Hei",
    "Noto Sans CJK JP",
    "Noto Serif CJK SC",
    "Arial Unicode MS",
)
# A line of ten thousand points is drawn in pieces and simplified by up to one pixel, which takes a third of the time.
_FAST_LINES = {"path.simplify_threshold": 1.0, "agg.path.chunksize": 1000}

_PICTURES = ("png", "svg", "pdf")  # as which a plot can be saved

# Milliseconds after a plot, and ticks of an axis, for the axes that are made ahead.
_SPARE_DELAY = 30
_SPARE_TICKS = 12

# Inches: room for tick labels and an axis label at the left, for a title at the top.
_LEFT, _RIGHT, _BOTTOM, _TOP = 0.85, 0.2, 0.55, 0.4


log = logging.getLogger(__name__)


class _ToolBar(NavigationToolbar2Wx):
    """Matplotlib's tool bar without the button that changes margins, and with the keys in its tool tips."""

    _shown: ClassVar[set[str | None]] = {"Home", "Back", "Forward", "Pan", "Zoom", "Save", None}

    def __init__(self, canvas: FigureCanvasWxAgg) -> None:
        tips = {
            "Home": _("Show the whole plot (H)"),
            "Back": _("Back to the view before (Backspace)"),
            "Forward": _("Forward to the next view (V)"),
            "Pan": _("Move the plot with the left button, stretch it with the right one (P)"),
            "Zoom": _("Zoom into a rectangle (O)"),
            "Save": _("Save the plot as a picture (S)"),
        }
        toolitems: Any = [
            (text, tips.get(text or ""), image, call)
            for text, _tip, image, call in NavigationToolbar2Wx.toolitems
            if text in self._shown
        ]
        self.toolitems = toolitems
        super().__init__(canvas)

    def save_figure(self, *_args: Any) -> None:
        """As a picture, whole or not at all; how that went is told.  The figure's label is the proposed name."""
        figure = self.canvas.figure
        name = safe_name(str(figure.get_label()), otherwise="plot")
        chosen = _asked_for_picture(self.GetParent(), name)
        if chosen is None:
            return
        path, kind = chosen
        try:
            path = with_suffix(path, f".{kind}")
            picture = BytesIO()
            figure.savefig(picture, format=kind)
            write_atomically(path, picture.getvalue())
        except Exception as error:
            log.exception("The picture %s could not be saved.", path)
            text = _("The picture could not be saved:\n{reason}")
            qon_wxtools.MB.Error(text.format(reason=error))
        else:
            qon_wxtools.MB.Notice(_("The picture was saved:\n{path}").format(path=path))


def _asked_for_picture(parent: wx.Window, name: str) -> tuple[Path, str] | None:
    dialog = wx.FileDialog(
        parent,
        _("Give a file name to save"),
        defaultFile=f"{name}.{_PICTURES[0]}",
        wildcard="|".join(f"{kind.upper()} (*.{kind})|*.{kind}" for kind in _PICTURES),
        style=wx.FD_SAVE | wx.FD_OVERWRITE_PROMPT,
    )
    try:
        if dialog.ShowModal() != wx.ID_OK:
            return None
        path = Path(dialog.GetPath())
        typed = path.suffix[1:].lower()
        return path, typed if typed in _PICTURES else _PICTURES[dialog.GetFilterIndex()]
    finally:
        dialog.Destroy()


class _Canvas(FigureCanvasWxAgg):
    """Painted by the paint event only, once for however many drawings, and never beside it."""

    def gui_repaint(self, drawDC: wx.DC | None = None) -> None:
        if drawDC is None:
            self.Refresh(False)
        else:
            super().gui_repaint(drawDC)


class Plot:
    """One figure on its canvas."""

    def __init__(self, parent: wx.Window) -> None:
        _prepare_matplotlib()
        self.figure = Figure()
        self.canvas = _Canvas(parent, wx.ID_ANY, self.figure)
        self.canvas.SetMinSize(wx.Size(1, 1))  # else it draws as if it had its first size, and is cut off
        self.toolbar = _ToolBar(self.canvas)
        self.toolbar.Realize()
        self.canvas.mpl_connect("key_press_event", self._on_key)
        self.canvas.mpl_connect("resize_event", lambda event: self._set_margins())
        self._spare: Axes | None = None
        self._spare_settings: Any = None
        self._idle = wx.CallLater(_SPARE_DELAY, self._make_spare)

    def fresh_axes(self) -> Axes:
        """New axes instead of those that were there."""
        self.clear()
        axes, self._spare = self._spare, None
        if axes is None or matplotlib.rcParams != self._spare_settings:
            axes = self._new_axes()
        else:
            self.figure.add_axes(axes)
        self._set_margins()
        self._idle.Start(_SPARE_DELAY)
        return axes

    def clear(self) -> None:
        for axes in self.figure.axes:
            self.figure.delaxes(axes)  # spares the figure emptying what is not used again
        self.figure.clear()
        self.toolbar.update()  # the views of the last plot are no views of this one

    def draw(self) -> None:
        self.canvas.draw()

    def close(self) -> None:
        """The window goes: let go of what refers to it."""
        self._idle.Stop()
        self._spare = None
        self.figure.clear()

    def _new_axes(self) -> Axes:
        axes: Axes = self.figure.add_subplot(axes_class=PlotAxes)
        return axes

    def _make_spare(self) -> None:
        """Axes with their ticks take longer to make than to draw: the next ones are made while nobody waits."""
        if self._spare is None:
            self._spare, self._spare_settings = self._new_axes(), matplotlib.rcParams.copy()
            for axis in (self._spare.xaxis, self._spare.yaxis):
                axis.get_major_ticks(_SPARE_TICKS)
            self.figure.delaxes(self._spare)

    def _set_margins(self) -> None:
        # Matplotlib's own layout engines would add half of the drawing time to each drawing.
        width, height = (max(side, 2.0) for side in self.figure.get_size_inches())
        self.figure.subplots_adjust(
            left=_LEFT / width, right=1 - _RIGHT / width, bottom=_BOTTOM / height, top=1 - _TOP / height
        )

    def _on_key(self, event: KeyEvent) -> None:
        if event.key in ("h", "home", "r", "left", "right", "backspace", "v", "p", "o", "s", "g"):
            key_press_handler(event, self.canvas, self.toolbar)


def _prepare_matplotlib() -> None:
    """Settings of the process; what the application has set itself stays."""
    settings: Any = matplotlib.rcParams
    defaults: Any = matplotlib.rcParamsDefault
    for name, value in _FAST_LINES.items():
        if settings[name] == defaults[name]:
            settings[name] = value
    if settings["font.family"] == defaults["font.family"]:
        installed = set(font_manager.get_font_names())
        chinese = next((name for name in _CHINESE_FONTS if name in installed), None)
        if chinese is not None:
            settings["font.family"] = [*defaults["font.family"], chinese]
