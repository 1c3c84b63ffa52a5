"""Fixtures of the whole suite.  A test that hangs ends the run with the stacks of all threads."""

import faulthandler
import os
import sys
import threading
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
import wx
from support import Boxes, shown

# Before numpy: its own threads wait for each other where other programs have the processors.
os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")

pytest_plugins = ["stationplugin"]

HANG_SECONDS = float(os.environ.get("QON_HANG_SECONDS", "300"))  # the long runs need more

_stderr = 2


def pytest_configure() -> None:
    # Output is not captured here yet; a later duplicate would end in pytest's own temporary file.
    global _stderr
    _stderr = os.dup(2)


@pytest.hookimpl(wrapper=True)
def pytest_runtest_protocol(item: pytest.Item) -> Iterator[Any]:
    faulthandler.dump_traceback_later(HANG_SECONDS, exit=True, file=_stderr)
    try:
        return (yield)
    finally:
        faulthandler.cancel_dump_traceback_later()


@pytest.fixture(scope="session")
def app() -> Iterator[wx.App]:
    """The one application object; windows left over by a test are destroyed at the end."""
    from qon_station.collecting import GuiCollector

    application = wx.App(False)
    application.SetExitOnFrameDelete(False)
    with GuiCollector():  # a test thread that frees windows ends the process
        yield application
    for window in wx.GetTopLevelWindows():
        window.Destroy()
    application.ProcessPendingEvents()


class Uncaught:
    """Exceptions nobody caught, from event handlers and threads."""

    def __init__(self) -> None:
        self.errors: list[BaseException] = []

    def take(self, kind: type[BaseException]) -> BaseException:
        """Expect one of this kind: remove and return it."""
        for error in self.errors:
            if isinstance(error, kind):
                self.errors.remove(error)
                return error
        raise AssertionError(f"no uncaught {kind.__name__} among {self.errors!r}")


@pytest.fixture(autouse=True)
def uncaught(monkeypatch: pytest.MonkeyPatch) -> Iterator[Uncaught]:
    """An exception out of an event handler or a thread fails the test, unless the test takes it."""
    found = Uncaught()

    def thread_hook(args: threading.ExceptHookArgs) -> None:
        if args.exc_type is not SystemExit:  # as without a hook
            found.errors.append(args.exc_value or args.exc_type())

    monkeypatch.setattr(sys, "excepthook", lambda _type, error, _trace: found.errors.append(error))
    monkeypatch.setattr(threading, "excepthook", thread_hook)
    yield found
    assert not found.errors, f"uncaught: {found.errors!r}"


@pytest.fixture
def boxes(monkeypatch: pytest.MonkeyPatch) -> Boxes:
    """Message boxes record and answer instead of being shown."""
    import qon_wxtools

    stand_ins = Boxes()
    for kind in ("Error", "Notice", "Confirm"):
        monkeypatch.setattr(qon_wxtools.MB, kind, staticmethod(stand_ins.stand_in(kind)))
    monkeypatch.setattr(wx, "MessageBox", stand_ins.stand_in("MessageBox"))
    return stand_ins


@pytest.fixture
def hasty_switching() -> Iterator[None]:
    """Threads are switched as often as the interpreter can."""
    interval = sys.getswitchinterval()
    sys.setswitchinterval(1e-6)
    yield
    sys.setswitchinterval(interval)


@pytest.fixture
def english(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("QON_LANG", "en")


@pytest.fixture
def frame(app: wx.App, english: None) -> Iterator[wx.Frame]:
    """A plain window on the screen."""
    with shown(wx.Frame(None, title="Station", size=wx.Size(1000, 700))) as window:
        yield window


@pytest.fixture
def import_state() -> Iterator[None]:
    """Scripts append their folder to sys.path and stay in sys.modules: put both back."""
    path, modules = list(sys.path), set(sys.modules)
    yield
    sys.path[:] = path
    for name in set(sys.modules) - modules:
        if name.startswith("script_"):
            del sys.modules[name]


@pytest.fixture
def host(tmp_path: Path, import_state: None) -> Iterator[Any]:
    """Makes engine cells without a window: `host(run=..., cleanup=..., limits=..., key=value)`."""
    from hostcell import Host

    maker = Host(tmp_path)
    yield maker
    maker.stop_all()


@pytest.fixture
def installed() -> Iterator[None]:
    """The cells, windows and workbooks of the test are those of a station; what it subscribes is forgotten after it."""
    import qon_ats
    import qon_station

    undo = qon_station.install()
    yield
    undo()
    for hook in (qon_station.before_run, qon_station.run_ended, qon_station.closing):
        for listener in hook.listeners:
            hook.unsubscribe(listener)
    for check in qon_station.start_checks.checks:
        qon_station.start_checks.unsubscribe(check.ask)
    assert qon_ats.Cell.__module__ == "qon_ats", "the engine is itself again"


@pytest.fixture
def in_tmp(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """A working directory of the test's own."""
    monkeypatch.chdir(tmp_path)
    return tmp_path
