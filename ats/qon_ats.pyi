"""Framework of an automated test station: cells, test threads, records and windows."""

import logging
import queue
import threading
from abc import ABC, abstractmethod
from collections.abc import Callable, Iterable
from types import ModuleType, TracebackType
from typing import Any, ClassVar, ParamSpec, TypeAlias, TypeVar

import wx
import wx.grid
from qon_atsui import Cell as _CellUIBase
from qon_atsui import Frame as _Frame
from qon_atsui import ManualOperationDialog as ManualDlg
from qon_atsui import TestDataViewerFrame as _TestDataViewerFrame
from qon_atsui import TestDataViewerPanel as _TestDataViewerPanel
from qon_handy import Callback
from qon_paratree import ParameterDirectory
from qon_testparameters import BookParameters, Parameter, SheetParameters
from typing_extensions import disjoint_base

__all__ = [
    "EVT_STATISTICS_UPDATE_EVENT",
    "UUT",
    "ATSFrame",
    "Assertion",
    "CallUserFunctionInfo",
    "Cell",
    "CellBase",
    "CellRunnerBase",
    "ManualOperationDialog",
    "Statistics",
    "StatisticsUpdateEvent",
    "TestDataViewerFrame",
    "TestDataViewerPanel",
    "TestItem",
]

_P = ParamSpec("_P")
_R = TypeVar("_R")
_Colour: TypeAlias = str | wx.Colour
_MaybeNone: TypeAlias = Any  # None is possible, but a check at every use would only be in the way

_default_ats_config_path: str
_DefaultColumnInfo: tuple[tuple[str, int], ...]  # title, width in pixels
_EVT_STATISTICS_UPDATE_EVENT: int
EVT_STATISTICS_UPDATE_EVENT: wx.PyEventBinder

@disjoint_base
class Assertion:
    """One judged measurement: name, value, limits, unit, verdict and the time at which it was judged.

    The verdict is OK, NG or, as long as nothing was judged, TBD.  Further attributes may be added.
    """

    OK_STR: ClassVar[str]
    NG_STR: ClassVar[str]
    TBD_STR: ClassVar[str]
    def __init__(
        self,
        name: str = "",
        value: Any = None,
        lower: Any = None,
        upper: Any = None,
        unit: str | None = "",
        result: Any = None,
        assert_time: Any = None,
        report_needed: bool = True,
    ) -> None:
        """Make a record and judge it as `update` does.

        name: the item's name, once per unit.  value: what was measured; None: nothing yet, the verdict is TBD.
        lower, upper: inclusive limits; None: no limit.  unit: engineering unit.  result: the verdict itself.
        assert_time: seconds since the epoch, kept as given; None: now.  report_needed: whether reports should contain it.
        """
    def __getstate__(self) -> dict[str, Any]: ...
    def __setstate__(self, state: dict[str, Any]) -> None: ...
    def update(
        self,
        value: Any = None,
        lower: Any = None,
        upper: Any = None,
        unit: str | None = None,
        result: Any = None,
        assert_time: Any = None,
    ) -> None:
        """Judge again.  What is None here keeps its stored value.

        A `result` decides alone: the texts "ok" and "pass" in any letter case are OK, other texts NG, anything else
        goes by its truth.  Without one, `value` is compared with the limits given in this very call, not with
        stored ones; without a value, too, the verdict is TBD.  Raises TypeError when value and limits cannot be
        compared.  assert_time: seconds since the epoch; None: now.
        """
    def export_config(self) -> Parameter:
        """A parameter with this item's name, value, limits, unit and type of value, for a limits workbook."""
    @property
    def report_needed(self) -> bool:
        """Whether reports should contain this measurement; can be set."""
    @report_needed.setter
    def report_needed(self, value: bool) -> None: ...
    @property
    def name(self) -> str:
        """The item's name."""
    def get_name(self) -> str:
        """The item's name."""
    @property
    def result(self) -> str:
        """The verdict as text: `OK_STR`, `NG_STR` or `TBD_STR`."""
    def get_result(self) -> str:
        """The verdict as text: `OK_STR`, `NG_STR` or `TBD_STR`."""
    def get_result_as_bool(self) -> bool | None:
        """True for OK, False for NG, None for TBD."""
    @property
    def value(self) -> Any:
        """The measured value, or "" when there is none."""
    def get_value(self) -> Any:
        """The measured value, or "" when there is none."""
    def get_lower(self) -> Any:
        """The lower limit to be shown: "" when there is none."""
    def get_upper(self) -> Any:
        """The upper limit to be shown: "" when there is none."""
    @property
    def lower(self) -> Any:
        """The lower limit, inclusive; None when there is none."""
    @property
    def upper(self) -> Any:
        """The upper limit, inclusive; None when there is none."""
    @property
    def unit(self) -> str | None:
        """Engineering unit; can be set.  None is replaced by the cell's key "none_unit" when it is recorded."""
    @unit.setter
    def unit(self, unit: str) -> None: ...
    def get_unit(self) -> str | None:
        """Engineering unit."""
    def set_unit(self, unit: str) -> None:
        """Set the engineering unit; the verdict stays."""
    def is_ok(self) -> bool:
        """Whether the verdict is OK; False for TBD."""
    def is_ng(self) -> bool:
        """Whether the verdict is NG; False for TBD."""
    def is_tbd(self) -> bool:
        """Whether there is no verdict yet."""
    @property
    def assert_time(self) -> Any:
        """When it was judged: seconds since the epoch, or what was given instead."""
    def set_elapse_time(self, time: Any) -> None:
        """Keep how long the step took; seconds by convention."""
    def get_elapse_time(self) -> Any:
        """How long the step took, as it was set; None when it was not."""

