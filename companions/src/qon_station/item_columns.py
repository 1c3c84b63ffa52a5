"""The columns of a cell's items as the configuration tells them, looked at before anybody scans a unit."""

from __future__ import annotations

from typing import Any

import qon_ats
from qon_companions.i18n import _
from qon_companions.parameters import Place

COLUMNS, TITLES = "column_info", "column_titles"


def check_columns(config: Any) -> None:
    """ValueError when `column_info` or `column_titles` of a cell's sheet cannot be followed."""
    columns = config.get(COLUMNS, qon_ats.Cell.DefaultColumnInfo)
    if not _is_list(columns) or not all(_is_column(each) for each in columns):
        _refuse(
            config,
            COLUMNS,
            _('a list of titles and widths is needed, such as [["Name", 300]], not {value!r}'),
            columns,
        )
    for title, _width in columns:
        if not hasattr(qon_ats.Assertion, f"get_{title.lower()}"):
            known = ", ".join(
                sorted(name[4:].capitalize() for name in dir(qon_ats.Assertion) if name.startswith("get_"))
            )
            text = _("no item has what the column {value!r} is to show; there are: {known}")
            _refuse(config, COLUMNS, text, title, known=known)
    titles = config.get(TITLES, None)
    if titles in (None, ""):
        return
    if (
        not _is_list(titles)
        or not all(isinstance(each, str) for each in titles)
        or len(titles) > len(columns)
    ):
        _refuse(
            config,
            TITLES,
            _("a list of at most {count} texts is needed, not {value!r}"),
            titles,
            count=len(columns),
        )


def show_titles(cell: Any) -> None:
    """The texts over the columns of the cell's items; what is not told keeps its own."""
    titles = cell.cell_config.get(TITLES, None)
    if titles and hasattr(cell.ui_assertions, "show_titles"):
        cell.ui_assertions.show_titles(titles)


def _is_list(value: Any) -> bool:
    return isinstance(value, list | tuple)


def _is_column(value: Any) -> bool:
    return (
        _is_list(value)
        and len(value) == 2
        and isinstance(value[0], str)
        and isinstance(value[1], int | float)
    )


def _refuse(config: Any, key: str, text: str, value: Any, **more: Any) -> None:
    where = Place(getattr(config, "file", ""), getattr(config, "name", ""))
    raise ValueError(f'{where}: "{key}": {text.format(value=value, **more)}.')
