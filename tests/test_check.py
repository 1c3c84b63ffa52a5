"""What does not fit in a station is told: by the check before anybody scans, and by what a run has recorded."""

from collections.abc import Callable
from pathlib import Path
from typing import Any

import openpyxl
import pytest
import wx
from openpyxl.worksheet.worksheet import Worksheet
from qon_ats import Assertion, CellBase
from qon_companions.limits_check import compare
from qon_station import keys
from qon_station.__main__ import main
from qon_station.scaffold import new_station
from qon_testparameters import Parameter
from station import Station, dialogs
from support import press, write_limits

ROOT = Path(__file__).parent.parent
SCRIPT, CONFIG, LIMITS = "scripts/line_script.py", "ats_config.xlsx", "limits.xlsx"

pytestmark = pytest.mark.usefixtures("english")


def edit(sheet: str, **cells: Any) -> Callable[[Path], None]:
    """Write these cells of a sheet."""

    def change(book: Path) -> None:
        workbook = openpyxl.load_workbook(book)
        for place, value in cells.items():
            workbook[sheet][place] = value
        workbook.save(book)

    return change


def replace(old: str, new: str) -> Callable[[Path], None]:
    return lambda path: path.write_text(path.read_text().replace(old, new))  # type: ignore[return-value]


def add(name: str, value: Any, kind: str) -> Callable[[Path], None]:
    """One more key of cell1."""
    return edit("cell1", A9="x", B9=value, F9=name, G9=kind)


# The file, what somebody did to it, and what the check says.
FAULTS: dict[str, tuple[str, Callable[[Path], None], str]] = {
    "key": (CONFIG, edit("cell1", F3="assertion_config_fiel"), 'did you mean "assertion_config_file"?'),
    "sheet": (CONFIG, add("column_count", 1, "int"), 'belongs into the sheet of "main"'),
    "type": (CONFIG, add("none_unit", 3, "int"), 'none_unit": it has the type "int"'),
    "empty": (CONFIG, edit("cell1", B4=None), "is empty, which is no default"),
    "column": (CONFIG, add("column_info", '[["Val", 9]]', "json"), "the column 'Val' is to show"),
    "script": (CONFIG, edit("cell1", B2="scripts/other.py"), "other.py does not exist"),
    "taken": (CONFIG, add("runner_class_name", "Runner", "str"), "it has: CellRunner"),
    "main": (CONFIG, lambda book: edit("main", B2=0)(book), "it must be at least 1"),
    "import": (
        SCRIPT,
        replace('"""Tests', 'import no_such_driver\n"""Tests'),
        "no_such_driver is not installed",
    ),
    "syntax": (SCRIPT, replace("def run(", "def run(:"), "is no valid Python"),
    "class": (SCRIPT, replace("def cleanup", "def clean_up"), "lacks: cleanup"),
    "name": (LIMITS, edit("limits", F2="supply_voltage"), 'the script calls it "SUPPLY_VOLTAGE"'),
    "row": (LIMITS, edit("limits", F2="SUPLY_VOLTAGE"), 'did you mean "SUPPLY_VOLTAGE"?'),
    "unit": (LIMITS, edit("limits", E2="mV"), 'the unit is "mV" here and "V" in the script'),
    "parameter": ("app_config/station.xlsx", edit("timing", C2=7), "0.2 is below the lower limit 7"),
    "absent": (LIMITS, Path.unlink, "Parameter workbook not found"),
}


