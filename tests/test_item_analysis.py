"""One test item across the listed units: nine figures and a plot."""

from typing import Any
from unittest import mock

import numpy
import pytest
from conftest import Uncaught
from qon_ats import Assertion, TestDataViewerPanel
from station import choose, click_row, unit
from support import pump

pytest_plugins = ["stationplugin"]

FIGURES = ("ok_count", "ng_count", "yield", "max", "min", "middle", "average", "variance", "std_deviation")


def figures(panel: TestDataViewerPanel) -> list[str]:
    return [getattr(panel, f"ui_single_item_{name}").GetValue() for name in FIGURES]


@pytest.fixture
def plot(panel: TestDataViewerPanel) -> mock.Mock:
    """The panel's plot, watched."""
    panel._TestDataViewerPanel__matplot_panel = mock.Mock(wraps=panel._TestDataViewerPanel__matplot_panel)
    return panel._TestDataViewerPanel__matplot_panel


def calls(plot: mock.Mock) -> list[str]:
    return [call[0] for call in plot.mock_calls]


def select(panel: TestDataViewerPanel, plot: mock.Mock, row: int) -> None:
    """The operator clicks on a unit and on its second item."""
    plot.reset_mock()
    click_row(panel.ui_history, row)
    click_row(panel.ui_assertions, 1)
    pump(lambda: calls(plot))


def plotted(plot: mock.Mock) -> list[list[float]]:
    [line] = plot._mock_wraps.plot.figure.axes[0].get_lines()
    return line.get_xydata().tolist()


def judged(value: Any, upper: float = 5) -> Assertion:
    return Assertion("V", value, 0, upper)


def undecided(value: Any) -> Assertion:
    item = Assertion("V", value)
    item.update()
    return item


CASES: dict[str, tuple[list[Assertion], str]] = {
    "gathering_order": (
        [judged(3), judged(1), judged(2)], "3 0 100.00% 3.0 1.0 2.0 2.0 0.6666666666666666 0.816496580927726",
    ),
    "upper_middle": ([judged(v) for v in (1, 2, 3, 4)], "4 0 100.00% 4.0 1.0 3.0 2.5 1.25 1.118033988749895"),
    "yield": ([judged(5), judged(7)], "1 1 50.00% 7.0 5.0 7.0 6.0 1.0 1.0"),
    "undecided_values_count": ([judged(5), undecided(4)], "1 0 100.00% 5.0 4.0 5.0 4.5 0.25 0.5"),
    "whatever_float_reads": (
        [Assertion("V", "1e1"), Assertion("V", True), Assertion("V", numpy.float32(4))],
        "3 0 100.00% 10.0 1.0 4.0 5.0 14.0 3.7416573867739413",
    ),
}  # fmt: skip


@pytest.mark.parametrize("case", CASES)
def test_figures_and_plot(case: str, panel: TestDataViewerPanel, plot: mock.Mock) -> None:
    items, shown = CASES[case]
    panel.extend([unit("SN", 1, Assertion("other", 99), item, done=False) for item in items])
    select(panel, plot, 1)
    assert figures(panel) == shown.split() and calls(plot) == ["subplots", "draw"]
    assert plotted(plot) == [[i, float(item.value)] for i, item in enumerate(items)]


def test_only_what_the_filter_lists_counts_and_every_item_of_a_name(
    panel: TestDataViewerPanel, plot: mock.Mock
) -> None:
    twice, other = unit("A", 2, judged(1), judged(9)), unit("B", 1, judged(100))
    panel.extend([twice, other, unit("C", 2, Assertion("v", 50), judged(3))])
    select(panel, plot, 0)
    assert figures(panel)[:5] == ["2", "2", "50.00%", "100.0", "1.0"]
    choose(panel, "2")
    assert figures(panel) == [""] * 9 and calls(plot)[2:] == ["clear", "draw"]
    select(panel, plot, 1)
    assert figures(panel)[:6] == ["2", "1", "66.67%", "9.0", "1.0", "3.0"]
    assert [y for _, y in plotted(plot)] == [1, 9, 3]


@pytest.mark.parametrize(
    ("value", "error"), [(4, None), ("v1.2", ValueError), (None, ValueError), ([1, 2], TypeError)]
)
def test_items_that_have_no_figures(
    value: Any, error: type[Exception] | None, panel: TestDataViewerPanel, plot: mock.Mock, uncaught: Uncaught
) -> None:
    odd = undecided(value) if error is None else Assertion("V", value, result=True)
    panel.append(unit("A", 1, Assertion("W", 1), odd, done=False))
    for name in FIGURES:
        getattr(panel, f"ui_single_item_{name}").SetValue("left over")
    click_row(panel.ui_history, 0)
    click_row(panel.ui_assertions, 1)
    pump(lambda: calls(plot) or uncaught.errors)
    if error:
        uncaught.take(error)  # out of the event loop; the plot stays as it was
    assert calls(plot) == ([] if error else ["clear", "draw"])
    assert figures(panel) == ([""] * 9 if error else ["0", "0"] + [""] * 7)
