"""Counters of finished units and the event that tells of one."""

import pytest
import wx
from qon_ats import EVT_STATISTICS_UPDATE_EVENT, Statistics, StatisticsUpdateEvent


@pytest.mark.parametrize(
    ("ok", "ng", "ok_percent", "ng_percent"),
    [(0, 0, 0, 0), (2, 1, 200 / 3, 100 / 3), (1, 3, 25.0, 75.0), (7, 0, 100.0, 0.0)],
)
def test_counts_and_percentages(ok: int, ng: int, ok_percent: float, ng_percent: float) -> None:
    started = Statistics(ok=ok, ng=ng)
    counted = Statistics()
    for _ in range(ok):
        counted.increase()
    for _ in range(ng):
        counted.increase(ok=False)
    for statistics in (started, counted):
        figures = (statistics.get_total(), statistics.get_ok(), statistics.get_ng())
        assert figures == (ok + ng, ok, ng)
        assert statistics.get_ok_percent() == pytest.approx(ok_percent, abs=1e-12)
        assert statistics.get_ng_percent() == pytest.approx(ng_percent, abs=1e-12)
    counted.clear()
    assert (counted.get_total(), counted._ok, counted._ng) == (0, 0, 0)


def test_without_units_a_percentage_is_the_integer_zero() -> None:
    assert repr(Statistics().get_ok_percent()) == repr(Statistics().get_ng_percent()) == "0"
    assert Statistics(1, 2).get_ok_percent() == 1 / 3 * 100
    for wrong in (lambda: Statistics("1"), lambda: Statistics(1.5), lambda: Statistics().increase(1)):
        with pytest.raises(TypeError):
            wrong()


def test_the_event_travels_up_to_the_frame_before_the_call_returns(app: wx.App) -> None:
    frame = wx.Frame(None)
    panel = wx.Panel(frame)
    inner = wx.Panel(panel)
    heard: list[tuple[bool, int]] = []
    frame.Bind(EVT_STATISTICS_UPDATE_EVENT, lambda e: heard.append((e.get_result(), e.GetId())))
    kind = EVT_STATISTICS_UPDATE_EVENT.typeId
    for result in (True, False):
        inner.GetEventHandler().ProcessEvent(StatisticsUpdateEvent(kind, inner.GetId(), result))
    assert heard == [(True, inner.GetId()), (False, inner.GetId())]
    assert isinstance(StatisticsUpdateEvent(kind, 1, True), wx.PyCommandEvent)
    with pytest.raises(TypeError):
        StatisticsUpdateEvent(kind, 1, "yes")
    frame.Destroy()
