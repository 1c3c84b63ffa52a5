"""Texts and colours of a grid's rows, compact: a grid holds 100,000 rows on a bad day.

A row that is being written is a list; once the next row is written it is packed into one string, which is
five times smaller and which the cycle collector never walks.  Colours are shared by all rows that look alike.
"""

from __future__ import annotations

from sys import intern

_MARK = "\x1f"  # separates the texts of a packed row; a row with a text that contains it stays a list
_PLAIN = "white"

Row = str | list[str]


class RowStore:
    """Rows of `columns` texts with a colour name each."""

    def __init__(self, columns: int = 0) -> None:
        self.columns = columns
        self._rows: list[Row] = []
        self._colours: list[tuple[str, ...] | None] = []  # None: plain everywhere
        self._shared: dict[tuple[str, ...], tuple[str, ...]] = {}
        self._open: int | None = None  # the row kept as a list for writing
        self.written: list[str] = []  # that list
        # Rows of thousands that nobody has seen yet are written without asking again for each cell.
        self.unseen: int | None = None  # the open row, when its grid is told later
        self.plain: int | None = None  # the open row, while it is plain everywhere

    def __len__(self) -> int:
        return len(self._rows)

    def append(self, count: int = 1) -> None:
        self._rows.extend([""] * count)
        self._colours.extend([None] * count)

    def delete(self, position: int, count: int) -> None:
        self._pack()
        del self._rows[position : position + count]
        del self._colours[position : position + count]

    def add_columns(self, count: int) -> None:
        """Existing rows get empty texts in the new columns when they are read."""
        self._pack()
        self.columns += count

    def text(self, row: int, column: int) -> str:
        content = self._rows[row]
        texts = content.split(_MARK) if isinstance(content, str) else content
        return texts[column] if column < len(texts) else ""

    def texts(self, row: int) -> list[str]:
        return [self.text(row, column) for column in range(self.columns)]

    def set_text(self, row: int, column: int, text: str) -> None:
        if type(text) is not str and not isinstance(text, str):
            raise TypeError(f"Row {row}, column {column}: a cell holds a text, not {text!r}.")
        if row != self._open:
            self._unpack(row)
        self.written[column] = text

    def colour(self, row: int, column: int) -> str:
        colours = self._colours[row]
        return colours[column] if colours is not None and column < len(colours) else _PLAIN

    def set_colour(self, row: int, column: int, name: str) -> bool:
        """Whether the cell looks different now."""
        colours = self._colours[row]
        if colours is None:
            if name == _PLAIN:
                return False
            colours = (_PLAIN,) * self.columns
        if column >= len(colours):
            colours += (_PLAIN,) * (self.columns - len(colours))
        if colours[column] == name:
            return False
        self.plain = None
        changed = (*colours[:column], intern(name), *colours[column + 1 :])
        self._colours[row] = self._shared.setdefault(changed, changed)
        return True

    def rows_with(self, name: str) -> list[int]:
        """The rows that have a cell of this colour."""
        return [row for row, colours in enumerate(self._colours) if colours is not None and name in colours]

    def _unpack(self, row: int) -> None:
        if not 0 <= row < len(self._rows):
            raise IndexError(f"There is no row {row}: the grid has {len(self._rows)}.")
        self._pack()
        content = self._rows[row]
        texts = content.split(_MARK) if isinstance(content, str) and content else list(content)
        self.written = texts + [""] * (self.columns - len(texts))
        self._rows[row] = self.written
        self._open = row
        self.plain = row if self._colours[row] is None else None

    def _pack(self) -> None:
        if self._open is None:
            return
        packed = _MARK.join(self.written)
        if (
            packed.count(_MARK) == len(self.written) - 1
        ):  # otherwise a text contains the mark: it stays a list
            self._rows[self._open] = packed
        self._open = self.unseen = self.plain = None
