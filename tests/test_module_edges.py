"""The native module behaves as Python code would: signatures, look-ups, references, cycles."""

import gc
import inspect
import sys
import traceback
import types
import typing
import weakref
from typing import Any
from unittest import mock

import pytest
import qon_ats
import qon_handy
import qon_wxtools
import wx
from hostcell import Host, runner_of
from qon_ats import UUT, Assertion, CellBase, Statistics
from support import Boxes

RECORDS: list[Any] = [
    lambda: Assertion("a", 1, 0, 2),
    lambda: UUT("SN"),
    lambda: Statistics(1, 2),
    lambda: qon_ats.TestItem("a", Assertion("a"), print),
    lambda: qon_ats.CallUserFunctionInfo(print, True),
]


@pytest.mark.parametrize("make", RECORDS)
def test_cycles_through_records_are_collected(make: Any) -> None:
    class Cycle(type(make())):  # type: ignore[misc]
        pass

    plain, sub = make(), Cycle.__new__(Cycle)
    plain.myself = plain
    sub.other = [sub]
    alive = [weakref.ref(plain), weakref.ref(sub)]
    del plain, sub
    gc.collect()
    assert [ref() for ref in alive] == [None, None]


def test_a_record_grown_into_a_cycle_after_collections_is_collected() -> None:
    uut = UUT()
    items = [Assertion(str(n), n, 0, 10, "V") for n in range(10)]
    for item in items:
        uut.append_assertion(item)
    gc.collect()
    gc.collect()
    alive = [weakref.ref(item) for item in items]
    items[0].unit_under_test = uut
    items[1].update(value=[items[1]])
    uut.assertions.pop(1)
    del uut, items, item
    gc.collect()
    assert [ref() for ref in alive] == [None] * 10


def test_bound_methods_are_methods(host: Host) -> None:
    for owner, name in ((host(), "pause"), (Assertion("a"), "is_ok"), (UUT(), "first_ng_item_name")):
        method = getattr(owner, name)
        assert inspect.ismethod(method) and method.__self__ is owner
        assert weakref.WeakMethod(method)() == method
    assert mock.create_autospec(CellBase.sleep) is not None


@pytest.mark.parametrize("kind", [Assertion, UUT, Statistics, qon_ats.TestItem, CellBase, qon_ats.Cell])
def test_half_built_objects_say_what_is_missing(kind: Any) -> None:
    half_built = type("Bare", (kind,), {"__init__": lambda self: None})
    missing = 0
    for member in vars(kind).values():
        if isinstance(member, property):
            ask = member.fget
        elif isinstance(member, type(CellBase.start)) and len(inspect.signature(member).parameters) == 1:
            ask = member
        else:
            continue
        try:
            ask(half_built())  # type: ignore[misc]
        except (AttributeError, RuntimeError) as error:  # wx: "super-class __init__() was never called"
            missing += "__init__" in str(error) or "no attribute '" in str(error)
    assert missing > 3
    with pytest.raises(AttributeError, match="_UUT__done"):
        type("Bare", (UUT,), {"__init__": lambda self: None})().append_assertion(Assertion("a", 1))
    for wrong in (lambda: Assertion.is_ok(UUT()), lambda: Assertion.is_ok()):
        with pytest.raises(TypeError):
            wrong()


def test_a_long_chain_of_records_ends_without_recursion() -> None:
    for link in (lambda last: Assertion("a", last), lambda last: qon_ats.TestItem("t", last, print)):
        chain: Any = None
        for _ in range(300_000):
            chain = link(chain)
        del chain


def test_methods_that_call_each_other_end_in_recursion_error() -> None:
    class Loop(Assertion):
        update = Assertion.__init__  # type: ignore[assignment]

    with pytest.raises(RecursionError):
        Loop("a")


def test_an_error_in_a_look_up_is_not_swallowed() -> None:
    class Key(str):
        __hash__ = str.__hash__

        def __eq__(self, other: object) -> bool:
            raise ZeroDivisionError

    assertion = Assertion("a")
    vars(assertion)[Key("_Assertion__elapse_time")] = 1
    with pytest.raises(ZeroDivisionError):
        assertion.get_elapse_time()


def test_signatures_and_types_are_told() -> None:
    first = {Assertion: "name", UUT: "serial_number", Statistics: "ok", qon_ats.TestItem: "name"}
    assert {kind: next(iter(inspect.signature(kind).parameters)) for kind in first} == first
    hints = typing.get_type_hints(qon_ats.CellRunnerBase.assert_percent_limits)
    assert (hints["name"], hints["mean"], hints["unit"]) == (str, float, str | None)


class Reading:
    """Has the methods that are called, and nothing else."""

    def __init__(self, unit: str | None = "V") -> None:
        self.unit = unit

    def get_unit(self) -> str | None:
        return self.unit

    def set_unit(self, unit: str) -> None:
        self.unit = unit

    def is_ng(self) -> bool:
        return False

    def get_name(self) -> str:
        return "reading"


