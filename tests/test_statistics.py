"""Counters of finished units and the event that tells of one."""

import pytest
import wx
from qon_ats import EVT_STATISTICS_UPDATE_EVENT, Statistics, StatisticsUpdateEvent


@pytest.mark.parametrize(
    ("ok", "ng", "ok_percent", "ng_percent"),
    [(0, 0, 0, 0), (2, 1, 200 / 3, 100 / 3), (1, 3, 25.0, 75.0), (7, 0, 100.0, 0.0)],
)
def test_counts_and_percentages(ok: int, ng: int, ok_percent: float, ng_percent: float) -> None:
    counted = Statistics()
    for result in [True] * ok + [False] * ng:
        counted.increase(result)
    for statistics in (Statistics(ok=ok, ng=ng), counted):
        figures = (statistics.get_total(), statistics.get_ok(), statistics.get_ng())
        assert figures == (ok + ng, ok, ng)
        percents = statistics.get_ok_percent(), statistics.get_ng_percent()
        assert percents == pytest.approx((ok_percent, ng_percent), abs=1e-12)
        assert {type(percent) for percent in percents} == {float if ok + ng else int}
    counted.clear()
    assert (counted.get_total(), counted._ok, counted._ng) == (0, 0, 0)


def test_the_event_travels_up_to_the_frame_before_the_call_returns(frame: wx.Frame) -> None:
    inner = wx.Panel(wx.Panel(frame))
    heard: list[tuple[bool, int]] = []
    frame.Bind(EVT_STATISTICS_UPDATE_EVENT, lambda e: heard.append((e.get_result(), e.GetId())))
    for result in (True, False):
        event = StatisticsUpdateEvent(EVT_STATISTICS_UPDATE_EVENT.typeId, inner.GetId(), result)
        inner.GetEventHandler().ProcessEvent(event)
    assert heard == [(True, inner.GetId()), (False, inner.GetId())]
