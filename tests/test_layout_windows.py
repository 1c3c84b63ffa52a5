"""The default layouts: commands and handlers, dialogs, labels, and what is left of a window that ended."""

import ast
import gc
import weakref
from pathlib import Path

import pytest
import qon_atsui
import wx
from babel.messages.pofile import read_po
from qon_atsui.commands import menus
from station import dialogs
from support import press, pump, pump_for, shown

SOURCE = Path(qon_atsui.__file__).parent

PROMISED = {
    "on_edit_test_parameters", "on_reload_test_parameters", "on_save_test_parameters", "on_start_all", "on_abort_all",
    "on_export_assertion_config", "on_show_test_data_window", "on_change_debug_mode", "on_clear_statistics",
    "on_start_ticker", "on_show_manual_operation_dialog", "on_show_about_dialog",
}  # fmt: skip


def test_every_command_has_a_key_or_a_mnemonic_and_reaches_its_handler(app: wx.App, english: None) -> None:
    calls: list[str] = []
    with shown(qon_atsui.Frame(None)) as frame:
        frame.cells = [qon_atsui.Cell(frame.ui_cell_panel)]
        for name in PROMISED:
            setattr(frame, name, lambda _event, name=name: calls.append(name))
        bar = frame.GetMenuBar()
        entries = [entry for menu, _title in bar.GetMenus() for entry in menu.GetMenuItems()]
        for item in [entry for entry in entries if entry.GetItemLabel()]:
            key = item.GetAccel()
            assert "&" in item.GetItemLabel() or key is not None, item.GetItemLabel()
            assert item.GetHelp() and (key is None or key.GetKeyCode() != wx.WXK_ESCAPE)
            if item.GetItemLabelText() not in ("Exit", "Next cell"):
                frame.ProcessEvent(wx.CommandEvent(wx.wxEVT_MENU, item.GetId()))
        assert sorted(calls) == sorted(PROMISED)
        tools = [command for _title, entries in menus() for command in entries if command and command.tool]
        assert tools and all(command.hint for command in tools) and frame.ui_in_debug_mode.IsCheckable()


def test_a_destroyed_frame_leaves_no_timer_no_cycle_and_no_object(app: wx.App) -> None:
    frame = qon_atsui.Frame(None)
    cell = qon_atsui.Cell(frame.ui_cell_panel)
    timer, fired = cell.ui_refresh_timer, []
    cell.on_refresh_timer_event = lambda _event, cell=cell: fired.append("fired into a dead window")
    cell.ui_assertions.AppendRows(3)
    cell.ui_test_logger.AppendText("pending")
    frame.Show()
    timer.StartOnce(60_000)
    parts = (frame, cell, cell.ui_prompt, cell.ui_assertions, cell.ui_test_logger)
    alive = [weakref.ref(part) for part in parts]
    frame.Destroy()
    pump(lambda frame=frame: not frame)
    assert not timer.StartOnce(1) and not timer.IsRunning()
    pump_for(0.05)
    del frame, cell, timer, parts

    def collected() -> bool:
        gc.collect()
        return not any(reference() for reference in alive)

    pump(collected, what="nothing holds the parts")
    assert not fired


@pytest.mark.parametrize(
    ("kind", "key", "answer"),
    [
        (qon_atsui.TickerExceptionDialog, wx.WXK_RETURN, wx.ID_OK),
        (qon_atsui.TickerExceptionDialog, wx.WXK_ESCAPE, wx.ID_CANCEL),
        (qon_atsui.AboutDialog, wx.WXK_ESCAPE, wx.ID_OK),
        (qon_atsui.ManualOperationDialog, wx.WXK_ESCAPE, wx.ID_CANCEL),
    ],
)
def test_dialogs_answer_the_keyboard(kind: type[wx.Dialog], key: int, answer: int, frame: wx.Frame) -> None:
    dialog = kind(frame)
    with dialogs(lambda _dialog: wx.CallLater(50, press, key, over=dialog)):
        assert dialog.ShowModal() == answer
        dialog.Destroy()


def test_every_label_is_translated() -> None:
    catalogue = SOURCE.parent / "qon_companions" / "locale" / "zh_CN" / "LC_MESSAGES" / "qon.po"
    with catalogue.open("rb") as text:
        known = {message.id for message in read_po(text) if message.string}
    nodes = [node for path in SOURCE.glob("*.py") for node in ast.walk(ast.parse(path.read_text("utf-8")))]
    calls = [node for node in nodes if isinstance(node, ast.Call) and isinstance(node.func, ast.Name)]
    labels = {node.args[0].value for node in calls if node.func.id == "_"}
    assert len(labels) > 100 and labels - known == set()
