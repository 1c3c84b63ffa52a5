"""Judging measurements against the limits of the script or of the limits workbook."""

from typing import Any

import openpyxl
from qon_testparameters import BookParameters, Parameter

from .checks import as_float, wrong
from .records import UUT, Assertion


class Evaluation:
    _assertion_configs: dict[str, Parameter] | None
    uut: UUT | None

    def _limits_of(self, name: str, lower: Any, upper: Any) -> tuple[Any, Any]:
        if self._assertion_configs is not None:
            parameter = self._assertion_configs.get(name)
            if parameter is not None:
                return parameter.low, parameter.up
        return lower, upper

    def assert_with_limits(
        self,
        name: str,
        value: Any,
        lower: Any,
        upper: Any,
        unit: str | None = "N/A",
        result: Any = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        if not isinstance(name, str):
            raise wrong("name", name, "str")
        if unit is not None and not isinstance(unit, str):
            raise wrong("unit", unit, "str")
        if category is not None and not isinstance(category, str):
            raise wrong("category", category, "str")
        lower, upper = self._limits_of(name, lower, upper)
        assertion = Assertion(name, value, lower, upper, unit, result)
        self.append(assertion, stop_if_ng, category)
        return assertion

    def try_limits(
        self, name: str, value: Any, lower: Any, upper: Any, unit: str | None = "", result: Any = None
    ) -> Assertion:
        lower, upper = self._limits_of(name, lower, upper)
        return Assertion(name, value, lower, upper, unit, result)

    def assert_with_percent_limits(
        self,
        name: str,
        value: float,
        mean: float,
        percent: float,
        unit: str | None = "N/A",
        result: Any = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        value, mean, percent = as_float("value", value), as_float("mean", mean), as_float("percent", percent)
        lower = (100 - percent) * mean / 100
        upper = (100 + percent) * mean / 100
        return self.assert_with_limits(name, value, lower, upper, unit, result, stop_if_ng, category)

    def assert_with_result(
        self,
        name: str,
        value: Any,
        result: Any,
        unit: str | None = None,
        lower: Any = None,
        upper: Any = None,
        stop_if_ng: bool | None = None,
        category: str = "all",
    ) -> Assertion:
        return self.assert_with_limits(name, value, lower, upper, unit, result, stop_if_ng, category)

    @staticmethod
    def load_assertion_configs(filename: str) -> dict[str, Parameter]:
        workbook = openpyxl.load_workbook(filename, read_only=True)
        book = BookParameters(workbook)
        first = workbook.sheetnames[0]
        book.load_sheet(first)
        sheet = book.get_sheet_parameters(first)
        return {name: sheet.get_parameter(name) for name in sheet.parameter_names}

    def set_assertion_config_file(self, filename: str | None) -> None:
        self._assertion_configs = self.load_assertion_configs(filename) if filename else None

    def export_assertion_config(self) -> list[Parameter]:
        assert self.uut is not None
        return [assertion.export_config() for assertion in self.uut.assertions]