@disjoint_base
class UUT:
    """One unit under test: serial number, cell, begin and end, and its measurements in order.

    Copies and pickles have no subscribers of `done_event`.  The test thread appends; any thread may read.  A unit that is done takes no more measurements.
    """

    def __init__(self, serial_number: str | None = "", cell_number: int = 1) -> None:
        """A unit whose test begins now.  serial_number: None when there is none.  cell_number: from 1."""
    def __getstate__(self) -> dict[str, Any]: ...
    def __setstate__(self, state: dict[str, Any]) -> None: ...
    @property
    def cell_number(self) -> int:
        """The number of the cell that tests it, from 1; can be set."""
    @cell_number.setter
    def cell_number(self, value: int) -> None: ...
    @property
    def done_event(self) -> Callback:
        """Called once with this unit when it becomes done, in the thread that ends the test.

        Subscribe with `uut.done_event.subscribe(function)`; use `wx.CallAfter` to reach windows from there.
        """
    @property
    def begin_time(self) -> float:
        """When the test began, seconds since the epoch."""
    @property
    def serial_number(self) -> str | None:
        """The serial number; None when the test was started without one.  Can be set to a text."""
    @serial_number.setter
    def serial_number(self, value: str) -> None: ...
    @property
    def end_time(self) -> float:
        """When the test ended, seconds since the epoch; the current time while it runs.  Can be set."""
    @end_time.setter
    def end_time(self, time: float) -> None: ...
    @property
    def assertions(self) -> list[Assertion]:
        """The measurements in their order: the list itself, which grows while the test runs."""
    @property
    def done(self) -> bool:
        """Whether the test is over.  Set it to True to end it; the framework does so after `run()`.

        Raises ValueError, and leaves the unit as it is, when it has no measurement, when one is still TBD, or when a
        unit that is done is set to False.
        """
    @done.setter
    def done(self, value: bool) -> None: ...
    @property
    def elapse(self) -> float:
        """Seconds from begin to end, or to now while the test runs."""
    @property
    def is_ok(self) -> bool:
        """Whether the unit is done and no measurement is NG."""
    @property
    def is_ng(self) -> bool:
        """Whether a measurement is NG, be the unit done or not."""
    @property
    def summer(self) -> str:
        """The verdict of the unit as text: NG from the first NG on, OK when it is done, else TBD."""
    def append_assertion(self, assertion: Assertion) -> None:
        """Add a measurement to the unit alone; scripts use the runner's `append`, which also shows it.

        Anything with a method `is_ng` will do.  Raises ValueError when the unit is done.
        """
    def first_ng_item_name(self) -> str:
        """The name of the first NG measurement, or ""."""
    @property
    def first_ng(self) -> Assertion | None:
        """The first NG measurement, or None."""
    def get_assertion_by_name(self, name: str) -> Assertion | None:
        """The first measurement of this name, or None."""

@disjoint_base
class Statistics:
    """Counters of finished units.  GUI thread."""

    _ok: int  # units counted OK
    _ng: int
    def __init__(self, ok: int = 0, ng: int = 0) -> None:
        """Counters that start at these values."""
    def __getstate__(self) -> dict[str, Any]: ...
    def __setstate__(self, state: dict[str, Any]) -> None: ...
    def get_total(self) -> int:
        """Units counted."""
    def get_ok(self) -> int:
        """Units counted OK."""
    def get_ng(self) -> int:
        """Units counted NG."""
    def get_ok_percent(self) -> float:
        """Share of the OK units in percent, not rounded; 0 while nothing is counted."""
    def get_ng_percent(self) -> float:
        """Share of the NG units in percent, not rounded; 0 while nothing is counted."""
    def clear(self) -> None:
        """Set both counters to 0."""
    def increase(self, ok: bool = True) -> None:
        """Count one unit: OK, or NG when `ok` is False."""

class StatisticsUpdateEvent(wx.PyCommandEvent):
    """A cell has counted a unit.  Bind it with `EVT_STATISTICS_UPDATE_EVENT` at the cell or a window around it."""

    _result: bool
    def __init__(self, evt_type: int, evt_id: int, result: bool) -> None:
        """evt_type: the type of the binder.  evt_id: the id of the cell's window.  result: True for an OK unit."""
    def get_result(self) -> bool:
        """True for an OK unit, False for an NG one."""

@disjoint_base
class TestItem:
    """One step of a test, for scripts that keep their steps in a list and loop over them.

    The framework does not run items: the loop, with its retries, is the script's own.
    """

    def __init__(
        self,
        name: str,
        assertion: Assertion,
        test_func: Callable[..., Any],
        before_test: Callable[..., Any] | None = None,
        after_test: Callable[..., Any] | None = None,
        retry_count: int = 0,
        retry_interval: float = 0.0,
    ) -> None:
        """assertion: what the step produces.  test_func: does the step.  before_test, after_test: run around it.

        retry_count: repetitions after a failure.  retry_interval: seconds between them.
        """
    def __getstate__(self) -> dict[str, Any]: ...
    def __setstate__(self, state: dict[str, Any]) -> None: ...
    @property
    def name(self) -> str:
        """The item's name."""
    @property
    def assertion(self) -> Assertion:
        """The measurement that the step produces."""
    @property
    def test_func(self) -> Callable[..., Any]:
        """Does the step."""
    @property
    def before_test(self) -> Callable[..., Any] | None:
        """To be run before the step, or None."""
    @property
    def after_test(self) -> Callable[..., Any] | None:
        """To be run after the step, or None."""
    @property
    def retry_count(self) -> int:
        """Repetitions after a failure."""
    @property
    def retry_interval(self) -> float:
        """Seconds between repetitions."""

class _DoneException(Exception):
    """Ends a script by its own `done()`.  A script must let it pass: catch narrower errors than Exception."""

    def __init__(self) -> None: ...

class _UserAbortException(Exception):
    """Ends a script that was aborted.  A script must let it pass: catch narrower errors than Exception."""

    def __init__(self) -> None: ...

class _NGException(Exception):
    """Ends a script at an NG item, whose name is its text.  A script must let it pass."""

    def __init__(self, description: str) -> None: ...

class _AssertionQueue(queue.Queue[Assertion]):
    """The queue from a cell's test thread to its panel: a `queue.Queue` with a faster `put`."""

    def put(self, item: Assertion, block: bool = True, timeout: float | None = None) -> None:
        """Append a measurement; it never blocks, since the queue has no bound.  Any thread."""

