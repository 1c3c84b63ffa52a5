"""The columns of all lists of records, each defined once."""

from __future__ import annotations

from typing import Any

from qon_companions.i18n import _

Column = tuple[str, Any]  # title, width in pixels, which stands for its share


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


def unit_columns() -> list[Column]:
    """Of the viewer's units, in the order in which the engine fills them."""
    return [
        (_("Begin time"), 155),
        (_("End time"), 155),
        (_("Serial number"), 125),
        (_("Result"), 60),
        (_("First NG item"), 150),
    ]


def run_columns() -> list[Column]:
    """Of a cell's history, in the order in which the engine fills them."""
    return [
        (_("Start time"), 155),
        (_("End time"), 155),
        (_("Serial number"), 125),
        (_("Result"), 110),
        (_("Description"), 140),
    ]
