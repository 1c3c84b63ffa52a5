"""What the plots use of matplotlib beyond its documented interface, in this one place.

Only drawing becomes faster by it: with a version that it was not tried with, everything is drawn matplotlib's way.
"""

from __future__ import annotations

from typing import Any

import matplotlib
from matplotlib.axes import Axes
from matplotlib.axis import XAxis, YAxis
from matplotlib.backend_bases import RendererBase
from matplotlib.lines import Line2D

_TRIED = (3, 6), (3, 11)
KNOWN = _TRIED[0] <= tuple(matplotlib.__version_info__[:2]) <= _TRIED[1]


class _LabelPlace:
    """An axis without a label and an offset needs no place for them: finding it measures all tick labels again."""

    _bare = False  # while it is drawn without a label

    def draw(self, renderer: RendererBase) -> None:
        self._bare = not self.label.get_text()  # type: ignore[attr-defined]
        try:
            super().draw(renderer)  # type: ignore[misc]
        finally:
            self._bare = False

    def _get_ticklabel_bboxes(self, *args: Any, **kwargs: Any) -> tuple[list[Any], list[Any]]:
        if self._bare and not self.major.formatter.get_offset():  # type: ignore[attr-defined]
            return [], []
        found: tuple[list[Any], list[Any]] = super()._get_ticklabel_bboxes(*args, **kwargs)  # type: ignore[misc]
        return found

    def _update_label_position(self, renderer: RendererBase) -> None:
        if not self._bare:
            super()._update_label_position(renderer)  # type: ignore[misc]


class _XAxis(_LabelPlace, XAxis):
    pass


class _YAxis(_LabelPlace, YAxis):
    pass


def spare_label_places(axes: Axes) -> None:
    """The axes look for the place of a label only where there is one."""
    if KNOWN and type(axes.xaxis) is XAxis and type(axes.yaxis) is YAxis:
        axes.xaxis.__class__, axes.yaxis.__class__ = _XAxis, _YAxis


def become(line: Line2D, kind: type[Line2D]) -> None:
    """Make a line that `plot` has made one of another class, of which matplotlib offers no choice."""
    if KNOWN and type(line) is Line2D:
        line.__class__ = kind
