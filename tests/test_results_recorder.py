"""On disk before green, whatever dies: station, writer, both; and what operators are told when it is not."""

import contextlib
import datetime
import os
import random
import resource
import shutil
import signal
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from unittest import mock

import pytest
import qon_results
from qon_companions import notices
from qon_results import Filter, Outcome
from qon_results.recorder import place, sending
from qon_results.recorder.recorder import NothingRecordedError, Recorder
from qon_results.store import file
from qon_station.outcome import Kind
from qon_station.unit import StationUnit
from results_station import begin, end, measure

KILLS = int(os.environ.get("QON_KILLS", "4"))
SECONDS = 60.0


@contextlib.contextmanager
def recording(folder: Path, **settings: object) -> Iterator[Recorder]:
    recorder = qon_results.record(folder, **{"min_free_mb": 1, **settings})
    try:
        recorder.wait_until_open(SECONDS)
        yield recorder
    finally:
        recorder.close()


@pytest.fixture
def recorder(tmp_path: Path) -> Iterator[Recorder]:
    with recording(tmp_path) as recorder:
        assert recorder.trouble == ""
        yield recorder


def until(done: Callable[[], object], what: str) -> None:
    deadline = time.monotonic() + SECONDS
    while not done():
        assert time.monotonic() < deadline, what
        time.sleep(0.01)  # another process does it


def writer(recorder: Recorder) -> int:
    return recorder._sender._link.process.pid


def runs(folder: Path) -> list[qon_results.Run]:
    """All of them in their order, from a file that verifies."""
    with qon_results.open(folder) as store:
        assert store.verify().fault is None
        return store.runs(limit=None)[::-1]


def test_all_of_a_run_is_on_disk_when_it_has_ended(recorder, tmp_path):
    unit = begin("4711")
    measure(unit, 1200)
    until(lambda: recorder._of(unit).taken == 1200, "the measurements are taken")
    unit.assertions[700].update(value=9.0, lower=0.5, upper=1.5)
    recorder.attach(unit, "trace.txt", b"wave")
    recorder.attach(unit, "trace.txt", b"wave 2")
    recorder.instrument(unit, "dmm", "MAKER,34401A,0,1")
    recorder.event("question", "LED lit?", unit=unit, answer=True)
    unit.serial_number = "4711-B"
    assert end(unit).kind == "NG"
    with qon_results.open(tmp_path) as store:
        found = store.record(store.runs()[0].id)
    assert len(found.measurements) == found.run.measured == 1200
    assert found.measurements[700].value == 9.0 and (found.run.ng, found.run.first_ng) == (1, "item 0")
    assert (found.run.scanned, found.run.serial_number, found.run.outcome) == ("4711", "4711-B", "NG")
    assert [each.name for each in found.attachments] == ["trace.txt", "trace.txt (2)"]
    assert found.instruments[0].identity.startswith("MAKER")
    with pytest.raises(ValueError, match="not being recorded"):
        recorder.attach(unit, "late", b"")
    recorder.close()
    with qon_results.open(tmp_path) as store:
        assert [event.run for event in store.events()] == [found.run.id] and store.verify().fault is None


def test_what_a_script_takes_back_is_not_recorded(recorder, tmp_path):
    unit = begin("short")
    measure(unit, 900)
    until(lambda: recorder._of(unit).taken == 900, "the measurements are taken")
    del unit.assertions[100:]
    measure(unit, 5, 1.25)
    end(unit)
    with qon_results.open(tmp_path) as store:
        found = store.record(store.runs()[0].id).measurements
    assert [each.value for each in found] == [1.0] * 100 + [1.25] * 5


def test_a_writer_that_dies_is_replaced_and_nothing_is_lost_or_twice(recorder, tmp_path):
    chance = random.Random(2)
    for number in range(KILLS):
        unit, moment = begin(f"SN{number}"), chance.randrange(4)
        for step in range(4):
            measure(unit, chance.randrange(700))
            if step == moment:
                old = writer(recorder)
                os.kill(old, signal.SIGKILL)
                until(
                    lambda old=old: recorder._sender.condition.opened and writer(recorder) != old,
                    "a new writer",
                )
        expected = len(unit.assertions)
        assert end(unit).kind == "OK"
        run = runs(tmp_path)[-1]
        assert (run.number, run.serial_number, run.measured) == (number + 1, f"SN{number}", expected)


