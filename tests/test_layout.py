"""The default layouts: what the operator reads, where it stands, who gets the keyboard, what is left over."""

import ast
import gc
import weakref
from pathlib import Path
from typing import Any

import pytest
import qon_atsui
import wx
from babel.messages.catalog import Catalog
from babel.messages.mofile import write_mo
from babel.messages.pofile import read_po
from journey_support import state
from qon_atsui import sizing
from qon_atsui.cell import serial_entry
from qon_atsui.cell.signs import Signs, read
from qon_atsui.frame.commands import menus
from qon_companions import i18n, notices
from qon_companions.line_breaks import wrap
from station import LATER, Answers, Station
from support import has_focus, in_thread, press, pump, pump_for, scan, shown

pytestmark = pytest.mark.usefixtures("english")


class Told(Signs):
    """What the engine tells the widgets of a cell, step by step."""

    def run(self, *last: str) -> None:
        """A test starts; its prompt and its colours follow."""
        self.entry_enabled(False)
        self.prompt_text("Running")
        for word in last:
            (self.prompt_colour if word in ("gray", "green") else self.prompt_text)(word)

    def end(self, result: str, colour: str, description: str = "", failed: str = "") -> None:
        self.prompt_text(description or result)
        self.prompt_colour(colour)
        self.entry_enabled(True, result, failed)
        self.start_label("Start")


# Calls of `Told`; state, word and text on the band.
FACES: list[tuple[list[tuple[str, ...]], tuple[str, str, str]]] = [
    ([("prompt_text", "Next, please")], ("ready", "READY", "Next, please")),
    ([("run", "Close the lid", "green")], ("testing", "TESTING", "Close the lid")),
    ([("run",), ("end", "合格", "green")], ("ok", "合格", "")),
    ([("run",), ("start_label", "Resume"), ("end", "NG", "red", "", "V  +1")], ("ng", "NG", "V  +1")),
    (
        [("run",), ("end", "Exception Aborted", "cyan"), ("fault", "OSError")],
        ("exception", "EXCEPTION", "OSError"),
    ),
]


@pytest.mark.parametrize(("calls", "face"), FACES)
def test_the_band_says_the_state(calls: list[tuple[str, ...]], face: tuple[str, str, str]) -> None:
    signs = Told(lambda: None)
    for name, *arguments in calls:
        getattr(signs, name)(*arguments)
    shows = read(signs.told)
    assert (shows.state, shows.word, shows.text) == face


def visible_parts(cell: qon_atsui.Cell) -> dict[str, wx.Rect]:
    names = "ui_prompt ui_serial_number ui_start ui_abort ui_view_notebook _ui_details_button"
    windows = {name: getattr(cell, name) for name in names.split()}
    windows |= {name: getattr(cell._ui_head, name) for name in ("name", "serial", "elapsed", "gauge")}
    return {name: window.GetRect() for name, window in windows.items() if window.IsShown()}


SMALL, LARGE = (1280, 1024), (1920, 1080)


SCREENS = [(1, 1, SMALL), (4, 2, LARGE), (8, 4, SMALL), (20, 5, SMALL), (20, 5, LARGE)]


@pytest.mark.parametrize(("cells", "columns", "screen"), SCREENS)
def test_cells_of_any_number_stay_usable(cells: int, columns: int, screen: Any, app: wx.App) -> None:
    """Nothing is cut off, lies on something else, is too small, or moves for a text."""
    with shown(qon_atsui.Frame(None)) as frame:
        grid = wx.GridSizer(0, columns, 0, 0)
        for _ in range(cells):
            grid.Add(cell := qon_atsui.Cell(frame.ui_cell_panel), 1, wx.EXPAND | wx.ALL)
        frame.ui_cell_panel.SetSizer(grid)
        grid.Fit(frame.ui_cell_panel)
        frame.SetMinSize(wx.Size(100, 100))
        frame.SetSize(wx.Rect(0, 0, *screen))
        pump(lambda: cell.GetSize().width * columns > screen[0] - 60)
        parts = visible_parts(cell)
        assert all(wx.Rect(cell.GetClientSize()).Contains(rect) for rect in parts.values()), parts
        placed = list(parts.items())
        for index, (name, rect) in enumerate(placed):
            assert not [other for other, box in placed[index + 1 :] if rect.Intersects(box)], name
        band, height = parts["ui_prompt"].height, cell.GetSize().height
        full = "ui_view_notebook" in parts
        assert height / 5 <= band <= (height / 3 if full else height)
        assert full or "_ui_details_button" in parts
        assert parts["ui_serial_number"].width >= cell.FromDIP(140)
        for name in ("ui_start", "ui_abort"):
            assert parts[name].width >= cell.FromDIP(55) and parts[name].height >= cell.FromDIP(26)
        points = [child.GetFont().GetPointSize() for child in cell.GetChildren()]
        assert min(points) >= sizing.SMALLEST_POINTS
        for text in ("OK", "A much longer text than before, which goes on and on"):
            cell.ui_prompt.SetLabel(text)
            for label in ("Pause", "Resume", "Start"):
                cell.ui_start.SetLabel(label)
            for field in (cell.ui_serial_number, cell.ui_cell_name, cell.ui_ok_count, cell.ui_elapse_time):
                field.SetValue(text)
        pump_for(0.05)
        assert visible_parts(cell) == parts, "something moves for a text"


