"""Whether a script and its limits workbook fit: asked after a run, with what the unit has recorded.

Only what nobody means is told: a unit that ran with the script's own limits, for instance, is as it should be where the
workbook has no row.
"""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from enum import Enum
from typing import Any

from .i18n import _

# Units that say nothing: what the framework puts where a script gives none.
_NO_UNIT = {"", "n/a"}


class Kind(Enum):
    """What does not fit."""

    NAME = "name"
    UNIT = "unit"
    UNUSED = "unused"
    NO_LIMIT = "no limit"


@dataclass(frozen=True)
class Finding:
    """One item or row that does not fit; as a text, a sentence that says what to do."""

    kind: Kind
    item: str
    text: str

    def __str__(self) -> str:
        return self.text


def plain(name: str) -> str:
    """The name without blanks and in one case: names that differ in this alone are meant to be the same."""
    return "".join(name.split()).casefold()


def compare(
    rows: Mapping[str, Any] | None, items: Iterable[Any], complete: bool, none_unit: str = ""
) -> list[Finding]:
    """Rows of the limits workbook (parameters by item name) against recorded items.

    complete: whether the run came to its end, so that a row without an item is a row that nobody uses.
    """
    rows = rows or {}
    first = {item.name: item for item in reversed(list(items))}
    findings: list[Finding] = []
    meant = {plain(name): name for name in first if name not in rows}
    for name in rows:
        if name in first:
            continue
        if plain(name) in meant:
            findings.append(_near(meant[plain(name)], name))
        elif complete:
            text = _("No item used the limits of “{row}”: delete the row or correct its name.")
            findings.append(Finding(Kind.UNUSED, name, text.format(row=name)))
    for name, item in first.items():
        findings += _of_item(name, item, rows.get(name), none_unit)
    return findings


def of_cell(cell: Any) -> list[Finding]:
    """The last run of a cell against its limits; nothing before its first run."""
    unit = cell.uut
    if unit is None:
        return []
    none_unit = str(cell.cell_config.get("none_unit", "") or "")
    return compare(cell.assertion_configs, unit.assertions, ran_to_its_end(cell), none_unit)


def ran_to_its_end(cell: Any) -> bool:
    """Whether the last run came to all of its items: not when an NG, an abort or an exception ended it."""
    unit = cell.uut
    return bool(unit is not None and unit.done and not cell._result_description and not cell._abort_flag)


def _near(item: str, row: str) -> Finding:
    text = _("The item “{item}” did not get the limits of “{row}”: the names differ in blanks or case.")
    return Finding(Kind.NAME, item, text.format(item=item, row=row))


def _of_item(name: str, item: Any, row: Any, none_unit: str) -> list[Finding]:
    if row is None:
        number = isinstance(item.value, int | float) and not isinstance(item.value, bool)
        if number and item.lower is None and item.upper is None:
            text = _(
                "“{item}” has no limit, in the script or the workbook: right if the script judges it itself."
            )
            return [Finding(Kind.NO_LIMIT, name, text.format(item=name))]
        return []
    units = str(item.unit or "").strip(), str(row.unit or "").strip()
    if units[0] != units[1] and units[0] != none_unit and not _NO_UNIT & {each.lower() for each in units}:
        text = _("The unit of “{item}” is “{unit}” in the script and “{other}” in the limits workbook.")
        return [Finding(Kind.UNIT, name, text.format(item=name, unit=units[0], other=units[1]))]
    return []
