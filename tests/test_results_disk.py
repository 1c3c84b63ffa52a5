"""Filesystems without room, and such that are not to be written: real ones, mounted here where that is allowed."""

import subprocess
from collections.abc import Callable, Iterator
from pathlib import Path
from unittest import mock

import pytest
from qon_companions import notices
from qon_results.recorder import sending
from qon_results.recorder.recorder import Recorder
from qon_results.store import file
from qon_station.outcome import Kind
from results_station import begin, end, measure
from test_results_recorder import recording, runs, until

MEASURED = 150_000  # more than fits, however often the log is emptied


@pytest.fixture
def mount() -> Iterator[Callable[..., None]]:
    """`mount` of the system; what was mounted is gone afterwards."""
    points: list[Path] = []

    def mount(point: Path, *arguments: str) -> None:
        done = subprocess.run(["mount", *arguments, str(point)], capture_output=True, text=True, check=False)
        if done.returncode:
            pytest.skip(f"nothing can be mounted here: {done.stderr.strip()}")
        if "remount" not in arguments[-1]:
            points.append(point)

    yield mount
    for point in reversed(points):
        subprocess.run(["umount", str(point)], check=False)


def refused(recorder: Recorder, words: str) -> None:
    """The station says why, on each cell, and starts nothing."""
    until(lambda: words in recorder.trouble, words)
    assert words in recorder.may_start(mock.Mock(cell_number=1), "x")
    until(lambda: any(words in each.text and each.stop for each in notices.of_cell(1)), "the notice")


def goes_on(recorder: Recorder) -> None:
    recorder._sender._retry_at = 0.0  # as it would within five seconds
    until(lambda: recorder.trouble == "" and recorder.waiting == 0, "results are recorded again")
    unit = begin("next")
    measure(unit, 10)
    assert end(unit).kind is Kind.OK


def test_a_disk_that_is_full_loses_nothing_and_is_caught_up_with(tmp_path, mount):
    folder = tmp_path / "small"
    folder.mkdir()
    mount(folder, "-t", "tmpfs", "-o", "size=4m", "none")
    with recording(folder) as recorder:
        unit = begin("full")
        measure(unit, MEASURED)
        with mock.patch.object(sending, "PROGRESS_SECONDS", 0.5):
            outcome = end(unit)
        assert outcome.kind is Kind.EXCEPTION and "Results cannot be recorded" in outcome.reason
        refused(recorder, str(folder))
        assert recorder.waiting == 1 and notices.status_fields()
        mount(folder, "-o", "remount,size=64m")
        goes_on(recorder)
    full, following = runs(folder)
    assert (full.outcome, full.measured, following.outcome) == ("EXCEPTION", MEASURED, "OK")
    assert "Results cannot be recorded" in full.reason


@pytest.mark.parametrize("what", ["folder", "file"])
def test_what_cannot_be_written_is_said_and_goes_on_when_it_can(tmp_path, mount, what):
    with recording(tmp_path) as recorder:
        end(begin("before"))
    point = tmp_path if what == "folder" else tmp_path / file.FILE_NAME
    mount(point, "--bind", str(point))
    mount(point, "-o", "remount,bind,ro")
    with recording(tmp_path) as recorder:
        refused(recorder, "cannot be written")
        mount(point, "-o", "remount,bind,rw")
        goes_on(recorder)
    assert [run.serial_number for run in runs(tmp_path)] == ["before", "next"]
