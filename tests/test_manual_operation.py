"""The dialog for driving the station by hand, the application's own or the built-in one; the about box."""

import sys
from pathlib import Path
from traceback import format_exception
from typing import Any

import pytest
import qon_ats
from station import Answers, Station

pytest_plugins = ["stationplugin"]

MODULE = """\
import wx
{before}
class ManualOperationDialog({base}):
    def __init__(self, frame):
        {first}
        super().__init__(frame, title={title!r})
"""


@pytest.fixture
def module(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """Where the application's module would stand, on the search path."""
    monkeypatch.syspath_prepend(tmp_path)
    monkeypatch.delitem(sys.modules, "manual_operation_dialog", raising=False)
    monkeypatch.setattr(sys, "dont_write_bytecode", False)
    return tmp_path / "manual_operation_dialog.py"


def write(path: Path, **parts: str) -> None:
    usual = {"title": "", "base": "wx.Dialog", "before": "", "first": "pass"}
    path.write_text(MODULE.format(**usual | parts))


def opened(frame: qon_ats.ATSFrame) -> str:
    """Opens the dialog and closes it: its title, or "built-in"."""
    seen: list[tuple[type, bool]] = []

    def act(dialog: Any) -> None:
        seen.append((type(dialog), frame.is_ticker_blocked()))
        dialog.Close()

    with Answers(act) as shown:
        frame.on_show_manual_operation_dialog(None)
    [(kind, blocked)] = seen
    assert (shown.parents, blocked) == ([frame], frame._mop_block_ticker) and not frame.is_ticker_blocked()
    return "built-in" if kind is qon_ats.ManualOperationDialog else shown.titles[0]


@pytest.mark.parametrize("block", [True, False])
def test_the_dialog_is_the_one_in_the_file_now(block: bool, module: Path, station: Station) -> None:
    frame = station(main={"mop_block_ticker": block})
    assert opened(frame) == "built-in" and frame._manual_module is None
    for title in ("one", "two", "six"):  # of one size, and mostly within one second
        write(module, title=title)
        assert opened(frame) == title
    write(module, base="wx.Frame")
    for text in (module.read_text(), "ManualOperationDialog = 'no class'", ""):
        module.write_text(text)
        vars(frame._manual_module).pop("ManualOperationDialog", None)
        assert opened(frame) == "built-in"
    module.unlink()
    assert opened(frame) == "built-in"
    write(module, title="back")
    assert opened(frame) == "back"


FAULTS: dict[str, tuple[dict[str, str], type[Exception]]] = {
    "syntax": ({"before": "def"}, SyntaxError),
    "import_of_a_driver": ({"before": "from wx import nonsense"}, ImportError),
    "constructor": ({"first": "raise OSError('no supply')"}, OSError),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_other_faults_escape_and_the_ticker_goes_on(fault: str, module: Path, station: Station) -> None:
    spoilt, error = FAULTS[fault]
    frame = station()
    for _ in range(2):  # at the import, and at the reload
        write(module, **spoilt)
        with pytest.raises(error) as caught:
            frame.on_show_manual_operation_dialog(None)
        assert not frame.is_ticker_blocked() and str(module) in "".join(format_exception(caught.value))
        write(module, title="mended")
        assert opened(frame) == "mended"


def test_the_built_in_dialog_s_message(station: Station) -> None:
    for message in ("", "缺少模块"):
        dialog = qon_ats.ManualOperationDialog(station(), message)
        assert dialog.ui_message.GetValue() == message
