"""Menus and tool bar of the main frame, one table a reader can scan."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass

import wx
from qon_companions.i18n import _

from qon_atsui.handlers import relay
from qon_atsui.icons import icon


@dataclass(frozen=True)
class Command:
    """A menu entry; with an icon it is in the tool bar too, under its short name."""

    handler: str
    label: str
    hint: str
    key: str = ""
    tool: str = ""
    icon: str = ""
    check: bool = False


LINE = None
Menu = tuple[str, tuple[Command | None, ...]]


def menus() -> tuple[Menu, ...]:
    """All commands in the chosen language."""
    return (
        (
            _("&Test"),
            (
                Command(
                    "on_start_all",
                    _("&Start all cells"),
                    _("Start a test in every ready cell"),
                    "F5",
                    _("Start all"),
                    "start",
                ),
                Command(
                    "on_abort_all",
                    _("&Abort all cells"),
                    _("Abort the tests of all cells at their next check points"),
                    "Shift+F5",
                    _("Abort all"),
                    "abort",
                ),
                LINE,
                Command(
                    "_ui_next_cell",
                    _("&Next cell"),
                    _("Go to the serial number of the next ready cell"),
                    "F4",
                ),
                LINE,
                Command(
                    "on_start_ticker", _("Start &ticker"), _("Start the station's periodic job again"), "F6"
                ),
                Command(
                    "_ui_ask_session",
                    _("&Operator and batch\u2026"),
                    _("Say who works here, and on which batch; a badge does it, too"),
                ),
                LINE,
                Command("_ui_exit", _("E&xit"), _("Close the station; asks first while a test runs")),
            ),
        ),
        (
            _("&Data"),
            (
                Command(
                    "on_show_test_data_window",
                    _("Test &data\u2026"),
                    _("List the tested units, analyse items, save reports"),
                    "F7",
                    _("Test data"),
                    "data",
                ),
                Command(
                    "on_clear_statistics",
                    _("&Clear statistics\u2026"),
                    _("Set all counts to zero and empty the list of tested units; asks first"),
                    "",
                    _("Clear statistics"),
                    "clear",
                ),
            ),
        ),
        (
            _("Para&meters"),
            (
                Command(
                    "on_edit_test_parameters",
                    _("&Edit test parameters\u2026"),
                    _("Show and change the test parameters"),
                    "F2",
                    _("Parameters"),
                    "edit",
                ),
                Command(
                    "on_reload_test_parameters",
                    _("&Reload test parameters"),
                    _("Read the test parameters from their files again"),
                    "Shift+F2",
                    _("Reload"),
                    "reload",
                ),
                Command(
                    "on_save_test_parameters",
                    _("&Save test parameters"),
                    _("Write the test parameters to their files"),
                    "Ctrl+F2",
                    _("Save"),
                    "save",
                ),
                LINE,
                Command(
                    "on_export_assertion_config",
                    _("E&xport limits\u2026"),
                    _("Write the limits a cell used in its last test into a workbook"),
                ),
                Command(
                    "_ui_check_limits",
                    _("Check &limits\u2026"),
                    _("List what does not fit between the last tests and the limits workbooks"),
                ),
            ),
        ),
        (
            _("T&ools"),
            (
                Command(
                    "on_show_manual_operation_dialog",
                    _("&Manual operation\u2026"),
                    _("Drive the station's equipment by hand"),
                    "F9",
                    _("Manual operation"),
                    "manual",
                ),
                Command(
                    "on_change_debug_mode",
                    _("&Debug mode"),
                    _("Scripts stop at their debug pauses and print debug texts"),
                    "F12",
                    check=True,
                ),
            ),
        ),
        (
            _("&Help"),
            (
                Command(
                    "on_show_about_dialog", _("&About\u2026"), _("Versions of the station's software"), "F1"
                ),
            ),
        ),
    )


class CheckItem(wx.MenuItem):
    """A menu entry with a tick that tells when the engine sets it."""

    def __init__(self, menu: wx.Menu, text: str, hint: str) -> None:
        super().__init__(menu, wx.ID_ANY, text, hint, wx.ITEM_CHECK)
        self.changed: Callable[[bool], None] | None = None

    def Check(self, check: bool = True) -> None:
        super().Check(check)
        if self.changed is not None:
            self.changed(check)


class CommandBars:
    """The menu bar and the tool bar of a frame; a menu entry and its tool share one id."""

    def __init__(self, frame: wx.Frame) -> None:
        self._frame = frame
        self.menu_items: dict[str, wx.MenuItem] = {}
        self.tool_bar = frame.CreateToolBar(wx.TB_HORIZONTAL | wx.TB_HORZ_TEXT | wx.TB_FLAT)
        bar = wx.MenuBar()
        for index, (title, commands) in enumerate(menus()):
            bar.Append(self._menu(commands), title)
            tools = [command for command in commands if command is not None and command.icon]
            if tools and index:
                self.tool_bar.AddSeparator()
            for command in tools:
                self._tool(command)
        frame.SetMenuBar(bar)
        self.tool_bar.Realize()

    def _menu(self, commands: tuple[Command | None, ...]) -> wx.Menu:
        menu = wx.Menu()
        for command in commands:
            if command is LINE:
                menu.AppendSeparator()
                continue
            text = command.label + (f"\t{command.key}" if command.key else "")
            item = CheckItem(menu, text, command.hint) if command.check else None
            item = menu.Append(item) if item else menu.Append(wx.ID_ANY, text, command.hint)
            self.menu_items[command.handler] = item
            self._frame.Bind(wx.EVT_MENU, relay(self._frame, command.handler), id=item.GetId())
        return menu

    def _tool(self, command: Command) -> None:
        tip = command.hint + (f" ({command.key})" if command.key else "")
        identity = self.menu_items[command.handler].GetId()
        self.tool_bar.AddTool(
            identity, command.tool, icon(command.icon), wx.NullBitmap, wx.ITEM_NORMAL, tip, command.hint
        )
