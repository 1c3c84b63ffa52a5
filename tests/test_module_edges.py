"""The native module behaves as Python code would: signatures, look-ups, references, cycles."""

import contextlib
import gc
import inspect
import subprocess
import sys
import time
import traceback
import types
import weakref
from pathlib import Path
from textwrap import dedent
from typing import Any
from unittest import mock

import pytest
import qon_ats
import qon_handy
import qon_wxtools
import wx
from hostcell import Host
from qon_ats import UUT, Assertion, CellBase, Statistics
from support import Boxes, script_text, unique_name, write_book, write_script

RECORDS: list[Any] = [
    lambda: Assertion("a", 1, 0, 2),
    lambda: UUT("SN"),
    lambda: Statistics(1, 2),
    lambda: qon_ats.TestItem("a", Assertion("a"), print),
    lambda: qon_ats.CallUserFunctionInfo(print, True),
]


@pytest.mark.parametrize("make", RECORDS)
def test_records_are_ordinary_objects(make: Any) -> None:
    record = make()
    record.note = "extra"
    assert (record.note, record.__dict__["note"]) == ("extra", "extra")
    alive = weakref.ref(record)
    assert alive() is record and record == record and record != make() and len({record, make()}) == 2
    del record
    assert alive() is None


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


def test_script_cell_and_records_are_collected_together(host: Host) -> None:
    cell = host("""
        self.append_ok("a", 1)
        self.uut.runner = self
        self.uut.assertions[0].cell = cell
        cell.callback = lambda: (self, cell)
        cell.uut.done_event.subscribe(cell.notes.append)
    """).run()
    alive = [weakref.ref(cell), weakref.ref(cell.uut), weakref.ref(cell.uut.assertions[0])]
    cell._test_thread = None
    host.cells.clear()
    del cell
    gc.collect()
    assert [ref() for ref in alive] == [None] * 3


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
    with pytest.raises(TypeError):
        Assertion.is_ok(UUT())
    with pytest.raises(TypeError):
        Assertion.is_ok()


def test_replaced_siblings_are_used_at_the_moment_of_the_call(
    host: Host, boxes: Boxes, monkeypatch: pytest.MonkeyPatch
) -> None:
    cell = host("raise KeyError", cleanup="raise OSError('x')")
    monkeypatch.setattr(qon_handy, "format_exception", lambda *args, **kwargs: ["one\n", f"{args}{kwargs}\n"])
    assert cell.run().text == "one\n(){'skip_level': 1}\n"
    monkeypatch.setattr(qon_ats, "_format_exception", lambda skip_level: ["own ", f"{skip_level}"])
    failing = host("self.done()").run()
    assert failing.text == "own 0"
    shown: list[str] = []
    monkeypatch.setattr(qon_ats, "MB", types.SimpleNamespace(Error=shown.append))
    cell.reset_state()
    cell.run()
    assert (shown, boxes.of("Error")) == (["Cleanup fail: x."], ["Cleanup fail: x."])
    other = types.SimpleNamespace(Error=lambda text: shown.append("other"))
    monkeypatch.undo()
    monkeypatch.setattr(qon_wxtools, "MB", other)
    cell.reset_state()
    cell.run()
    assert shown[-1] == "other"


def test_the_handled_exception_is_the_one_being_formatted(
    host: Host, monkeypatch: pytest.MonkeyPatch
) -> None:
    seen: list[Any] = []
    monkeypatch.setattr(qon_handy, "format_exception", lambda **_: seen.append(sys.exc_info()) or [""])
    cell = host("raise KeyError('k')").run()
    kind, error, trace = seen[0]
    assert (kind, error) == (KeyError, cell._exception_object) and trace is not None
    frames = [frame.f_code.co_name for frame, _ in traceback.walk_tb(trace)]
    assert frames == ["_do_run_script", "run"]
    assert sys.exc_info() == (None, None, None)


def test_the_clock_and_the_gui_call_of_the_moment_are_used(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(time, "time", lambda: 42.0)
    assert (UUT().begin_time, UUT().end_time) == (42.0, 42.0)
    posted: list[Any] = []
    monkeypatch.setattr(wx, "CallAfter", lambda *args: posted.append(args))
    cell = qon_ats.Cell.__new__(qon_ats.Cell)
    cell.ui_test_logger = types.SimpleNamespace(AppendText="append")
    cell.print("abc")
    assert posted == [("append", "abc\n")]


def test_nothing_grows_over_a_thousand_runs(tmp_path: Path) -> None:
    """In a process of its own: objects, memory blocks and threads before and after."""
    name = unique_name()
    body = """
        self.assert_limits("v", 1.5, 1, 2, "V", category="power")
        self.append_ng("bad", "text", stop_if_ng=False)
        self.print("x")
        self.noumenon.kind += 1
        if self.noumenon.kind % 3 == 1:
            self.abort("a")
        if self.noumenon.kind % 3 == 2:
            raise KeyError("k")
    """
    write_script(tmp_path, script_text(body), name)
    config = write_book(tmp_path / "c.xlsx", {"cell1": {"script": f"{name}.py", "reload_cell_runner": False}})
    code = f"""
        import gc, sys, threading
        sys.path.insert(0, {str(Path(__file__).parent)!r})
        from hostcell import HostCell
        cell = HostCell(1, {str(config)!r})
        cell.kind = 0
        def runs(count):
            for _ in range(count):
                cell.run()
                while not cell._assertion_queue.empty():
                    cell.fetch_an_assertion()
                cell.reset_state()
                cell.output.clear()
                cell._test_thread = None
            gc.collect()
            return len(gc.get_objects()), sys.getallocatedblocks(), threading.active_count()
        runs(50)
        before = runs(10)
        after = runs(1000)
        print(*(b - a for a, b in zip(before, after)))
    """
    command = [sys.executable, "-c", dedent(code)]
    done = subprocess.run(command, capture_output=True, text=True, cwd=tmp_path, timeout=100)
    assert done.returncode == 0, done.stderr
    objects, blocks, threads = map(int, done.stdout.split())
    assert objects < 50 and blocks < 300 and threads == 0, done.stdout
