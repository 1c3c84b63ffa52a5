"""What the plot of one item shows beside its values: the item's name, its limits, whole units to count by."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
from matplotlib.axes import Axes
from matplotlib.ticker import FuncFormatter, MaxNLocator
from qon_companions.i18n import _

from qon_atsui import palette

_FEW = 60  # values that are marked one by one; a single one would be no line at all
_LONGEST_NAME = 60
_BELOW = -22  # points, from the axis to the line below its numbers
_ROOM = 0.12  # of the height, above the upper limit and below the lower one, for their words
_LOOK: dict[str, Any] = {"color": palette.MUTED, "linestyle": "--", "linewidth": 1.2}

Limits = Sequence[float | None]  # one of each value


class _Counts(MaxNLocator):
    """Places values from 0 on so that round numbers stand where they are counted from 1 on."""

    def tick_values(self, vmin: float, vmax: float) -> Any:
        ticks = np.asarray(super().tick_values(vmin + 1, vmax + 1))
        return ticks[ticks >= 1] - 1


def complete(axes: Axes, title: str, lower: Limits, upper: Limits) -> None:
    """Add what belongs to the values that are plotted already."""
    for line in axes.get_lines():
        if len(line.get_xdata()) <= _FEW:  # type: ignore[arg-type]
            line.set_marker("o")
            line.set_markersize(4)
    axes.margins(y=_ROOM)
    axes.figure.set_label(title)
    name = title if len(title) <= _LONGEST_NAME else title[: _LONGEST_NAME - 1] + "\u2026"
    # Matplotlib's own title would measure all tick labels once more.
    _note(axes, name, (0.5, 1.0), (0, 7), "center", "bottom")
    axes.xaxis.set_major_locator(_Counts(nbins=10, integer=True, steps=[1, 2, 5, 10]))
    axes.xaxis.set_major_formatter(FuncFormatter(lambda place, _index: f"{round(place) + 1}"))
    _note(axes, _("Values in the order of the list"), (1.0, 0.0), (0, _BELOW), "right", "top")
    _draw_limit(axes, _("Upper"), upper, "bottom")
    _draw_limit(axes, _("Lower"), lower, "top")


def _draw_limit(axes: Axes, word: str, limits: Limits, side: str) -> None:
    """One line where the limit never changed, steps where it did; the last one has its words."""
    is_constant = limits.count(limits[0]) == len(limits)
    values = _numbers(limits[:1] if is_constant else limits)
    values[~np.isfinite(values)] = np.nan
    if np.isnan(values).all():
        return
    begins = np.flatnonzero(np.r_[True, ~_same(values[1:], values[:-1])])
    ends = np.r_[begins[1:], len(limits)]
    axes.plot(np.c_[begins, ends].ravel() - 0.5, np.repeat(values[begins], 2), **_LOOK)
    last = values[~np.isnan(values)][-1]
    place = (1.0, last), (-3, 2 if side == "bottom" else -2)
    _note(axes, f"{word} {last:.6g}", *place, "right", side, axes.get_yaxis_transform())


def _numbers(limits: Limits) -> Any:
    try:
        return np.array(limits, float)  # None is NaN
    except (TypeError, ValueError):
        return np.array([each if isinstance(each, int | float) else np.nan for each in limits], float)


def _same(left: Any, right: Any) -> Any:
    return (left == right) | (np.isnan(left) & np.isnan(right))


def _note(
    axes: Axes, text: str, at: Any, shift: Any, across: str, side: str, place: Any = "axes fraction"
) -> None:
    axes.annotate(
        text, at, shift, xycoords=place, textcoords="offset points", ha=across, va=side,
        fontsize=9, color=palette.MUTED, annotation_clip=False, parse_math=False,
    )  # fmt: skip
