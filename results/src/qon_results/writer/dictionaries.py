"""What is kept once and named by a number afterwards: contents, setups, items, limits, plans."""

import hashlib
import json
import math
from collections.abc import Sequence
from itertools import repeat
from typing import Any, TypeAlias

import apsw
import msgspec

from ..records import Kind
from ..store.file import ask
from ..store.hashing import key_of
from .messages import Begin, Odd, SetupContents

# Limits that are computed from each value would fill the memory.
MOST_CRITERIA = 200_000
MOST_ITEMS = 1_000_000

Column: TypeAlias = list[Any]
CriterionKey: TypeAlias = tuple[Any, ...]
Criterion: TypeAlias = tuple[int, msgspec.Raw]  # its number, and its fields as they are hashed

_INSERT_CONTENT = "INSERT INTO content (sha256, size, data) VALUES (?, ?, ?) ON CONFLICT DO NOTHING"
_INSERT_SETUP = """
INSERT INTO setup (key, host, script, script_content, limits, limits_content, config, config_content,
                   parameters_content, versions)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO NOTHING
"""
_INSERT_CRITERION = """
INSERT INTO criterion (key, lower_kind, lower, lower_text, upper_kind, upper, upper_text, unit, report, categories)
VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO NOTHING
"""


class Dictionaries:
    """Numbers of what was seen before come from memory.  To be forgotten when a transaction was rolled back."""

    def __init__(self, connection: apsw.Connection) -> None:
        self._connection = connection
        self._items: dict[str, int] = {}
        self._criteria: dict[CriterionKey, Criterion] = {}
        self._plan_items: dict[int, set[int]] = {}
        self._encoder = msgspec.msgpack.Encoder()

    def content(self, data: bytes) -> int:
        sha256 = hashlib.sha256(data).digest()
        self._connection.execute(_INSERT_CONTENT, (sha256, len(data), data))
        return self._content_id(sha256) or 0

    def setup(self, setup: SetupContents) -> int:
        key = key_of(
            *(getattr(setup, name) for name in SetupContents.__struct_fields__[:-1]),
            sorted(setup.versions.items()),
        )
        known = self._one("SELECT id FROM setup WHERE key = ?", key)
        if known is not None:
            return known
        self._connection.execute(
            _INSERT_SETUP,
            (
                key,
                setup.host,
                setup.script,
                self._content_id(setup.script_sha256),
                setup.limits,
                self._content_id(setup.limits_sha256),
                setup.config,
                self._content_id(setup.config_sha256),
                self._content_id(setup.parameters_sha256),
                json.dumps(setup.versions, ensure_ascii=False),
            ),
        )
        return self._connection.last_insert_rowid()

    def plan(self, begin: Begin) -> int:
        names = (begin.product, begin.operation, begin.setup.script)
        query = "SELECT id FROM plan WHERE product = ? AND operation = ? AND script = ?"
        known = self._one(query, *names)
        if known is not None:
            return known
        self._connection.execute("INSERT INTO plan (product, operation, script) VALUES (?, ?, ?)", names)
        return self._connection.last_insert_rowid()

    def criteria(
        self,
        lowers: list[Any],
        uppers: list[Any],
        units: list[str | None],
        reports: list[bool],
        categories: dict[int, list[str]],
    ) -> list[Criterion]:
        """One for each row; most rows have no categories of their own."""
        try:
            keys = zip(
                lowers, uppers, units, reports, repeat(()), map(type, lowers), map(type, uppers), strict=False
            )
            known = self._criteria
            found = list(map(known.__getitem__, keys))
        except (KeyError, TypeError):
            found = [self.criterion(*row, ()) for row in zip(lowers, uppers, units, reports, strict=True)]
        for place, names in categories.items():
            found[place] = self.criterion(lowers[place], uppers[place], units[place], reports[place], names)
        return found

    def items(self, plan: int, names: Sequence[str]) -> list[int]:
        """The items' numbers; what is new to the plan is noted there."""
        known = self._items
        try:
            found = list(map(known.__getitem__, names))
        except KeyError:
            found = [self._item(name) for name in names]
        planned = self._plan(plan)
        if not planned.issuperset(found):
            new = set(found) - planned
            self._connection.executemany(
                "INSERT OR IGNORE INTO plan_item VALUES (?, ?)", [(plan, item) for item in new]
            )
            planned |= new
        return found

    def planned(self, plan: int) -> set[int]:
        """The items that the plan's runs have had."""
        return self._plan(plan)

    def criterion(
        self, lower: Any, upper: Any, unit: str | None, report: bool, categories: Sequence[str]
    ) -> Criterion:
        """By what a measurement was judged; the types of the limits tell 1 from True and 1.0."""
        key = (lower, upper, unit, report, tuple(categories), type(lower), type(upper))
        try:
            known = self._criteria.get(key)
        except TypeError:  # an odd limit came as a list
            key = (repr(lower), repr(upper), *key[2:])
            known = self._criteria.get(key)
        if known is None:
            known = self._new_criterion(
                (*_limit(lower), *_limit(upper), unit, bool(report), list(categories))
            )
            if len(self._criteria) >= MOST_CRITERIA:
                self._criteria.clear()
            self._criteria[key] = known
        return known

    def _new_criterion(self, fields: tuple[Any, ...]) -> Criterion:
        key = key_of(*fields)
        row = (*fields[:7], int(fields[7]), json.dumps(fields[8], ensure_ascii=False))
        self._connection.execute(_INSERT_CRITERION, (key, *row))
        number = self._one("SELECT id FROM criterion WHERE key = ?", key)
        return number or 0, msgspec.Raw(self._encoder.encode(fields))

    def _item(self, name: str) -> int:
        if name not in self._items:
            if len(self._items) >= MOST_ITEMS:
                self._items.clear()
            self._connection.execute("INSERT INTO item (name) VALUES (?) ON CONFLICT DO NOTHING", (name,))
            self._items[name] = self._one("SELECT id FROM item WHERE name = ?", name) or 0
        return self._items[name]

    def _plan(self, plan: int) -> set[int]:
        if plan not in self._plan_items:
            rows = ask(self._connection, "SELECT item FROM plan_item WHERE plan = ?", (plan,))
            self._plan_items[plan] = {item for (item,) in rows}
        return self._plan_items[plan]

    def _content_id(self, sha256: bytes | None) -> int | None:
        return None if sha256 is None else self._one("SELECT id FROM content WHERE sha256 = ?", sha256)

    def _one(self, query: str, *values: Any) -> int | None:
        for (number,) in ask(self._connection, query, values):
            return int(number)
        return None


