"""Assertions as messages: column by column, which takes about a microsecond each."""

from collections.abc import Callable, Sequence
from itertools import repeat
from operator import attrgetter, methodcaller
from typing import Any

import msgspec
import qon_ats

from ..writer.messages import Message, Rows, RunId
from .odd import PLAIN, asked, clean, kept, moment, represented

ROWS = 500  # at most so many at a time: meanwhile no test thread runs
NAME_LIMIT = 500  # characters

_FLOATS = frozenset((float, type(None)))
_encoder = msgspec.msgpack.Encoder()
_INT64 = 1 << 63

_Field = Callable[[Any], Any]
_Own = qon_ats.Assertion  # whose records are read without looking up each name each time
_PROPERTIES = ("name", "value", "lower", "upper", "unit", "assert_time", "report_needed")
_METHODS = ("get_result_as_bool", "get_elapse_time")
_ANY: list[_Field] = [*map(attrgetter, _PROPERTIES), *map(methodcaller, _METHODS)]


def encoded(
    run: RunId, start: int, chunk: Sequence[Any], categories: dict[int, list[str]], most_bytes: int
) -> bytes:
    """The message of these assertions; whatever they hold, all of them are in it."""
    try:
        rows = _columns(run, start, chunk, categories)
        if _is_plain(rows):
            return _encoder.encode(rows)
    except Exception:  # noqa: BLE001 - records of any class: what is special about one is found below
        rows = _one_by_one(run, start, chunk, categories)
    _make_plain(rows, most_bytes)
    return _encoder.encode(rows)


def again(data: bytes) -> bytes:
    """The same rows, to take the place of what was sent before."""
    rows = _decoder.decode(data)
    rows.again = True
    return _encoder.encode(rows)


_decoder = msgspec.msgpack.Decoder(Rows)


def encoded_message(message: Message) -> bytes:
    return _encoder.encode(message)


def text(value: Any) -> str:
    """Anything as a text that can be kept."""
    return clean(value) if isinstance(value, str) else represented(value)


def microseconds(seconds: float) -> int:
    return round(seconds * 1e6)


def _columns(run: RunId, start: int, chunk: Sequence[Any], categories: dict[int, list[str]]) -> Rows:
    tries = list(map(getattr, chunk, repeat("attempt"), repeat(1)))
    retried = (
        [place for place, tried in enumerate(tries) if tried != 1] if tries.count(1) < len(tries) else ()
    )
    names, values, lowers, uppers, units, times, reports, verdicts, elapsed = (
        list(map(field, chunk)) for field in _fields(chunk)
    )
    return Rows(
        run,
        start,
        False,
        names,
        _told_apart(chunk, values),
        lowers,
        uppers,
        units,
        verdicts,
        times,
        elapsed,
        reports,
        {place: tries[place] for place in retried},
        {place: _earlier(chunk[place]) for place in retried if hasattr(chunk[place], "earlier_values")},
        {place: categories[id(one)] for place, one in enumerate(chunk) if id(one) in categories}
        if categories
        else {},
    )


def _fields(chunk: Sequence[Any]) -> list[_Field]:
    """How the columns are read."""
    if set(map(type, chunk)) != {_Own}:
        return _ANY
    return [getattr(_Own, name).fget for name in _PROPERTIES] + [getattr(_Own, name) for name in _METHODS]


def _told_apart(chunk: Sequence[Any], values: list[Any]) -> list[Any]:
    if "" in values:
        return [
            _none_or_empty(one) if value == "" else value for one, value in zip(chunk, values, strict=True)
        ]
    return values


def _earlier(one: Any) -> str:
    """What a retry measured before."""
    return f"earlier values: {represented(one.earlier_values)}"


def _none_or_empty(one: Any) -> str | None:
    """Both read as "": what was not measured has no verdict either, unless one was given."""
    found = asked(one, "_Assertion__value", None if asked(one, "get_result_as_bool", True) is None else "")
    return None if found is None else ""


