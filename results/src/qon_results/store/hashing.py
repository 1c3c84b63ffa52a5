"""The hash of a record and of the chain.

Everything that is hashed is a msgpack array of plain values, so that nobody needs our program to count again:

    record = SHA-256(each measurement in order, each instrument by name, each attachment by number,
                     each event since the seal before, the run)
    chain  = SHA-256(chain of the seal before + record), at first SHA-256(id of the station)

The arrays are the fields of `Measurement`, `Instrument`, `Attachment`, `Event`, `Setup` and `Run` in their order; those of a
measurement's limits, unit, report flag and categories are an array within, all but the measurements begin with a word
that says what they are.  Numbers are hashed as floats, minus zero as zero: so every database gives them back.
"""

import hashlib
import uuid
from collections.abc import Iterable, Sequence
from typing import Any

import msgspec

from ..records import Attachment, Correction, Event, Instrument, Measurement, Run, Setup

JUDGED_FROM = Measurement.__struct_fields__.index("lower_kind")  # from here on: by what it was judged

_encoder = msgspec.msgpack.Encoder(uuid_format="bytes")
# Above so many elements msgpack's array header grows from 1 to 3 to 5 bytes.
_HEADERS = ((16, 1), (1 << 16, 3), (1 << 32, 5))


class RecordHash:
    """Takes a record part by part, in the order above."""

    def __init__(self) -> None:
        self._hash = hashlib.sha256()
        self.count = 0  # of measurements

    def measurements(self, rows: Sequence[Sequence[Any]]) -> None:
        """Rows as `measurement_fields` gives them; into how many calls they are packed does not matter."""
        data = _encoder.encode(rows)
        self.count += len(rows)
        self._hash.update(memoryview(data)[next(size for bound, size in _HEADERS if len(rows) < bound) :])

    def instruments(self, found: Iterable[Instrument]) -> None:
        for one in sorted(found, key=lambda one: one.name):
            self._add("instrument", one.name, one.identity, one.calibration_due)

    def attachments(self, found: Iterable[Attachment]) -> None:
        for one in sorted(found, key=lambda one: one.number):
            self._add("attachment", one.number, one.name, one.seq, one.sha256, one.size, one.at_us)

    def events(self, found: Iterable[Event]) -> None:
        for one in sorted(found, key=lambda one: one.number):
            self._add("event", *(getattr(one, name) for name in Event.__struct_fields__))

    def run(self, run: Run, setup: Setup) -> None:
        self._add("setup", *setup_fields(setup))
        self._add("run", *(getattr(run, name) for name in Run.__struct_fields__))

    def correction(self, run: uuid.UUID, one: Correction) -> None:
        self._add("correction", run, one.at_us, str(one.outcome), one.reason, one.details)

    def digest(self) -> bytes:
        return self._hash.digest()

    def _add(self, *fields: Any) -> None:
        self._hash.update(_encoder.encode(fields))


def setup_fields(setup: Setup) -> tuple[Any, ...]:
    plain = tuple(getattr(setup, name) for name in Setup.__struct_fields__[:-1])
    return (*plain, sorted(setup.versions.items()))


def key_of(*fields: Any) -> bytes:
    """The name of a row that is kept once: the hash over what it says."""
    return hashlib.sha256(_encoder.encode(fields)).digest()


def measurement_fields(one: Measurement) -> tuple[Any, ...]:
    """The plain values that are hashed."""
    values = [getattr(one, name) for name in Measurement.__struct_fields__]
    return (*values[:JUDGED_FROM], values[JUDGED_FROM:])


def first_chain(station: uuid.UUID) -> bytes:
    return hashlib.sha256(station.bytes).digest()


def next_chain(before: bytes, record: bytes) -> bytes:
    return hashlib.sha256(before + record).digest()
