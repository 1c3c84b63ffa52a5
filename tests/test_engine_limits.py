"""Which limits reach a measurement, and the limits workbook."""

import contextlib
import inspect
import queue
import zipfile
from collections.abc import Iterator
from pathlib import Path
from typing import Any
from unittest import mock

import pytest
import qon_ats
from hostcell import Host, HostCell, runner_of
from qon_ats import UUT, Assertion, CellBase
from qon_testparameters import SheetParameters
from support import write_limits

LIMITS = {"v": (4.9, 5.1), "open": (None, 5.1), "floor": (1, None)}


@pytest.fixture
def cell(host: Host) -> HostCell:
    """A cell with limits of its own and a unit to record into; an NG does not stop it."""
    made = host(limits=LIMITS, stop_if_ng=False, none_unit="-")
    made.uut = UUT()
    return made


# Name, value and limits of the script; verdict and limits used.
CASES: list[tuple[Any, ...]] = [
    ("v", 5.0, (0, 1), "OK", (4.9, 5.1)), ("v", 5.2, (0, 9), "NG", (4.9, 5.1)),
    ("open", -100, (0, 1), "OK", (None, 5.1)), ("floor", 100, (0, 1), "OK", (1, None)),
    ("other", 0.5, (0, 1), "OK", (0, 1)), ("other", 0.5, (None, None), "OK", (None, None)),
    ("other", None, (0, 1), "TBD", (0, 1)), ("V", 5.0, (0, 1), "NG", (0, 1)),
]  # fmt: skip


@pytest.mark.parametrize("case", CASES)
def test_configured_limits_replace_those_of_the_script(case: tuple[Any, ...], cell: HostCell) -> None:
    name, value, limits, verdict, used = case
    recorded = cell.assert_with_limits(name, value, *limits)
    tried = cell.try_limits(name, value, *limits)
    shown = cell.assert_with_result(name, value, "PASS", None, *limits)
    assert [a.result for a in (recorded, tried, shown)] == [verdict, verdict, "OK"]
    assert [(a.lower, a.upper) for a in (recorded, tried, shown)] == [used] * 3
    assert [a.unit for a in (recorded, tried, shown)] == ["N/A", "", "-"]
    assert cell.get_assertions() == cell.uut.assertions == [recorded, shown]


def test_a_given_result_decides(cell: HostCell) -> None:
    assert cell.assert_with_limits("v", 99, 0, 1, "V", "ok").is_ok()
    assert cell.try_limits("v", 5.0, 0, 1, "V", False).is_ng()
    assert cell.assert_with_result("x", None, None).is_tbd()
    assert cell.assert_with_result("x", 5, None, lower=0, upper=1).is_ng()


def test_percent_limits(cell: HostCell) -> None:
    for value, mean, percent, bounds, verdict in (
        (10.5, 10, 5, (9.5, 10.5), "OK"),
        (10.51, 10, 5, (9.5, 10.5), "NG"),
        (-10, -10, 5, (-9.5, -10.5), "NG"),
        (0.3, 0.1 * 3, 7.7, ((100 - 7.7) * (0.1 * 3) / 100, (100 + 7.7) * (0.1 * 3) / 100), "OK"),
        (True, 1, 0, (1.0, 1.0), "OK"),
    ):
        assertion = cell.assert_with_percent_limits("x", value, mean, percent)
        assert (assertion.lower, assertion.upper, assertion.result) == (*bounds, verdict)
        assert (type(assertion.value), assertion.unit) == (float, "N/A")
    assert cell.assert_with_percent_limits("v", 5.0, 100, 1, "V", None, True, "p").is_ok()
    assert cell.get_assertions("p")[0].upper == 5.1


