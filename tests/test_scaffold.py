"""A new station from the scaffold runs at once; scripts are tested without a window."""

import threading
import time
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest
from qon_station import VerdictError, shared_lock
from qon_station.fake_cell import UnansweredQuestionError
from qon_station.scaffold import new_station
from qon_station.testing import LimitsWarning, NotAbortedError, ScriptTimeoutError, run_script
from support import python


def script(folder: Path, body: str, base: str = "CellRunnerBase", cleanup: str = "pass") -> Path:
    path = folder / "author_script.py"
    lines = "".join(f"        {line}\n" for line in body.splitlines())
    path.write_text(
        "import sys\nfrom qon_ats import Assertion, CellRunnerBase, TestItem\n"
        "from qon_station import StrictRunner, retry, retry_item, shared_lock\n\n\n"
        f"class CellRunner({base}):\n    def run(self):\n{lines}\n"
        f"    def cleanup(self):\n        self.print('cleaned up')\n        {cleanup}\n"
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


def test_what_cleanup_raises_and_what_ends_a_thread_fails_the_test(tmp_path: Path) -> None:
    path = script(tmp_path, "self.append_ok('A', 'x')", cleanup="raise OSError('still on')")
    with pytest.raises(OSError, match="still on"):
        run_script(path)
    uut = run_script(path, raise_exception=False)
    assert uut.is_ok and uut.run.messages == ["Cleanup fail: still on."]
    with pytest.raises(SystemExit):
        run_script(script(tmp_path, "sys.exit(3)"))


def test_an_abort_is_tried_at_an_item_after_it_or_after_a_time(tmp_path: Path) -> None:
    body = (
        "self.append_ok('A', 'x')\nself.append_ok('B', 'y')\nself.sleep(60, 0.01)\nself.append_ok('C', 'z')"
    )
    path = script(tmp_path, body)

    def items(**when: Any) -> list[str]:
        uut = run_script(path, timeout=20, **when)
        assert uut.run.aborted and uut.run.log == "cleaned up\n"
        return [item.name for item in uut.assertions]

    assert items(abort_at="B") == ["A"]
    assert items(abort_after="A") == items(abort_after=0.1) == ["A", "B"]
    with pytest.raises(NotAbortedError, match="recorded: A"):
        run_script(script(tmp_path, "self.append_ok('A', 'x')"), abort_at="B")


def test_script_and_limits_that_do_not_fit_are_told(tmp_path: Path) -> None:
    path = script(tmp_path, "self.assert_limits('A ', 1, 0, 2)")
    with pytest.warns(LimitsWarning, match="differ in blanks or case"):
        uut = run_script(path, limits={"A": (5, 6)})
    assert uut.is_ok and len(uut.run.limits_check) == 1


RETRIES = """\
values = iter([7, 1, 8])
def measure():
    value = next(values)
    if value == 7:
        raise TimeoutError('no answer')
    return value
log = self.print
retry(self, 'A', measure, 0, 0, 'V', attempts=9, errors=TimeoutError, after=lambda: log('off'), category='a')
"""


def test_a_retry_is_one_item_that_tells_its_attempts(tmp_path: Path) -> None:
    uut = run_script(script(tmp_path, RETRIES), limits={"A": (8, 9)})
    [item] = uut.assertions
    assert (item.value, item.lower, item.unit, item.result, uut.summer) == (8, 8, "V", "OK", "OK")
    assert (item.attempt, item.earlier_values) == (3, ("TimeoutError: no answer", 1))
    assert item.get_elapse_time() >= 0
    assert uut.run.log.count("attempt") == 3 and "\noff\n" in uut.run.log
    of_list = "retry_item(self, TestItem('step', Assertion('A', upper=3), lambda: 4, retry_count=1))"
    uut = run_script(script(tmp_path, of_list))
    assert (uut.summer, uut.assertions[0].attempt, uut.run.description) == ("NG", 2, "A")


@pytest.mark.parametrize("value", ["'OFF'", "'Timeout'", "float('nan')", "None", "[]", "1", "' ok'"])
def test_a_strict_runner_takes_no_verdict_for_granted(value: str, tmp_path: Path) -> None:
    for call in (
        f"assert_true('A', {value})",
        f"assert_false('A', {value})",
        f"assert_result('A', 1, {value})",
    ):
        with pytest.raises(VerdictError, match='"A"'):
            run_script(script(tmp_path, f"self.{call}", "StrictRunner"))
    good = "self.assert_true('A', 'Passed')\nself.assert_false('B', False)\nself.assert_result('C', 3, 'ok')"
    assert run_script(script(tmp_path, good, "StrictRunner")).is_ok


class LockedCell:
    """A cell as its thread meets it while it waits."""

    def __init__(self) -> None:
        self.uut, self._exception_object = SimpleNamespace(done=False), None
        self.aborted, self.looked = False, threading.Event()

    def is_paused(self) -> bool:
        return False

    def get_cell_name(self) -> str:
        return "Cell 3"

    def check_abort(self) -> None:
        self.looked.set()
        if self.aborted:
            raise InterruptedError


def test_a_shared_lock_is_waited_for_in_turn_and_given_up_by_an_abort() -> None:
    order: list[str] = []

    def use(name: str) -> None:
        try:
            with shared_lock("meter"), shared_lock("meter"):
                order.append(name)
        except InterruptedError:
            order.append(f"{name} aborted")

    cells, threads = [LockedCell() for _ in range(2)], []
    with shared_lock("meter"):
        for name, cell in zip("ab", cells, strict=True):
            threads.append(threading.Thread(target=use, args=(name,), daemon=True))
            threads[-1].cell_proxy = cell
            threads[-1].start()
            assert cell.looked.wait(60)
        cells[0].aborted = True
        threads[0].join(60)
        assert order == ["a aborted"]
    threads[1].join(60)
    assert order == ["a aborted", "b"]

    def hold() -> None:
        with shared_lock("meter"):
            cells[0].looked.set()
            cells[1].looked.wait(60)

    cells[0].looked.clear()
    cells[1].looked.clear()
    holder = threading.Thread(target=hold, name="cell 9", daemon=True)
    holder.start()
    assert cells[0].looked.wait(60)
    with pytest.raises(TimeoutError, match="cell 9 has it"), shared_lock("meter", timeout=0.05):
        pass
    cells[1].looked.set()
    holder.join(60)