class CellBase:
    """The engine of a test cell, without a window: it runs one script at a time in a test thread of its own.

    Scripts reach it as `noumenon`.  `Cell` adds the window; a subclass without one has to offer `main_frame` to its
    scripts.  Pause and abort work at the script's check points; nothing is ever killed.
    """

    CellStateStop: ClassVar[int]
    CellStateBusy: ClassVar[int]
    _number: int
    _state: int
    _cell_runner_module: ModuleType | None
    _assertion_configs: dict[str, Parameter] | None
    _start_time: float | None  # seconds since the epoch
    _elapse_begin_time: float | None
    _pause_flag: bool
    _abort_flag: bool
    _pause_event: threading.Event  # set: not paused
    _result_description: str  # why the run ended early
    _exception_object: Exception | None  # what ended the last run
    _ng_items: list[Assertion]
    _test_thread: threading.Thread | None
    _assertion_queue: queue.Queue[Assertion]
    _assertion_category: dict[str, list[Assertion]]
    def __init__(self, number: int, cell_config: str | BookParameters | SheetParameters | None) -> None:
        """number: from 1; it names the sheet "cell<number>" of the configuration, else "cell1" is used.

        cell_config: a workbook's file name, the opened workbook, the cell's sheet, or None for "ats_config.xlsx".
        Raises TypeError for anything else and when the sheet names no script, ValueError when there is no sheet.
        """
    @property
    def uut_type(self) -> type[UUT]:
        """The class of the units of coming runs; can be set to UUT or a subclass (else AssertionError)."""
    @uut_type.setter
    def uut_type(self, value: type[UUT]) -> None: ...
    @property
    def uut(self) -> UUT | None:
        """The unit of the current or last run; None before the first.  Can be set."""
    @uut.setter
    def uut(self, value: UUT | None) -> None: ...
    @property
    def cell_config(self) -> SheetParameters:
        """The cell's sheet of the configuration workbook: `cell_config.get(key, default)`."""
    @property
    def assertion_configs(self) -> dict[str, Parameter] | None:
        """Configured limits by item name (`low`, `up`); None when the cell has no limits workbook."""
    @property
    def runner_class_name(self) -> str:
        """The name of the runner class in the script; can be set, for the next run."""
    @runner_class_name.setter
    def runner_class_name(self, value: str) -> None: ...
    @property
    def script(self) -> str:
        """Absolute path of the script.  Can be set, before the first run: a module once imported is kept."""
    @script.setter
    def script(self, script_path: str) -> None: ...
    @staticmethod
    def load_assertion_configs(filename: str) -> dict[str, Parameter]:
        """The limits in the first sheet of a workbook, by item name.  Raises what the workbook's reader raises."""
    def set_assertion_config_file(self, filename: str | None) -> None:
        """Take the limits from this workbook from now on; None or "": from the script alone.

        Raises what the workbook's reader raises, and then keeps the limits it had.
        """
    def export_assertion_config(self) -> list[Parameter]:
        """The items of the last run with their limits, for a new limits workbook.

        Raises AssertionError before the first run.
        """
    @property
    def name(self) -> str:
        """The cell's name: "Cell " and its number."""
    def get_cell_name(self) -> str:
        """The cell's name: "Cell " and its number."""
    @property
    def cell_number(self) -> int:
        """The number of the cell, from 1."""
    @property
    def logger(self) -> logging.Logger:
        """The logger named like the cell."""
    @property
    def running_state(self) -> int:
        """`CellStateStop` or `CellStateBusy`; can be set.  A paused cell is busy."""
    @running_state.setter
    def running_state(self, value: int) -> None: ...
    def is_running(self) -> bool:
        """Whether a run was started and not yet taken off, paused or not.  Any thread."""
    def is_busy(self) -> bool:
        """Whether a run goes on and is not paused.  Any thread."""
    def is_ready(self) -> bool:
        """Whether a run can be started.  Any thread."""
    def has_done(self) -> bool:
        """Whether the script and its cleanup have ended, however they ended.  Any thread."""
    def is_in_cell_test_thread(self) -> bool:
        """Whether the caller is this cell's test thread; False in threads that a script starts."""
    def reset_state(self) -> None:
        """Make the cell ready and forget the last run, except its unit and queued measurements.

        For the owner of a cell without a window, once `has_done()` is true.
        """
    def start(self, serial_number: str = "") -> None:
        """Start a run; a cell that runs ignores it, paused or not.  serial_number: None when there is none."""
    def handle_start_request(self, serial_number: str | None = "") -> None:
        """What the start button does: start a run when ready, resume a paused one, else nothing."""
    def do_start(self, serial_number: str | None) -> None:
        """Start a run at once: fresh unit, state, test thread.  An override has to call this one."""
    def _run_script(self, script: str) -> None:
        """Start the test thread on `_do_run_script`."""
    def _do_run_script(self, script: str) -> None:
        """The body of the test thread: load the script, run it, end the unit, clean up, set the done flag."""
    def _make_uut_done(self) -> None:
        """End the unit; what keeps it from ending is printed."""
    def done(self) -> None:
        """End the run here as finished.  Test thread only, else RuntimeError; it does not return."""
    def is_paused(self) -> bool:
        """Whether a pause was asked for and the script has not gone on since.  Any thread."""
    def pause(self) -> None:
        """Let the script wait at its next check point; at once when it asks itself.  Any thread."""
    def resume(self) -> None:
        """Let a paused script go on.  Any thread."""
    def check_pause(self) -> None:
        """Wait here while the run is paused."""
    def abort(self, description: str = "") -> None:
        """Let the script end at its next check point; at once when it asks itself.  Any thread."""
    def check_abort(self) -> None:
        """A check point: wait while paused, end the run when aborted.  Test thread only, else AttributeError."""
    def is_aborted(self) -> bool:
        """In the test thread: whether an abort was asked for.  Elsewhere: whether an aborted run has ended."""
    def debug_pause(self) -> None:
        """A break point: pause, in debug mode only."""
    def sleep(self, seconds: float, check_interval: float = 0.1) -> None:
        """Sleep so many seconds, with a check point every `check_interval` seconds.  Test thread only.

        Raises AttributeError in another thread, ZeroDivisionError for an interval of 0.
        """
    def pausable(self, func: Callable[_P, _R]) -> Callable[_P, _R]:
        """The function with a check for pause before and after it.  To be called with positional arguments."""
    def abortable(self, func: Callable[_P, _R]) -> Callable[_P, _R]:
        """The function with a check point before and after it.  To be called with positional arguments."""
    def _call_pausable(self, func: Callable[..., _R], *args: Any) -> _R:
        """Call the function between two checks for pause."""
    def _call_abortable(self, func: Callable[..., _R], *args: Any) -> _R:
        """Call the function between two check points."""
    def append(
        self,
        assertion: Assertion,
        stop_if_ng: bool | None = None,
        category: str | list[str] | None = "all",
    ) -> None:
        """Record a judged measurement: in the unit, on the screen and in its categories.

        assertion: an `Assertion`, or what has its methods.  Refused as a whole or recorded as a whole.
        stop_if_ng: whether an NG ends the run; None: the cell's key "stop_if_ng", which is True by default.
        category: one name or several; every measurement is in "all".  Test thread.
        """
    def assert_with_limits(
        self,
        name: str,
        value: Any,
        lower: Any,
        upper: Any,
        unit: str | None = "N/A",
        result: Any = None,
        stop_if_ng: bool | None = None,
        category: str | None = "all",
    ) -> Assertion:
        """Judge a value by its limits, or by `result` when that is given, and record it.

        Limits configured for this name in the limits workbook replace both `lower` and `upper`.  Bounds are inclusive,
        None is no limit.  Raises TypeError when value and limits cannot be compared.  Test thread.
        """
    def try_limits(
        self,
        name: str,
        value: Any,
        lower: Any,
        upper: Any,
        unit: str | None = "",
        result: Any = None,
    ) -> Assertion:
        """Judge as `assert_with_limits` does, without recording: an NG does not end the run.  Any thread."""
    def assert_with_percent_limits(
        self,
        name: str,
        value: float,
        mean: float,
        percent: float,
        unit: str | None = "N/A",
        result: Any = None,
        stop_if_ng: bool | None = None,
        category: str | None = "all",
    ) -> Assertion:
        """Judge a value by `mean` plus and minus `percent` % and record it; nothing passes a negative mean.

        Configured limits replace the computed ones.  Test thread.
        """
    def assert_with_result(
        self,
        name: str,
        value: Any,
        result: Any,
        unit: str | None = None,
        lower: Any = None,
        upper: Any = None,
        stop_if_ng: bool | None = None,
        category: str | None = "all",
    ) -> Assertion:
        """Record a value with the verdict that the script has found; the limits are only shown.  Test thread."""
    def set_serial_number(self, value: str) -> None:
        """Set the serial number of the current unit, if there is one."""
    def no_ng_item(self) -> bool:
        """Whether no measurement of this run is NG so far."""
    def is_ok(self) -> bool:
        """Whether the unit is done and OK."""
    def get_assertions(self, category: str = "all") -> list[Assertion]:
        """The measurements of this run in a category, in order: the list itself."""
    def fetch_an_assertion(self) -> Assertion:
        """The oldest measurement not yet fetched; waits until there is one.  For the cell's display."""
    def get_elapse_time(self) -> float:
        """Seconds since the run started, or that it took; 0 before the first."""
    def update_elapse_begin_time(self, time: float | None = None) -> None:
        """Set a second time mark, seconds since the epoch; None: now."""
    def clear_last_test_data(self) -> None:
        """Hook, before each run: clear what shows the last one.  Does nothing here."""
    def is_in_debug_mode(self) -> bool:
        """Hook: whether debug mode is on.  False here."""
    def print(self, message: Any, end: str = "\n") -> None:
        """Hook: where the output of scripts goes.  Standard output here.  Any thread."""
    def debug_print(self, message: Any, end: str = "\n") -> None:
        """Print, in debug mode only.  Any thread."""

