"""Bad input: the operator sees which file, key or class is meant and mends it; nothing recorded is lost."""

from pathlib import Path
from typing import Any

import pytest
from station import Station, prompt, texts
from support import Boxes, parameter_row, pump, pump_for, python, write_book, write_limits

GOOD = "self.append_ok('a', 1)"
ODD_ROW = (*parameter_row("cell_count", 2)[:6], "integr")
SCRIPT = {"script": "s.py"}
LIMITS = {**SCRIPT, "assertion_config_file": "odd.xlsx"}
# The sheets of the workbook, None without one, bytes of a damaged one; what the error names.
BOOKS: dict[str, tuple[Any, list[str]]] = {
    "missing": (None, ["ats_config.xlsx"]),
    "damaged": (b"PK half a wor", ["ats_config.xlsx"]),
    "no_main": ({"Main": {}}, ["ats_config.xlsx", "main"]),
    "no_cell1": ({"main": {"cell_count": 2}}, ["ats_config.xlsx", "cell1"]),
    "odd_type": ({"main": [ODD_ROW]}, ["ats_config.xlsx", "main", "cell_count", "integr"]),
    "text_count": ({"main": {"cell_count": "two"}}, ["ats_config.xlsx", "main", "cell_count", "two"]),
    "minus_one": ({"main": {"column_count": -1}}, ["ats_config.xlsx", "main", "column_count", "-1"]),
    "text_interval": ({"main": {"run_ticker": True, "ticker_interval": "1 s"}, "cell1": SCRIPT}, ["main", "1 s"]),
    "no_script": ({"main": {}, "cell1": {"none_unit": ""}}, ["cell 1", '"script"']),
    "no_limits": ({"main": {}, "cell1": {**LIMITS, "assertion_config_file": "gone.xlsx"}}, ["gone.xlsx"]),
    "odd_limits": ({"main": {}, "cell1": LIMITS}, ["odd.xlsx", "VOUT", "5", "1"]),
}  # fmt: skip


@pytest.mark.parametrize("case", BOOKS)
def test_a_bad_workbook_keeps_the_frame_from_being_built(case: str, station: Station) -> None:
    content, named = BOOKS[case]
    write_limits(Path("odd.xlsx"), {"VOUT": (5.0, 1.0)})
    if isinstance(content, bytes):
        station.book.write_bytes(content)
    elif content:
        write_book(station.book, content)
    with pytest.raises(Exception) as caught:  # of the library's own kind
        station.build()
    assert [word for word in named if word not in str(caught.value)] == []
    assert station.run(station(GOOD).cells[0]).uut.is_ok


NO_CLEANUP = "import qon_ats\nclass CellRunner(qon_ats.CellRunnerBase):\n    def run(self): pass\n"
RUNNER = NO_CLEANUP + "    def cleanup(self): pass\n"
RAISE = "self.append_ok('kept', 1)\nraise OSError('TCPIP::10.0.0.7 does not answer')"
# The script, or None without one; what the log names; the items that are recorded all the same.
SCRIPTS: dict[str, tuple[str | None, list[str], list[str]]] = {
    "missing": (None, ["ModuleNotFoundError", "{name}"], []),
    "syntax": ("def run(:\n", ["SyntaxError", "{path}", "line 1"], []),
    "import": ("import no_such_driver\n", ["no_such_driver", "{path}"], []),
    "no_class": ("import qon_ats\n", ['Class "CellRunner" not found in script "{path}".'], []),
    "no_type": ("CellRunner = 5\n", ["TypeError"], []),
    "wrong_base": ("class CellRunner: pass\n", ['"CellRunner" is not derived from CellRunnerBase.'], []),
    "no_cleanup": (NO_CLEANUP, ["TypeError", "CellRunner", "cleanup"], []),
    "constructor": (RUNNER + "    def __init__(self): self.psu.on()\n", ["psu", "{path}"], []),
    "run": (Station.script(RAISE), ["OSError: TCPIP::10.0.0.7 does not answer", "{path}"], ["kept"]),
}


