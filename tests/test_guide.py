"""The programs in the test engineer's guide run as they stand there."""

import re
from collections.abc import Iterator
from pathlib import Path
from threading import Lock
from typing import Any

import pytest
import wx
from qon_paratree import ParameterDirectory
from qon_station.testing import run_script
from station import Station, prompt
from support import pump, script_text, write_book, write_script

ROOT = Path(__file__).parent.parent
GUIDE = (ROOT / "docs" / "test-engineer.md").read_text(encoding="utf-8")
PYTHONS_OWN = ("Can't instantiate", "'>=' not supported", "'NoneType' object", "could not convert")


def programs(language: str) -> Iterator[tuple[str, str]]:
    """The code blocks with the heading they stand under."""
    heading = ""
    for title, block in re.findall(
        rf"^#+ ([^\n]*)$|^```{language}\n(.*?)^```$", GUIDE, re.MULTILINE | re.DOTALL
    ):
        heading = title or heading
        if block:
            yield heading, block


PROGRAMS = list(programs("python"))
SCRIPTS = [
    program for program in PROGRAMS if not re.search(r"class (Station|ManualOperationDialog)", program[1])
]


def answer(question: str) -> Any:
    return "B-17" if "atch" in question else True


@pytest.mark.parametrize(("heading", "program"), SCRIPTS, ids=[heading for heading, _ in SCRIPTS])
def test_script(heading: str, program: str, app: wx.App, tmp_path: Path) -> None:
    [(_, bench)] = programs("yaml")
    (tmp_path / "bench.yaml").write_text(bench, encoding="utf-8")
    meter = {"library": f"{tmp_path / 'bench.yaml'}@sim", "resource": "TCPIP::meter::5025::SOCKET"}
    (tmp_path / "app_config").mkdir()
    write_book(tmp_path / "app_config" / "bench.xlsx", {"supply": {"volts": 12.0}, "meter": meter})
    path = write_script(tmp_path, program if "class " in program else script_text(program))
    parameters = ParameterDirectory.load(tmp_path / "app_config")
    uut = run_script(path, answers=answer, app_config=parameters, shared={"scanner lock": Lock()})
    assert uut.done and uut.assertions, uut.run.log
    assert {item.name for item in uut.assertions if not item.is_ok()} <= {"COSMETIC"}


def defined(name: str) -> Any:
    """The class of the one program in the guide that defines it."""
    names: dict[str, Any] = {}
    [program] = [program for _, program in PROGRAMS if f"class {name}" in program]
    exec(program, names)  # noqa: S102 - the guide is ours
    return names[name]


def test_hooks_and_manual_operation(station: Station, installed: None) -> None:
    main = {"run_ticker": True, "ticker_interval": 1}
    frame = station("self.append_ok('item', 1)", frame_type=defined("Station"), main=main)
    fixture = pump(lambda: frame._shared_objs.get("fixture"), what="the start-up hook")
    frame.start_cell(1, "0815")
    pump(lambda: prompt(frame.cells[0])[0] == "0815: not a number of this product")
    fixture["lid"] = "closed"
    pump(lambda: frame._shared_objs.get("last") == ("4711-000123", "OK"), what="the unit's end")
    frame.exit_finalizer()
    frame.stop_ticker()
    dialog = defined("ManualOperationDialog")(frame)
    assert dialog.valve.GetToolTipText() and dialog.GetEscapeId() == wx.ID_ANY
    pump(frame.cells[0].is_ready)


def test_the_messages_in_the_table_are_the_programs_own() -> None:
    files = [*(ROOT / "ats").rglob("*.cpp"), *(ROOT / "companions" / "src").rglob("*.py")]
    texts = "".join(path.read_text(encoding="utf-8") for path in files).replace('\\"', '"')
    messages = re.findall(r"^\| `(.*?)`", GUIDE, re.MULTILINE)
    assert len(messages) > 20
    for message in messages:
        parts = re.split(r"\"CellRunner\"|'name'|str, not int|of cell$", message)  # what the program fills in
        assert message.startswith(PYTHONS_OWN) or all(part.strip() in texts for part in parts), message
