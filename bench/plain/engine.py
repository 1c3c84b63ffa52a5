"""The test cell without a window: runs the script in a test thread and records what it judges."""

import builtins
import importlib
import logging
import os
import queue
import sys
import threading
import time
from types import ModuleType
from typing import Any

from qon_handy import format_exception
from qon_testparameters import BookParameters, Parameter, SheetParameters
from qon_wxtools import MB

from .checks import as_float, wrong
from .control import Control
from .evaluation import Evaluation
from .records import DEFAULT_CONFIG_PATH, UUT, Assertion, DoneError, NGError, UserAbortError


class CellBase(Control, Evaluation):
    """One test cell: its configuration, its current unit, its run."""

    CellStateStop = 0
    CellStateBusy = 1

    def __init__(self, number: int, cell_config: Any) -> None:
        if not isinstance(number, int):
            raise wrong("number", number, "int")
        self._number = number
        self._state = self.CellStateStop
        self._uut_type: type[UUT] = UUT
        self._uut: UUT | None = None
        self._cell_config = self._sheet_of(cell_config)
        self._script = os.path.abspath(self._cell_config.get("script"))
        self._runner_class_name = self._cell_config.get("runner_class_name", "CellRunner")
        self._cell_runner_module: ModuleType | None = None
        self._assertion_configs: dict[str, Parameter] | None = None
        limits = (self._cell_config.get("assertion_config_file") or "").strip()
        self.set_assertion_config_file(limits)
        self._start_time: float | None = None
        self._elapse_begin_time: float | None = None
        self._pause_flag = False
        self._abort_flag = False
        self._done_flag = False
        self._result_description = ""
        self._pause_event = threading.Event()
        self._pause_event.set()
        self._exception_object: Exception | None = None
        self._ng_items: list[Assertion] = []
        self._test_thread: threading.Thread | None = None
        self._assertion_queue: queue.Queue[Assertion] = queue.Queue()
        self._assertion_category: dict[str, list[Assertion]] = {"all": []}

    def _sheet_of(self, config: Any) -> SheetParameters:
        sheet = f"cell{self._number}"
        if config is None:
            config = DEFAULT_CONFIG_PATH
        if isinstance(config, str):
            config = BookParameters(config)
        if isinstance(config, BookParameters):
            return self._sheet_in(config, sheet)
        if not isinstance(config, SheetParameters):
            raise TypeError(
                'Argument "parameter_book" must be a string for an excel file name, or an object of '
                "BookParameters, or an object of SheetParameters, "
                f'not a "{type(config).__name__}".'
            )
        return config

    @staticmethod
    def _sheet_in(book: BookParameters, sheet: str) -> SheetParameters:
        if book.has_sheet(sheet):
            return book.get_sheet_parameters(sheet)
        try:
            return book.load_sheet(sheet)
        except ValueError:
            if sheet == "cell1":
                raise
        if not book.has_sheet("cell1"):
            book.load_sheet("cell1")
        return book.get_sheet_parameters("cell1")

    @property
    def running_state(self) -> int:
        return self._state

    @running_state.setter
    def running_state(self, value: int) -> None:
        self._state = value

    @property
    def uut_type(self) -> type[UUT]:
        return self._uut_type

    @uut_type.setter
    def uut_type(self, value: type[UUT]) -> None:
        assert issubclass(value, UUT)
        self._uut_type = value

    @property
    def uut(self) -> UUT | None:
        return self._uut

    @uut.setter
    def uut(self, value: UUT | None) -> None:
        self._uut = value

    @property
    def cell_config(self) -> SheetParameters:
        return self._cell_config

    @property
    def name(self) -> str:
        return f"Cell {self._number}"

    def get_cell_name(self) -> str:
        return f"Cell {self._number}"

    @property
    def logger(self) -> logging.Logger:
        return logging.getLogger(self.name)

    @property
    def cell_number(self) -> int:
        return self._number

    @property
    def assertion_configs(self) -> dict[str, Parameter] | None:
        return self._assertion_configs

    @property
    def runner_class_name(self) -> str:
        return self._runner_class_name

    @runner_class_name.setter
    def runner_class_name(self, value: str) -> None:
        if not isinstance(value, str):
            raise wrong("value", value, "str")
        self._runner_class_name = value

    @property
    def script(self) -> str:
        return self._script

    @script.setter
    def script(self, script_path: str) -> None:
        self._script = os.path.abspath(script_path)

    def is_running(self) -> bool:
        return self.running_state == self.CellStateBusy

    def is_paused(self) -> bool:
        return self._pause_flag

    def is_busy(self) -> bool:
        return self.running_state == self.CellStateBusy and not self.is_paused()

    def is_ready(self) -> bool:
        return self.running_state == self.CellStateStop

    def is_in_cell_test_thread(self) -> bool:
        return threading.current_thread() is self._test_thread

    def is_in_debug_mode(self) -> bool:
        return False

    def start(self, serial_number: str = "") -> None:
        if not self.is_running():
            self.handle_start_request(serial_number)

    def handle_start_request(self, serial_number: str = "") -> None:
        if self.is_ready():
            self.do_start(serial_number)
        elif self.is_paused():
            self.resume()

    def do_start(self, serial_number: str | None) -> None:
        if serial_number is not None:
            self.set_serial_number(serial_number)
        script = self.script
        self.clear_last_test_data()
        self.reset_state()
        self.running_state = self.CellStateBusy
        self._start_time = time.time()
        self.uut = self.uut_type(serial_number=serial_number, cell_number=self.cell_number)
        self._run_script(script)

    def clear_last_test_data(self) -> None:
        """Hook."""

    def set_serial_number(self, value: str) -> None:
        if self.uut is not None:
            self.uut.serial_number = value

    def reset_state(self) -> None:
        self.running_state = self.CellStateStop
        self._start_time = None
        self._elapse_begin_time = None
        self._pause_flag = False
        self._abort_flag = False
        self._done_flag = False
        self._result_description = ""
        self._exception_object = None
        self._ng_items.clear()
        self._assertion_category.clear()
        self._assertion_category["all"] = []

    def _run_script(self, script: str) -> None:
        self._test_thread = threading.Thread(target=self._do_run_script, args=(script,))
        self._test_thread.start()

    def _do_run_script(self, script: str) -> None:
        threading.current_thread().cell_proxy = self  # type: ignore[attr-defined]
        runner = None
        try:
            try:
                runner = self._runner_class(script)()
                runner.run()
                self.uut.done = True
            except (UserAbortError, NGError) as error:
                self._result_description = str(error)
                self._make_uut_done()
            except DoneError:
                self._make_uut_done()
            except Exception as error:  # noqa: BLE001 - any fault of a script
                self.print("".join(format_exception(skip_level=1)), end="")
                self._exception_object = error
        finally:
            if runner is not None:
                try:
                    runner.cleanup()
                except Exception as error:  # noqa: BLE001 - any fault of a script
                    MB.Error(f"Cleanup fail: {error}.")
        self._done_flag = True

    def _runner_class(self, script: str) -> type:
        from .script_api import CellRunnerBase

        class_name = self.runner_class_name
        if self._cell_runner_module is None:
            folder = os.path.dirname(script)
            if folder not in sys.path:
                sys.path.append(folder)
            module_name = os.path.basename(script).split(".")[0]
            self._cell_runner_module = importlib.import_module(module_name)
        elif self._cell_config.get("reload_cell_runner", True):
            importlib.invalidate_caches()
            self._cell_runner_module = importlib.reload(self._cell_runner_module)
        if not hasattr(self._cell_runner_module, class_name):
            raise ValueError(f'Class "{class_name}" not found in script "{script}".')
        runner_class = getattr(self._cell_runner_module, class_name)
        if not issubclass(runner_class, CellRunnerBase):
            raise TypeError(f'Class "{class_name}" is not derived from CellRunnerBase.')
        return runner_class

    def _make_uut_done(self) -> None:
        try:
            self.uut.done = True
        except Exception:  # noqa: BLE001 - any fault of a script
            self.print("".join(format_exception(skip_level=0)), end="")

    def done(self) -> None:
        if not self.is_in_cell_test_thread():
            raise RuntimeError(
                '"done" method must be call in Cell testing thread, not it\'s sub thread or any others.'
            )
        raise DoneError

    def has_done(self) -> bool:
        return self._done_flag

    def no_ng_item(self) -> bool:
        return not self._ng_items

    def is_ok(self) -> bool:
        return bool(self.uut.is_ok)

    def get_assertions(self, category: str = "all") -> list[Assertion]:
        return self._assertion_category.setdefault(category, [])

    def append(
        self, assertion: Assertion, stop_if_ng: bool | None = None, category: str | list[str] | None = "all"
    ) -> None:
        if not isinstance(assertion, Assertion):
            raise wrong("assertion", assertion, "Assertion")
        if stop_if_ng is not None and not isinstance(stop_if_ng, bool):
            raise wrong("stop_if_ng", stop_if_ng, "bool")
        if assertion.get_unit() is None:
            assertion.set_unit(self._cell_config.get("none_unit", ""))
        self._uut.append_assertion(assertion)
        self._assertion_queue.put(assertion)
        categories = self._assertion_category
        if category == "all" or category is None:
            categories.setdefault("all", []).append(assertion)
        elif isinstance(category, list):
            for name in category:
                categories.setdefault(name, []).append(assertion)
            if "all" not in category:
                categories.setdefault("all", []).append(assertion)
        else:
            categories.setdefault(category, []).append(assertion)
            categories.setdefault("all", []).append(assertion)
        if assertion.is_ng():
            self._ng_items.append(assertion)
            stop = self._cell_config.get("stop_if_ng", True) if stop_if_ng is None else stop_if_ng
            if stop:
                raise NGError(assertion.get_name())

    def fetch_an_assertion(self) -> Assertion:
        return self._assertion_queue.get()

    def get_elapse_time(self) -> float:
        if self._start_time is None:
            return 0
        if self.has_done():
            return self.uut.end_time - self._start_time
        return time.time() - self._start_time

    def update_elapse_begin_time(self, time_mark: float | None = None) -> None:
        self._elapse_begin_time = time.time() if time_mark is None else as_float("time", time_mark)

    def print(self, message: Any, end: str = "\n") -> None:
        builtins.print(message, end=end)

    def debug_print(self, message: Any, end: str = "\n") -> None:
        if self.is_in_debug_mode():
            self.print(message, end=end)
