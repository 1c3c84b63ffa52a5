"""From a script file to a runner: import, reload, look-up and checks."""

import os
import sys
from pathlib import Path
from typing import Any

import pytest
from hostcell import Host
from support import script_text, unique_name, write_script

OTHER = """\
import qon_ats

class Other(qon_ats.CellRunnerBase):
    def run(self): self.append_ok("other", 1)
    def cleanup(self): pass

class Plain: pass

number = 5
"""


@pytest.mark.parametrize(("keys", "seen"), [({}, "bbb"), ({"reload_cell_runner": False}, "aaa")])
def test_edits_are_seen_by_the_next_run(keys: dict[str, Any], seen: str, host: Host) -> None:
    """As an engineer edits between two runs: same size, a later time of change."""
    cell = host.from_text(script_text("self.append_ok('aaa', 1)"), **keys)
    assert cell.run().names == ["aaa"]
    path = Path(cell.script)
    changed = path.stat().st_mtime + 5
    path.write_text(script_text("self.append_ok('bbb', 1)"), encoding="utf-8")
    os.utime(path, (changed, changed))
    assert cell.run_again().names == [seen]


@pytest.mark.parametrize(
    ("name", "error", "message"),
    [
        ("Missing", ValueError, 'Class "Missing" not found in script "{}".'),
        ("Plain", TypeError, 'Class "Plain" is not derived from CellRunnerBase.'),
        ("number", TypeError, ""),
    ],
)
def test_a_class_that_is_no_runner(name: str, error: type[Exception], message: str, host: Host) -> None:
    cell = host.from_text(OTHER, runner_class_name=name).run()
    assert type(cell._exception_object) is error
    assert message.format(cell.script) in str(cell._exception_object)
    assert str(cell._exception_object) in cell.text
    assert (cell.has_done(), cell.is_running(), cell.uut.done) == (True, True, False)
    cell.runner_class_name = "Other"
    assert (cell.run_again().names, cell._exception_object) == (["other"], None)


def test_the_module_stays_that_of_the_first_run(host: Host) -> None:
    cell = host.from_text(script_text("self.append_ok('aaa', 1)")).run()
    module = cell._cell_runner_module
    cell.script = other = str(write_script(host.folder, script_text("self.append_ok('bbb', 1)")))
    assert (cell.run_again().names, cell.script, cell._cell_runner_module) == (["aaa"], other, module)


def test_the_path_gets_the_folder_once_at_its_end(host: Host) -> None:
    earlier, name = host.folder / "earlier", unique_name()
    earlier.mkdir()
    write_script(earlier, script_text("self.append_ok('earlier', 1)"), name)
    sys.path.append(str(earlier))
    script = write_script(host.folder, script_text("self.append_ok('later', 1)"), f"{name}.v2.final")
    first, second = host(script=str(script)), host(script=str(script))
    assert first.run().names == second.run().names == ["earlier"]
    assert sys.path[-1] == str(host.folder) and sys.path.count(str(host.folder)) == 1
    assert first._cell_runner_module is second._cell_runner_module is sys.modules[name]


def test_script_path_and_class_name_of_a_cell(host: Host, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(host.folder)
    cell = host(script="sub/../relative.py", runner_class_name="Mine")
    assert (cell.script, cell.runner_class_name) == (str(host.folder / "relative.py"), "Mine")
    cell.script = "other.py"
    assert cell.script == str(host.folder / "other.py")
