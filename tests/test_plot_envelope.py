"""A line of many values is drawn as an area: it has to look as the line does, and keep every extreme."""

from typing import Any

import numpy as np
import pytest
from matplotlib import rc_context
from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.figure import Figure
from matplotlib.lines import Line2D
from qon_matplot.envelope import EnvelopeLine, PlotAxes

COUNT = 10_000
RANDOM = np.random.default_rng(4)
EXACT = {"path.simplify": False, "agg.path.chunksize": 0}

VALUES = {
    "noise": RANDOM.normal(5.0, 0.1, COUNT),
    "one outlier": np.where(np.arange(COUNT) == 7_321, 9.0, RANDOM.normal(5.0, 0.01, COUNT)),
    "steps": np.repeat(RANDOM.normal(0.0, 1.0, 20), COUNT // 20),
    "constant": np.full(COUNT, 3.3),
    "ramp": np.linspace(-1.0, 1.0, COUNT),
    "wave": np.sin(np.linspace(0.0, 200.0, COUNT)),
}


def picture(kind: type[Line2D], values: Any, change: Any = None, **style: Any) -> Any:
    """Ink of each pixel, 0 to 1, of a plot of the values."""
    with rc_context(EXACT):
        figure = Figure(figsize=(6, 4))
        canvas = FigureCanvasAgg(figure)
        axes = figure.add_subplot(axes_class=PlotAxes)
        (line,) = axes.plot(np.arange(len(values)), values, color="black", **style)
        line.__class__ = kind
        axes.set_axis_off()
        if change:
            change(axes)
        canvas.draw()
        return 1.0 - np.asarray(canvas.buffer_rgba())[..., 0] / 255.0


def zoom(axes: Any) -> None:
    axes.set_xlim(7_000, 9_500)
    axes.set_ylim(4.9, 5.05)


@pytest.mark.parametrize("change", [None, zoom], ids=["whole", "zoomed"])
@pytest.mark.parametrize("name", VALUES)
def test_it_looks_as_the_line_does(name: str, change: Any) -> None:
    line, area = (picture(kind, VALUES[name], change) for kind in (Line2D, EnvelopeLine))
    # Strokes that overlap come out a little darker at their edges than the area they cover.
    assert abs(area.sum() - line.sum()) < 0.12 * line.sum() + 5
    # Every pixel with ink has some in the other picture, at most a pixel aside: no extreme is lost or made up.
    for full, other in ((line, area), (area, line)):
        near = np.max([np.roll(other, (y, x), (0, 1)) for y in (-1, 0, 1) for x in (-1, 0, 1)], axis=0)
        assert not ((full > 0.5) & (near < 0.1)).any()


@pytest.mark.parametrize(
    ("values", "change", "style"),
    [
        ([], None, {}),
        ([1.0], None, {}),
        ([None, 1.0, 2.0], None, {}),
        (np.where(np.arange(COUNT) % 100 == 0, np.nan, 1.0), None, {}),
        (np.where(np.arange(COUNT) == 5, np.inf, VALUES["noise"]), None, {}),
        (VALUES["noise"][:300], None, {}),
        (VALUES["noise"], None, {"alpha": 0.5}),
        (VALUES["noise"][:2_500], None, {"linestyle": "--"}),
        (VALUES["noise"][:2_500], None, {"marker": "o"}),
        (VALUES["noise"][:2_500], lambda axes: axes.set_yscale("log"), {}),
    ],
    ids=["none", "one", "None", "gaps", "infinite", "few", "faint", "dashed", "marked", "logarithmic"],
)
def test_other_lines_are_drawn_as_ever(values: Any, change: Any, style: dict[str, Any]) -> None:
    line, area = (picture(kind, values, change, **style) for kind in (Line2D, EnvelopeLine))
    assert (line == area).all()


def test_all_values_stay_in_the_line() -> None:
    axes = Figure().add_subplot(axes_class=PlotAxes)
    (line,) = axes.plot(np.arange(COUNT), VALUES["noise"])
    assert type(line) is EnvelopeLine and list(line.get_ydata()) == list(VALUES["noise"])
