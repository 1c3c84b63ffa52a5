"""How a station ends: by a signal as by its window, and by a crash."""

import re
from pathlib import Path

import pytest
import wx
from support import python, script_text, write_book, write_script

# One script waits for the operator, one cannot be stopped; the station is told to end while both run.
STATION = """
import os, signal, sys
import qon_ats, qon_station
from qon_station import ending

ending.CLEANUP_SECONDS = 1.0

class Station(qon_ats.ATSFrame):
    def startup_initializer(self):
        self.set_shared_obj("waiting", [])
        self.on_start_all(None)

    def ticker_function(self):
        if len(self.get_shared_obj("waiting")) == 2:
            self.stop_ticker()  # a second signal would not wait for cleanups
            os.kill(os.getpid(), getattr(signal, sys.argv[1]))

    def exit_finalizer(self):
        print("finalizer", flush=True)
        raise OSError("no meter any more")

qon_station.run_ended.subscribe(lambda unit, outcome: print(unit.cell_number, outcome, flush=True))
qon_station.closing.subscribe(lambda: print("closed", flush=True))
sys.exit(qon_station.run(Station))
"""
WAITS = "self.get_shared_obj('waiting').append(1)\nself.ask_true_or_false('lit?')\nself.sleep(60.0)"
HANGS = "self.get_shared_obj('waiting').append(2)\ntime.sleep(60)"


@pytest.mark.parametrize("name", ["SIGTERM", "SIGINT"])
def test_a_signal_closes_the_station_without_asking(app: wx.App, tmp_path: Path, name: str) -> None:
    cells = {
        f"cell{number}": {
            "script": str(write_script(tmp_path, script_text(run, "print('cleanup', flush=True)"))),
            "show_debug_shell": False,
        }
        for number, run in enumerate((WAITS, HANGS), 1)
    }
    ticker = {"run_ticker": True, "ticker_interval": 20}
    write_book(tmp_path / "ats_config.xlsx", {"main": {"cell_count": 2, **ticker}, **cells})
    done = python("-c", STATION, name, cwd=tmp_path)
    assert done.returncode == 0, done.stderr
    reason = f"INTERRUPTED: The station is closed ({name})"
    assert done.stdout.splitlines() == ["cleanup", f"1 {reason}", "finalizer", f"2 {reason}", "closed"]
    log = (tmp_path / "log" / "station.log").read_text(encoding="utf-8")
    assert f"closed ({name}): the station closes" in log and "The station has ended" in log
    assert re.search(r"Cell 2 did not end within 1 s; it is at \S+\.py, line \d+", log)
    assert "no meter any more" in log and (tmp_path / "log" / "station-crash.log").read_bytes() == b""


CRASH = """
import faulthandler, sys
from pathlib import Path
from qon_station.crash_file import crash_file
with crash_file(Path(sys.argv[1])):
    if sys.argv[2:]:
        faulthandler._sigsegv()
"""


def test_each_crash_stands_between_its_start_and_its_time(tmp_path: Path) -> None:
    file = tmp_path / "crash.log"
    for crash in (["crash"], [], ["crash"], []):
        python("-c", CRASH, str(file), *crash)
    time = r" \d{4}-\d\d-\d\d \d\d:\d\d:\d\d"
    entry = rf"== The station was started{time}, process \d+\nFatal Python error.*?== It crashed{time}\n"
    assert re.fullmatch(f"({entry}){{2}}", file.read_text(), re.DOTALL)
