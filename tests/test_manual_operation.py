"""The dialog for driving the station by hand, the application's own or the built-in one; the about box."""

import sys
import time
from pathlib import Path
from traceback import format_exception

import pytest
import qon_ats
from station import Answers, Station
from support import pump

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


def write(
    path: Path, title: str = "", base: str = "wx.Dialog", before: str = "", first: str = "pass"
) -> None:
    path.write_text(MODULE.format(title=title, base=base, before=before, first=first))


def opened(frame: qon_ats.ATSFrame) -> str:
    """Opens the dialog and closes it: its title, or "built-in"."""
    seen: list[tuple[type, bool]] = []
    with Answers(
        lambda dialog: (seen.append((type(dialog), frame.is_ticker_blocked())), dialog.Close())
    ) as shown:
        frame.on_show_manual_operation_dialog(None)
    [(kind, blocked)] = seen
    assert (shown.parents, blocked) == ([frame], frame._mop_block_ticker) and not frame.is_ticker_blocked()
    return "built-in" if kind is qon_ats.ManualOperationDialog else shown.titles[0]


@pytest.mark.parametrize("block", [True, False])
def test_the_dialog_is_the_one_in_the_file_now(block: bool, module: Path, station: Station) -> None:
    frame = station(main={"mop_block_ticker": block})
    assert opened(frame) == "built-in" and frame._manual_module is None
    pump(lambda: time.time() % 1 < 0.1)  # the beginning of a second: its bytecode tells seconds and size
    for title in ("one", "two", "six"):
        write(module, title)
        assert opened(frame) == title
    for text in (MODULE.replace("{base}", "wx.Frame"), "ManualOperationDialog = 'no class'", ""):
        module.write_text(text.format(title="", before="", first="pass"))
        vars(frame._manual_module).pop("ManualOperationDialog", None)
        assert opened(frame) == "built-in"
    module.unlink()
    assert opened(frame) == "built-in"
    write(module, "back")
    assert opened(frame) == "back"


FAULTS = {
    "syntax": ({"before": "def"}, SyntaxError),
    "import": ({"before": "1 / 0"}, ZeroDivisionError),
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
        write(module, "mended")
        assert opened(frame) == "mended"


def test_built_in_message_and_about_box(station: Station) -> None:
    frame = station()
    for message in ("", "缺少模块"):
        assert qon_ats.ManualOperationDialog(frame, message).ui_message.GetValue() == message
    with Answers(lambda dialog: dialog.Close()) as shown:
        frame.on_show_about_dialog(None)
    assert shown.parents == [frame]