def _is_plain(rows: Rows) -> bool:
    """Whether msgpack holds all of it as it is; texts and big integers show only when they are encoded."""
    values = set(map(type, rows.values))
    if rows.attempts or rows.categories or not values <= PLAIN or not set(map(type, rows.names)) <= {str}:
        return False
    if str in values and not all(
        value.isascii() and len(value) < NAME_LIMIT for value in rows.values if type(value) is str
    ):
        return False
    limits = set(map(type, rows.lowers)) | set(map(type, rows.uppers))
    times = set(map(type, rows.times)) | set(map(type, rows.elapsed))
    if (
        not limits <= _FLOATS | {int}
        or not times <= _FLOATS
        or not set(map(type, rows.units)) <= {str, type(None)}
    ):
        return False
    names = set(rows.names)
    return max(map(len, names)) <= NAME_LIMIT and "\0" not in "".join(names)


def _one_by_one(run: RunId, start: int, chunk: Sequence[Any], categories: dict[int, list[str]]) -> Rows:
    rows = Rows(run, start, False, [], [], [], [], [], [], [], [], [], {}, {}, {})
    for place, one in enumerate(chunk):
        rows.names.append(asked(one, "get_name", asked(one, "name", "")))
        value = asked(one, "get_value", asked(one, "value", None))
        rows.values.append(_none_or_empty(one) if isinstance(value, str) and value == "" else value)
        rows.lowers.append(asked(one, "lower", None))
        rows.uppers.append(asked(one, "upper", None))
        rows.units.append(asked(one, "get_unit", None))
        rows.verdicts.append(_verdict(one))
        rows.times.append(asked(one, "assert_time", None))
        rows.elapsed.append(asked(one, "get_elapse_time", None))
        rows.reports.append(bool(asked(one, "report_needed", True)))
        tried = asked(one, "attempt", 1)
        if type(tried) is not int or tried != 1:
            rows.attempts[place] = tried
        if asked(one, "earlier_values", ()):
            rows.notes[place] = _earlier(one)
        if id(one) in categories:
            rows.categories[place] = categories[id(one)]
        if type(one).__module__ != "qon_ats":
            _note(rows, place, f"recorded as {type(one).__qualname__}")
    return rows


def _verdict(one: Any) -> bool | None:
    found = asked(one, "get_result_as_bool", NotImplemented)
    if found is NotImplemented:
        found = False if asked(one, "is_ng", False) else None if asked(one, "is_tbd", True) else True
    return None if found is None else bool(found)


def _make_plain(rows: Rows, most_bytes: int) -> None:
    for place, name in enumerate(rows.names):
        words = text(name)
        if len(words) > NAME_LIMIT:
            _note(rows, place, f"the item's name has {len(words)} characters")
        rows.names[place] = words[:NAME_LIMIT]
    rows.values = [kept(value, most_bytes) for value in rows.values]
    rows.lowers = [kept(limit, 0) for limit in rows.lowers]
    rows.uppers = [kept(limit, 0) for limit in rows.uppers]
    rows.units = [
        None if unit is None else clean(unit) if isinstance(unit, str) else represented(unit)
        for unit in rows.units
    ]
    for place, time in enumerate(rows.times):
        if moment(time) is None:
            _note(rows, place, f"time: {represented(time)}")
    rows.times, rows.elapsed = [moment(time) for time in rows.times], [moment(time) for time in rows.elapsed]
    rows.verdicts = [None if verdict is None else bool(verdict) for verdict in rows.verdicts]
    for place, tried in list(rows.attempts.items()):
        fits = isinstance(tried, int) and 0 < tried < _INT64
        rows.attempts[place] = int(tried) if fits else 1
        if not fits:
            _note(rows, place, f"attempt: {represented(tried)}")
    rows.categories = {place: [text(name) for name in names] for place, names in rows.categories.items()}


def _note(rows: Rows, place: int, text: str) -> None:
    rows.notes[place] = "; ".join(filter(None, (rows.notes.get(place), text)))
