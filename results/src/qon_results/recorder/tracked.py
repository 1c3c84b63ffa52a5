"""A unit whose run is being recorded: what was sent of it, and what still has to be."""

import time
import uuid
from collections.abc import Iterator
from dataclasses import dataclass, field
from typing import Any, Protocol

from ..writer import messages
from ..writer.messages import Message
from . import encoding
from .encoding import ROWS


class Unit(Protocol):
    """What is asked of a `qon_station.StationUnit`."""

    serial_number: str | None
    scanned_serial_number: str
    cell_number: int
    begin_time: float
    end_time: float
    duration: float
    script: str
    limits_file: str

    @property
    def assertions(self) -> list[Any]: ...
    @property
    def cell(self) -> Any: ...


@dataclass
class Chunk:
    """Measurements that were sent together; the fingerprint tells whether they have changed since."""

    start: int
    count: int
    fingerprint: int


@dataclass(eq=False)
class Tracked:
    """Owned by the recorder's thread; the flags may be read by any.

    `begun` and `sealed`: the writer's word that it is on the disk.
    """

    unit: Unit
    begin: messages.Begin
    contents: list[bytes]
    most_bytes: int
    begun: bool = False
    sealed: bool = False
    end: messages.End | None = None
    extras: list[Message] = field(default_factory=list)  # attachments, instruments, events of the run
    names: set[str] = field(default_factory=set)  # of attachments
    refused: str = ""  # why it could not be recorded in time
    finished: bool = False  # no test thread waits for it any more
    _chunks: list[Chunk] = field(default_factory=list)
    _categories: dict[int, list[str]] = field(default_factory=dict)
    _seen: dict[str, int] = field(default_factory=dict)
    _confirmed: int = 0  # chunks that were compared since the run's end

    @property
    def id(self) -> bytes:
        return self.begin.run

    @property
    def taken(self) -> int:
        return self._chunks[-1].start + self._chunks[-1].count if self._chunks else 0

    def new(self) -> Iterator[bytes]:
        """Messages of what was measured since; what the unit loses meanwhile is seen at its end."""
        while chunk := self.unit.assertions[self.taken : self.taken + ROWS]:
            start = self.taken
            self._look_at_categories()
            data = encoding.encoded(self.id, start, chunk, self._categories, self.most_bytes)
            self._chunks.append(Chunk(start, len(chunk), hash(data)))
            yield data

    def changed(self) -> Iterator[bytes]:
        """Everything once more, against what was sent: items can be updated until the run has ended.

        Each step yields, also where nothing has changed (an empty text), so that others get their turn.
        """
        self._look_at_categories()
        left = len(self.unit.assertions)
        if left < self.taken:
            while self._chunks and self._chunks[-1].start + self._chunks[-1].count > left:
                self._chunks.pop()
            yield encoding.encoded_message(messages.Cut(self.id, self.taken))
            yield from self.new()
        for chunk in self._chunks:
            rows = self.unit.assertions[chunk.start : chunk.start + chunk.count]
            data = encoding.encoded(self.id, chunk.start, rows, self._categories, self.most_bytes)
            fingerprint = hash(data)
            if fingerprint != chunk.fingerprint:
                chunk.fingerprint = fingerprint
                yield encoding.again(data)
            else:
                yield b""

    def everything(self) -> Iterator[bytes]:
        """For another writer, which may have some of it already."""
        self._look_at_categories()
        left = len(self.unit.assertions)
        for chunk in self._chunks:
            rows = self.unit.assertions[chunk.start : min(left, chunk.start + chunk.count)]
            data = encoding.encoded(self.id, chunk.start, rows, self._categories, self.most_bytes)
            chunk.fingerprint = hash(data)
            yield encoding.again(data)

    def ended(self, serial_number: str | None, outcome: Any) -> messages.End:
        """The seal's message; the later one counts when there are two."""
        unit = self.unit
        begin = self.begin.begin_us
        self.end = messages.End(
            self.id,
            serial_number,
            0,
            max(begin, encoding.microseconds(unit.end_time)),
            max(0, round(unit.duration * 1e6)),
            str(outcome.kind),
            encoding.text(outcome.reason),
            encoding.text(outcome.details),
            time.time_ns() // 1000,
        )
        return self.end

    def _look_at_categories(self) -> None:
        """Beside "all", in which everything is."""
        cell = self.unit.cell
        if cell is None or getattr(cell, "uut", None) is not self.unit:
            return
        for name, members in list(getattr(cell, "_assertion_category", {}).items()):
            if name == "all" or not isinstance(members, list):
                continue
            seen = self._seen.get(name, 0)
            for one in members[seen:]:
                self._categories.setdefault(id(one), []).append(encoding.text(name))
            self._seen[name] = len(members)


def begin_message(unit: Unit, description: Any, setup: messages.SetupContents) -> messages.Begin:
    """Of a run that begins now."""
    begin = encoding.microseconds(unit.begin_time)
    serial, scanned = unit.serial_number, unit.scanned_serial_number
    return messages.Begin(
        new_id(begin),
        unit.cell_number,
        None if scanned is None else encoding.text(scanned),
        None if serial is None else encoding.text(serial),
        encoding.text(description.product),
        encoding.text(description.operation),
        encoding.text(description.purpose),
        encoding.text(description.operator),
        encoding.text(description.batch),
        time.localtime(begin / 1e6).tm_gmtoff,
        begin,
        setup,
    )


def new_id(us: int, chance: int | None = None) -> bytes:
    """A UUID of version 7: ordered by time, unique everywhere."""
    chance = (uuid.uuid4().int if chance is None else chance) & ((1 << 74) - 1)
    millisecond = us // 1000 & ((1 << 48) - 1)
    high, low = chance >> 62, chance & ((1 << 62) - 1)
    return (millisecond << 80 | 7 << 76 | high << 64 | 2 << 62 | low).to_bytes(16, "big")