@pytest.mark.parametrize(
    ("item", "category"),
    [(5, "all"), (None, "all"), (Assertion("a", 1, unit=None), {}), (Assertion("a", 1), ["b", []])],
)
def test_what_cannot_be_recorded_whole_is_refused_whole(host: Host, item: Any, category: Any) -> None:
    cell = host()
    cell.uut = UUT()
    reading = Reading(None)
    cell.append(reading)
    with pytest.raises(TypeError):
        cell.append(item, None, category)
    assert cell.uut.assertions == cell.get_assertions() == list(cell._assertion_queue.queue) == [reading]
    assert reading.unit == "" and set(cell._assertion_category) == {"all"}
    assert not isinstance(item, Assertion) or item.unit in (None, "")
    with pytest.raises(TypeError):
        cell.uut.append_assertion(5)


def test_the_runner_checks_numbers_and_hands_them_on_as_given(host: Host) -> None:
    cell = host()
    cell.update_percentage = cell.increase_percentage = cell.notes.append  # type: ignore[attr-defined]
    runner = runner_of(cell)
    for percent in (5, 2.5):
        runner.update_percentage(percent)
        runner.increase_percentage(percent)
    assert list(map(type, cell.notes)) == [int, int, float, float]
    for wrong in (
        lambda: runner.update_percentage("5"),
        lambda: runner.assert_limits("a", 1, 0, 2, category=None),
        lambda: runner.assert_result("a", 1, True, unit=None),
        lambda: runner.try_limits("a", 1, 0, 2, unit=None),
    ):
        with pytest.raises(TypeError):
            wrong()


@pytest.mark.parametrize("loaded", [True, False])
def test_a_cell_without_a_sheet_asks_for_the_first_before_loading_it(host: Host, loaded: bool) -> None:
    asked: list[str] = []
    sheet = host().cell_config

    class Book(qon_ats.BookParameters):  # type: ignore[name-defined, misc]
        def __init__(self) -> None:
            self.loaded = loaded

        def has_sheet(self, name: str) -> bool:
            return False

        def get_sheet_parameters(self, name: str) -> Any:
            asked.append(f"get {name}")
            if not self.loaded:
                raise KeyError(name)
            return sheet

        def load_sheet(self, name: str) -> Any:
            asked.append(f"load {name}")
            if name != "cell1":
                raise ValueError(name)
            self.loaded = True

    assert CellBase(3, Book()).cell_config is sheet
    assert asked == ["load cell3", "get cell1"] + ([] if loaded else ["load cell1", "get cell1"])


def test_the_siblings_of_the_moment(host: Host, boxes: Boxes, monkeypatch: pytest.MonkeyPatch) -> None:
    cell = host("raise KeyError", cleanup="raise OSError('x')")
    monkeypatch.setattr(qon_handy, "format_exception", lambda *args, **kwargs: ["one\n", f"{args}{kwargs}\n"])
    assert cell.run().text == "one\n(){'skip_level': 1}\n"
    monkeypatch.setattr(qon_ats, "_format_exception", lambda skip_level: ["own ", f"{skip_level}"])
    assert host("self.done()").run().text == "own 0"
    shown: list[str] = []
    monkeypatch.setattr(qon_ats, "MB", types.SimpleNamespace(Error=shown.append))
    cell.run_again()
    assert (shown, boxes.of("Error")) == (["Cleanup fail: x."], ["Cleanup fail: x."])
    monkeypatch.undo()
    monkeypatch.setattr(qon_wxtools, "MB", types.SimpleNamespace(Error=lambda text: shown.append("other")))
    cell.run_again()
    assert shown[-1] == "other"


def test_the_handled_exception_is_the_formatted_one(host: Host, monkeypatch: pytest.MonkeyPatch) -> None:
    seen: list[Any] = []
    monkeypatch.setattr(qon_handy, "format_exception", lambda **_: seen.append(sys.exc_info()) or [""])
    cell = host("raise KeyError('k')").run()
    kind, error, trace = seen[0]
    assert (kind, error) == (KeyError, cell._exception_object) and trace is not None
    frames = [frame.f_code.co_name for frame, _ in traceback.walk_tb(trace)]
    assert frames == ["_do_run_script", "run"]
    assert sys.exc_info() == (None, None, None)


def test_the_gui_call_of_the_moment_is_used(monkeypatch: pytest.MonkeyPatch) -> None:
    posted: list[Any] = []
    monkeypatch.setattr(wx, "CallAfter", lambda *args: posted.append(args))
    cell = qon_ats.Cell.__new__(qon_ats.Cell)
    cell.ui_test_logger = types.SimpleNamespace(AppendText="append")
    cell.print("abc")
    assert posted == [("append", "abc\n")]
