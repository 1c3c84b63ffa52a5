"""The unit that a station keeps: hooks around a run, its outcome, and what nothing can change afterwards."""

import gc
import os
import pickle
import sys
import weakref
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
import qon_ats
import qon_station
from hostcell import Host, HostCell
from qon_station.outcome import NotRecorded, Outcome
from qon_station.runs import StationRuns
from support import PATIENCE, script_text, unique_name, write_script

OK_ITEM = "self.append_ok('item', 1)"


class KeptCell(StationRuns, HostCell):
    """An engine cell as a station has it."""


@pytest.fixture
def kept(host: Host, installed: None) -> Callable[..., Any]:
    """Makes such cells."""
    return lambda run="pass", cleanup="pass", **more: host(run, cleanup, cell_type=KeptCell, **more)


# How a script ends, and what cell, list and record have to tell of it.
ENDS: dict[str, tuple[str, str, str, str]] = {
    OK_ITEM: ("OK", "", "OK", ""),
    "self.append_ng('volts', 1)": ("NG", "volts", "NG", "volts"),
    "self.append_ng('volts', 1, stop_if_ng=False)": ("NG", "volts", "NG", "volts"),
    "self.append(qon_ats.Assertion('led')); self.done()": ("TBD", "No verdict for led", "TBD", ""),
    "self.done()": ("TBD", "Nothing was measured", "TBD", ""),
    "": ("EXCEPTION", "ValueError: At least one assertion is needed", "TBD", "exception"),
    f"{OK_ITEM}; self.abort('lid opened')": ("ABORTED", "lid opened", "TBD", "aborted"),
    "self.append_ng('a', 1, stop_if_ng=False); cell.abort('lid')": ("ABORTED", "lid", "TBD", "aborted"),
    "self.append_ng('a', 1, stop_if_ng=False); 1 / 0": ("EXCEPTION", "ZeroDivisionError", "TBD", "exception"),
}


@pytest.mark.parametrize("run", ENDS)
def test_however_a_run_ends_its_unit_is_final_and_all_hear_the_same(kept: Any, run: str) -> None:
    kind, reason, summer, first = ENDS[run]
    heard: list[Any] = []
    cell = kept(run)
    qon_station.run_ended.subscribe(lambda *told: heard.append((*told, cell.has_done())))
    unit = cell.run().uut
    assert [(each.kind, done) for _unit, each, done in heard] == [(kind, False)]
    assert cell.has_done() and unit.outcome == heard[0][1] and reason in unit.outcome.reason
    assert (unit.summer, unit.first_ng_item_name(), unit.is_ok) == (summer, first, kind == "OK")
    assert (cell.is_aborted(), cell._exception_object is None) == (kind == "ABORTED", kind != "EXCEPTION")
    end, took = unit.end_time, unit.duration
    kept_copy = pickle.loads(pickle.dumps(unit))
    assert (kept_copy.outcome, kept_copy.duration, kept_copy.cell) == (unit.outcome, took, None)
    cell.abort("too late")
    cell.set_serial_number("SN2")
    unit.done = True
    with pytest.raises(ValueError, match="has ended"):
        unit.append_assertion(qon_ats.Assertion("late", 1))
    cell.run_again("SN3")
    assert (unit.serial_number, unit.end_time, unit.duration, unit.outcome.kind) == ("SN1", end, took, kind)
    assert cell.uut.outcome.kind == kind and cell.uut.scanned_serial_number == "SN3"


def test_nobody_else_reads_ok_before_the_run_has_ended_so(kept: Any) -> None:
    """The script itself may ask in its cleanup; the windows wait for those that record the run."""
    seen: list[Any] = []
    cell = kept(OK_ITEM, "cell.notes.append((self.is_ok(), self.uut.summer)); cell.meet()")
    qon_station.run_ended.subscribe(lambda unit, _outcome: seen.append((unit.outcome.kind, unit.is_ok)))
    cell.do_start("SN1")
    cell.wait_reached()
    unit = cell.uut
    assert (unit.done, unit.is_ok, unit.summer, unit.outcome, cell.has_done()) == (
        True,
        False,
        "TBD",
        None,
        False,
    )
    cell.go.set()
    cell.finish()
    assert (
        cell.notes == [(True, "OK")] and seen == [("OK", True)] and (unit.is_ok, unit.summer) == (True, "OK")
    )


