"""The columns of a parameter sheet, recognised by their titles in any order."""

import re
from collections.abc import Sequence
from typing import Any

from .errors import Fault, Place
from .source import Cell

# Field of a parameter: title that exports use.  The order is the order in which sheets are written.
TITLES = {
    "desc": "Test Item Name",
    "value": "Default Value",
    "low": "Lower Limit",
    "up": "Upper Limit",
    "unit": "Unit",
    "name": "Variable Name",
    "type": "Type",
}
_OTHER_TITLES = {
    "desc": "description, desc, item, item name, test item, 描述, 说明, 测试项, 测试项名称",
    "value": "value, default, 值, 默认值, 参数值",
    "low": "lower, low, low limit, minimum, min, lsl, 下限, 最小值",
    "up": "upper, up, high, high limit, maximum, max, usl, 上限, 最大值",
    "unit": "units, 单位",
    "name": "variable, name, key, parameter, parameter name, 变量, 变量名, 参数名",
    "type": "data type, value type, 类型, 数据类型",
}
# A limits workbook with a misspelt limit column must not load as one without limits: only the text may be missing.
OPTIONAL = {"desc"}
# Fewer known titles than this: the sheet is something else than a table of parameters.
KNOWN_TITLES = 3


def _plain(title: str) -> str:
    return re.sub(r"[\W_]+", "", title).casefold()


_FIELDS = {_plain(title): field for field, title in TITLES.items()}
_OTHER_FIELDS = {
    _plain(title): field for field, titles in _OTHER_TITLES.items() for title in titles.split(",")
}


EMPTY = Cell(None, "n")


class Header:
    """Which column of a sheet holds which field; columns count from 0."""

    def __init__(self, cells: Sequence[Cell]) -> None:
        self.columns: dict[str, int] = {}
        self._twice: list[str] = []
        titles = [_plain(cell.value) if isinstance(cell.value, str) else "" for cell in cells]
        for known in (_FIELDS, _OTHER_FIELDS):
            self._claim({column: known[title] for column, title in enumerate(titles) if title in known})

    def _claim(self, found: dict[int, str]) -> None:
        taken = set(self.columns)
        for column, field in found.items():
            if field in taken:
                continue
            if field in self.columns and field not in OPTIONAL:
                self._twice.append(TITLES[field])
            self.columns.setdefault(field, column)

    @property
    def is_table(self) -> bool:
        """Whether this looks like the header of a parameter table at all."""
        return len(self.columns) >= KNOWN_TITLES

    @property
    def first_column(self) -> int:
        return min(self.columns.values())

    def faults(self, place: Place) -> list[Fault]:
        """Missing columns, and columns that are there twice."""
        missing = [title for field, title in TITLES.items() if field not in self.columns.keys() | OPTIONAL]
        texts = [f'there are two columns for "{title}"; rename or delete one.' for title in self._twice]
        if missing:
            names = ", ".join(f'"{title}"' for title in missing)
            texts.append(f"columns are missing: {names}; the header row needs a title for each.")
        return [Fault(place, text) for text in texts]

    def cell(self, cells: Sequence[Cell], field: str) -> Cell:
        """The row's cell of a field; an empty one where the row or the table has none."""
        column = self.columns.get(field, len(cells))
        return cells[column] if column < len(cells) else EMPTY


def text_of(value: Any) -> str:
    """A cell's content as a name or a title."""
    return "" if value is None else str(value).strip()
