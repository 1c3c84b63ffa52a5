"""A base for test scripts that takes no verdict for granted.

`CellRunnerBase` reads verdicts loosely: a text is true when it begins with T, Y, P or O ("OFF" and "Timeout" are),
anything else when it is not 0 (NaN, None and an empty list are).  Here only bools and the words below are verdicts;
everything else raises before anything is recorded.
"""

from typing import Any

from qon_ats import Assertion, CellRunnerBase

TRUE_WORDS = frozenset({"ok", "pass", "passed", "true", "yes"})
FALSE_WORDS = frozenset({"ng", "fail", "failed", "false", "no"})


class VerdictError(TypeError, ValueError):
    """Something that is no verdict was given as one."""


def verdict(name: str, value: Any) -> bool:
    """The verdict that a value states; VerdictError, naming the item, when it states none."""
    if isinstance(value, bool) or type(value).__name__ in ("bool_", "bool"):  # NumPy's among them
        return bool(value)
    word = value.lower() if isinstance(value, str) else ""
    if word in TRUE_WORDS or word in FALSE_WORDS:
        return word in TRUE_WORDS
    words = ", ".join(sorted(TRUE_WORDS) + sorted(FALSE_WORDS))
    raise VerdictError(f'Item "{name}": {value!r} is no verdict; give True, False or one of {words}.')


class StrictRunner(CellRunnerBase):
    """Derive a script's CellRunner from this instead of CellRunnerBase; all else is the same."""

    def assert_true(
        self, name: str, value: Any, stop_if_ng: bool | None = None, category: str = "all"
    ) -> Assertion:
        verdict(name, value)
        return super().assert_true(name, value, stop_if_ng, category)

    def assert_false(
        self, name: str, value: Any, stop_if_ng: bool | None = None, category: str = "all"
    ) -> Assertion:
        verdict(name, value)
        return super().assert_false(name, value, stop_if_ng, category)

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
        judged = verdict(name, result)
        return super().assert_result(name, value, judged, unit, lower, upper, stop_if_ng, category)

    def try_limits(
        self, name: str, value: Any, lower: Any, upper: Any, unit: str = "", result: Any = None
    ) -> Assertion:
        judged = None if result is None else verdict(name, result)
        return super().try_limits(name, value, lower, upper, unit, judged)
