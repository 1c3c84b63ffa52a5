"""The default layouts: commands and handlers, dialogs, labels, and what is left of a window that ended."""

import ast
import gc
import weakref
from pathlib import Path

import pytest
import qon_atsui
import wx
from babel.messages.pofile import read_po
from layouts import Frame, press, shown
from support import pump, pump_for

SOURCE = Path(qon_atsui.__file__).parent

PROMISED = {
    "on_edit_test_parameters",
    "on_reload_test_parameters",
    "on_save_test_parameters",
    "on_export_assertion_config",
    "on_show_test_data_window",
    "on_change_debug_mode",
    "on_clear_statistics",
    "on_start_all",
    "on_abort_all",
    "on_start_ticker",
    "on_show_manual_operation_dialog",
    "on_show_about_dialog",
}


def test_every_command_has_a_key_or_a_mnemonic_and_reaches_its_handler(
    app: wx.App, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setenv("QON_LANG", "en")
    calls: list[str] = []
    with shown(Frame(1, 1, (1000, 800))) as frame:
        for name in PROMISED:
            setattr(frame, name, lambda _event, name=name: calls.append(name))
        bar = frame.GetMenuBar()
        items = [
            item for menu, _title in bar.GetMenus() for item in menu.GetMenuItems() if item.GetItemLabel()
        ]
        for item in items:
            key = item.GetAccel()
            assert "&" in item.GetItemLabel() or key is not None, item.GetItemLabel()
            assert item.GetHelp() and (key is None or key.GetKeyCode() != wx.WXK_ESCAPE)
            if item.GetItemLabelText() not in ("Exit", "Next cell"):
                frame.ProcessEvent(wx.CommandEvent(wx.wxEVT_MENU, item.GetId()))
        assert len(calls) == len(PROMISED) and set(calls) == PROMISED
        tools = [frame.ui_toolbar.GetToolByPos(index) for index in range(frame.ui_toolbar.GetToolsCount())]
        assert all(
            tool.IsSeparator() or (tool.GetShortHelp() and bar.FindItemById(tool.GetId())) for tool in tools
        )
        assert frame.ui_in_debug_mode.IsCheckable()


def test_a_destroyed_frame_leaves_no_timer_no_cycle_and_no_object(app: wx.App) -> None:
    frame = Frame(2, 2, (1000, 800))
    cell = frame.cells[0]
    timer = cell.ui_refresh_timer
    cell.on_refresh_timer_event = lambda _event, cell=cell: pytest.fail("fired into a dead window")
    cell.ui_assertions.AppendRows(3)
    cell.ui_test_logger.AppendText("pending")
    timer.StartOnce(20)
    alive = [
        weakref.ref(part) for part in (frame, cell, cell.ui_prompt, cell.ui_assertions, cell.ui_test_logger)
    ]
    frame.Destroy()
    pump(lambda timer=timer: timer.StartOnce(1) is False)
    pump_for(0.05)
    del frame, cell, timer
    gc.collect()
    assert [reference() for reference in alive] == [None] * len(alive)


@pytest.mark.parametrize(
    ("kind", "key", "answer"),
    [
        (qon_atsui.TickerExceptionDialog, wx.WXK_RETURN, wx.ID_OK),
        (qon_atsui.TickerExceptionDialog, wx.WXK_ESCAPE, wx.ID_CANCEL),
        (qon_atsui.AboutDialog, wx.WXK_ESCAPE, wx.ID_OK),
        (qon_atsui.ManualOperationDialog, wx.WXK_ESCAPE, wx.ID_CANCEL),
    ],
)
def test_dialogs_answer_the_keyboard(app: wx.App, kind: type[wx.Dialog], key: int, answer: int) -> None:
    with shown(wx.Frame(None)) as parent:
        dialog = kind(parent)
        wx.CallLater(150, press, key, dialog)
        assert dialog.ShowModal() == answer
        dialog.Destroy()


def test_every_label_is_translated() -> None:
    catalogue = SOURCE.parent / "qon_companions" / "locale" / "zh_CN" / "LC_MESSAGES" / "qon.po"
    with catalogue.open("rb") as text:
        known = {message.id for message in read_po(text) if message.string}
    labels = {
        node.args[0].value
        for path in SOURCE.parent.rglob("*.py")
        for node in ast.walk(ast.parse(path.read_text(encoding="utf-8")))
        if isinstance(node, ast.Call) and isinstance(node.func, ast.Name) and node.func.id == "_"
    }
    assert len(labels) > 100 and labels - known == set()