@pytest.mark.parametrize("fault", FAULTS)
def test_the_check_names_what_is_wrong_and_where(
    fault: str, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    root = tmp_path / "line"
    new_station(root)
    file, change, told = FAULTS[fault]
    change(root / file)
    assert main(["check", str(root)]) == (0 if fault == "row" else 1)
    out = capsys.readouterr().out
    assert told in out and "Errors: " in out and len(out.strip().splitlines()) < 8, out


def test_a_new_station_and_the_demonstration_are_in_order(
    tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    new_station(tmp_path / "line")
    demo = str(ROOT / "demo")
    for arguments in ([str(tmp_path / "line")], [demo]):
        assert main(["check", *arguments]) == 0
        assert "are in order" in capsys.readouterr().out
    assert main(["check", demo, "--config", "recheck_config.xlsx"]) == 0
    told = capsys.readouterr().out
    assert told.count("warning") == 2 and "has no items of these names: INPUT_RESISTANCE, " in told


def test_the_readme_lists_the_keys_that_the_check_knows(monkeypatch: pytest.MonkeyPatch) -> None:
    from qon_results.recorder.keys import KEYS as RESULTS

    readme = (ROOT / "README.md").read_text(encoding="utf-8")
    assert keys.readme_table() in readme and keys.readme_table(RESULTS) in readme
    monkeypatch.setattr(keys, "_keys_of_others", lambda: (keys.Key("main", "line_name", "str", "", ""),))
    assert "line_name" in keys.keys_of("main") and "line_name" not in keys.keys_of("cell1")
    assert keys.misspelt(["stop_if_n", "stop_if_ng", "my_key"], "cell2") == {"stop_if_n": "stop_if_ng"}


def row(name: str, unit: str = "V") -> Parameter:
    return Parameter(name, name, 1.0, 0.0, 2.0, unit, "float")


def test_what_a_run_recorded_is_held_against_its_limits() -> None:
    rows = {each.name: each for each in (row("A"), row("b "), row("C"), row("D", "mV"))}
    items = [Assertion("A", 1.0, 0, 2, "V"), Assertion("B", 9.0), Assertion("D", 1, 0, 2, "V")]
    items += [Assertion("TEXT", "x"), Assertion("FREE", 3.5)]
    told = [(each.kind.value, each.item) for each in compare(rows, items, complete=True)]
    assert sorted(told) == [
        ("name", "B"), ("no limit", "B"), ("no limit", "FREE"), ("unit", "D"), ("unused", "C"),
    ]  # fmt: skip
    assert "unused" not in [each.kind.value for each in compare(rows, items, complete=False)]


def test_blanks_at_the_ends_of_an_item_s_name_survive_export_and_load(tmp_path: Path) -> None:
    book = write_limits(tmp_path / LIMITS, {" VOUT ": (0, 1), "VOUT": (2, 3)})
    assert list(CellBase.load_assertion_configs(str(book))) == [" VOUT ", "VOUT"]

    def typed(path: Path) -> None:
        workbook = openpyxl.load_workbook(path)
        sheet: Worksheet = workbook["limits"]
        sheet["A2"], sheet["F2"], sheet["F3"] = "output voltage", "IOUT ", "VOUT"
        workbook.save(path)

    typed(book)
    assert list(CellBase.load_assertion_configs(str(book))) == ["IOUT", "VOUT"], "a blank typed by mistake"


def test_the_parameters_menu_lists_what_does_not_fit(station: Station, tmp_path: Path) -> None:
    limits = write_limits(tmp_path / LIMITS, {"VOUT": (0, 1), "IOUT": (0, 1)})
    run = "self.assert_limits('VOUT', 1, 0, 2)\nself.append_ok('TEXT', 'x')"
    frame: Any = station(run, run, assertion_config_file=str(limits))
    station.run(frame.cells[0])
    rows: list[list[str]] = []

    def read(dialog: Any) -> None:
        rows.extend(dialog.texts())
        press(wx.WXK_ESCAPE, over=dialog)

    with dialogs(read):
        frame.ProcessCommand(next(
            item.GetId() for menu, _ in frame.GetMenuBar().GetMenus() for item in menu.GetMenuItems()
            if item.GetItemLabelText().startswith("Check limits")
        ))  # fmt: skip
    assert [row[:2] for row in rows] == [["Cell 1", "IOUT"], ["Cell 2", ""]]
    assert "No item used" in rows[0][2] and "No test" in rows[1][2]