@pytest.fixture
def station(tmp_path: Path) -> Iterator[Callable[..., subprocess.Popen]]:
    started = []

    def start(cells: int = 3, items: int = 40) -> subprocess.Popen:
        program = str(Path(__file__).with_name("results_station.py"))
        line = [sys.executable, program, str(tmp_path), str(cells), str(items)]
        process = subprocess.Popen(line, stdout=subprocess.PIPE, text=True, bufsize=1)
        started.append(process)
        process.writer = int(process.stdout.readline().split()[1])
        return process

    yield start
    for process in started:
        process.kill()
        process.communicate(timeout=SECONDS)


def green(station: subprocess.Popen, count: int = 0) -> set[str]:
    """What the station has said was OK: so many lines, or all that are left of a dead one."""
    lines = [station.stdout.readline() for _ in range(count)] if count else station.stdout.readlines()
    return {line.split()[1] for line in lines if line.endswith("\n")}


def test_killed_stations_keep_what_was_green_and_close_the_rest(station, tmp_path):
    chance, told, before = random.Random(5), set(), 0
    for number in range(KILLS):
        process = station()
        told |= {f"{number} {serial}" for serial in green(process, 4)}
        time.sleep(chance.random() * 0.1)
        victims = ((process.pid,), (process.writer, process.pid), (process.pid, process.writer))[number % 3]
        for victim in victims:
            with contextlib.suppress(ProcessLookupError):
                os.kill(victim, signal.SIGKILL)
        told |= {f"{number} {serial}" for serial in green(process)}
        with recording(tmp_path) as recorder:
            assert recorder.trouble == ""
        new = runs(tmp_path)[before:]
        before += len(new)
        assert all(run.outcome in ("OK", "INTERRUPTED") for run in new)
        assert {serial for serial in told if serial.startswith(f"{number} ")} <= {
            f"{number} {run.serial_number}" for run in new if run.outcome == "OK"
        }


def test_a_crash_keeps_all_but_a_tenth_of_a_second_and_the_operator_is_told(station, tmp_path):
    process = station(cells=1, items=1000)
    time.sleep(0.6)  # the run goes on
    os.kill(process.pid, signal.SIGSTOP)
    stopped = time.time()
    for victim in (process.writer, process.pid):
        os.kill(victim, signal.SIGKILL)
    with recording(tmp_path) as recorder:
        until(lambda: notices.of_cell(1), "the notice")
        assert "C1-1" in notices.of_cell(1)[0].text and not notices.of_cell(2)
    with recording(tmp_path):  # nobody has gone on: told again
        until(lambda: notices.of_cell(1), "the notice")
        end(begin("next", 1))
        assert not notices.of_cell(1)
    with recording(tmp_path) as recorder:
        assert recorder._sender.interrupted == []
    run = runs(tmp_path)[0]
    assert run.outcome is Outcome.INTERRUPTED and run.measured > 0
    with qon_results.open(tmp_path) as store:
        last = store.record(run.id).measurements[-1]
    assert stopped - (run.begin_us + last.time_us) / 1e6 < 0.1 + sending.PERIOD + 0.15  # this machine is busy


def test_ok_is_refused_when_the_disk_does_not_answer_and_corrected_when_it_does(recorder, tmp_path):
    first, second = begin("late", 1), begin("bad", 2)
    measure(first, 10)
    measure(second, 10, 9.0)
    os.kill(writer(recorder), signal.SIGSTOP)
    with mock.patch.object(sending, "PROGRESS_SECONDS", 0.3):
        outcomes = end(first), end(second)
    os.kill(writer(recorder), signal.SIGCONT)
    assert [outcome.kind for outcome in outcomes] == [Kind.EXCEPTION, Kind.NG]
    assert all("does not answer" in outcome.reason for outcome in outcomes)
    until(lambda: recorder.waiting == 0, "the runs are written")
    late, bad = runs(tmp_path)
    assert (late.outcome, bad.outcome) == ("EXCEPTION", "NG") and "does not answer" in late.reason


