"""Engine cells for tests: no window, scripts from text, output collected."""

import threading
from collections.abc import Mapping
from pathlib import Path
from textwrap import dedent
from types import SimpleNamespace
from typing import Any

import qon_ats
from support import script_text, write_book, write_limits, write_script

JOIN_SECONDS = 10.0


class HostFrame:
    """The part of a main frame that scripts reach."""

    def __init__(self) -> None:
        self.app_config = SimpleNamespace(station="bench")
        self.shared: dict[str, Any] = {}

    def get_shared_obj(self, name: str) -> Any:
        return self.shared[name]

    def set_shared_obj(self, name: str, obj: Any) -> None:
        self.shared[name] = obj


class HostCell(qon_ats.CellBase):
    """An engine cell that scripts can run in.  `reached` and `go` let a script and its test meet:
    the script sets the one and waits for the other."""

    def __init__(self, number: int, cell_config: Any) -> None:
        qon_ats.CellBase.__init__(self, number, cell_config)
        self.main_frame = HostFrame()
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

    def meet(self) -> None:
        """Called by a script: tell the test, wait for it."""
        self.reached.set()
        assert self.go.wait(JOIN_SECONDS), "the test did not answer"

    def wait_reached(self) -> None:
        assert self.reached.wait(JOIN_SECONDS), f"the script did not come this far: {self.text}"
        self.reached.clear()

    def finish(self) -> "HostCell":
        """Wait for the end of the run."""
        thread = self._test_thread
        thread.join(JOIN_SECONDS)
        assert not thread.is_alive(), "the run does not end"
        return self

    def run(self, serial_number: str | None = "SN1") -> "HostCell":
        """One run from start to end; the cell stays busy, as the engine leaves it."""
        self.do_start(serial_number)
        return self.finish()

    @property
    def names(self) -> list[str]:
        return [assertion.name for assertion in self.get_assertions()]


class Host:
    """Makes cells in a folder and sees to it that no run outlives its test."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.cells: list[HostCell] = []

    def __call__(
        self,
        run: str = "pass",
        cleanup: str = "pass",
        limits: Mapping[str, tuple[Any, Any]] | None = None,
        cell_type: type[HostCell] = HostCell,
        **config: Any,
    ) -> HostCell:
        """A cell whose script has these bodies; `cell` in them is the cell."""
        run, cleanup = dedent(run).strip(), dedent(cleanup).strip()
        text = script_text(
            f"cell = self.noumenon\n{run}", f"cell = self.noumenon\ncell.cleanups += 1\n{cleanup}"
        )
        return self.from_text(text, limits, cell_type, **config)

    def from_text(
        self,
        text: str,
        limits: Mapping[str, tuple[Any, Any]] | None = None,
        cell_type: type[HostCell] = HostCell,
        **config: Any,
    ) -> HostCell:
        """A cell with a whole script of the test's own."""
        keys = {"script": str(write_script(self.folder, text)), **config}
        if limits is not None:
            keys["assertion_config_file"] = str(
                write_limits(self.folder / f"limits{len(self.cells)}.xlsx", limits)
            )
        book = write_book(self.folder / f"config{len(self.cells)}.xlsx", {"main": {}, "cell1": keys})
        cell = cell_type(1, str(book))
        self.cells.append(cell)
        return cell

    def stop_all(self) -> None:
        for cell in self.cells:
            cell.go.set()
            thread = cell._test_thread
            if thread is not None and thread.is_alive():
                cell.abort()
                cell.finish()