@pytest.mark.parametrize("case", SCRIPTS)
def test_a_bad_script_is_mended_and_started_again(case: str, station: Station) -> None:
    text, named, kept = SCRIPTS[case]
    bad, good = station("", "self.append_ok('a', 1)\nmeet()\nself.append_ok('b', 1)").cells
    path = Path(bad.script)
    path.unlink() if text is None else path.write_text(text)
    good.start("SN1")
    station.meetings[2].arrived()
    station.run(bad, "SN2")
    assert prompt(bad) == ("Exception Aborted", "cyan") and texts(bad.ui_history_grid)[0][2] == "SN2"
    log = bad.ui_test_logger.GetValue()
    assert [word for word in named if word.format(path=path, name=path.stem) not in log] == []
    assert [a.name for a in bad.uut.assertions] == [row[0] for row in texts(bad.ui_assertions)] == kept
    assert not bad.uut.done and good.is_busy()
    path.write_text(station.script(GOOD))
    assert station.run(bad, "SN2").uut.summer == "OK"
    station.finish(good)
    assert [row[3] for row in texts(good.ui_history_grid)] == ["OK"]


def test_a_failing_cleanup_is_told_and_the_verdict_stays(station: Station, boxes: Boxes) -> None:
    cell = station.run(station(GOOD, cleanup="raise OSError('supply is still on')").cells[0])
    assert boxes.of("Error") == ["Cleanup fail: supply is still on."]
    assert prompt(cell) == ("OK", "green") and cell._statistics.get_ok() == 1
    Path(cell.script).write_text(station.script(GOOD))
    station.run(cell)
    assert len(boxes.shown) == 1 and cell._statistics.get_ok() == 2


def test_a_failing_listener_loses_neither_the_unit_nor_the_other_listeners(station: Station) -> None:
    heard: list[Any] = []
    frame = station("self.uut.done_event.subscribe(lambda uut: {}['spool'])\nmeet()\n" + GOOD)
    frame.cell_start_event.subscribe(lambda cell: cell.uut.done_event.subscribe(heard.append))
    cell = station.run(frame.cells[0])
    assert cell.uut.done and heard == [cell.uut] and "KeyError: 'spool'" in cell.ui_test_logger.GetValue()
    assert prompt(cell) == ("Exception Aborted", "cyan")
    grid = frame._ATSFrame__test_data_viewer.test_data_viewer_panel.ui_history
    pump(lambda: texts(grid)[0][3] == "OK")


def test_a_script_that_exits_leaves_its_cell_visibly_busy(station: Station) -> None:
    leave = "self.append_ok('kept', 1)\nraise SystemExit(1)"
    bad, good = station(leave, GOOD, cleanup="meet.notes.append('off')").cells
    bad.start("SN1")
    pump(bad.is_running)
    bad._test_thread.join(60)
    station.run(good)
    pump_for(0.2)
    assert station.meetings[1].notes == ["off"] and bad.is_busy() and not bad.has_done()
    assert (bad.ui_start.GetLabel(), bad.ui_serial_number.IsEnabled()) == ("Pause", False)
    assert texts(bad.ui_assertions)[0][0] == "kept" and not bad.uut.done and good.uut.is_ok


@pytest.mark.parametrize(("module", "cure"), [("wx", "python3-wxgtk"), ("qon_touch", "qon-ats-companions")])
def test_a_missing_module_is_named_with_its_cure(module: str, cure: str) -> None:
    code = f"import sys; sys.modules[{module!r}] = None; import qon_ats"
    done = python("-c", code)
    last = done.stderr.splitlines()[-1]
    assert last.startswith(f'ImportError: qon_ats needs the module "{module}"') and cure in last


MALFORMED_SIBLINGS = {
    "": '"input_integer" of the module "qon_touch"',
    "import qon_nowhere": "\"qon_touch\", whose import fails: ModuleNotFoundError: No module named 'qon_nowhere'",
    "\n1 / 0": '"qon_touch", whose import fails: ZeroDivisionError: division by zero',
}


@pytest.mark.parametrize("content", MALFORMED_SIBLINGS)
def test_a_sibling_that_does_not_serve_is_told_by_the_import_error(content: str, in_tmp: Path) -> None:
    Path("qon_touch.py").write_text(content)
    last = python("-c", "import qon_ats").stderr.splitlines()[-1]
    assert last.startswith("ImportError: qon_ats needs") and MALFORMED_SIBLINGS[content] in last
    assert "qon_touch.py" in last or "qon_nowhere" in content
    Path("qon_touch.py").unlink()
    plain_wx = (
        "import sys, qon_atsui, qon_matplot, qon_wxtools; sys.modules['wx.grid'] = None; import qon_ats"
    )
    assert not content or python("-c", plain_wx).returncode == 0
