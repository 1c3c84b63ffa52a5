"""Assertions, units under test and the statistics over them."""

import threading
import time
from typing import Any

import wx
from qon_handy import Callback
from qon_testparameters import Parameter

from .checks import as_float, wrong

DEFAULT_CONFIG_PATH = "ats_config.xlsx"
DEFAULT_COLUMN_INFO = (
    ("Name", 300),
    ("Value", 200),
    ("Lower", 200),
    ("Upper", 200),
    ("Unit", 200),
    ("Result", 200),
)
STATISTICS_UPDATE_TYPE = wx.NewEventType()
EVT_STATISTICS_UPDATE_EVENT = wx.PyEventBinder(STATISTICS_UPDATE_TYPE, 1)


class DoneError(Exception):
    """The script asked to finish here."""


class UserAbortError(Exception):
    """The run was aborted."""


class NGError(Exception):
    """An item failed while the run stops at NG."""


class Assertion:
    """One judged measurement."""

    OK_STR = "OK"
    NG_STR = "NG"
    TBD_STR = "TBD"

    def __init__(
        self,
        name: str = "",
        value: Any = None,
        lower: Any = None,
        upper: Any = None,
        unit: str | None = "",
        result: Any = None,
        assert_time: float | None = None,
        report_needed: bool = True,
    ) -> None:
        if not isinstance(name, str):
            raise wrong("name", name, "str")
        if unit is not None and not isinstance(unit, str):
            raise wrong("unit", unit, "str")
        if not isinstance(report_needed, bool):
            raise wrong("report_needed", report_needed, "bool")
        self._name = name
        self._value = value
        self._lower = lower
        self._upper = upper
        self._unit = unit
        self._result: bool | None = None
        self._assert_time = time.time() if assert_time is None else assert_time
        self._elapse_time: Any = None
        self._report_needed = report_needed
        self.update(value=value, lower=lower, upper=upper, unit=unit, result=result, assert_time=assert_time)

    def update(
        self,
        value: Any = None,
        lower: Any = None,
        upper: Any = None,
        unit: str | None = None,
        result: Any = None,
        assert_time: float | None = None,
    ) -> None:
        if unit is not None and not isinstance(unit, str):
            raise wrong("unit", unit, "str")
        if value is not None:
            self._value = value
        if lower is not None:
            self._lower = lower
        if upper is not None:
            self._upper = upper
        if unit is not None:
            self._unit = unit
        verdict: bool | None
        if result is not None:
            verdict = result.lower() in ("ok", "pass") if isinstance(result, str) else bool(result)
        elif value is None:
            verdict = None
        else:
            verdict = (lower is None or value >= lower) and (upper is None or value <= upper)
        self._result = verdict
        self._assert_time = time.time() if assert_time is None else assert_time

    def export_config(self) -> Parameter:
        value = self.value
        kind = type(value).__name__
        return Parameter(self.name, self.name, value, self.lower, self.upper, self.unit, kind)

    @property
    def report_needed(self) -> bool:
        return self._report_needed

    @report_needed.setter
    def report_needed(self, value: bool) -> None:
        if not isinstance(value, bool):
            raise wrong("value", value, "bool")
        self._report_needed = value

    @property
    def name(self) -> str:
        return self._name

    def get_name(self) -> str:
        return self._name

    @property
    def result(self) -> str:
        if self._result is None:
            return Assertion.TBD_STR
        return Assertion.OK_STR if self._result else Assertion.NG_STR

    def get_result(self) -> str:
        return self.result

    def get_result_as_bool(self) -> bool | None:
        return self._result

    @property
    def value(self) -> Any:
        return "" if self._value is None else self._value

    def get_value(self) -> Any:
        return self.value

    @property
    def lower(self) -> Any:
        return self._lower

    @property
    def upper(self) -> Any:
        return self._upper

    def get_lower(self) -> Any:
        return "" if self._lower is None else self._lower

    def get_upper(self) -> Any:
        return "" if self._upper is None else self._upper

    @property
    def unit(self) -> str | None:
        return self._unit

    @unit.setter
    def unit(self, unit: str) -> None:
        self.set_unit(unit)

    def get_unit(self) -> str | None:
        return self.unit

    def set_unit(self, unit: str) -> None:
        if not isinstance(unit, str):
            raise wrong("unit", unit, "str")
        self._unit = unit

    def is_ok(self) -> bool:
        return False if self._result is None else self._result

    def is_ng(self) -> bool:
        return False if self._result is None else not self._result

    def is_tbd(self) -> bool:
        return self._result is None

    def set_elapse_time(self, time: Any) -> None:
        self._elapse_time = time

    def get_elapse_time(self) -> Any:
        return self._elapse_time


