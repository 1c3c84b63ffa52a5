"""Arguments of a wrong type are refused before anything is changed or recorded."""

from typing import Any

import pytest
import qon_ats
from hostcell import Host, runner_of
from qon_ats import UUT, Assertion

CALLS = [
    "Assertion(5)", "Assertion(name=b'a')", "Assertion(None)", "Assertion('a', unit=1)", "Assertion('a', limit=1)",
    "Assertion('a', report_needed=None)", "item.set_unit(5)", "setattr(item, 'unit', 5)",
    "setattr(item, 'report_needed', 'yes')", "item.update(value=6, unit=7)", "Assertion.is_ok(uut)",
    "UUT(serial_number=5)", "UUT('a', '1')", "UUT('a', None)", "UUT('a', 1.0)", "uut.append_assertion('item')",
    "uut.append_assertion(None)", "uut.get_assertion_by_name(5)", "setattr(uut, 'serial_number', 5)",
    "setattr(uut, 'cell_number', '1')", "setattr(uut, 'end_time', 'now')", "setattr(uut, 'done', 1)",
    "ats.Statistics('1')", "ats.Statistics(1.5)", "ats.Statistics().increase(1)",
    "ats.StatisticsUpdateEvent(1, 1, 'yes')", "ats.TestItem(5, item, print)",
    "ats.TestItem('a', item, print, retry_count=1.5)", "ats.CallUserFunctionInfo(len, 'yes')",
    "ats.CellBase('1', cell.cell_config)", "setattr(cell, 'script', 5)", "cell.set_assertion_config_file(5)",
    "cell.try_limits('x', 1, 0, 2, 5)", "cell.assert_with_result(None, 1, True)",
    "cell.assert_with_limits('x', 'one', 0, 2)", "cell.assert_with_result('x', 1, True, 5)",
    "runner.set_serial_number(123)", "runner.get_shared_obj(5)", "runner.get_assertions(5)", "runner.append('x')",
    "runner.append(item, 'yes')", "runner.abort(5)", "runner.sleep('1')", "runner.ask_true_or_false(5)",
    "runner.update_percentage('50')", "runner.set_prompt(5)", "runner.assert_limits(5, 1, 0, 2)",
    "runner.assert_limits('x', 1, 0, 2, unit=5)", "runner.assert_limits('x', 1, 0)",
    "runner.assert_limits('x', 1, 0, 2, stop_if_ng=1)", "runner.assert_limits('x', 1, 0, 2, category=['a'])",
    "runner.assert_limits('x', 1, 0, 2, limits=3)", "runner.assert_percent_limits('x', '5', 5, 1)",
    "runner.assert_percent_limits('x', 10, None, 5)", "setattr(runner, 'runner_class_name', None)",
]  # fmt: skip


@pytest.mark.parametrize("call", CALLS)
def test_a_call_is_refused(call: str, host: Host) -> None:
    cell, item, uut = host(), Assertion("v", 5, unit=None), UUT("SN1", 2)
    cell.uut = uut
    names = {"ats": qon_ats, "Assertion": Assertion, "UUT": UUT, "item": item, "uut": uut, "cell": cell}
    with pytest.raises(TypeError):
        eval(call, names | {"runner": runner_of(cell)})
    assert (item.value, item.unit, item.report_needed, item.result) == (5, None, True, "OK")
    assert (uut.serial_number, uut.cell_number, uut.done, uut.assertions) == ("SN1", 2, False, [])
    assert (cell.get_assertions(), cell._assertion_queue.qsize(), cell.runner_class_name) == ([], 0, "CellRunner")


@pytest.mark.parametrize("config", [5, [], b"ats_config.xlsx"])
def test_a_cell_s_configuration_is_a_file_name_a_book_or_a_sheet(config: Any) -> None:
    with pytest.raises(TypeError) as caught:
        qon_ats.CellBase(1, config)
    assert str(caught.value) == (
        'Argument "parameter_book" must be a string for an excel file name, or an object of BookParameters, '
        f'or an object of SheetParameters, not a "{type(config).__name__}".'
    )
