"""The native module behaves as Python code would: signatures, look-ups, references, cycles."""

import contextlib
import gc
import inspect
import sys
import traceback
import types
import weakref
from typing import Any
from unittest import mock

import pytest
import qon_ats
import qon_handy
import qon_wxtools
import wx
from hostcell import Host
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


def test_half_built_objects_raise_and_do_not_crash() -> None:
    for make, attribute in ((Assertion, "name"), (UUT, "assertions"), (UUT, "summer"), (CellBase, "name")):
        bare = make.__new__(make)
        with contextlib.suppress(AttributeError, TypeError, RuntimeError):
            getattr(bare, attribute)
    for wrong in (lambda: Assertion.is_ok(UUT()), lambda: Assertion.is_ok()):
        with pytest.raises(TypeError):
            wrong()


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
