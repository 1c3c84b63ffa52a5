"""One run of a cell: from the script's file and the start request to the end of its thread."""

import contextlib
import itertools
import os
import queue
import sys
import threading
import time
from pathlib import Path
from typing import Any

import pytest
import qon_ats
from hostcell import Host, HostCell
from qon_ats import UUT, Assertion
from qon_testparameters import BookParameters
from support import in_thread, script_text, unique_name, write_book, write_script

NOT_IN_THREAD = '"done" method must be call in Cell testing thread, not it\'s sub thread or any others.'


def test_a_run_from_start_to_done(host: Host) -> None:
    cell = host("""
        cell.notes.append((cell.is_busy(), cell.has_done(), threading.current_thread().cell_proxy is cell))
        self.assert_limits('a', 1, 0, 2)
        self.append_ok('b', 'text')""")
    assert (cell.is_ready(), cell.uut, cell._test_thread, cell.get_elapse_time()) == (True, None, None, 0)
    told: list[UUT] = []

    class Unit(UUT):
        def __init__(self, **arguments: Any) -> None:
            super().__init__(**arguments)
            self.given = arguments
            self.done_event.subscribe(told.append)

    cell.uut_type = Unit
    cell.start("SN7")
    cell.finish()
    assert cell.notes == [(True, False, True)]
    assert cell.uut.given == {"serial_number": "SN7", "cell_number": 1}
    assert (cell.uut.summer, told, cell.cleanups) == ("OK", [cell.uut], 1)
    assert [cell.fetch_an_assertion() for _ in range(2)] == cell.uut.assertions == cell.get_assertions()
    assert cell._assertion_queue.empty() and cell.no_ng_item()


OPEN = '"a" is still in "TBD"'
# What ends a run: body of run(), verdict, exception kept, description, part of the printed text.
ENDS: dict[str, tuple[str, str, Any, str, str]] = {
    "returns": ("self.append_ok('a', 1)", "OK", None, "", ""),
    "done": ("self.append_ok('a', 1)\nself.done()\nself.append_ng('b', 1)", "OK", None, "", ""),
    "abort": ("self.append_ok('a', 1)\nself.abort('why')\nself.append_ng('b', 1)", "OK", None, "", ""),
    "ng": ("self.append_ng('a', 1)\nself.append_ok('b', 1)", "NG", None, "a", ""),
    "ng_goes_on": ("self.append_ng('a', 1, stop_if_ng=False)\nself.append_ok('b', 1)", "NG", None, "", ""),
    "raises": ("self.append_ok('a', 1)\nraise KeyError('gone')", "TBD", KeyError, "", "KeyError: 'gone'"),
    "nothing": ("", "TBD", ValueError, "", "At least one assertion is needed"),
    "tbd": ("self.assert_limits('a', None, 0, 1)", "TBD", ValueError, "", OPEN),
    "tbd_done": ("self.assert_limits('a', None, 0, 1)\nself.done()", "TBD", None, "", OPEN),
    "abort_at_once": ("self.abort()", "TBD", None, "", "At least one assertion is needed"),
    "swallowed": ("try: self.done()\nexcept Exception: self.append_ok('a', 1)", "OK", None, "", ""),
}


@pytest.mark.parametrize("end", ENDS)
def test_every_end_of_a_script_is_the_end_of_the_run(end: str, host: Host) -> None:
    body, summer, exception, description, printed = ENDS[end]
    cell = host(body).run()
    assert (cell.uut.summer, cell.uut.done) == (summer, summer != "TBD")
    assert type(cell._exception_object) is (exception or type(None))
    assert cell._result_description == description
    assert printed in cell.text and bool(cell.text) is bool(printed)
    assert (cell.has_done(), cell.is_running(), cell.cleanups) == (True, True, 1)
    assert cell.is_aborted() is end.startswith("abort")
    assert cell.get_assertions() == cell.uut.assertions
    if printed:
        assert cell.text.startswith("Traceback") and cell.text.endswith("\n")
    if end == "raises":
        assert Path(cell.script).name in cell.text and "raise KeyError('gone')" in cell.text
    cell.reset_state()
    assert cell.is_ready()


def test_done_belongs_to_the_test_thread(host: Host) -> None:
    cell = host("cell.meet()\nself.append_ok('a', 1)\nself.done()")
    cell.start()
    cell.wait_reached()
    for call in (cell.done, lambda: in_thread(cell.done)):
        with pytest.raises(RuntimeError, match=f"^{NOT_IN_THREAD}$"):
            call()
    cell.go.set()
    assert cell.finish().uut.done and not cell.is_in_cell_test_thread()


