"""Which limits reach a measurement, and the limits workbook."""

import zipfile
from pathlib import Path
from typing import Any

import pytest
from hostcell import Host, HostCell
from qon_ats import UUT
from support import write_limits


@pytest.fixture
def cell(host: Host) -> HostCell:
    """A cell with limits of its own and a unit to record into; an NG does not stop it."""
    made = host(
        limits={"v": (4.9, 5.1), "open": (None, 5.1), "unused": (0, 1)}, stop_if_ng=False, none_unit="-"
    )
    made.uut = UUT()
    return made


@pytest.mark.parametrize(
    ("name", "value", "lower", "upper", "verdict", "used"),
    [
        ("v", 5.0, 0, 1, "OK", (4.9, 5.1)),
        ("v", 5.2, 0, 9, "NG", (4.9, 5.1)),
        ("open", -100, 0, 1, "OK", (None, 5.1)),
        ("V", 5.0, 0, 1, "NG", (0, 1)),
        ("other", 0.5, 0, 1, "OK", (0, 1)),
        ("other", 0.5, None, None, "OK", (None, None)),
    ],
)
def test_configured_limits_replace_those_of_the_script(
    name: str, value: float, lower: Any, upper: Any, verdict: str, used: tuple[Any, Any], cell: HostCell
) -> None:
    recorded = cell.assert_with_limits(name, value, lower, upper)
    tried = cell.try_limits(name, value, lower, upper)
    shown = cell.assert_with_result(name, value, "PASS", None, lower, upper)
    assert [a.result for a in (recorded, tried, shown)] == [verdict, verdict, "OK"]
    assert [(a.lower, a.upper) for a in (recorded, tried, shown)] == [used] * 3
    assert [a.unit for a in (recorded, tried, shown)] == ["N/A", "", "-"]
    assert cell.get_assertions() == cell.uut.assertions == [recorded, shown]


def test_a_given_result_decides_and_keeps_the_limits(cell: HostCell) -> None:
    assert cell.assert_with_limits("v", 99, 0, 1, "V", "ok").is_ok()
    assert cell.try_limits("v", 5.0, 0, 1, "V", False).is_ng()
    assert cell.assert_with_result("x", None, None).is_tbd()
    assert cell.assert_with_result("x", 5, None, lower=0, upper=1).is_ng()
    assert cell.assert_with_limits("x", None, 0, 1).is_tbd()


@pytest.mark.parametrize(
    ("value", "mean", "percent", "bounds", "verdict"),
    [
        (10.5, 10, 5, (9.5, 10.5), "OK"),
        (10.51, 10, 5, (9.5, 10.5), "NG"),
        (-10, -10, 5, (-9.5, -10.5), "NG"),
        (0.3, 0.1 * 3, 7.7, ((100 - 7.7) * (0.1 * 3) / 100, (100 + 7.7) * (0.1 * 3) / 100), "OK"),
        (True, 1, 0, (1.0, 1.0), "OK"),
    ],
)
def test_percent_limits(
    value: float, mean: float, percent: float, bounds: tuple[float, float], verdict: str, cell: HostCell
) -> None:
    assertion = cell.assert_with_percent_limits("x", value, mean, percent)
    assert (assertion.lower, assertion.upper, assertion.result) == (*bounds, verdict)
    assert (type(assertion.value), assertion.unit) == (float, "N/A")
    assert cell.assert_with_percent_limits("v", 5.0, 100, 1, "V", None, True, "p").is_ok()
    assert cell.get_assertions("p")[0].upper == 5.1


REFUSED = [
    "assert_with_limits(5, 1, 0, 2)", "assert_with_limits('x', 1, 0, 2, unit=5)",
    "try_limits('x', 1, 0, 2, 5)",
    "assert_with_limits('x', 1, 0, 2, category=['a'])", "assert_with_limits('x', 1, 0, 2, stop_if_ng=1)",
    "assert_with_limits('x', 1, 0)", "assert_with_limits('x', 'one', 0, 2)",
    "assert_with_result(None, 1, True)",
    "assert_with_result('x', 1, True, 5)", "assert_with_percent_limits('x', '10', 10, 5)",
    "assert_with_percent_limits('x', 10, None, 5)", "assert_with_percent_limits('x', 10, 10, 5j)",
]  # fmt: skip


@pytest.mark.parametrize("call", REFUSED)
def test_a_call_that_is_refused_records_nothing(call: str, cell: HostCell) -> None:
    with pytest.raises(TypeError):
        eval(f"cell.{call}", {"cell": cell})
    assert (cell.uut.assertions, cell.get_assertions(), cell._assertion_queue.qsize()) == ([], [], 0)


def test_a_configuration_may_change_between_two_calls(cell: HostCell) -> None:
    item = cell.assertion_configs["v"]
    assert cell.assert_with_limits("v", 5.0, 0, 1).is_ok()
    item.up = 4.95
    assert cell.assert_with_limits("v", 5.0, 0, 1).is_ng()
    del cell.assertion_configs["v"]
    assert cell.assert_with_limits("v", 0.5, 0, 1).is_ok()
    cell._assertion_configs = {"v": item}
    assert cell.assert_with_limits("v", 4.92, 0, 1).is_ok()
    cell._assertion_configs = None
    assert cell.assert_with_limits("v", 4.92, 0, 1).is_ng()


def test_choosing_a_limits_workbook(cell: HostCell, tmp_path: Path) -> None:
    first = cell.assertion_configs
    assert list(first) == ["v", "open", "unused"]
    cell.set_assertion_config_file(str(write_limits(tmp_path / "more.xlsx", {"w": (1, 2)})))
    second = cell.assertion_configs
    assert list(second) == ["w"] and (second["w"].low, second["w"].up) == (1, 2)
    (tmp_path / "damaged.xlsx").write_bytes(b"PK no workbook")
    for missing, error in (("none.xlsx", FileNotFoundError), ("damaged.xlsx", zipfile.BadZipFile)):
        with pytest.raises(error):
            cell.set_assertion_config_file(str(tmp_path / missing))
        assert cell.assertion_configs is second
    with pytest.raises(TypeError):
        cell.set_assertion_config_file(5)
    for nothing in ("", None):
        cell._assertion_configs = second
        cell.set_assertion_config_file(nothing)
        assert cell.assertion_configs is None


@pytest.mark.parametrize(("value", "loaded"), [("  {}  ", True), ("   ", False), ("", False)])
def test_the_configured_file_name_is_stripped(value: str, loaded: bool, host: Host, tmp_path: Path) -> None:
    path = write_limits(tmp_path / "l.xlsx", {"v": (1, 2)})
    cell = host(assertion_config_file=value.format(path))
    assert (cell.assertion_configs is not None) is loaded


def test_a_missing_limits_workbook_keeps_the_cell_from_being_built(host: Host, tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError, match=r"gone\.xlsx"):
        host(assertion_config_file=str(tmp_path / "gone.xlsx"))


def test_export_of_the_last_run(host: Host) -> None:
    cell = host("self.assert_limits('v', 1.5, 1, 2, 'V')\nself.append_ok('s', 'text')")
    with pytest.raises(AssertionError, match="^$"):
        cell.export_assertion_config()
    parameters = cell.run().export_assertion_config()
    assert [(p.low, p.up) for p in parameters] == [(1, 2), (None, None)]
