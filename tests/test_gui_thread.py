"""Handing work to the GUI thread, and the language of labels."""

import threading
from collections.abc import Callable
from typing import Any

import pytest
import wx
from qon_companions import gui_thread, i18n
from support import pump


def in_thread(work: Callable[[], Any]) -> Callable[[], Any]:
    """Start the work in a thread; the result is what it returned or raised, None while it runs."""
    results: list[Any] = []

    def body() -> None:
        try:
            results.append(work())
        except Exception as error:  # noqa: BLE001 - the test looks at it
            results.append(error)

    thread = threading.Thread(target=body)
    thread.start()

    def result() -> Any:
        thread.join(0 if thread.is_alive() else 5)
        return results[0] if results else None

    return result


def test_a_call_runs_in_the_gui_thread_and_brings_its_outcome_back(app: wx.App) -> None:
    assert gui_thread.call(divmod, 7, 2) == (3, 1)
    assert pump(
        in_thread(lambda: (gui_thread.call(gui_thread.is_gui_thread), gui_thread.is_gui_thread()))
    ) == (True, False)
    assert isinstance(pump(in_thread(lambda: gui_thread.call(lambda: {}["key"]))), KeyError)
    assert isinstance(pump(in_thread(lambda: gui_thread.call(next, iter(())))), StopIteration)


def test_a_call_nobody_will_run_ends_with_a_reason(app: wx.App, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(gui_thread, "NO_LOOP_SECONDS", 0.3)
    ran: list[int] = []
    result = in_thread(lambda: gui_thread.call(ran.append, 1))
    for _ in range(50):
        if result() is not None:
            break
        threading.Event().wait(0.1)  # no event loop runs meanwhile
    assert isinstance(result(), RuntimeError) and "no event loop" in str(result())
    pump(lambda: True)
    assert ran == [], "given up means not run later"


@pytest.mark.parametrize(
    ("wanted", "label"),
    [("zh_CN", "确定(&O)"), ("zh", "确定(&O)"), ("en", "&OK"), ("xx", "&OK"), ("en_GB.UTF-8", "&OK")],
)
def test_labels_follow_the_chosen_language_at_the_moment_of_the_call(
    wanted: str, label: str, app: wx.App, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setenv("QON_LANG", wanted)
    assert i18n._("&OK") == label
    for name in ("LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"):
        monkeypatch.delenv(name, raising=False)
    monkeypatch.setenv("QON_LANG", "")
    monkeypatch.setenv("LANG", f"{wanted}.UTF-8")
    assert i18n._("&OK") == label, "without a choice of its own the system's language"
    assert i18n._("no such label") == "no such label" and i18n._("") == ""
    i18n.install_locale(app)
    try:
        assert wx.GetStockLabel(wx.ID_OK) == label
    finally:
        monkeypatch.setenv("QON_LANG", "en")
        i18n.install_locale(app)