def test_a_new_number_goes_to_the_old_unit_too_and_none_does_not(host: Host) -> None:
    cell = host("self.append_ok('a', 1)").run("first")
    old = cell.uut
    assert cell.run_again("second").uut is not old and cell.uut.serial_number == old.serial_number == "second"
    cell.run(None)
    assert (old.serial_number, cell.uut.serial_number, len(cell.get_assertions())) == ("second", None, 1)


def test_a_start_that_fails_leaves_the_cell_ready(host: Host) -> None:
    class Unit(UUT):
        def __init__(self, **_arguments: Any) -> None:
            raise OSError("no number left")

    cell = host("self.append_ok('a', 1)")
    cell.uut_type = Unit
    with pytest.raises(OSError):
        cell.start("SN1")
    cell.uut_type = UUT
    assert cell.is_ready() and cell.run().uut.is_ok


def test_a_measurement_after_the_unit_s_end_is_refused(host: Host) -> None:
    cell = host("self.append_ok('a', 1)\nself.uut.done = True\nself.append_ok('late', 1)").run()
    assert "UUT has done, no assertion could be added." in cell.text
    assert cell.names == [item.name for item in cell.uut.assertions] == ["a"]


def test_steps_of_a_start_and_their_overrides(host: Host) -> None:
    steps: list[Any] = []

    def traced(name: str) -> Any:
        def method(self: HostCell, *args: Any) -> Any:
            steps.append((name, *args))
            return getattr(HostCell, name)(self, *args)

        return method

    class Traced(HostCell):
        @property
        def running_state(self) -> int:
            return HostCell.running_state.fget(self)

        @running_state.setter
        def running_state(self, value: int) -> None:
            steps.append(value)
            HostCell.running_state.fset(self, value)

    traced_names = "handle_start_request do_start set_serial_number clear_last_test_data reset_state"
    for name in (*traced_names.split(), "append"):
        setattr(Traced, name, traced(name))
    cell = host("self.assert_limits('v', 1, 0, 2, category='power')", cell_type=Traced)
    cell.start("S")
    cell.finish()
    names = [step[0] if isinstance(step, tuple) else step for step in steps]
    assert names == [*traced_names.split(), 0, 1, "append"]
    assert steps[:3] == [(name, "S") for name in names[:3]]
    assert steps[-1] == ("append", cell.get_assertions()[0], None, "power")


@pytest.mark.parametrize(
    ("configured", "argument", "stops"),
    [(None, None, True), (True, None, True), (False, None, False), (False, True, True), (True, False, False)],
)
def test_when_an_ng_stops(configured: bool | None, argument: bool | None, stops: bool, host: Host) -> None:
    keys = {} if configured is None else {"stop_if_ng": configured}
    cell = host(f"self.append_ng('bad', 1, stop_if_ng={argument})\nself.append_ok('next', 1)", **keys).run()
    assert cell.names == (["bad"] if stops else ["bad", "next"])
    assert (cell._result_description, cell._ng_items) == ("bad" if stops else "", cell.get_assertions()[:1])
    assert cell._assertion_queue.qsize() == len(cell.names)


def test_the_queue_is_a_standard_queue_that_loses_nothing(host: Host, hasty_switching: None) -> None:
    """Whether its consumers wait, poll or look on."""
    cells = [host() for _ in range(2)]
    line = cells[0]._assertion_queue
    assert isinstance(line, queue.Queue) and (line.maxsize, line.qsize(), line.empty()) == (0, 0, True)
    cells[1]._assertion_queue = line
    got: list[list[str]] = [[], [], []]

    def produce(number: int) -> None:
        cells[number].uut = UUT()
        for index in range(3000):
            cells[number].append(Assertion(f"{number}.{index:04}", 1))

    def consume(mine: list[str], timeout: float | None) -> None:
        while "last" not in mine[-1:]:
            with contextlib.suppress(queue.Empty):
                mine.append(line.get(timeout=timeout).name)
                line.task_done()

    producers = [threading.Thread(target=produce, args=(number,)) for number in range(2)]
    consumers = [threading.Thread(target=consume, args=each) for each in zip(got, (None, 1e-5, 0), strict=True)]
    for thread in (*consumers, *producers):
        thread.daemon = True
        thread.start()
    for thread in producers:
        thread.join(60)
    line.join()
    for _ in consumers:
        line.put(Assertion("last", 1))
    for thread in consumers:
        thread.join(60)
    names = [[name for name in mine[:-1] if name[0] == number] for mine in got for number in "01"]
    every = [f"{number}.{index:04}" for number in range(2) for index in range(3000)]
    assert sorted(itertools.chain(*names)) == every
    assert names == [sorted(mine) for mine in names] and line.empty() and line.unfinished_tasks == 0


