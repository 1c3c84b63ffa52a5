"""The plot panel and the number keypad."""

from typing import Any

import numpy as np
import pytest
import wx
from qon_companions.boxes.keys import GUARD_SECONDS
from qon_matplot import MatplotPanel
from qon_touch import input_integer
from station import dialogs
from support import click, in_thread, pump, pump_for, words

FINGER = 60  # pixels


@pytest.fixture
def panel(frame: wx.Frame) -> MatplotPanel:
    plot = MatplotPanel(frame)
    frame.SendSizeEvent()
    pump(lambda: plot.GetSize().width > 900)
    return plot


def ink(panel: MatplotPanel) -> int:
    """Pixels of the plot that are not white."""
    picture = np.asarray(panel.plot.canvas.buffer_rgba())
    return int((picture[..., :3] < 200).any(axis=-1).sum())


def test_each_plot_is_a_fresh_one(panel: MatplotPanel) -> None:
    for values in ([1.0, 3.0, 2.0], [5.0, 4.0]):
        figure, axes = panel.subplots()
        axes.plot(range(len(values)), values)
        panel.draw()
    assert figure.axes == [axes] and [list(line.get_ydata()) for line in axes.lines] == [[5.0, 4.0]]
    assert (figure.get_size_inches() * figure.dpi).astype(int).tolist() == list(panel.plot.canvas.GetSize())
    drawn = ink(panel)
    panel.clear()
    panel.draw()
    assert ink(panel) == 0 < drawn


def test_other_threads_may_not_plot(panel: MatplotPanel) -> None:
    with pytest.raises(RuntimeError, match="GUI thread"):
        in_thread(panel.subplots)


def test_a_number_is_entered_with_fingers(frame: wx.Frame) -> None:
    def enter(pad: Any) -> None:
        pump_for(GUARD_SECONDS)
        assert all(min(key.GetSize()) >= FINGER for key in pad.keys.values())
        assert "请输入测试工位号" in words(pad) and "1 to 12" in words(pad)
        ok = pad.buttons[wx.ID_OK]
        assert not ok.IsEnabled()
        steps = (("3", "3", True), ("4", "34", False), ("⌫", "3", True), ("⌫", "", False), ("1", "1", True))
        for face, text, allowed in (*steps, ("2", "12", True)):
            click(pad.keys[face])
            pump(lambda text=text, allowed=allowed: (pad.entry.GetValue(), ok.IsEnabled()) == (text, allowed))
        click(ok)

    with dialogs(enter):
        assert input_integer(minimum=1, maximum=12, message="请输入测试工位号（Cell Number）:") == 12
