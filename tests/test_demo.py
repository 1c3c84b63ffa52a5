"""The demonstration station: bench, drivers, scripts, workbooks, and the whole of it from start to end."""

import os
import re
import socket
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import closing
from pathlib import Path
from typing import Any

import openpyxl
import pytest
import qon_station
import wx
from hostcell import HostCell
from qon_paratree import ParameterDirectory
from qon_station.testing import run_script
from support import pump_for, write_book, write_script

ROOT = Path(__file__).parent.parent
DEMO = ROOT / "demo"
sys.path.append(str(DEMO))

import make_workbooks
from bench_process import Hands
from bench_sim.board import DEFECTS, implied_defect, implied_verdict, led_lit
from bench_sim.server import BenchThread, free_port
from cell_bench import CellBench
from scpi_instruments import InstrumentError, Supply

sys.path.remove(str(DEMO))  # other tests must not find its modules

README = (ROOT / "README.md").read_text(encoding="utf-8")
CELLS = len(DEFECTS) + 1
GOOD = "4711-000002"
FIRST_FAILED = {
    "input capacitor shorted": "INPUT_RESISTANCE",
    "feedback divider wrong": "VOUT_NO_LOAD",
    "inductor badly soldered": "VOUT_HALF_LOAD",
    "output capacitor missing": "RIPPLE",
    "switch damaged": "EFFICIENCY_HALF_LOAD",
    "start-up divider wrong": "START_UP_VOLTAGE",
    "thermal pad void": "BOARD_TEMPERATURE",
    "old firmware": "FIRMWARE_VERSION",
    "LED fitted the wrong way round": "LED_GREEN",
}


class DemoCell(HostCell):
    """An engine cell in front of which an operator looks at the LED."""

    percent = 0.0

    def set_prompt(self, prompt: str, bg_color: Any = None) -> None:
        self.notes.append(prompt)

    def update_percentage(self, percent: float) -> None:
        self.percent = percent

    def increase_percentage(self, increment: float) -> None:
        self.percent += increment

    def ask_true_or_false(self, question: str, true: str = "Yes", false: str = "no") -> bool:
        return led_lit(self.uut.serial_number)


class Bench:
    """A bench of its own for a test, with parameters that name its ports."""

    def __init__(self, folder: Path, first_port: int) -> None:
        make_workbooks.write_all(folder, first_port, CELLS)
        self.app_config = ParameterDirectory.load(folder / "app_config")
        self.hands = Hands(self.app_config, CELLS)

    def start(self, serial_number: str, number: int = 1, config: str = "ats_config.xlsx") -> DemoCell:
        """A cell that tests this unit, which is put into its fixture."""
        cell = DemoCell(number, str(DEMO / config))
        cell.main_frame.app_config = self.app_config
        cell.do_start(serial_number)
        self.hands.fit(number, serial_number)
        return cell


@pytest.fixture
def bench(tmp_path: Path, monkeypatch: pytest.MonkeyPatch, import_state: None) -> Iterator[Bench]:
    """As started from the station's folder, where its workbook's paths begin and its modules lie."""
    monkeypatch.chdir(DEMO)
    sys.path.append(str(DEMO))
    first_port = free_port(CELLS)
    with BenchThread(CELLS, first_port):
        made = Bench(tmp_path, first_port)
        yield made
        made.hands.close()


def unit_with(defect: str) -> str:
    return next(sn for sn in (f"4711-{n:06d}" for n in range(5000)) if implied_defect(sn) == defect)


def test_each_defect_is_found_and_a_good_unit_passes(bench: Bench) -> None:
    units = [GOOD, *map(unit_with, DEFECTS)]
    cells = [bench.start(serial_number, number) for number, serial_number in enumerate(units, 1)]
    failed = {}
    for cell in cells:
        cell._test_thread.join(60)
        assert cell.has_done() and cell._exception_object is None, cell.text
        assert cell.uut.done and cell.uut.summer == implied_verdict(cell.uut.serial_number), cell.text
        failed[implied_defect(cell.uut.serial_number)] = cell.uut.first_ng_item_name()
    assert failed == {None: "", **FIRST_FAILED}
    good = cells[0]
    assert len(good.uut.assertions) >= 20 and good.percent > 90
    assert good.get_assertions("regulation") and "Testing" in good.notes
    assert good.uut.get_assertion_by_name("VOUT_FULL_LOAD").upper == 5.08, "that of the limits workbook"
    with closing(CellBench(bench.app_config, 1)) as instruments:
        assert not instruments.supply.is_on()