def test_limits_may_change_between_two_calls(cell: HostCell, tmp_path: Path) -> None:
    configs = cell.assertion_configs
    item = configs["v"]
    assert list(configs) == list(LIMITS) and cell.assert_with_limits("v", 5.0, 0, 1).is_ok()
    item.up = 4.95
    assert cell.assert_with_limits("v", 5.0, 0, 1).is_ng()
    del configs["v"]
    assert cell.assert_with_limits("v", 0.5, 0, 1).is_ok()
    cell._assertion_configs = {"v": item}
    assert cell.assert_with_limits("v", 4.92, 0, 1).is_ok()
    cell.set_assertion_config_file(str(write_limits(tmp_path / "more.xlsx", {"v": (1, 2)})))
    second = cell.assertion_configs
    assert cell.assert_with_limits("v", 1.5, 0, 1).is_ok()
    (tmp_path / "damaged.xlsx").write_bytes(b"PK no workbook")
    for missing, error in (("none.xlsx", FileNotFoundError), ("damaged.xlsx", zipfile.BadZipFile)):
        with pytest.raises(error):
            cell.set_assertion_config_file(str(tmp_path / missing))
        assert cell.assertion_configs is second
    for nothing in ("", None):
        cell._assertion_configs = second
        cell.set_assertion_config_file(nothing)
        assert cell.assertion_configs is None and cell.assert_with_limits("v", 1.5, 0, 1).is_ng()


def test_the_configured_file_name_is_stripped_and_must_be_there(host: Host, tmp_path: Path) -> None:
    path = write_limits(tmp_path / "l.xlsx", {"v": (1, 2)})
    for value, loaded in ((f"  {path}  ", True), ("   ", False), ("", False)):
        assert (host(assertion_config_file=value).assertion_configs is not None) is loaded
    with pytest.raises(FileNotFoundError, match=r"gone\.xlsx"):
        host(assertion_config_file=str(tmp_path / "gone.xlsx"))


def test_there_is_nothing_to_export_before_the_first_run(host: Host) -> None:
    with pytest.raises(AssertionError, match="^$"):
        host().export_assertion_config()


# What a test may replace: methods, and properties with a dot, of classes; and methods of single objects.
CLASSES: dict[Any, str] = {
    Assertion: "__init__ update get_unit set_unit get_name is_ng is_tbd .unit .name .value",
    UUT: "append_assertion",
    CellBase: "append assert_with_limits assert_with_result .assertion_configs .cell_config",
    queue.Queue: "_put",
    SheetParameters: "get",
}
OBJECTS: dict[Any, str] = {
    "prepared": "get_unit set_unit get_name is_ng is_tbd",
    "unit": "append_assertion",
    "cell": "append assert_with_limits assert_with_result",
    "queue": "put _put",
}
REPLACED = [(owner, name) for table in (CLASSES, OBJECTS) for owner in table for name in table[owner].split()]


@contextlib.contextmanager
def replaced(holder: Any, name: str) -> Iterator[list[Any]]:
    """The calls that reach what stands in for a method or property meanwhile."""
    calls: list[Any] = []
    attribute = name.removeprefix(".")
    original = inspect.getattr_static(holder, attribute) if name != attribute else getattr(holder, attribute)

    def seen(*args: Any, **keywords: Any) -> Any:
        calls.append(args)
        return (original.fget if name != attribute else original)(*args, **keywords)

    with mock.patch.object(holder, attribute, property(seen, original.fset) if name != attribute else seen):
        yield calls


@pytest.mark.parametrize(("owner", "name"), REPLACED)
def test_what_replaces_a_method_counts_at_once(owner: Any, name: str, cell: HostCell) -> None:
    runner = runner_of(cell)
    for replacing in (False, False, True, False):
        cell.uut, prepared = UUT(), Assertion("p", 5, 6, 7, None)
        objects = {"prepared": prepared, "unit": cell.uut, "cell": cell, "queue": cell._assertion_queue}
        holder = objects.get(owner, owner)
        with replaced(holder, name) if replacing else contextlib.nullcontext([]) as calls:
            with contextlib.suppress(qon_ats._NGException):
                runner.assert_limits("v", 5.2, 0, 9, stop_if_ng=True)
            runner.append_ok("w", 1)
            with contextlib.suppress(qon_ats._NGException):
                cell.append(prepared, True)
            named = cell.uut.get_assertion_by_name("w")
            assert cell.uut.is_ng and named.is_ok() and named.export_config().value == 1
            cell.uut.done = True
        recorded = cell.uut.assertions
        assert bool(calls) is replacing and cell.uut.summer == "NG" and len(recorded) == 3
        assert [cell._assertion_queue.get() for _ in range(3)] == recorded == cell.get_assertions()[-3:]
