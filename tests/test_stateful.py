"""Records and engine against a model of them: public calls in any order, from the owner and from the script.

QON_EXAMPLES sets the number of orders, which are then others at each run.
"""

import contextlib
import os
import queue
import tempfile
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
import qon_ats
from hostcell import HostCell
from hypothesis import HealthCheck, settings
from hypothesis import strategies as st
from hypothesis.stateful import RuleBasedStateMachine, invariant, precondition, rule
from qon_ats import UUT, Assertion
from qon_testparameters import BookParameters, SheetParameters
from support import write_book

NAMES = st.sampled_from(["a", "b", "版本"])
VALUES = st.sampled_from([1, 9, None])  # OK, NG, TBD with the limits 0 to 2
VERDICTS = {1: True, 9: False, None: None}
CATEGORIES = st.sampled_from([None, "all", "power", ["power", "signal"], ["all", "signal"], []])
UPDATES = [({"value": 5}, True), ({"value": 5, "upper": 1}, False), ({"result": "pass"}, True), ({}, None)]
JUDGEMENTS = st.sampled_from(UPDATES)
WAYS = st.sampled_from(["append", "cell", "runner"])
Step = Callable[[qon_ats.CellRunnerBase], Any]


class CellRunner(qon_ats.CellRunnerBase):
    """This file is the cell's script too.  It does what the machine tells it."""

    def run(self) -> None:
        while (step := self.noumenon.inbox.get(timeout=60)) is not None:
            step(self)
            self.noumenon.outbox.put("done")

    def cleanup(self) -> None:
        self.noumenon.cleanups += 1


class Puppet(HostCell):
    def __init__(self, sheet: SheetParameters) -> None:
        super().__init__(1, sheet)
        self.inbox: queue.Queue[Step | None] = queue.Queue()
        self.outbox: queue.Queue[str] = queue.Queue()

    def check_pause(self) -> None:
        self.reached.set()
        super().check_pause()


def make_sheet() -> SheetParameters:
    with tempfile.TemporaryDirectory() as folder:
        keys = {"script": __file__, "reload_cell_runner": False, "none_unit": "pcs"}
        return BookParameters(str(write_book(Path(folder) / "c.xlsx", {"cell1": keys}))).load_sheet("cell1")


SHEET = make_sheet()


