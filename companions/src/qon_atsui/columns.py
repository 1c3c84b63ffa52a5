"""The columns of all lists of records, each defined once."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from qon_companions.i18n import _

Column = tuple[str, Any]  # title, width in pixels, which stands for its share
TimedColumn = tuple[str, int] | tuple[str, int, str]  # the same, and a text that always has room

_TIME = "0000-00-00 00:00:00"


def item_columns() -> list[Column]:
    """Of the items of a unit: the engine fills each by its title."""
    import qon_ats

    return list(qon_ats._DefaultColumnInfo)


def item_titles() -> dict[str, str]:
    """What stands over the columns of items; by the title in small letters; others are shown as they are."""
    return {
        "name": _("Name"),
        "value": _("Value"),
        "lower": _("Lower"),
        "upper": _("Upper"),
        "unit": _("Unit"),
        "result": _("Result"),
    }


def unit_columns() -> list[TimedColumn]:
    """Of the viewer's units, in the order in which the engine fills them."""
    return [
        (_("Begin time"), 155, _TIME),
        (_("End time"), 155, _TIME),
        (_("Serial number"), 125),
        (_("Result"), 60),
        (_("First NG item"), 150),
    ]


def further_unit_columns() -> list[tuple[str, int, Callable[[Any], str]]]:
    """Of the viewer's units in a station, behind those of the engine: title, width, what to show of a unit."""
    return [(_("Cell"), 45, lambda unit: str(unit.cell_number))]


def run_columns() -> list[TimedColumn]:
    """Of a cell's history, in the order in which the engine fills them."""
    return [
        (_("Start time"), 155, _TIME),
        (_("End time"), 155, _TIME),
        (_("Serial number"), 125),
        (_("Result"), 110),
        (_("Description"), 140),
    ]