class CallUserFunctionInfo:
    """此类保存需要在UI线程中执行的函数的相关内容"""

    function: Callable[..., Any]
    arg: tuple[Any, ...]
    kwarg: dict[str, Any]
    event: threading.Event | None  # set when the function has returned
    result: Any  # None until then
    def __init__(self, function: Callable[_P, Any], wait: bool, *args: _P.args, **kwargs: _P.kwargs) -> None:
        """A call of the function with these arguments.  wait: whether somebody will wait for its end."""
    def __call__(self) -> None:
        """Make the call.  GUI thread.  When the function raises, whoever waits goes on waiting."""
    def wait(self) -> None:
        """Wait until the function has returned; then read `result`.  Any thread but the GUI's.

        Raises TypeError when the call was made without `wait`.
        """

class CellRunnerBase(ABC):
    """The base of every test script's class; override `run` and `cleanup`.

    Each run makes a new runner, in the cell's test thread, and all methods are for that thread unless they say
    otherwise.  Windows belong to the GUI thread: reach them through the `call_user_function` methods.
    """

    _cell: Cell
    _frame: ATSFrame
    _abort_event: Callback | None
    def __init__(self) -> None:
        """Finds its cell through the test thread.  Raises AttributeError in any other thread."""
    @abstractmethod
    def run(self) -> None:
        """The test itself.  It ends by returning, by `done()`, at an NG that stops it, by an abort or an exception."""
    @abstractmethod
    def cleanup(self) -> None:
        """Called last, however `run` ended: switch the unit off, close the instruments."""
    @property
    def cell_config(self) -> SheetParameters:
        """The cell's sheet of the configuration workbook: `cell_config.get(key, default)`."""
    @property
    def assertion_configs(self) -> dict[str, Parameter] | None:
        """Configured limits by item name (`low`, `up`); None when the cell has no limits workbook."""
    @property
    def noumenon(self) -> Cell:
        """The cell that runs this script."""
    @property
    def frame_noumenon(self) -> ATSFrame:
        """The main frame of the station."""
    @property
    def app_config(self) -> ParameterDirectory | _MaybeNone:
        """The test parameters of the station; None when their directory does not exist."""
    @property
    def runner_class_name(self) -> str:
        """The name of the runner class; can be set, for the next run."""
    @runner_class_name.setter
    def runner_class_name(self, value: str) -> None: ...
    @property
    def abort_event(self) -> Callback | None:
        """An event for listeners to the script's abort; None unless the script sets `_abort_event`."""
    @property
    def uut(self) -> UUT:
        """The unit under test."""
    @property
    def cell_name(self) -> str:
        """The cell's name: "Cell " and its number."""
    @property
    def cell_number(self) -> int:
        """The number of the cell, from 1."""
    @property
    def script(self) -> str:
        """Absolute path of the script; can be set."""
    @script.setter
    def script(self, script_path: str) -> None: ...
    def get_shared_obj(self, name: str) -> Any:
        """An object that was shared under this name; KeyError when there is none.  Any thread."""
    def set_shared_obj(self, name: str, obj: Any) -> None:
        """Share an object with the scripts of all cells.  Any thread; what it does with threads is its own matter."""
    def no_ng_item(self) -> bool:
        """Whether no measurement of this run is NG so far."""
    def is_ok(self) -> bool:
        """Whether the unit is done and OK."""
    def get_assertions(self, category: str = "all") -> list[Assertion]:
        """The measurements of this run in a category, in order: the list itself."""
    def get_elapse_time(self) -> float:
        """Seconds since the run started."""
    def append(self, assertion: Assertion, stop_if_ng: bool | None = None) -> None:
        """Record a measurement that the script has made itself; one still TBD has to be judged before the end.

        stop_if_ng: whether an NG ends the run; None: the cell's key "stop_if_ng", which is True by default.
        """
    def update_elapse_begin_time(self, time: float | None = None) -> None:
        """Set a second time mark, seconds since the epoch; None: now."""
    def paused(self) -> bool:
        """Whether the run is paused.  Any thread."""
    def pause(self) -> None:
        """Wait here until the operator resumes.  From another thread: at the script's next check point."""
    def debug_pause(self) -> None:
        """A break point: pause, in debug mode only."""
    def abort(self, description: str = "") -> None:
        """End the run here as aborted.  From another thread: at the script's next check point."""
    def check_abort(self) -> None:
        """A check point: wait while paused, end the run when aborted.  Raises AttributeError in another thread."""
    def abortable(self, func: Callable[_P, _R]) -> Callable[_P, _R]:
        """The function with a check point before and after it.  To be called with positional arguments."""
    def is_aborted(self) -> bool:
        """Whether an abort was asked for."""
    def has_done(self) -> bool:
        """Whether the script and its cleanup have ended.  Any thread."""
    def done(self) -> None:
        """End the test here as finished; it does not return.  Raises RuntimeError in another thread."""
    def sleep(self, seconds: float, check_interval: float = 0.1) -> None:
        """Sleep so many seconds, with a check point every `check_interval` seconds.  Use it instead of `time.sleep`.

        Raises AttributeError in another thread, ZeroDivisionError for an interval of 0.
        """
    def call_user_function(self, function: Callable[_P, _R], *args: _P.args, **kwargs: _P.kwargs) -> _R:
        """Let the GUI thread call the function, wait for it, return its result.  Any thread but the GUI's.

        The function must not raise: the caller would wait for ever.
        """
    def call_user_function_delay_wait(
        self, function: Callable[_P, Any], *args: _P.args, **kwargs: _P.kwargs
    ) -> CallUserFunctionInfo:
        """Let the GUI thread call the function and go on; later `wait()` for it and read `result`.  Any thread."""
    def call_user_function_no_wait(
        self, function: Callable[_P, Any], *args: _P.args, **kwargs: _P.kwargs
    ) -> None:
        """Let the GUI thread call the function and go on.  Any thread."""
    def ask_true_or_false(self, question: str, true: str = "Yes", false: str = "No") -> bool:
        """Ask the operator and wait for the answer.  true, false: the labels of the two buttons.

        False also when the box is closed.  Any thread but the GUI's.
        """
    def notice_box(self, message: str) -> None:
        """Show a message and wait until the operator has closed it.  Any thread but the GUI's."""
    def input_text(self, prompt: str) -> str | None:
        """Let the operator type a text and wait for it; None when he cancels.  Any thread but the GUI's."""
    def get_serial_number(self) -> str:
        """What stands in the cell's serial number entry, without blanks around it."""
    def set_serial_number(self, serial_number: str) -> None:
        """Set the serial number of the unit and show it.  Any thread."""
    def get_cell_name(self) -> str:
        """The cell's name: "Cell " and its number."""
    def print(self, message: str | None, end: str = "\n") -> None:
        """Write to the cell's log page.  Any thread."""
    def debug_print(self, message: str | None, end: str = "\n") -> None:
        """Write to the cell's log page, in debug mode only.  Any thread."""
    def update_percentage(self, percent: float) -> None:
        """Show the progress, 0 to 100 %; what lies outside is cut.  Any thread."""
    def increase_percentage(self, increment: float) -> None:
        """Let the progress grow by so many percent, up to 100 %.  Any thread."""
    def set_prompt(self, prompt: str, bg_color: _Colour | None = None) -> None:
        """Show the operator what to do, on this background; None: the one there is.  Any thread."""
    @staticmethod
    def _to_bool(value: Any) -> bool:
        """Reads a loose verdict: texts and bytes are true by a first letter T, Y, P or O, numbers unless 0."""
    def assert_equal(
        self,
        name: str,
        value: Any,
        standard: Any,
        unit: str | None = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Record a value that has to equal the standard; arguments as in `assert_limits`."""
    def assert_limits(
        self,
        name: str,
        value: Any,
        lower: Any,
        upper: Any,
        unit: str | None = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Judge a value by its limits and record it; returns the record.

        name: the item's name; limits configured for it in the limits workbook replace those given here.
        lower, upper: inclusive; None: no limit.  unit: engineering unit; None: the cell's key "none_unit".
        stop_if_ng: whether an NG ends the run; None: the cell's key "stop_if_ng", which is True by default.
        category: for `get_assertions`.  Raises TypeError when value and limits cannot be compared.
        """
    def try_limits(
        self,
        name: str,
        value: Any,
        lower: Any,
        upper: Any,
        unit: str = "",
        result: Any = None,
    ) -> Assertion:
        """Judge as `assert_limits` does, without recording: an NG does not end the run.  Any thread."""
    def assert_percent_limits(
        self,
        name: str,
        value: float,
        mean: float,
        percent: float,
        unit: str | None = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Judge a value by `mean` plus and minus `percent` % and record it; nothing passes a negative mean.

        The other arguments are those of `assert_limits`.
        """
    def assert_true(
        self,
        name: str,
        value: Any,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Record a value that has to be true: True, "yes", "pass", "ok", 1 and the like.

        A text is true when it begins with T, Y, P or O in either case.  Other arguments: `assert_limits`.
        """
    def assert_false(
        self,
        name: str,
        value: Any,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Record a value that must not be true, read as `assert_true` reads it."""
    def assert_result(
        self,
        name: str,
        value: Any,
        result: Any,
        unit: str = "N/A",
        lower: Any = None,
        upper: Any = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Record a value with the verdict that the script has found, read as `assert_true` reads it.

        lower, upper: shown, not used for the verdict.  The other arguments are those of `assert_limits`.
        """
    def append_ok(
        self,
        name: str,
        value: Any,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Record a value as OK."""
    def append_ng(
        self,
        name: str,
        value: Any,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        """Record a value as NG; stop_if_ng as in `assert_limits`."""

class Cell(CellBase, _CellUIBase):
    """A test cell with its panel in the main frame.  GUI thread, unless a method says otherwise."""

    DefaultColumnInfo: ClassVar[tuple[tuple[str, int], ...]]
    _the_frame: ATSFrame
    _blink_color: str
    _statistics: Statistics
    def __init__(
        self,
        parent: wx.Window,
        the_frame: ATSFrame,
        number: int = 1,
        cell_config: str | BookParameters | SheetParameters | None = None,
    ) -> None:
        """parent: the window around it.  the_frame: the station's frame.  The others are those of `CellBase`."""
    @property
    def main_frame(self) -> ATSFrame:
        """The main frame of the station."""
    def is_in_debug_mode(self) -> bool:
        """Whether the station is in debug mode.  Any thread."""
    def start(self, serial_number: str = "") -> None:
        """Start a run; a cell that runs ignores it, paused or not.  Any thread.

        serial_number: None when there is none.
        """
    def do_start(self, serial_number: str | None) -> None:
        """Start a run at once and show it; the frame's `cell_start_event` tells it."""
    def clear_last_test_data(self) -> None:
        """Clear progress, log and items of the last run."""
    def on_start_cell_test(self, event: wx.CommandEvent) -> None:
        """Start button: start a run with the entered serial number, or resume a paused one."""
    def on_abort_cell_test(self, event: wx.CommandEvent) -> None:
        """Abort button."""
    def on_browse_script(self, event: wx.CommandEvent) -> None:
        """Browse button; does nothing, for subclasses to override."""
    def block_ticker(self, timeout: float) -> None:
        """Keep the station's ticker from ticking; see `ATSFrame.block_ticker`.  Any thread."""
    def unblock_ticker(self) -> None:
        """Give the block back.  Any thread."""
    def on_refresh_timer_event(self, event: wx.TimerEvent | None = None) -> None:
        """Every 100 ms of a run: show new measurements and the time; take a finished run off."""
    def on_blink_timer_event(self, event: wx.TimerEvent | None = None) -> None:
        """Every second of a run: let the prompt blink."""
    def _show_an_assertion(self, assertion: Assertion) -> None:
        """Append a row to the grid of items: the getter `get_<title>()` of each column."""
    def _append_to_history(self, sn: str, result: str, color: _Colour) -> None:
        """Append the finished run to the history page; the colour is that of the result."""
    def clear_statistics(self) -> None:
        """Set the cell's counters to 0 and clear its history page."""
    def _show_statistics(self) -> None:
        """Show the counters."""
    def _update_statistics(self, is_ok: bool) -> None:
        """Count a finished unit and tell the windows around by a `StatisticsUpdateEvent`."""
    def call_user_function(self, function: Callable[_P, _R], *args: _P.args, **kwargs: _P.kwargs) -> _R:
        """Let the GUI thread call the function, wait for it, return its result.  Any thread but the GUI's.

        The function must not raise: the caller would wait for ever.
        """
    def call_user_function_delay_wait(
        self, function: Callable[_P, Any], *args: _P.args, **kwargs: _P.kwargs
    ) -> CallUserFunctionInfo:
        """Let the GUI thread call the function and go on; later `wait()` for it and read `result`.  Any thread."""
    def call_user_function_no_wait(
        self, function: Callable[_P, Any], *args: _P.args, **kwargs: _P.kwargs
    ) -> None:
        """Let the GUI thread call the function and go on.  Any thread."""
    def ask_true_or_false(self, question: str, true: str = "Yes", false: str = "no") -> bool:
        """Ask the operator and wait for the answer.  true, false: the labels of the two buttons.

        False also when the box is closed.  Any thread but the GUI's.
        """
    def _do_ask_true_or_false(self, *args: Any, **kwargs: Any) -> bool:
        """Show the question; the arguments are those of the dialog."""
    def notice_box(self, message: str) -> None:
        """Show a message and wait until the operator has closed it.  Any thread but the GUI's."""
    def input_text(self, prompt: str) -> str | None:
        """Let the operator type a text and wait for it; None when he cancels.  Any thread but the GUI's."""
    def _do_input_text(self, prompt: str, title: str) -> str | None:
        """Show the text entry."""
    def get_serial_number(self) -> str:
        """What stands in the serial number entry, without blanks around it."""
    def set_serial_number(self, value: str | None) -> None:
        """Set the serial number of the current unit, and show it; None is "".  Any thread.

        Raises TypeError for what is no text.
        """
    def print(self, message: str | None, end: str = "\n") -> None:
        """Write to the cell's log page.  Any thread.  Raises TypeError for what is no text."""
    def increase_percentage(self, increment: float) -> None:
        """Let the progress grow by so many percent, up to 100 %.  Any thread."""
    def _do_increase_percentage(self, increment: float) -> None:
        """Let the gauge grow."""
    def update_percentage(self, percent: float) -> None:
        """Show the progress, 0 to 100 %; what lies outside is cut.  Any thread."""
    def set_prompt(self, message: str, bg_color: _Colour | None = None) -> None:
        """Show the operator what to do, on this background; None: the one there is.  Any thread."""
    def _update_prompt(self, prompt: str | None = None, bg_color: _Colour | None = None) -> None:
        """Change the prompt; None keeps text or background."""

class TestDataViewerPanel(_TestDataViewerPanel):
    """The tested units: their list, the measurements of one, one item across all of them.  GUI thread."""

    _uut_list: list[UUT]
    def __init__(self, parent: wx.Window) -> None:
        """An empty viewer in this window."""
    def get_uut_list(self) -> list[UUT]:
        """All units in the order of appending, shown or filtered out: the list itself."""
    def append(self, uut: UUT) -> None:
        """List a unit; its row is refreshed when it is done."""
    def extend(self, uuts: Iterable[UUT]) -> None:
        """List several units."""
    def clear(self) -> None:
        """Forget all units."""
    def on_clear_data(self, event: wx.CommandEvent) -> None:
        """Clear button: asks first."""
    def on_cell_filter_changed(self, event: wx.CommandEvent) -> None:
        """List the units of the chosen cell, or of all."""
    def _update_uut_summer(self, uut: UUT, row: int) -> None:
        """Write a unit into its row, from 0, of the list."""
    def _uut_done_event_handler(self, uut: UUT) -> None:
        """Refresh the row of a unit that is done.  Runs in the thread that ended it."""
    def __get_selected_uut(self) -> tuple[UUT | None, int]:
        """返回当前被选中的 UUT 对象，和此对象在显示列表中的行索引。"""
    def on_view_uut_detail(self, event: wx.grid.GridEvent) -> None:
        """Show the measurements of the selected unit."""
    def _show_an_assertion(self, assertion: Assertion) -> None:
        """在assertions grid控件中添加显示一条assertion记录。

        此函数只是用于辅助显示一个UUT的所有assertion数据。
        """
    def on_save_single_uut_test_data(self, event: wx.CommandEvent) -> None:
        """Save the report of the selected unit as a workbook; asks for the file.

        Raises what writing the workbook raises.
        """
    @staticmethod
    def __generate_test_report(uut: UUT, filename: str) -> None:
        """Write the report of a unit; an existing file is replaced."""
    def __on_select_test_item(self, _event: wx.grid.GridEvent) -> None:
        """Analyse the selected item across the listed units."""
    def __get_all_assertions_by_name(self, name: str) -> list[Assertion]:
        """The measurements of this name in all listed units, in order."""
    def __clear_single_item_info(self) -> None:
        """Clear the figures of the analysis."""
    def __analyze_single_test_item(self, assertions: list[Assertion]) -> None:
        """Show counts, yield, extremes, middle, mean, variance, deviation and a plot of the values.

        Raises ValueError when a value is no number.
        """
    def on_refresh_statistics_analizer(self, event: wx.CommandEvent) -> None:
        """A page of the analysis was turned; nothing needs to be computed."""
    def on_export_data(self, event: wx.CommandEvent) -> None:
        """Tells that there is no export of the whole list."""
    def on_import_data(self, event: wx.CommandEvent) -> None:
        """Tells that there is no import."""

class TestDataViewerFrame(_TestDataViewerFrame):
    """The window of the test data viewer; closing hides it, so the data live on.  GUI thread."""

    test_data_viewer_panel: TestDataViewerPanel
    def __init__(
        self,
        parent: wx.Window | None,
        title: str = "测试数据历史纪录",
        viewer_class: Callable[[TestDataViewerFrame], TestDataViewerPanel] = TestDataViewerPanel,
    ) -> None:
        """viewer_class: a subclass of the panel, to replace it."""
    def on_close_window(self, event: wx.CloseEvent) -> None:
        """Hide the window."""
    def get_uut_list(self) -> list[UUT]:
        """All units in the order of appending: the list itself."""
    def append(self, uut: UUT) -> None:
        """List a unit; its row is refreshed when it is done."""
    def extend(self, uuts: Iterable[UUT]) -> None:
        """List several units."""
    def clear(self) -> None:
        """Forget all units."""

class ManualOperationDialog(ManualDlg):
    """The manual operation dialog of a station that has none of its own.

    A station brings its own as class `ManualOperationDialog(frame)`, a `wx.Dialog`, in the module
    "manual_operation_dialog"; it is reloaded each time the dialog is opened.
    """

    def __init__(self, parent: wx.Window | None, message: str = "") -> None:
        """message: what the dialog shows; "": its own text."""

class ATSFrame(_Frame):
    """The station's window with its cells, built from the configuration workbook.

    An application makes one, shows it and runs the main loop.  Override `startup_initializer`, `ticker_function` and
    `exit_finalizer`.  GUI thread, unless a method says otherwise.
    """

    class TickerBlocker:
        """Blocks the ticker inside a `with` statement; made by `ticker_blocker()`."""

        _frame: ATSFrame
        _timeout: float
        def __init__(self, frame: ATSFrame, timeout: float = -1) -> None:
            """timeout: seconds to wait for the end of a tick; 0 or less: no limit."""
        def __enter__(self) -> None:
            """Block the ticker; TimeoutError when a tick does not end in time."""
        def __exit__(
            self,
            exc_type: type[BaseException] | None,
            exc_val: BaseException | None,
            exc_tb: TracebackType | None,
        ) -> None:
            """Give the block back; an exception passes."""

    _manual_module: ModuleType | None
    _mop_block_ticker: bool
    _ticker_locker: threading.Lock
    _ticker_lock_count: int
    _cells: list[Cell]
    _in_debug_mode: bool
    _in_ticker: bool
    _run_ticker: bool
    _ticker_interval: int  # milliseconds
    _statistics: Statistics
    _frame_thread: threading.Thread
    _shared_objs: dict[str, Any]
    def __init__(
        self,
        parent: wx.Window | None = None,
        title: str | None = "",
        config_file: str = "ats_config.xlsx",
        app_config_dir: str | None = "app_config",
    ) -> None:
        """title: shown behind the system's name; with a leading "@" it stands alone.

        config_file: the configuration workbook, sheet "main" and one sheet for each cell.  app_config_dir: the
        directory of the test parameters; it may be missing.  Raises what the reader of either raises.
        """
    @property
    def cells(self) -> list[Cell]:
        """The cells: the list itself; cell number N is at index N-1."""
    def get_cell(self, index: int = 0) -> Cell:
        """A cell by its index from 0; IndexError when there is none."""
    def get_cell_count(self) -> int:
        """The number of cells."""
    def start_cell(self, cell_number: int, serial_number: str = "") -> None:
        """Start a run in a cell by its number from 1; other numbers do nothing.  Any thread."""
    def is_running(self, cell_number: int | None = None) -> bool:
        """Whether the cell of this number from 1 runs.  None: any cell.  0: the ticker function.  Any thread."""
    @property
    def cell_start_event(self) -> Callback:
        """Called with the cell when a run has started: `cell_start_event.subscribe(function)`."""
    def __on_start_cell_text(self, cell: Cell) -> None:
        """Let the test data viewer list the unit of a cell that has started.  Any thread."""
    def on_start_all(self, event: wx.CommandEvent) -> None:
        """Start every cell that is ready."""
    def on_abort_all(self, event: wx.CommandEvent) -> None:
        """Abort every cell."""
    def _update_statistics_event_handler(self, event: StatisticsUpdateEvent | None) -> None:
        """Count the unit of the event, if there is one, and show the totals."""
    def clear_statistics(self) -> None:
        """Set all counters to 0; clears the test data viewer, too."""
    def on_clear_statistics(self, event: wx.CommandEvent) -> None:
        """Clear statistics command: asks first."""
    @property
    def ok_str(self) -> str:
        """The word for OK in records and windows of all cells; can be set."""
    @ok_str.setter
    def ok_str(self, value: str) -> None: ...
    @property
    def ng_str(self) -> str:
        """The word for NG in records and windows of all cells; can be set."""
    @ng_str.setter
    def ng_str(self, value: str) -> None: ...
    def set_shared_obj(self, name: str, obj: Any) -> None:
        """Share an object with all scripts.  Any thread; what it does with threads is its own matter."""
    def get_shared_obj(self, name: str) -> Any:
        """An object that was shared under this name; KeyError when there is none.  Any thread."""
    def is_in_ui_thread(self) -> bool:
        """Whether the caller is the GUI thread and may touch windows."""
    def is_in_debug_mode(self) -> bool:
        """Whether debug mode is on.  Any thread."""
    def on_change_debug_mode(self, event: wx.CommandEvent) -> None:
        """Take debug mode from its menu item."""
    def on_show_test_data_window(self, event: wx.CommandEvent) -> None:
        """Show the test data viewer."""
    def startup_initializer(self) -> None:
        """Hook: runs once when the main loop is idle for the first time.  An exception is shown."""
    def exit_finalizer(self) -> None:
        """Hook: runs before the program ends.  An exception is shown; the program ends nevertheless."""
    def on_trigger_initializer(self, event: wx.TimerEvent) -> None:
        """Run `startup_initializer`."""
    def on_close_app(self, event: wx.CloseEvent) -> None:
        """Ask when a test is running, then end the process at once with exit code 0."""
    def ticker_function(self) -> None:
        """Hook: the station's periodic job.  This one stops the ticker."""
    def start_ticker(self, interval: int) -> None:
        """Tick from now on, `interval` milliseconds after the end of each tick; 0 or less does nothing.  Any thread."""
    def stop_ticker(self) -> None:
        """No further tick; one in progress ends as usual.  Any thread."""
    def on_start_ticker(self, event: wx.CommandEvent) -> None:
        """Start the ticker with its configured interval."""
    def on_ticker_timer_event(self, event: wx.TimerEvent) -> None:
        """One tick, unless the ticker is stopped or blocked; its exception is shown to the operator."""
    def block_ticker(self, timeout: float = -1.0) -> None:
        """Keep the ticker from ticking until the matching `unblock_ticker`; waits for the end of a tick.

        timeout: seconds; 0 or less: no limit.  Raises TimeoutError, without a block, when the tick does not end in
        time.  Any thread, but not from within a tick.
        """
    def unblock_ticker(self) -> None:
        """Give one block back; without a block it does nothing.  Any thread."""
    def is_ticker_blocked(self) -> bool:
        """Whether anybody blocks the ticker.  Any thread."""
    def ticker_blocker(self, timeout: float = -1) -> TickerBlocker:
        """`with frame.ticker_blocker():` blocks the ticker inside.  timeout: as in `block_ticker`.  Any thread."""
    @property
    def app_config(self) -> ParameterDirectory | None:
        """The test parameters; None when their directory did not exist."""
    def reload_app_config(self) -> None:
        """Load the test parameters again.  Raises what their reader raises."""
    def on_edit_test_parameters(self, event: wx.CommandEvent) -> None:
        """Open the parameter editor, then load the parameters again."""
    def on_reload_test_parameters(self, event: wx.CommandEvent) -> None:
        """Load the test parameters again and tell how it went."""
    def on_save_test_parameters(self, event: wx.CommandEvent) -> None:
        """Save the test parameters to their directory.  Raises what their writer raises."""
    def on_export_assertion_config(self, event: wx.CommandEvent) -> None:
        """Write the items of a cell's last run to a new limits workbook; asks for cell and file."""
    def on_show_manual_operation_dialog(self, event: wx.CommandEvent) -> None:
        """Open the manual operation dialog: the station's own, freshly loaded, or the built-in one.

        Raises what importing or showing the station's own dialog raises.
        """
    def on_show_about_dialog(self, event: wx.CommandEvent) -> None:
        """Show the about box."""
