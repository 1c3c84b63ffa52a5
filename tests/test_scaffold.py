"""A new station from the scaffold runs at once; scripts are tested without a window."""

import time
from pathlib import Path

import pytest
from qon_station.fake_cell import UnansweredQuestionError
from qon_station.scaffold import new_station
from qon_station.testing import ScriptTimeoutError, run_script
from support import python


def script(folder: Path, body: str) -> Path:
    path = folder / "author_script.py"
    lines = "".join(f"        {line}\n" for line in body.splitlines())
    path.write_text(
        "from qon_ats import CellRunnerBase\n\n\nclass CellRunner(CellRunnerBase):\n    def run(self):\n"
        f"{lines}\n    def cleanup(self):\n        self.print('cleaned up')\n"
    )
    return path


def test_a_new_station_passes_its_own_test_and_opens(tmp_path: Path) -> None:
    root = tmp_path / "Line 3"
    made = python("-m", "qon_station", "new", str(root), cwd=tmp_path)
    assert made.returncode == 0, made.stderr
    tested = python("-m", "pytest", "-q", cwd=root)
    assert "2 passed" in tested.stdout, tested.stdout + tested.stderr
    application = root / "station.py"
    hook = '"""Called once when the window is up."""'
    tell = (
        "print([cell.name for cell in self.cells], self.app_config.station.timing.settling_time, flush=True)"
    )
    application.write_text(application.read_text().replace(hook, f"{tell}; os._exit(7)"))
    run = python("station.py", cwd=root)
    assert (run.returncode, run.stdout.strip()) == (7, "['Cell 1', 'Cell 2'] 0.2"), run.stderr


def test_a_folder_with_something_in_it_stays_as_it_is(tmp_path: Path) -> None:
    (tmp_path / "kept.txt").write_text("mine")
    with pytest.raises(FileExistsError, match=tmp_path.name):
        new_station(tmp_path)
    with pytest.raises(ValueError, match="123"):
        new_station(tmp_path / "123")
    assert [path.name for path in tmp_path.iterdir()] == ["kept.txt"]


def test_a_run_is_told_in_full(tmp_path: Path) -> None:
    path = script(
        tmp_path,
        "self.set_prompt('look')\n"
        "self.increase_percentage(40)\n"
        "self.set_shared_obj('count', self.get_shared_obj('count') + 1)\n"
        "self.assert_limits('A', float(self.input_text('value?')), 0, 1)\n"
        "self.assert_true('LIT', self.ask_true_or_false('lit?'))\n",
    )
    limits = {"A": (2, 3)}
    uut = run_script(path, answers={"value?": 2.5, "lit?": True}, limits=limits, shared={"count": 1})
    assert (uut.summer, uut.serial_number) == ("OK", "SN-TEST")
    assert (uut.run.prompts, uut.run.percentage, uut.run.shared) == (["look"], 40, {"count": 2})
    assert uut.run.log == "cleaned up\n"
    uut = run_script(
        path, answers=["0.5", True], limits=limits, shared={"count": 1}, config={"stop_if_ng": False}
    )
    assert (uut.summer, uut.first_ng_item_name(), len(uut.assertions)) == ("NG", "A", 2)


def test_what_went_wrong_is_raised_after_cleanup(tmp_path: Path) -> None:
    path = script(tmp_path, "self.ask_true_or_false('lit?')")
    with pytest.raises(UnansweredQuestionError, match=r"lit\?"):
        run_script(path, answers={"dark?": True})
    uut = run_script(path, answers={"dark?": True}, raise_exception=False)
    assert isinstance(uut.run.exception, UnansweredQuestionError)
    assert uut.run.log.endswith("cleaned up\n")
    path = script(tmp_path, "self.sleep(60, 0.01)")
    begin = time.monotonic()
    with pytest.raises(ScriptTimeoutError, match="author_script"):
        run_script(path, timeout=0.2)
    assert time.monotonic() - begin < 20
    with pytest.raises(FileNotFoundError, match="absent"):
        run_script(tmp_path / "absent.py")
