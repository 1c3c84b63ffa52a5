"""Engine cells for tests: no window, scripts from text, output collected."""

import threading
from collections.abc import Mapping
from pathlib import Path
from textwrap import dedent
from types import SimpleNamespace
from typing import Any

import qon_ats
from support import PATIENCE, in_thread, script_text, write_book, write_limits, write_script


class HostCell(qon_ats.CellBase):
    """An engine cell that scripts can run in.  `reached` and `go` let a script and its test meet:
    the script sets the one and waits for the other."""

    def __init__(self, number: int, cell_config: Any) -> None:
        qon_ats.CellBase.__init__(self, number, cell_config)
        shared: dict[str, Any] = {}
        self.main_frame = SimpleNamespace(  # the part that scripts reach
            app_config=None, get_shared_obj=shared.__getitem__, set_shared_obj=shared.__setitem__
        )
        self.output: list[str] = []
        self.notes: list[Any] = []
        self.cleanups = 0
        self.reached = threading.Event()
        self.go = threading.Event()

    def print(self, message: Any, end: str = "\n") -> None:
        self.output.append(f"{message}{end}")

    @property
    def text(self) -> str:
        return "".join(self.output)

    @property
    def names(self) -> list[str]:
        return [assertion.name for assertion in self.get_assertions()]

    def meet(self) -> None:
        """Called by a script: tell the test, wait for it."""
        self.reached.set()
        assert self.go.wait(PATIENCE), "the test did not answer"

    def wait_reached(self) -> None:
        assert self.reached.wait(PATIENCE), f"the script did not come this far: {self.text}"
        self.reached.clear()

    def finish(self) -> "HostCell":
        """Wait for the end of the run."""
        thread = self._test_thread
        thread.join(PATIENCE)
        assert not thread.is_alive(), "the run does not end"
        return self

    def run(self, serial_number: str | None = "SN1") -> "HostCell":
        """One run from start to end; the cell stays busy, as the engine leaves it."""
        self.do_start(serial_number)
        return self.finish()

    def run_again(self, serial_number: str | None = "SN1") -> "HostCell":
        self.reset_state()
        return self.run(serial_number)


class Script(qon_ats.CellRunnerBase):
    """A script whose parts tests call one by one."""

    def run(self) -> None:
        qon_ats.CellRunnerBase.run(self)

    def cleanup(self) -> None:
        super().cleanup()


def runner_of(cell: Any, runner_type: type[qon_ats.CellRunnerBase] = Script) -> Any:
    """A runner built as the engine does it: in a thread marked with the cell."""

    def build() -> Any:
        threading.current_thread().cell_proxy = cell  # type: ignore[attr-defined]
        return runner_type()

    return in_thread(build)


class Host:
    """Makes cells in a folder and sees to it that no run outlives its test."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.cells: list[HostCell] = []

    def __call__(self, run: str = "pass", cleanup: str = "pass", **more: Any) -> HostCell:
        """A cell whose script has these bodies; `cell` in them is the cell.  `more` as in `from_text`."""
        run, cleanup = (f"cell = self.noumenon\n{dedent(body).strip()}" for body in (run, cleanup))
        return self.from_text(script_text(run, f"self.noumenon.cleanups += 1\n{cleanup}"), **more)

    def from_text(
        self,
        text: str,
        limits: Mapping[str, tuple[Any, Any]] | None = None,
        cell_type: type[HostCell] = HostCell,
        **config: Any,
    ) -> HostCell:
        """A cell with a whole script, a limits workbook and these keys of its configuration."""
        keys = {"script": str(write_script(self.folder, text)), **config}
        number = len(self.cells)
        if limits is not None:
            keys["assertion_config_file"] = str(write_limits(self.folder / f"limits{number}.xlsx", limits))
        book = write_book(self.folder / f"config{number}.xlsx", {"main": {}, "cell1": keys})
        self.cells.append(cell_type(1, str(book)))
        return self.cells[-1]

    def stop_all(self) -> None:
        for cell in self.cells:
            cell.go.set()
            thread = cell._test_thread
            if thread is not None and thread.is_alive():
                cell.abort()
                cell.finish()