def test_an_aborted_test_leaves_the_outputs_off(bench: Bench) -> None:
    cell = bench.start(GOOD)
    while "EFFICIENCY_HALF_LOAD" not in cell.names:
        assert cell._test_thread.is_alive(), cell.text
        time.sleep(0.01)
    with closing(CellBench(bench.app_config, 1)) as instruments:
        assert instruments.supply.is_on() and instruments.load.query("INP?") == "1"
        cell.abort()
        cell.finish()
        assert cell.is_aborted()
        assert not instruments.supply.is_on() and instruments.load.query("INP?") == "0"


def test_a_silent_instrument_is_named_by_role_and_resource(bench: Bench) -> None:
    with socket.create_server(("127.0.0.1", 0)) as server:
        silent = f"TCPIP::127.0.0.1::{server.getsockname()[1]}::SOCKET"
        closed = f"TCPIP::127.0.0.1::{free_port(1)}::SOCKET"
        for resource in (closed, silent, "TCPIP::no-such-host.invalid::1::SOCKET", "COM17"):
            with pytest.raises(InstrumentError, match=f"supply of cell 7 {re.escape(resource)} .*instr"):
                Supply("supply of cell 7", resource, "@py", 300)
        bench.app_config["instruments/bench/timeout_ms"] = 300
        bench.app_config["instruments/cell1/meter"] = silent
        cell = bench.start(GOOD).finish()
    assert isinstance(cell._exception_object, InstrumentError)
    assert f"meter of cell 1 {silent}" in cell.text


def test_the_list_of_items_is_retried_until_it_settles(bench: Bench) -> None:
    for serial_number, first_failed in ((GOOD, ""), (unit_with("output capacitor missing"), "RIPPLE")):
        cell = bench.start(serial_number, config="recheck_config.xlsx").finish()
        assert cell.uut.first_ng_item_name() == first_failed and len(cell.uut.assertions) == 4
        assert cell.text.count("VOUT_NO_LOAD, attempt") > 1, "the output is not settled at once"
    assert cell.text.count("RIPPLE, attempt") == 3


def test_the_workbooks_in_the_tree_are_those_of_the_program(tmp_path: Path) -> None:
    make_workbooks.write_all(tmp_path)
    for made in sorted(tmp_path.rglob("*.xlsx")):
        kept = DEMO / made.relative_to(tmp_path)
        one, other = ([list(sheet.values) for sheet in openpyxl.load_workbook(book)] for book in (kept, made))
        assert one == other, f"run make_workbooks.py: {kept.name} is out of date"


def python_of_the_readme(containing: str) -> str:
    return next(text for text in re.findall(r"```python\n(.*?)```", README, re.DOTALL) if containing in text)


def test_the_first_script_of_the_readme_runs(tmp_path: Path) -> None:
    script = write_script(tmp_path, python_of_the_readme("CellRunner"))
    uut = run_script(script, answers=lambda _question: True, limits={"VREF": (2.4, 2.6)})
    assert [item.name for item in uut.assertions] == ["VOUT", "VREF", "FIRMWARE", "LED"]
    assert uut.is_ok and "outputs off" in uut.run.log


def test_the_readme_s_application_opens(app: wx.App, in_tmp: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    write_book(in_tmp / "ats_config.xlsx", {"main": {}, "cell1": {"script": "first.py"}})
    factories: list[Callable[[], Any]] = []
    monkeypatch.setattr(qon_station, "run", factories.append)
    exec(python_of_the_readme("ATSFrame"), {})  # noqa: S102 - our own text
    frame = factories[0]()
    pump_for(0.1)
    assert "Line 3" in frame.GetTitle() and frame.get_shared_obj("line") == "3"
    frame.Destroy()


def test_the_whole_station_works_by_itself_and_gives_the_implied_verdicts(tmp_path: Path) -> None:
    displays = ("DISPLAY", "WAYLAND_DISPLAY")
    ended = subprocess.run(
        ["tools/run-station", sys.executable, "--output", str(tmp_path)],
        check=False, cwd=ROOT, capture_output=True, text=True, timeout=110,
        env={name: value for name, value in os.environ.items() if name not in displays},
    )  # fmt: skip
    assert ended.returncode == 0, ended.stdout + ended.stderr
    cells = re.findall(r"^cell (\d)  (\S+)  (OK|NG) +(\d+) items +([\d.]+) s$", ended.stdout, re.MULTILINE)
    assert [number for number, *_ in cells] == ["1", "2", "3", "4"]
    assert {verdict for _, _, verdict, *_ in cells} == {"OK", "NG"}
    for name in ("station", "viewer", "parameters", "manual_operation", "about"):
        picture = wx.Image(str(tmp_path / f"{name}.png"))
        assert picture.IsOk() and len(set(zip(*[iter(picture.GetData())] * 3, strict=True))) > 20, name
