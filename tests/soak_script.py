"""The script of the soak: does at random whatever a script may do, and counts what it did in a ledger of its own."""

import contextlib
import random
import threading
import time
from collections import Counter
from collections.abc import Callable
from dataclasses import dataclass, field
from typing import Any

import qon_ats

STEPS = {"burst": 100, "judge_later": 4, "help": 4, "post": 8, "ask": 0.3, "pause": 1, "wait": 10}
ENDS = {"get_cell_name": 60, "done": 10, "stop_on_ng": 10, "give_up": 8, "fail": 8, "leave": 1}
POINTS = ("before the thread", "constructor", "run", "question", "sleep", "last item", "done", "cleanup", "never")


@dataclass
class Ledger:
    """One run, as its script and the operator saw it."""

    seed: int
    size: int
    point: str  # of the run, at which the operator interrupts
    queued_before: int
    interrupt: Callable[[], None] = bool
    since: float = field(default_factory=time.monotonic)
    begun: bool = False
    end: str = "returned"
    aborted: bool = False
    answer: Any = None
    items: Counter[str] = field(default_factory=Counter)  # "measurements", NG, TBD, and by category
    did: Counter[str] = field(default_factory=Counter)

    def count(self, ok: bool | None, category: str = "") -> None:
        self.items["measurements"] += 1
        self.items["NG"] += ok is False
        self.items["TBD"] += ok is None
        self.items[category] += 1

    def outcome(self) -> tuple[bool, str, str]:
        """Whether the unit has to be done, its verdict, and the word in the history."""
        failed = self.end in ("OSError", "constructor") or (self.end == "returned" and self.items["TBD"] > 0)
        done = not failed and self.end != "SystemExit" and not self.items["TBD"]
        verdict = "NG" if self.items["NG"] else "OK" if done else "TBD"
        return done, verdict, "Aborted" if self.aborted else "Exception Aborted" if failed else verdict


class Runner(qon_ats.CellRunnerBase):
    """One unit's test.  Items are counted before they are recorded: one that gets lost on its way is missed."""

    def __init__(self) -> None:
        super().__init__()
        self.ledger: Ledger = self.noumenon.ledger
        self.chance = random.Random(self.ledger.seed)
        self.bad = self.chance.choice((0, 0, 0.001, 0.2))
        self.helpers: list[tuple[threading.Thread, Counter[str]]] = []
        self.uut.done_event.subscribe(lambda _uut: self.ledger.did.update(told=1))
        self.uut.done_event.subscribe(lambda _uut: self.reach("done"))
        self.reach("constructor")
        if self.chance.random() < 0.02:
            self.ledger.end = "constructor"
            raise OSError("the supply does not answer")
        self.ledger.did["built"] += 1

    def reach(self, point: str) -> None:
        """At its point the run is interrupted; it stands still meanwhile, or goes on."""
        if point == self.ledger.point:
            self.ledger.point = ""
            waits = self.chance.random() < 0.5 and point not in ("question", "sleep")
            (self.call_user_function if waits else self.call_user_function_no_wait)(self.ledger.interrupt)

    def do_one_of(self, weights: dict[str, float]) -> None:
        (step,) = self.chance.choices(list(weights), list(weights.values()))
        self.ledger.did[step] += 1
        getattr(self, step)()

    def run(self) -> None:
        try:
            self.burst()
            while self.ledger.items["measurements"] < self.ledger.size:
                self.do_one_of(STEPS)
                self.reach("run")
            if self.ledger.point in ("question", "sleep"):
                self.ask() if self.ledger.point == "question" else self.wait(0.2)
            self.reach("last item")
            self.do_one_of(ENDS)
        except BaseException as error:
            self.ledger.end = type(error).__name__
            raise

    def cleanup(self) -> None:
        self.ledger.did["cleaned"] += 1
        self.reach("cleanup")
        for helper, items in self.helpers:
            helper.join(60)
            assert not helper.is_alive()
            self.ledger.items += items
        late = self.record("LATE", self.ledger.items)
        assert late is not self.uut.done  # a unit that is done takes no more; one left by an exception does
        if self.chance.random() < 0.01:
            self.ledger.did["failed cleanup"] += 1
            raise OSError("relay stuck")

    def record(self, name: str, items: Counter[str]) -> bool:
        """Whether the unit took one more; from any thread."""
        try:
            self.append_ok(name, 1, category=name)
        except ValueError:
            return False
        items.update(("measurements", name))
        return True

    def burst(self) -> None:
        count, uniform, bad = self.ledger.count, self.chance.uniform, self.bad
        category = self.chance.choice(("power", "signal"))
        for index in range(self.chance.randrange(1, 12 + self.ledger.size // 4)):
            value = uniform(4.5 - bad, 5.5 + bad)
            count(4.5 <= value <= 5.5, category)
            self.assert_limits(f"VOUT{index}", value, 4.5, 5.5, "V", False, category)

    def judge_later(self) -> None:
        self.ledger.count(None)
        item = self.assert_limits("LED", None, 0, 1)
        if self.chance.random() < 0.95:
            item.update(value=1, lower=0, upper=1)
            self.ledger.items["TBD"] -= 1

    def help(self) -> None:
        """Another thread records too; some go on until the unit is done."""
        items: Counter[str] = Counter()
        most = self.chance.choice((0.1, 0.1, 0.1, 3)) * self.ledger.size

        def work() -> None:
            with contextlib.suppress(RuntimeError):  # only the test thread may
                self.done()
            while items["measurements"] < most and self.record("HELPER", items):
                pass

        self.helpers.append((threading.Thread(target=work), items))
        self.helpers[-1][0].start()

    def post(self) -> None:
        pending = self.call_user_function_delay_wait(max, 3, 7)
        self.call_user_function_no_wait(self.get_shared_obj("ran").append, 1)
        self.print("第一步")
        self.set_prompt("Fit the board", "white")
        self.increase_percentage(5)
        assert self.call_user_function(min, 3, 7) == 3
        pending.wait()
        assert pending.result == 7

    def ask(self) -> None:
        question = self.chance.choice((self.ask_true_or_false, self.input_text, self.notice_box))
        self.reach("question")
        answer = question("LED lit?")
        assert answer == (None if question == self.notice_box else self.ledger.answer)

    def wait(self, most: float = 0.03) -> None:
        self.reach("sleep")
        self.sleep(self.chance.uniform(0, most), 0.01)

    def stop_on_ng(self) -> None:
        self.ledger.count(False)
        self.append_ng("SHORT", 0)

    def give_up(self) -> None:
        self.ledger.aborted = True
        self.abort("by the script")

    def fail(self, kind: type[BaseException] = OSError) -> None:
        raise kind("the meter does not answer")

    def leave(self) -> None:
        self.fail(SystemExit)
