"""Items that are measured again until they pass, in a script that is derived from CellRunnerBase.

    from qon_station import retry

    retry(self, "VOUT", self.meter.volt, 4.9, 5.1, "V", attempts=5, interval=0.1)

The item is recorded once, with the value that decided: the first that passed, else the last.  The record tells
how it came about: `attempt` is the number of measurements it took (from 1), `earlier_values` are those that were
not taken, and `get_elapse_time()` the seconds of all together.  Each attempt stands in the log of the cell.
"""

import time
from collections.abc import Callable
from typing import Any

from qon_ats import Assertion, CellRunnerBase, TestItem


def retry(
    runner: CellRunnerBase,
    name: str,
    measure: Callable[[], Any],
    lower: Any = None,
    upper: Any = None,
    unit: str | None = None,
    *,
    attempts: int = 3,
    interval: float = 0.0,
    before: Callable[[], Any] | None = None,
    after: Callable[[], Any] | None = None,
    errors: type[Exception] | tuple[type[Exception], ...] = (),
    stop_if_ng: bool | None = None,
    category: str | list[str] | None = "all",
) -> Assertion:
    """Measure until the value is within its limits, those of the limits workbook included; record it.

    attempts: measurements at most.  interval: seconds between them, where pause and abort take effect.
    before, after: called once around all of them, `after` in any case.
    errors: exceptions of `measure` that count as an attempt that failed; that of the last one is raised.
    """
    if attempts < 1:
        raise ValueError(f"retry needs at least one attempt, not {attempts}.")
    begin, earlier = time.monotonic(), list[Any]()
    if before is not None:
        before()
    try:
        judged = _measured(runner, name, measure, lower, upper, unit, attempts, interval, errors, earlier)
    finally:
        if after is not None:
            after()
    judged.set_elapse_time(time.monotonic() - begin)
    judged.attempt = len(earlier) + 1  # type: ignore[attr-defined]
    judged.earlier_values = tuple(earlier)  # type: ignore[attr-defined]
    runner.noumenon.append(judged, stop_if_ng, category)
    return judged


def retry_item(
    runner: CellRunnerBase,
    item: TestItem,
    errors: type[Exception] | tuple[type[Exception], ...] = (),
    stop_if_ng: bool | None = None,
    category: str | list[str] | None = "all",
) -> Assertion:
    """The same for an item of a list: name, limits and unit are those of its assertion, which stays as it is."""
    wanted = item.assertion
    return retry(
        runner,
        wanted.name,
        item.test_func,
        wanted.lower,
        wanted.upper,
        wanted.unit,
        attempts=item.retry_count + 1,
        interval=item.retry_interval,
        before=item.before_test,
        after=item.after_test,
        errors=errors,
        stop_if_ng=stop_if_ng,
        category=category,
    )


def _measured(
    runner: CellRunnerBase,
    name: str,
    measure: Callable[[], Any],
    lower: Any,
    upper: Any,
    unit: str | None,
    attempts: int,
    interval: float,
    errors: type[Exception] | tuple[type[Exception], ...],
    earlier: list[Any],
) -> Assertion:
    """The item as it was judged last, not recorded yet; the values before it are added to `earlier`."""
    unit = str(runner.cell_config.get("none_unit", "")) if unit is None else unit
    while True:
        count = len(earlier) + 1
        try:
            value = measure()
        except errors as error:
            if count == attempts:
                raise
            value = f"{type(error).__name__}: {error}"
            runner.print(f"{name}, attempt {count} of {attempts}: {value}")
        else:
            judged = runner.try_limits(name, value, lower, upper, unit)
            if attempts > 1:
                shown = f"{value:.6g}" if isinstance(value, float) else value
                runner.print(f"{name}, attempt {count} of {attempts}: {shown} {unit} {judged.result}")
            if judged.is_ok() or count == attempts:
                return judged
        earlier.append(value)
        runner.sleep(interval) if interval else runner.check_abort()