class UUT:
    """One unit under test."""

    def __init__(self, serial_number: str | None = "", cell_number: int = 1) -> None:
        if serial_number is not None and not isinstance(serial_number, str):
            raise wrong("serial_number", serial_number, "str")
        if not isinstance(cell_number, int):
            raise wrong("cell_number", cell_number, "int")
        self._begin_time = time.time()
        self._end_time = 0.0
        self._serial_number = serial_number
        self._done = False
        self._assertions: list[Assertion] = []
        self._lock = threading.Lock()
        self._done_event = Callback()
        self._cell_number = cell_number

    @property
    def cell_number(self) -> int:
        return self._cell_number

    @cell_number.setter
    def cell_number(self, value: int) -> None:
        if not isinstance(value, int):
            raise wrong("value", value, "int")
        self._cell_number = value

    @property
    def done_event(self) -> Callback:
        return self._done_event

    @property
    def begin_time(self) -> float:
        return self._begin_time

    @property
    def serial_number(self) -> str | None:
        return self._serial_number

    @serial_number.setter
    def serial_number(self, value: str) -> None:
        if not isinstance(value, str):
            raise wrong("value", value, "str")
        self._serial_number = value

    @property
    def end_time(self) -> float:
        return self._end_time if self._end_time != 0 else time.time()

    @end_time.setter
    def end_time(self, time: float) -> None:
        self._end_time = as_float("time", time)

    @property
    def assertions(self) -> list[Assertion]:
        return self._assertions

    @property
    def done(self) -> bool:
        return self._done

    @done.setter
    def done(self, value: bool) -> None:
        if not isinstance(value, bool):
            raise wrong("value", value, "bool")
        if not value:
            if self._done:
                raise ValueError("Once an UUT is done, it could not be converted to not done.")
            return
        if not self._assertions:
            raise ValueError("At least one assertion is needed when an UUT is done.")
        if self._done:
            return
        for assertion in self._assertions:
            if assertion.is_tbd():
                raise ValueError(f'Assertion "{assertion.get_name()}" is still in "TBD" state.')
        self._done = True
        self._end_time = time.time()
        self._done_event(self)

    @property
    def elapse(self) -> float:
        return self.end_time - self.begin_time

    @property
    def is_ok(self) -> bool:
        return self._done and not self.is_ng

    @property
    def is_ng(self) -> bool:
        return any(assertion.is_ng() for assertion in self._assertions)

    @property
    def summer(self) -> str:
        if self.is_ng:
            return Assertion.NG_STR
        return Assertion.OK_STR if self._assertions and self._done else Assertion.TBD_STR

    def append_assertion(self, assertion: Assertion) -> None:
        if not isinstance(assertion, Assertion):
            raise wrong("assertion", assertion, "Assertion")
        with self._lock:
            if self._done:
                raise ValueError("UUT has done, no assertion could be added.")
            self._assertions.append(assertion)

    @property
    def first_ng(self) -> Assertion | None:
        return next((a for a in self._assertions if a.is_ng()), None)

    def first_ng_item_name(self) -> str:
        first = self.first_ng
        return "" if first is None else first.name

    def get_assertion_by_name(self, name: str) -> Assertion | None:
        if not isinstance(name, str):
            raise wrong("name", name, "str")
        return next((a for a in self._assertions if a.name == name), None)


class Statistics:
    """Finished units of a cell by verdict."""

    def __init__(self, ok: int = 0, ng: int = 0) -> None:
        if not isinstance(ok, int):
            raise wrong("ok", ok, "int")
        if not isinstance(ng, int):
            raise wrong("ng", ng, "int")
        self._ok = ok
        self._ng = ng

    def get_total(self) -> int:
        return self._ok + self._ng

    def get_ok(self) -> int:
        return self._ok

    def get_ng(self) -> int:
        return self._ng

    def get_ok_percent(self) -> float:
        total = self.get_total()
        return self._ok / total * 100 if total else 0

    def get_ng_percent(self) -> float:
        total = self.get_total()
        return self._ng / total * 100 if total else 0

    def clear(self) -> None:
        self._ok = self._ng = 0

    def increase(self, ok: bool = True) -> None:
        if not isinstance(ok, bool):
            raise wrong("ok", ok, "bool")
        if ok:
            self._ok += 1
        else:
            self._ng += 1


class StatisticsUpdateEvent(wx.PyCommandEvent):
    """A unit was counted."""

    def __init__(self, evt_type: int, evt_id: int, result: bool) -> None:
        if not isinstance(result, bool):
            raise wrong("result", result, "bool")
        wx.PyCommandEvent.__init__(self, evt_type, evt_id)
        self._result = result

    def get_result(self) -> bool:
        return self._result
