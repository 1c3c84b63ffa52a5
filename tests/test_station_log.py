"""The log of a station keeps what happened: each run in a file of its own, and a log that fails is shown."""

import datetime
import logging
import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
import qon_station
import wx
from qon_companions import notices
from qon_station import many_items
from qon_station.log_file import logging_to
from qon_station.run_log import prune
from station import Answers, Station
from support import pump, write_limits

pytestmark = pytest.mark.usefixtures("english")
FULL = Path("/dev/full")


@pytest.fixture
def installed(station: Station) -> Iterator[Station]:
    undo = qon_station.install()
    yield station
    undo()


def of_log() -> list[str]:
    return [notice.text for notice in notices.of_cell(None) if notice.source == "log"]


def answer(dialog: Any) -> None:
    dialog.EndModal(wx.ID_OK)


def refuse(_unit: Any) -> None:
    raise OSError("disk full")


RUN = """\
self.print("settling")
if self.uut.serial_number == "SN/2":
    raise OSError("no meter")
self.assert_true("LIT", self.ask_true_or_false("Is it lit?", "Lit", "Dark"))
self.assert_limits("Vout", 3.0, 0, 9)
"""


def test_each_run_stands_in_the_station_s_log_and_in_a_file_of_its_own(
    installed: Station, tmp_path: Path
) -> None:
    limits = write_limits(tmp_path / "limits.xlsx", {"VOUT": (0, 1)})
    log = tmp_path / "log" / "station.log"
    with logging_to(log, logging.INFO), Answers(answer):
        frame = installed(RUN, cleanup="raise ValueError('still on')", assertion_config_file=str(limits))
        for number in ("SN1", "SN/2"):
            installed.run(frame.cells[0], number)
        qon_station.before_run.subscribe(refuse)
        installed.run(frame.cells[0], "SN3")
        qon_station.before_run.unsubscribe(refuse)
    whole = log.read_text(encoding="utf-8")
    files = {path.stem[6:]: path for path in (log.parent / "runs").rglob("*.log")}
    first, second, third = (files[f"-cell1-{name}"] for name in ("SN1", "SN_2", "SN3"))
    assert "disk full" in third.read_text(encoding="utf-8") and "SN3 ends: EXCEPTION" in whole
    ended = "Test of SN1 ends: OK, 2 items"
    for text in ("Test of SN1 begins; script", "settling", "Is it lit? | answer: Lit", ended, "blanks or case"):
        assert text in first.read_text(encoding="utf-8") and text in whole, text
    told = second.read_text(encoding="utf-8")
    for text in ("OSError: no meter", "ERROR", "Test of SN/2 ends: EXCEPTION: OSError: no meter, 0 items"):
        assert text in told and text in whole, text
    assert "SN1" not in told and "Cell 1: Cleanup fail: still on." in told and 'ValueError("' not in told
    assert told.count("ValueError: still on") == 1


@pytest.mark.skipif(not FULL.exists(), reason="needs a device that is always full")
def test_a_log_that_cannot_be_written_is_shown_until_it_can(tmp_path: Path) -> None:
    log = tmp_path / "station.log"
    log.symlink_to(FULL)
    with logging_to(log, logging.INFO):
        logging.getLogger("Cell 1").info("lost")
        [text] = of_log()
        assert "station.log" in text and "No space left" in text
        log.unlink()
        logging.getLogger("Cell 1").info("kept")
        assert of_log() == [] and "kept" in log.read_text()
        os.replace(log, tmp_path / "moved.log")
        [handler] = [each for each in logging.getLogger().handlers if hasattr(each, "_looked")]
        handler._looked = 0.0
        logging.getLogger("Cell 1").info("written again")
        assert "written again" in log.read_text()


def test_days_that_are_too_old_go_and_nothing_else(tmp_path: Path) -> None:
    for name in ("2026-01-01/a.log", "2026-01-02/a.log", "2026-01-01/mine.txt", "notes/a.log", "2025-12-31/b.log"):
        (tmp_path / name).parent.mkdir(exist_ok=True)
        (tmp_path / name).touch()
    prune(tmp_path, datetime.date(2026, 1, 2))
    left = sorted(str(path.relative_to(tmp_path)) for path in tmp_path.rglob("*.*"))
    assert left == ["2026-01-01/mine.txt", "2026-01-02/a.log", "notes/a.log"]


def test_a_run_that_records_without_end_is_told(installed: Station, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(many_items, "MANY", 3)
    monkeypatch.setattr(many_items, "_LOOK_MS", 20)
    frame = installed("for n in range(4): self.append_ok('item', n)\nmeet()")
    [cell] = frame.cells
    with many_items.watching_items(frame):
        cell.start("SN1")
        installed.meetings[1].arrived()
        pump(lambda: any(each.source == "items" for each in notices.of_cell(1)))
        pump(lambda: "has recorded 4 items" in cell.ui_prompt.GetLabel())
        installed.meetings[1].go_on()
        pump(cell.is_ready)
        cell.start("SN2")
        installed.meetings[1].arrived()
        pump(lambda: cell.uut.serial_number == "SN2")
        installed.finish()
    notices.withdraw("items")