def _limit(limit: Any) -> tuple[int, float | None, str | None]:
    """Kind, number and text; a bool's number is 0 or 1."""
    if isinstance(limit, list):
        odd = msgspec.convert(limit, Odd)
        return odd.kind, odd.number, odd.text
    kind, number, text, truth = plain_value(limit)
    return kind, number if truth is None else float(truth), text


_NOTHING, _NUMBER, _INTEGER, _TEXT, _BOOL = (
    kind.value for kind in (Kind.NOTHING, Kind.NUMBER, Kind.INTEGER, Kind.TEXT, Kind.BOOL)
)


def plain_value(value: Any) -> tuple[int, float | None, str | None, int | None]:
    """Kind, number, text and truth of a value that msgpack knows."""
    kind = type(value)
    if kind is float:
        if value - value == 0.0:
            return _NUMBER, value + 0.0, None, None  # minus zero becomes zero, as the file has it
        special = Kind.NAN if math.isnan(value) else Kind.INFINITY if value > 0 else Kind.MINUS_INFINITY
        return special.value, None, None, None
    if value is None:
        return _NOTHING, None, None, None
    if kind is bool:
        return _BOOL, None, None, int(value)
    if kind is int:
        return _INTEGER, float(value), None if int(float(value)) == value else str(value), None
    return _TEXT, None, value, None


_KINDS = {float: _NUMBER, str: _TEXT, bool: _BOOL, type(None): _NOTHING}


def plain_values(values: list[Any]) -> tuple[Column, Column, Column, Column] | None:
    """`plain_value` of each, column by column; None where there are others than finite floats, texts and bools."""
    types = list(map(type, values))
    kinds = set(types)
    if not kinds <= _KINDS.keys():
        return None
    numbers: Column = [None] * len(values)
    if float in kinds:
        if kinds == {float}:
            numbers = [value + 0.0 for value in values]
        else:
            numbers = [
                value + 0.0 if kind is float else None for kind, value in zip(types, values, strict=True)
            ]
        if not all(map(math.isfinite, filter(None, numbers))):
            return None
    texts, truths = (
        [one(value) if kind is one else None for kind, value in zip(types, values, strict=True)]
        if one in kinds
        else [None] * len(values)
        for one in (str, bool)
    )
    return (
        list(map(_KINDS.__getitem__, types)),
        numbers,
        texts,
        [None if t is None else int(t) for t in truths],
    )
