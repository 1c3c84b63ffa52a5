"""Pausing, aborting and sleeping: the script notices them at its check points."""

import time
from typing import Any

import pytest
from hostcell import Host, HostCell


@pytest.mark.parametrize("paused", [False, True])
@pytest.mark.parametrize("check", ["self.check_abort()", "self.sleep(60, 0.001)", "self.abortable(print)()"])
def test_an_abort_ends_the_run_at_the_next_check_point(paused: bool, check: str, host: Host) -> None:
    run = f"self.append_ok('a', 1)\ncell.meet()\n{check}\nself.append_ng('b', 1)"
    cell = host(run, cleanup="cell.notes.append(self.is_aborted())\ncell.go.clear()\ncell.meet()")
    cell.start()
    cell.wait_reached()
    if paused:
        cell.pause()
    cell.abort("Abort Voluntarily")
    assert (cell._result_description, cell.is_aborted()) == ("Abort Voluntarily", False)
    cell.go.set()
    cell.wait_reached()
    assert not cell.is_aborted(), "not before the cleanup is over"
    cell.go.set()
    cell.finish()
    assert (cell.is_aborted(), cell._result_description, cell._exception_object) == (True, "", None)
    assert (cell.names, cell.uut.summer, cell.cleanups, cell.notes) == (["a"], "OK", 1, [True])
    cell.reset_state()
    assert not cell.is_aborted()


def test_checking_for_an_abort_belongs_to_the_test_thread(host: Host) -> None:
    cell = host()
    for call in (cell.check_abort, cell.abortable(print), lambda: cell.sleep(0.0)):
        with pytest.raises(AttributeError, match=r"^Not in cell test thread\.$"):
            call()
    cell.abort("no test")
    assert cell._result_description == "no test"


def test_slices_of_a_sleep(host: Host, monkeypatch: pytest.MonkeyPatch) -> None:
    """By a clock that only sleeping moves."""
    cell: Any = host()
    slept: list[float] = []
    monkeypatch.setattr(time, "time", lambda: sum(slept))
    monkeypatch.setattr(time, "sleep", slept.append)
    cell.check_abort = lambda: cell.notes.append("checked")
    for arguments, slices in (
        ((0.05,), [0.05]),
        ((0,), [0.0]),
        ((1.0, 0.25), [0.25] * 4),
        ((0.625, 0.25), [0.25, 0.25, 0.125]),
        ((3, 2), [2, 1]),
        ((1.0, 0.3), [0.3, 0.3, 0.3, 0.1]),
    ):
        slept.clear()
        cell.notes.clear()
        cell.sleep(*arguments)
        assert slept == pytest.approx(slices) and len(cell.notes) == len(slices)


def test_order_of_the_checks_around_a_call(host: Host) -> None:
    class Traced(HostCell):
        def check_pause(self) -> None:
            self.notes.append("pause")

        def check_abort(self) -> None:
            self.notes.append("abort")

    cell = host(cell_type=Traced)

    def add(a: int, b: int) -> int:
        cell.notes.append("call")
        return a + b

    assert cell.pausable(add)(1, 2) == 3
    assert cell.notes == ["pause", "call", "pause"]
    cell.notes.clear()
    assert cell.abortable(func=add)(3, 4) == 7
    assert cell.notes == ["pause", "abort", "call", "abort", "pause"]


def test_a_breakpoint_pauses_in_debug_mode_only(host: Host) -> None:
    cell: Any = host()
    for debugging in (False, True):
        cell.is_in_debug_mode = lambda debugging=debugging: debugging
        cell.debug_pause()
        assert cell.is_paused() is debugging