def test_listeners_harm_no_other_and_what_is_not_stored_is_not_ok(
    kept: Any, caplog: pytest.LogCaptureFixture
) -> None:
    heard: list[str] = []

    def fails(_unit: Any, _outcome: Outcome) -> None:
        raise SystemExit("listener")

    def stores(_unit: Any, _outcome: Outcome) -> None:
        raise NotRecorded("disk full")

    qon_station.run_ended.subscribe(fails)
    qon_station.run_ended.subscribe(lambda _unit, outcome: heard.append(str(outcome)))
    qon_station.run_ended.subscribe(stores)
    good, bad = kept(OK_ITEM).run(), kept("self.append_ng('volts', 1)").run()
    assert (good.uut.outcome.kind, good.uut.summer, str(good._exception_object)) == (
        "EXCEPTION",
        "TBD",
        "disk full",
    )
    assert (bad.uut.outcome.kind, bad.uut.outcome.reason) == ("NG", "volts; disk full")
    assert heard == ["OK", "EXCEPTION: disk full", "NG: volts", "NG: volts; disk full"], (
        "told again when it changed"
    )
    assert "fails failed at the end" in caplog.text and "disk full" in caplog.text


def test_a_listener_that_raises_before_the_run_ends_it_before_the_script_begins(kept: Any) -> None:
    def refuse(unit: qon_station.StationUnit) -> None:
        raise LookupError(f"no record for {unit.serial_number} in {Path(unit.script).suffix}")

    cell = kept("cell.notes.append('begun')")
    qon_station.before_run.subscribe(refuse)
    cell.run()
    assert (cell.notes, cell.cleanups) == ([], 0) and "no record for SN1" in cell.text
    assert cell.uut.outcome.kind == "EXCEPTION" and "no record for SN1 in .py" in cell.uut.outcome.reason


def test_what_a_script_leaves_behind_is_named_and_writes_nothing_into_the_next_unit(kept: Any) -> None:
    """A thread with the runner, one that is about to end, and an executor that outlives the runs."""
    cell = kept(
        """
        from concurrent.futures import ThreadPoolExecutor
        def write():
            cell.go.wait(60)
            try:
                self.append_ok('late', 1)
            except RuntimeError as refused:
                cell.notes.append((self.cell_number, self.uut.serial_number, str(refused)))
        if not hasattr(cell, 'pool'):
            cell.pool = ThreadPoolExecutor(1)
            cell.writer = threading.Thread(target=write, name='writer')
            cell.writer.start()
        threading.Thread(target=time.sleep, args=(0.02,), name='ending').start()
        self.append_ok('item', cell.pool.submit(self.try_limits, 'a', 1, 0, 2).result().value)
        """
    )
    cell.run("SN1")
    assert '"writer" of this test goes on' in cell.text and "ending" not in cell.text
    cell.output.clear()
    cell.run_again("SN2")
    cell.go.set()
    cell.writer.join(PATIENCE)
    assert cell.uut.outcome.kind == "OK" and [each.name for each in cell.uut.assertions] == ["item"]
    [(number, serial_number, refused)] = cell.notes
    assert (
        (number, serial_number) == (1, "SN1")
        and "the run of SN1 has ended" in refused
        and "writer" in refused
    )
    assert cell.text == "", "named once, and an idle worker never"
    cell.pool.shutdown()


@pytest.mark.parametrize("run", [OK_ITEM, "1 / 0"])
def test_a_unit_that_nobody_keeps_is_freed_without_the_collector(kept: Any, run: str) -> None:
    """It holds all that was measured."""
    cell = kept(run)
    gc.disable()
    unit = weakref.ref(cell.run().uut)
    cell.run_again()
    gc.enable()
    assert unit() is None


def other_file(folder: Path, script: Path) -> None:
    """A module of the same name is imported from elsewhere first."""
    (folder / "elsewhere").mkdir()
    other = write_script(folder / "elsewhere", script_text("self.append_ok('other', 1)"), script.stem)
    sys.path.insert(0, str(other.parent))


def gone(_folder: Path, script: Path) -> None:
    script.unlink()


def without_class(_folder: Path, script: Path) -> None:
    script.write_text(script.read_text().replace("class CellRunner", "class Renamed"))


@pytest.mark.parametrize(
    ("change", "reason"),
    [(other_file, "elsewhere"), (gone, "does not exist"), (without_class, 'Class "CellRunner" not found')],
)
def test_the_script_that_runs_is_the_one_that_is_configured(
    kept: Any, tmp_path: Path, change: Callable[[Path, Path], None], reason: str
) -> None:
    cell = kept(OK_ITEM)
    script = Path(cell.script)
    if change is not other_file:
        assert cell.run().uut.is_ok
    change(tmp_path, script)
    unit = cell.run_again().uut
    assert unit.outcome.kind == "EXCEPTION" and reason in unit.outcome.reason and not unit.assertions


def test_another_script_and_an_edit_that_another_cell_has_not_seen_take_effect(
    kept: Any, tmp_path: Path
) -> None:
    first, second = kept(OK_ITEM), kept(OK_ITEM)
    assert first.run().names == ["item"]
    script = Path(first.script)
    second.script = str(script)
    script.write_text(script.read_text().replace("'item'", "'edited item'"))
    assert second.run().names == ["edited item"]
    second.script = str(write_script(tmp_path, script_text("self.append_ok('new', 1)"), unique_name()))
    assert second.run_again().names == ["new"]
    assert os.path.samefile(second.uut.script, second.script)
