"""Tables of a page: what is shown, and the same as CSV and JSON under the same address."""

import csv
import io
import math
from collections.abc import Callable, Sequence
from dataclasses import dataclass, field
from typing import Any

import msgspec

from ..export import FORMULA
from ..store.base import moment
from .texts import plain

RIGHT = frozenset(("count", "number", "percent", "duration"))


@dataclass(frozen=True)
class Column:
    """`name` heads the column of a download, `title` that on the page.

    kind: text, count, number, percent (of a share from 0 to 1), duration (of microseconds), time (of a `When`), outcome,
    hidden (only in downloads).
    """

    name: str
    title: str
    kind: str = "text"

    @property
    def right(self) -> bool:
        return self.kind in RIGHT


@dataclass(frozen=True)
class When:
    """A moment in the zone where it was recorded; without an offset in the one of this machine."""

    us: int
    offset_s: int | None = None

    def __lt__(self, other: "When") -> bool:
        return self.us < other.us


@dataclass(frozen=True)
class Link:
    value: Any
    href: str


@dataclass(frozen=True)
class Table:
    """Rows hold plain values, None for nothing; a `Link` around one leads elsewhere.

    `note` stands below, as words about definition or limits do.  `marks` holds a class of style for some rows.
    A sortable table is sorted by `respond`; it must be whole then.
    """

    name: str
    columns: Sequence[Column]
    rows: Sequence[Sequence[Any]]
    note: str = ""
    sortable: bool = False
    marks: dict[int, str] = field(default_factory=dict)

    def visible(self, row: Sequence[Any]) -> list[tuple[Column, Any]]:
        """What stands on the page of a row."""
        pairs = zip(self.columns, row, strict=True)
        return [(column, value) for column, value in pairs if column.kind != "hidden"]

    def sorted_by(self, wanted: str) -> "Table":
        """`wanted` is a column's name, with "-" before it for the largest first; what is empty comes last."""
        descending, name = wanted.startswith("-"), wanted.lstrip("-")
        place = next((place for place, each in enumerate(self.columns) if each.name == name), None)
        if place is None:
            return self
        rows = list(enumerate(self.rows))
        there = [row for row in rows if not _empty(_bare(row[1][place]))]
        there.sort(key=lambda row: _comparable(_bare(row[1][place])), reverse=descending)
        ordered = there + [row for row in rows if _empty(_bare(row[1][place]))]
        marks = {new: self.marks[old] for new, (old, _) in enumerate(ordered) if old in self.marks}
        return Table(self.name, self.columns, [row for _, row in ordered], self.note, True, marks)


def as_csv(table: Table) -> str:
    """For spreadsheets, too: a text that one would take for a formula gets an apostrophe before it."""
    text = io.StringIO()
    writer = csv.writer(text)
    writer.writerow([column.name for column in table.columns])
    for row in table.rows:
        values = [_told(_bare(value)) for value in row]
        writer.writerow(
            [f"'{each}" if isinstance(each, str) and each.startswith(FORMULA) else each for each in values]
        )
    return "\ufeff" + text.getvalue()


def as_json(table: Table) -> bytes:
    names = [column.name for column in table.columns]
    rows = [dict(zip(names, map(_told, map(_bare, row)), strict=True)) for row in table.rows]
    return msgspec.json.format(msgspec.json.encode(rows), indent=1)


def shown(value: Any, kind: str) -> str:
    """As it stands on the page."""
    value = _bare(value)
    if _empty(value):
        return ""
    if isinstance(value, When):
        return told(value)
    return FORMATS.get(kind, _text)(value)


def told(when: When) -> str:
    return moment(when.us, when.offset_s).strftime("%Y-%m-%d %H:%M:%S")


def duration(us: float) -> str:
    seconds = us / 1e6
    if seconds < 60:
        return f"{seconds:.1f} s"
    minutes, seconds = divmod(round(seconds), 60)
    hours, minutes = divmod(minutes, 60)
    return f"{hours}:{minutes:02d}:{seconds:02d}" if hours else f"{minutes}:{seconds:02d} min"


def number(value: Any) -> str:
    return str(value) if isinstance(value, bool | int | str) else f"{value:.6g}"


def _text(value: Any) -> str:
    return plain(number(value) if isinstance(value, float) else str(value))


FORMATS: dict[str, Callable[[Any], str]] = {
    "count": lambda value: f"{value:,}".replace(",", "\u202f"),
    "number": number,
    "percent": lambda value: f"{100 * value:.2f} %",
    "duration": duration,
}


def _bare(value: Any) -> Any:
    return value.value if isinstance(value, Link) else value


def _empty(value: Any) -> bool:
    return value is None or value == "" or (isinstance(value, float) and math.isnan(value))


def _comparable(value: Any) -> tuple[int, Any]:
    """Numbers before texts; a column may hold both."""
    if isinstance(value, When):
        return (0, value.us)
    return (0, value) if isinstance(value, bool | int | float) else (1, str(value).casefold())


def _told(value: Any) -> Any:
    """For a program."""
    if isinstance(value, When):
        return moment(value.us, value.offset_s).isoformat()
    if isinstance(value, float) and not math.isfinite(value):
        return None
    return value if value is None or isinstance(value, bool | int | float) else str(value)