def test_a_full_disk_refuses_starts_and_is_caught_up_with(recorder, tmp_path):
    unit = begin("full")
    measure(unit, 20_000)
    resource.prlimit(writer(recorder), resource.RLIMIT_FSIZE, (300_000, 300_000))
    here = resource.getrlimit(resource.RLIMIT_FSIZE)
    with mock.patch.object(sending, "PROGRESS_SECONDS", 0.5), mock.patch.object(sending, "_RETRIES", (60.0,)):
        assert end(unit).kind is Kind.EXCEPTION
        assert recorder.may_start(mock.Mock(cell_number=1), "x") == recorder.trouble != ""
        until(lambda: notices.of_cell(1), "the notice")
        assert notices.of_cell(1)[0].stop and notices.status_fields()
        with pytest.raises(NothingRecordedError):
            begin("refused")
    assert resource.getrlimit(resource.RLIMIT_FSIZE) == here
    recorder._sender._retry_at = 0.0
    until(lambda: recorder.waiting == 0, "the run is written")
    (run,) = runs(tmp_path)
    assert (run.outcome, run.measured) == ("EXCEPTION", 20_000)


def test_a_second_station_is_refused_and_goes_on_only_where_records_are_not_required(recorder, tmp_path):
    with (
        mock.patch("qon_results.writer.lock.WAIT_SECONDS", 0.0),
        recording(tmp_path, required=False) as second,
    ):
        until(lambda: second._sender.condition.failed, "the refusal")
        assert "Another station" in second.trouble and str(writer(recorder)) in second.trouble
        assert second.may_start(mock.Mock(cell_number=1), "x") == ""


@pytest.mark.parametrize("what", ["newer", "damaged", "share", "low", "gone"])
def test_why_nothing_can_be_recorded_is_said_in_words(tmp_path, what, monkeypatch):
    with recording(tmp_path):
        pass
    path = tmp_path / file.FILE_NAME
    words = {"newer": "newer version", "damaged": "restore a backup", "share": "network share", "low": "MB left",
             "gone": "disappeared"}  # fmt: skip
    if what == "newer":
        connection = file.connect(path, write=True)
        connection.pragma("user_version", 99)
        connection.close()
    elif what == "damaged":
        path.write_bytes(path.read_bytes()[:100] + os.urandom(9000))
    elif what == "share":
        monkeypatch.setattr(place, "is_on_share", lambda _folder: "nfs4")
    elif what == "low":
        monkeypatch.setattr(place, "free_bytes", lambda _folder: 1000)
    with recording(tmp_path) as recorder:
        if what == "gone":
            shutil.rmtree(tmp_path)
        until(lambda: words[what] in recorder.trouble, words[what])
        assert recorder.may_start(mock.Mock(cell_number=1), "x") == recorder.trouble


def test_the_kind_of_a_file_system_is_read_from_the_list_of_mounts():
    lines = [r"22 1 8:1 / / rw - ext4 /dev/sda1 rw", r"30 22 0:50 / /mnt/line\040one rw shared:1 - nfs4 srv:/x rw",
             "31 22 8:2 / /mnt rw - xfs /dev/sdb rw", "broken line"]  # fmt: skip
    paths = {"/mnt/line one/results": "nfs4", "/mnt/line": "xfs", "/home/a": "ext4"}
    assert {path: place.mounted_as(path, lines) for path in paths} == paths


def test_a_clock_that_jumps_falsifies_neither_order_nor_duration(recorder, tmp_path):
    day = 86400.0
    for number, (before, after) in enumerate(((0, 0), (day, day), (day, -day), (-day, -day))):

        class Unit(StationUnit):
            begin_time = property(lambda self, before=before: super(StationUnit, self).begin_time + before)
            end_time = property(lambda self, after=after: time.time() + after, lambda self, value: None)

        unit = begin(f"SN{number}", unit_type=Unit)
        measure(unit, 2)
        end(unit)
    found = sorted(runs(tmp_path), key=lambda run: run.number)
    assert [run.serial_number for run in found] == ["SN0", "SN1", "SN2", "SN3"]
    assert all(0 < run.duration_us < 10e6 and run.end_us >= run.begin_us for run in found)
    with qon_results.open(tmp_path) as store:
        (figures,) = store.yields(Filter(until=datetime.datetime.now() + datetime.timedelta(hours=1)))
        assert figures.runs == 2
