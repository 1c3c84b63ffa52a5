"""The station's periodic job: ticks in the GUI thread, blocks from any thread."""

import threading
import time
from collections.abc import Callable
from typing import Any

import pytest
import qon_ats
import wx
from station import Answers, Station, texts
from support import Boxes, click, in_thread, pump, pump_for

NO_INTERVAL = (
    'Set a applicable ticker interval in file "ats_config.xlsx".\n\t\t\tIt must be greater than 0.\n\t\t\t'
    "After setting the interval parameter, you must restart this application to apply it."
)


class Ticking(qon_ats.ATSFrame):
    """Counts its ticks; `job` is what a tick does."""

    ticks = 0
    job: Callable[[], Any] = staticmethod(lambda: None)

    def ticker_function(self) -> None:
        self.ticks += 1
        self.job()

    def is_quiet(self) -> bool:
        """Whether no tick comes for a while."""
        ticks = self.ticks
        pump_for(0.05)
        return self.ticks == ticks

    def goes_on(self) -> bool:
        ticks = self.ticks
        return pump(lambda: self.ticks > ticks + 1, what="the ticker ticks")


def ticking(station: Station, *runs: str, **main: Any) -> Ticking:
    return station(*runs, frame_type=Ticking, main={"run_ticker": True, "ticker_interval": 1, **main})


@pytest.mark.parametrize("main", [{"run_ticker": False}, {"ticker_interval": 0}, {"ticker_interval": -1}])
def test_the_ticker_is_off_until_it_is_started(main: dict[str, Any], station: Station, boxes: Boxes) -> None:
    frame = ticking(station, **main)
    for interval in (0, -5):
        frame.start_ticker(interval)
    assert frame.is_quiet() and frame.ticks == 0 and frame._ticker_interval == main.get("ticker_interval", 1)
    frame.on_start_ticker(None)
    assert boxes.of("Error") == ([NO_INTERVAL] if "ticker_interval" in main else [])
    in_thread(frame.start_ticker, 2)
    assert frame.goes_on() and frame._ticker_interval == 2


def test_stopping_from_a_tick_and_without_a_job(station: Station) -> None:
    frame = ticking(station)
    frame.job = frame.stop_ticker
    assert pump(lambda: not frame._run_ticker) and frame.is_quiet()
    ticks = frame.ticks
    frame.on_start_ticker(None)
    assert pump(lambda: not frame._run_ticker) and frame.ticks == ticks + 1
    frame = station.build()  # ticks once: nothing to do
    pump(lambda: not frame._run_ticker)
    assert (frame.is_running(0), frame.is_ticker_blocked()) == (False, False)


def test_ticks_never_overlap_and_may_start_cells(station: Station) -> None:
    frame = ticking(station, "self.append_ok('a', 1)")
    inside: set[Any] = set()

    def long_job() -> None:
        before = frame.ticks
        pump_for(0.03)  # a dialog's event loop, say: timers go on firing in it
        inside.add((frame.ticks - before, frame.is_running(0)))
        frame.start_cell(1)  # ignored while it runs

    frame.job = long_job
    pump(lambda: len(texts(frame.cells[0].ui_history_grid)) >= 2)
    frame.job = lambda: None
    assert inside == {(0, True)} and pump(lambda: not frame.is_running())


def test_blocks_are_counted_and_given_back(station: Station) -> None:
    frame = ticking(station, "with self.frame_noumenon.ticker_blocker():\n    meet()\n    self.sleep(60)")
    assert frame.goes_on()
    with pytest.raises(KeyError), frame.ticker_blocker():
        with frame.ticker_blocker(0.5):
            assert frame.is_quiet()
        frame.cells[0].block_ticker(0.5)
        frame.cells[0].unblock_ticker()
        assert frame.is_ticker_blocked() and frame.is_quiet()
        raise KeyError("not swallowed")
    frame.unblock_ticker()  # one too many changes nothing
    assert not frame.is_ticker_blocked() and frame._ticker_lock_count == 0
    assert frame.goes_on()  # ticks were skipped, not stopped
    frame.start_cell(1)
    station.meetings[1].arrived()
    assert frame.is_ticker_blocked() and frame.is_quiet()
    frame.on_abort_all(None)
    station.finish()
    assert not frame.is_ticker_blocked() and frame.goes_on()


def test_a_block_waits_for_the_tick_in_progress_or_times_out(station: Station) -> None:
    frame = ticking(station)
    seen: list[Any] = []
    waiting = threading.Event()

    def blocker() -> None:
        started = time.monotonic()
        try:
            frame.block_ticker(0.2)
        except TimeoutError as error:
            seen.append((str(error), time.monotonic() - started >= 0.2, frame.is_ticker_blocked()))
        waiting.set()
        frame.block_ticker()
        seen.append((frame._in_ticker, frame.ticks))

    thread = threading.Thread(target=blocker)
    jobs = [lambda: None, lambda: (thread.start(), waiting.wait(60))]
    frame.job = lambda: jobs.pop()() if jobs else None
    pump(lambda: len(seen) == 2)
    thread.join(60)
    timed_out, (in_tick, ticks) = seen
    assert timed_out == ("Wait for ticker ending timeout.", True, False)
    assert not in_tick and frame.is_quiet() and frame.ticks == ticks
    frame.unblock_ticker()
    assert frame.goes_on()


@pytest.mark.parametrize("goes_on", [True, False])
def test_the_operator_decides_after_an_exception(goes_on: bool, station: Station) -> None:
    frame = ticking(station)
    shown: list[tuple[str, bool]] = []

    def fail() -> None:
        frame.job = lambda: None
        raise OSError("fixture 2 does not answer")

    def decide(dialog: Any) -> None:
        shown.append((dialog.ui_exception_trace.GetValue(), frame.is_quiet()))
        click(dialog.FindWindow(wx.ID_OK)) if goes_on else dialog.Close()

    with Answers(decide):
        frame.job = fail
        pump(lambda: shown and not frame.is_running(0))
    [(trace, was_quiet)] = shown
    assert "fixture 2 does not answer" in trace and "in fail" in trace and was_quiet
    if not goes_on:
        assert frame.is_quiet()
        frame.on_start_ticker(None)
    assert frame.goes_on()