def test_where_the_focus_goes(station: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    """Where the next number belongs; it is not stolen from somebody who types."""
    monkeypatch.setattr(serial_entry, "_ECHO_SECONDS", 60.0)
    frame = station(*["meet()\nself.append_ok('a', 1)"] * 3, main={"column_count": 3})
    first, second, third = frame.cells
    pump(lambda: has_focus(first.ui_serial_number))
    scan("A1")
    press(wx.WXK_RETURN)  # the line feed of a scanner that sends two: starts no other cell
    pump(lambda: has_focus(second.ui_serial_number))
    pump_for(0.2)
    assert (first.uut.serial_number, second.uut) == ("A1", None)
    scan("B", enter=False)
    pump(lambda: second.ui_serial_number.GetValue() == "B")
    third.start()
    pump(third.is_running)
    station.finish(first)
    station.finish(third)
    pump_for(0.1)
    assert has_focus(second.ui_serial_number), "somebody types there"
    scan("2")
    pump(lambda: has_focus(third.ui_serial_number), what="the next one by number is ready")
    assert second.uut.serial_number == "B2"
    station.finish(second)
    pump_for(0.1)
    assert has_focus(third.ui_serial_number), "a test that ends moves nothing"


def test_a_question_takes_its_cell_alone_into_waiting_and_holds_the_focus_back(station: Station) -> None:
    ask, tell = "self.ask_true_or_false('Lit?')", "meet()\nself.notice_box('Take it out')"
    frame = station(*[f"{body}\nmeet()" for body in (ask, tell)], "")
    entry = frame.cells[2].ui_serial_number
    states: list[list[str]] = []

    def act(box: Any) -> Any:
        if not station.meetings[2].notes:
            station.meetings[2].notes.append("asks, too")
            station.meetings[2].go_on()
        shown = [cell.ui_prompt.face.state for cell in frame.cells[:2]]
        if shown != [("waiting", "testing")[len(states)], "waiting"]:  # not drawn yet
            return LATER
        states.append([cell.ui_prompt.face.state for cell in frame.cells])
        entry.SetFocus()
        assert not has_focus(entry)
        return box.EndModal(wx.ID_OK)

    with Answers(act):
        for cell in frame.cells[:2]:
            cell.start()
        pump(lambda: len(states) == 2 and has_focus(entry), what="the focus is where it was asked for")
    # Both wait for the operator from the moment they ask; the first goes on while the second one's box is open.
    assert states == [["waiting", "waiting", "ready"], ["testing", "waiting", "ready"]]
    pump(lambda: [cell.ui_prompt.face.state for cell in frame.cells] == ["testing", "testing", "ready"])


def test_notices_stand_on_the_bands_of_ready_cells(station: Station) -> None:
    """Posted before there is a window and in other threads; a running test is not disturbed, a verdict stays."""
    notices.post("line", "Next shift: 2", cell=2)
    try:
        first, second = station("meet()\nself.append_ok('a', 1)", "").cells
        assert [state(cell) for cell in (first, second)] == [
            ("READY", "Scan or type the serial number, then Enter"),
            ("READY", "Next shift: 2"),
        ]
        first.start("SN1")
        station.meetings[1].arrived()
        in_thread(lambda: (notices.post("disk", "Disk full", stop=True), notices.status("disk", "0 MB")))
        pump(lambda: state(second) == ("NOT READY", "Disk full\nNext shift: 2"))
        bar = station.frame.GetStatusBar()
        assert state(first)[0] == "TESTING" and [bar.GetStatusText(1), bar.GetFieldsCount()] == ["0 MB", 2]
        station.finish(first)
        assert state(first) == ("OK", "Disk full")
    finally:
        for source in ("line", "disk"):
            notices.withdraw(source)
        notices.status("disk", "")
    pump(lambda: state(first) == ("OK", "") and bar.GetFieldsCount() == 1)


def test_a_box_gives_the_focus_back_to_a_half_typed_number(station: Station) -> None:
    done = "self.append_ok('a', 1)"
    frame = station(f"meet()\n{done}", f"meet()\nself.input_text('Colour?')\n{done}", "")
    first, second, third = frame.cells
    for cell in (first, second):
        cell.start()
    pump(lambda: has_focus(third.ui_serial_number))
    scan("47", enter=False)
    pump(lambda: third.ui_serial_number.GetValue() == "47")

    def answer(box: Any) -> Any:
        station.meetings[1].go_on()
        return LATER if first.is_running() else box.EndModal(wx.ID_OK)

    with Answers(answer):
        station.meetings[2].go_on()
        pump(second.is_ready)
    scan("11", enter=False)
    pump(lambda: third.ui_serial_number.GetValue() == "4711")


def test_a_test_thread_reads_the_serial_number(frame: wx.Frame) -> None:
    entry, read = qon_atsui.Cell(frame).ui_serial_number, []
    for act in (lambda: entry.SetValue("SN1"), lambda: entry.WriteText("x"), entry.Clear):
        act()
        read.append(in_thread(entry.GetValue))
    assert read in (["SN1", "xSN1", ""], ["SN1", "SN1x", ""])


SOURCE = Path(qon_atsui.__file__).parent

PROMISED = ["on_abort_all", "on_edit_test_parameters", "on_show_test_data_window", "on_start_all"]


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
            if item.GetItemLabelText() not in ("Exit", "Next cell", "Check limits…"):
                frame.ProcessEvent(wx.CommandEvent(wx.wxEVT_MENU, item.GetId()))
        assert sorted(calls) == PROMISED
        tools = [command for _title, entries in menus() for command in entries if command and command.tool]
        assert tools and all(command.hint for command in tools) and frame.ui_in_debug_mode.IsCheckable()


def test_a_destroyed_cell_leaves_no_timer_and_no_object(frame: wx.Frame) -> None:
    cell = qon_atsui.Cell(frame)
    timer, fired = cell.ui_refresh_timer, []
    cell.on_refresh_timer_event = lambda _event, cell=cell: fired.append("fired into a dead window")
    cell.ui_assertions.AppendRows(3)
    cell.ui_test_logger.AppendText("pending")
    timer.StartOnce(60_000)
    alive = [weakref.ref(part) for part in (cell, cell.ui_prompt, cell.ui_assertions, cell.ui_test_logger)]
    cell.Destroy()
    pump(lambda cell=cell: not cell)
    assert not timer.StartOnce(1) and not timer.IsRunning()
    pump_for(0.05)
    del cell, timer
    pump(lambda: gc.collect() >= 0 and not any(part() for part in alive), what="nothing holds the parts")
    assert not fired


def test_every_label_is_translated() -> None:
    catalogue = SOURCE.parent / "qon_companions" / "locale" / "zh_CN" / "LC_MESSAGES" / "qon.po"
    with catalogue.open("rb") as text:
        known = {message.id for message in read_po(text) if message.string}
    sources = [
        *SOURCE.rglob("*.py"),
        *(SOURCE.parents[2] / "results" / "src" / "qon_results" / "recorder").glob("*.py"),
    ]
    nodes = [node for path in sources for node in ast.walk(ast.parse(path.read_text("utf-8")))]
    calls = [node for node in nodes if isinstance(node, ast.Call) and isinstance(node.func, ast.Name)]
    labels = {node.args[0].value for node in calls if node.func.id == "_"}
    assert len(labels) > 100 and labels - known == set()


def test_a_catalogue_is_all_that_a_language_takes(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    folder = tmp_path / "de" / "LC_MESSAGES"
    folder.mkdir(parents=True)
    catalogue = Catalog("de")
    catalogue.add("Result", "Ergebnis")
    with (folder / "qon.mo").open("wb") as binary:
        write_mo(binary, catalogue)
    monkeypatch.setattr(i18n, "LOCALE_DIR", tmp_path)
    i18n._nearest.cache_clear()
    for told, text in (
        ("de_AT.UTF-8", "Ergebnis"),
        ("fr:de", "Ergebnis"),
        ("en:de", "Result"),
        ("zh", "Result"),
    ):
        monkeypatch.setenv("QON_LANG", told)
        assert i18n._("Result") == text
    i18n._nearest.cache_clear()


@pytest.mark.parametrize(
    ("text", "width", "lines"),
    [
        ("set it to -5 V", 11, ["set it to", "-5 V"]),
        ("VOUT_5V_NO_LOAD fails", 9, ["VOUT_5V_", "NO_LOAD", "fails"]),
        ("产品（含夹具）请取出。", 7, ["产品（含夹具）", "请取出。"]),
        ("  x" + "y" * 12, 6, ["  xyyy", "yyyyyy", "yyy"]),
        ("", 5, [""]),
    ],
)
def test_lines_break_where_they_may(text: str, width: int, lines: list[str]) -> None:
    assert wrap(text, lambda start, end: len(text[start:end].rstrip()) <= width) == lines