class Engine(RuleBasedStateMachine):
    """`live`: the script waits for a step; `blocked`: it waits for the end of a pause."""

    def __init__(self) -> None:
        super().__init__()
        self.cell = Puppet(SHEET)
        self.queue, self.cleanups = [], 0
        self.live = self.blocked = self.held = False
        self.forget()
        self.new_unit(None)

    def forget(self) -> None:
        self.busy = self.over = self.paused = self.aborted = False
        self.description = self.error = ""
        self.ngs: list[str] = []
        self.categories: dict[str, list[str]] = {"all": []}

    def new_unit(self, uut: UUT | None) -> None:
        self.items: list[list[Any]] = []  # name, verdict
        self.done = False
        self.told: list[UUT] = []
        if uut:
            uut.done_event.subscribe(self.told.append)

    # The owner's calls.

    @precondition(lambda self: not self.live)
    @rule(serial_number=st.sampled_from(["SN1", "", None]))
    def do_start(self, serial_number: str | None) -> None:
        self.cell.do_start(serial_number)
        self.forget()
        self.new_unit(self.cell.uut)
        self.live = self.busy = True

    @precondition(lambda self: self.busy)
    @rule(resumes=st.booleans())
    def start_while_busy(self, resumes: bool) -> None:
        (self.cell.handle_start_request if resumes else self.cell.start)("SN2")
        if resumes and self.paused:
            self.resumed()

    @precondition(lambda self: not self.live)
    @rule()
    def reset(self) -> None:
        self.cell.reset_state()
        self.forget()

    @rule()
    def pause(self) -> None:
        self.cell.pause()
        self.paused = self.held = True

    @rule()
    def resume(self) -> None:
        self.cell.resume()
        self.resumed()

    def resumed(self) -> None:
        self.held = False
        if self.blocked:
            self.pass_check_point()

    @rule()
    def abort(self) -> None:
        self.cell.abort("why")
        self.aborted, self.description = True, "why"
        self.resumed()

    @precondition(lambda self: self.queue)
    @rule()
    def fetch(self) -> None:
        assert self.cell.fetch_an_assertion().name == self.queue.pop(0)

    @precondition(lambda self: self.items)
    @rule(data=st.data(), judgement=JUDGEMENTS)
    def judge_again(self, data: st.DataObject, judgement: tuple[dict[str, Any], bool | None]) -> None:
        index = data.draw(st.integers(0, len(self.items) - 1))
        self.cell.uut.assertions[index].update(**judgement[0])
        self.items[index][1] = judgement[1]

    @precondition(lambda self: self.cell.uut)
    @rule(done=st.booleans())
    def set_done(self, done: bool) -> None:
        allowed = self.finish() if done else not self.done
        with contextlib.nullcontext() if allowed else pytest.raises(ValueError):
            self.cell.uut.done = done

    def finish(self) -> bool:
        """Whether the unit may be set done."""
        if not self.items or (not self.done and None in [verdict for _, verdict in self.items]):
            return False
        self.done = True
        return True

    # The script's steps.

    @precondition(lambda self: self.live and not self.blocked)
    @rule(name=NAMES, value=VALUES, category=CATEGORIES, stop=st.none() | st.booleans(), way=WAYS)
    def measure(self, name: str, value: Any, category: Any, stop: bool | None, way: str) -> None:
        calls: dict[str, Step] = {
            "append": lambda runner: runner.noumenon.append(Assertion(name, value, 0, 2), stop, category),
            "cell": lambda runner: runner.noumenon.assert_with_limits(name, value, 0, 2, "V", None, stop, category),
            "runner": lambda runner: runner.assert_limits(name, value, 0, 2, "V", stop, category),
        }
        way = "append" if isinstance(category, list) else way
        self.cell.inbox.put(calls[way])
        if way == "runner" and category is None:  # scripts name one; the engine's own calls take None too
            self.ended("TypeError")
            return
        if self.done:
            self.ended("ValueError")
            return
        self.items.append([name, VERDICTS[value]])
        self.queue.append(name)
        self.ngs += [name] if value == 9 else []
        named = category if isinstance(category, list) else [category or "all"]
        for each in [*named, *([] if "all" in named else ["all"])]:
            self.categories.setdefault(each, []).append(name)
        if value == 9 and stop is not False:
            self.description = name
            self.ended()
        else:
            assert self.cell.outbox.get(timeout=60)

    @precondition(lambda self: self.live and not self.blocked)
    @rule(how=st.sampled_from(["check", "sleep", "wrapped", "pause", "abort"]))
    def check_point(self, how: str) -> None:
        steps: dict[str, Step] = {
            "check": lambda runner: runner.check_abort(),
            "sleep": lambda runner: runner.sleep(0.0),
            "wrapped": lambda runner: runner.abortable(len)("abc"),
            "pause": lambda runner: runner.pause(),
            "abort": lambda runner: runner.abort("self"),
        }
        self.paused, self.aborted = self.paused or how == "pause", self.aborted or how == "abort"
        self.held = (self.held or how == "pause") and how != "abort"
        self.blocked = self.paused and self.held
        self.cell.reached.clear()
        self.cell.inbox.put(steps[how])
        if self.blocked:
            self.cell.wait_reached()
        else:
            self.pass_check_point()

    def pass_check_point(self) -> None:
        self.paused = self.blocked = False
        if self.aborted:
            self.description = ""
            self.ended()
        else:
            assert self.cell.outbox.get(timeout=60)

    @precondition(lambda self: self.live and not self.blocked)
    @rule(error=st.sampled_from(["returns", "", "ZeroDivisionError"]))
    def end(self, error: str) -> None:
        steps = {"returns": None, "": lambda runner: runner.done(), "ZeroDivisionError": lambda _runner: 1 / 0}
        self.cell.inbox.put(steps[error])
        self.ended(error)

    def ended(self, error: str = "") -> None:
        if error not in ("returns", ""):
            self.error = error
        elif not self.finish() and error == "returns":
            self.error = "ValueError"
        self.cell.finish()
        self.cleanups += 1
        self.live, self.over = False, True

    @invariant()
    def agrees(self) -> None:
        cell, uut = self.cell, self.cell.uut
        states = (cell.is_running(), cell.is_ready(), cell.is_busy(), cell.is_paused(), cell.has_done())
        assert states == (self.busy, not self.busy, self.busy and not self.paused, self.paused, self.over)
        assert (cell.is_aborted(), cell._result_description) == (self.aborted and self.over, self.description)
        assert [item.name for item in cell._ng_items] == self.ngs and cell.no_ng_item() is not bool(self.ngs)
        assert {key: [item.name for item in each] for key, each in cell._assertion_category.items()} == self.categories
        assert (cell._assertion_queue.qsize(), cell.cleanups) == (len(self.queue), self.cleanups)
        assert (type(cell._exception_object).__name__ if self.error else cell._exception_object) == (self.error or None)
        if uut:
            bad = [name for name, verdict in self.items if verdict is False]
            summer = "NG" if bad else "OK" if self.items and self.done else "TBD"
            assert [[item.name, item.get_result_as_bool()] for item in uut.assertions] == self.items
            assert (uut.summer, uut.done, self.told) == (summer, self.done, [uut] * self.done)
            assert (uut.is_ng, uut.is_ok, cell.is_ok()) == (bool(bad), *[self.done and not bad] * 2)
            assert uut.first_ng_item_name() == (bad[0] if bad else "")

    def teardown(self) -> None:
        if self.live:
            self.cell.abort()
            self.cell.inbox.put(None)
            self.cell.finish()


EXAMPLES = os.environ.get("QON_EXAMPLES")
TestEngine = Engine.TestCase
TestEngine.settings = settings(max_examples=int(EXAMPLES or "60"), derandomize=not EXAMPLES, stateful_step_count=40)
TestEngine.settings = settings(TestEngine.settings, deadline=None, database=None, suppress_health_check=HealthCheck)