def test_elapse_time_follows_the_clock_until_the_end(host: Host, monkeypatch: pytest.MonkeyPatch) -> None:
    now = [1000.0]
    cell = host("cell.meet()\nself.append_ok('a', 1)")
    monkeypatch.setattr(time, "time", lambda: now[0])
    cell.start()
    cell.wait_reached()
    now[0] = 1012.5
    cell.update_elapse_begin_time()
    assert cell.get_elapse_time() == 12.5 and cell._elapse_begin_time == 1012.5
    cell.go.set()
    cell.finish()
    now[0] = 2000.0
    assert cell.get_elapse_time() == 12.5


def test_configurations_a_cell_can_be_built_from(in_tmp: Path) -> None:
    sheets = {"main": {}, "cell1": {"script": "one.py"}, "cell2": {"script": "two.py"}}
    path = write_book(in_tmp / "ats_config.xlsx", sheets)
    book = BookParameters(str(path))
    sheet = book.load_sheet("cell2")
    one, two = str(in_tmp / "one.py"), str(in_tmp / "two.py")
    cases = [(1, None, one), (2, str(path), two), (2, book, two), (7, sheet, two), (3, book, one)]
    for number, config, script in cases:
        cell = qon_ats.CellBase(number, config)
        assert (cell.script, cell.runner_class_name, cell.assertion_configs) == (script, "CellRunner", None)
    assert qon_ats.CellBase(3, BookParameters(str(path))).script == one  # before "cell1" was asked for
    bare = write_book(in_tmp / "bare.xlsx", {"main": {}})
    for number in (1, 4):
        with pytest.raises(ValueError, match="cell1"):
            qon_ats.CellBase(number, str(bare))


@pytest.mark.parametrize(("keys", "seen"), [({}, "bbb"), ({"reload_cell_runner": False}, "aaa")])
def test_edits_are_seen_by_the_next_run(keys: dict[str, Any], seen: str, host: Host) -> None:
    """As an engineer edits between two runs: same size, a later time of change."""
    cell = host.from_text(script_text("self.append_ok('aaa', 1)"), **keys)
    assert cell.run().names == ["aaa"]
    path = Path(cell.script)
    changed = path.stat().st_mtime + 5
    path.write_text(script_text("self.append_ok('bbb', 1)"), encoding="utf-8")
    os.utime(path, (changed, changed))
    assert cell.run_again().names == [seen]


def test_the_module_stays_that_of_the_first_run(host: Host) -> None:
    cell = host.from_text(script_text("self.append_ok('aaa', 1)")).run()
    module = cell._cell_runner_module
    cell.script = other = str(write_script(host.folder, script_text("self.append_ok('bbb', 1)")))
    assert (cell.run_again().names, cell.script, cell._cell_runner_module) == (["aaa"], other, module)


def test_the_path_gets_the_folder_once_at_its_end(host: Host) -> None:
    earlier, name = host.folder / "earlier", unique_name()
    earlier.mkdir()
    write_script(earlier, script_text("self.append_ok('earlier', 1)"), name)
    sys.path.append(str(earlier))
    script = write_script(host.folder, script_text("self.append_ok('later', 1)"), f"{name}.v2.final")
    first, second = host(script=str(script)), host(script=str(script))
    assert first.run().names == second.run().names == ["earlier"]
    assert sys.path[-1] == str(host.folder) and sys.path.count(str(host.folder)) == 1
    assert first._cell_runner_module is second._cell_runner_module is sys.modules[name]


def test_a_script_s_path_is_made_absolute(host: Host, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(host.folder)
    cell = host(script="sub/../relative.py", runner_class_name="Mine")
    assert (cell.script, cell.runner_class_name) == (str(host.folder / "relative.py"), "Mine")
    cell.script = "other.py"
    assert cell.script == str(host.folder / "other.py")
