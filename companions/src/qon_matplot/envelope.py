"""Lines of many points, drawn as what the screen can show of them."""

from __future__ import annotations

from typing import Any

import numpy as np
from matplotlib.artist import Artist
from matplotlib.axes import Axes
from matplotlib.backend_bases import RendererBase
from matplotlib.backends.backend_agg import RendererAgg
from matplotlib.colors import to_rgba
from matplotlib.lines import Line2D
from matplotlib.patches import Polygon
from matplotlib.transforms import IdentityTransform
from numpy.typing import NDArray

from .matplotlib_private import become, spare_label_places

Floats = NDArray[np.float64]

# Points in a pixel column from which on a line is drawn as an area.
CROWDED = 4
# Samples of the area's edges in a pixel column; they make the steps between its grey levels.
_SAMPLES = 4


def envelope(x: Floats, y: Floats, width: float) -> Floats | None:
    """The outline of what a round pen of that width covers on its way through the points; all in pixels.

    The points that the pen touches from one place are neighbours on the line, so it covers all between the
    lowest and the highest of them.  None when somewhere no point is near.
    """
    column = np.floor((x - x[0]) * _SAMPLES).astype(int)
    starts = np.flatnonzero(np.diff(column, prepend=-1))
    highest, lowest = np.full((2, column[-1] + 1), -np.inf)
    highest[column[starts]] = np.maximum.reduceat(y, starts)
    lowest[column[starts]] = np.maximum.reduceat(-y, starts)
    radius = width / 2 * _SAMPLES
    reach = int(radius)
    upper, lower = np.full((2, len(highest) + 2 * reach), -np.inf)
    for aside in range(-reach, reach + 1):
        rise = (radius**2 - aside**2) ** 0.5 / _SAMPLES
        touched = slice(reach + aside, reach + aside + len(highest))
        np.maximum(upper[touched], highest + rise, out=upper[touched])
        np.maximum(lower[touched], lowest + rise, out=lower[touched])
    if np.isinf(upper).any():
        return None
    at = x[0] + (np.arange(len(upper)) - reach + 0.5) / _SAMPLES
    return np.column_stack((np.append(at, at[::-1]), np.append(upper, -lower[::-1])))


class EnvelopeLine(Line2D):
    """A line that keeps all its points and is drawn, where they crowd, as the area its pen would cover.

    The pen would go up and down in each pixel column a dozen times, which takes ten times as long.  A line
    with markers, dashes or effects, transparent, with gaps, with x values out of order or on an axis that is not
    linear is drawn point by point, and so is one that has room for its points.
    """

    def draw(self, renderer: RendererBase) -> None:
        outline = self._outline(renderer) if self.get_visible() and self._is_plain() else None
        if outline is None:
            super().draw(renderer)
            return
        area = Polygon(outline, facecolor=self.get_color(), linewidth=0)
        Artist.update_from(area, self)  # the clipping
        area.set(transform=IdentityTransform(), antialiased=self.get_antialiased())
        area.draw(renderer)
        self.stale = False

    def _is_plain(self) -> bool:
        return (
            self.get_linestyle() == "-"
            and self.get_drawstyle() == "default"
            and self.get_marker() in ("None", "none", None, "", " ")
            and not self.get_path_effects()
            and self.get_sketch_params() is None
            and to_rgba(self.get_color(), self.get_alpha())[3] == 1.0
        )

    def _outline(self, renderer: RendererBase) -> Floats | None:
        """Of the visible part, in pixels; None when the line has to be drawn point by point."""
        axes, transform = self.axes, self.get_transform()
        x, y = (
            np.asarray(values, float) for values in (self.get_xdata(orig=False), self.get_ydata(orig=False))
        )
        if axes is None or len(x) < 2 or not isinstance(renderer, RendererAgg):
            return None
        if not (transform.is_affine and transform.is_separable):
            return None
        low, high = sorted(axes.get_xbound())
        first, last = np.searchsorted(x, low), np.searchsorted(x, high, side="right")
        visible = slice(max(0, first - 1), last + 1)
        (x_scale, _, x_shift), (_, y_scale, y_shift), _ = transform.get_matrix()
        x, y = x[visible] * x_scale + x_shift, y[visible] * y_scale + y_shift
        if not len(x) or not (np.isfinite(x).all() and np.isfinite(y).all()) or (np.diff(x) < 0).any():
            return None
        if len(x) < CROWDED * (x[-1] - x[0] + 1):
            return None
        outside = axes.bbox.height
        np.clip(y, axes.bbox.y0 - outside, axes.bbox.y1 + outside, out=y)
        return envelope(x, y, renderer.points_to_pixels(self.get_linewidth()))


class PlotAxes(Axes):
    """Axes whose `plot` draws long lines fast."""

    def __init__(self, *args: Any, **kwargs: Any) -> None:
        super().__init__(*args, **kwargs)
        spare_label_places(self)

    def add_line(self, line: Line2D) -> Line2D:
        become(line, EnvelopeLine)
        return super().add_line(line)
