"""The plot panel and the number keypad."""

import threading
import time
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest
import wx
from dialogs import Operator, box, click, texts
from qon_companions.boxes.keys import GUARD_SECONDS
from qon_matplot import MatplotPanel
from qon_touch import input_integer
from support import pump

POINTS = 10_000
DRAW_SECONDS = 0.1
FINGER = 60


@pytest.fixture
def frame(app: wx.App, monkeypatch: pytest.MonkeyPatch) -> Iterator[wx.Frame]:
    monkeypatch.setenv("QON_LANG", "en")
    window = wx.Frame(None, size=wx.Size(1000, 700))
    window.Show()
    pump(window.IsShownOnScreen)
    yield window
    if window:
        window.Destroy()


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


# The plot panel.


def test_each_plot_is_a_fresh_one(panel: MatplotPanel) -> None:
    for values in ([1.0, 3.0, 2.0], [5.0, 4.0]):
        figure, axes = panel.subplots()
        axes.plot(range(len(values)), values)
        panel.draw()
    assert figure.axes == [axes] and len(axes.lines) == 1
    assert list(axes.lines[0].get_ydata()) == [5.0, 4.0]
    assert (figure.get_size_inches() * figure.dpi).astype(int).tolist() == list(panel.plot.canvas.GetSize())
    drawn = ink(panel)
    panel.clear()
    panel.draw()
    assert ink(panel) == 0 < drawn


def test_ten_thousand_points_are_drawn_in_time(panel: MatplotPanel) -> None:
    values = np.random.default_rng(1).normal(5.0, 0.1, POINTS)
    seconds = []
    for _ in range(5):
        _figure, axes = panel.subplots()
        axes.plot(np.arange(POINTS), values)
        begin = time.thread_time()  # other processes do not count
        panel.draw()
        seconds.append(time.thread_time() - begin)
    assert min(seconds) < DRAW_SECONDS


def test_other_threads_are_refused(panel: MatplotPanel) -> None:
    refused: list[str] = []

    def use() -> None:
        try:
            panel.subplots()
        except RuntimeError as error:
            refused.append(str(error))

    thread = threading.Thread(target=use)
    thread.start()
    thread.join(5.0)
    assert "GUI thread" in refused[0]


# The keypad.


def run(operate: Any, **asked: Any) -> int | None:
    def steps() -> Iterator[Any]:
        yield box
        yield GUARD_SECONDS
        yield from operate(box())

    with Operator(steps):
        return input_integer(**asked)


def test_a_number_is_entered_with_fingers(frame: wx.Frame) -> None:
    def operate(pad: Any) -> Iterator[Any]:
        assert all(min(key.GetSize()) >= FINGER for key in pad.keys.values())
        assert "请输入测试工位号" in texts(pad) and "1 to 12" in texts(pad)
        ok = pad.buttons[wx.ID_OK]
        assert not ok.IsEnabled()
        for face, shown, allowed in (
            ("3", "3", True),
            ("4", "34", False),
            ("⌫", "3", True),
            ("⌫", "", False),
        ):
            click(pad.keys[face])
            yield (
                lambda shown=shown, allowed=allowed: (
                    pad.entry.GetValue() == shown and ok.IsEnabled() == allowed
                )
            )
        click(pad.keys["1"])
        yield ok.IsEnabled
        click(pad.keys["2"])
        yield lambda: pad.number() == 12
        click(ok)

    assert run(operate, minimum=1, maximum=12, message="请输入测试工位号（Cell Number）:") == 12
