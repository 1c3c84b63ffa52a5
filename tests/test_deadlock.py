"""No native lock is held while Python code runs: that code may wait for another thread that uses the same objects."""

import contextlib
import threading
from collections.abc import Callable
from typing import Any

import qon_ats
from hostcell import Host
from qon_ats import UUT, Assertion


class Meddler:
    """Code of a script that native calls call: it uses the same cell and unit in another thread, to the end."""

    def __init__(self, cell: qon_ats.CellBase) -> None:
        self.cell, self.asked, self.busy = cell, 0, False

    def __call__(self, *_arguments: Any) -> bool:
        if not self.busy:
            self.busy, self.asked = True, self.asked + 1
            other = threading.Thread(target=self.use)
            other.start()
            other.join(10)
            assert not other.is_alive(), "the other thread waits for a lock that this one holds"
            self.busy = False
        return True

    def use(self) -> None:
        with contextlib.suppress(ValueError):  # the unit is done
            self.cell.append(Assertion("inner", 1), category=["all", "inner"])
        assert self.cell.uut.summer != "NG" and not self.cell._assertion_queue.empty()
        assert self.cell.export_assertion_config() and self.cell.get_assertions("inner")

    __ge__ = __le__ = __bool__ = __call__


def test_code_called_by_native_calls_may_wait_for_other_threads(host: Host) -> None:
    cell = host()
    meddler = Meddler(cell)

    class Item(Assertion):
        is_ng = is_tbd = get_unit = lambda self: not meddler()

    class Unit(UUT):
        def append_assertion(self, assertion: Assertion) -> None:
            meddler()
            super().append_assertion(assertion)

    cell.uut = Unit()
    cell.uut.done_event.subscribe(meddler)
    steps: dict[str, Callable[[], Any]] = {
        "limits": lambda: cell.assert_with_limits("a", meddler, meddler, meddler),
        "result": lambda: cell.assert_with_result("b", 1, meddler),
        "record": lambda: cell.append(Item("c", 1)),
        "verdict": lambda: cell.uut.summer,
        "done": lambda: setattr(cell.uut, "done", True),
    }
    for name, step in steps.items():
        asked = meddler.asked
        step()
        assert meddler.asked > asked, f"{name} did not ask"
    assert len(cell.get_assertions()) == len(cell.uut.assertions) == cell._assertion_queue.qsize()
