"""What recorder and writer say to each other: msgpack, each message behind its length in four bytes.

The recorder numbers its messages from 1 on, by their order.  Whatever is sent twice is kept once.
"""

import struct
from collections.abc import Iterator
from typing import Any, TypeAlias

import msgspec

RunId: TypeAlias = bytes  # of a UUID
_LENGTH = struct.Struct("<I")
_READ = 1 << 20


class Hello(msgspec.Struct, array_like=True, tag=True):
    """The first one: which file, and which runs this station has under way."""

    path: str
    station: str
    live: list[RunId]
    commit_ms: int


class SetupContents(msgspec.Struct, array_like=True):
    """As `records.Setup`; hashes are those of contents that were sent in this session."""

    host: str
    script: str
    script_sha256: bytes | None
    limits: str
    limits_sha256: bytes | None
    config: str
    config_sha256: bytes | None
    parameters_sha256: bytes | None
    versions: dict[str, str]


class Content(msgspec.Struct, array_like=True, tag=True):
    data: bytes


class Begin(msgspec.Struct, array_like=True, tag=True):
    run: RunId
    cell: int
    scanned: str | None
    serial_number: str | None
    product: str
    operation: str
    purpose: str
    operator: str
    batch: str
    utc_offset_s: int
    begin_us: int
    setup: SetupContents


class Odd(msgspec.Struct, array_like=True):
    """A value that msgpack or SQLite has no place for, as it is to be kept; `data` becomes an attachment `name`."""

    kind: int
    number: float | None = None
    text: str | None = None
    note: str | None = None
    data: bytes | None = None
    name: str = ""


class Rows(msgspec.Struct, array_like=True, tag=True):
    """Measurements of a run from a place on, column by column; an `Odd` comes as a list.

    `attempts`, `notes` and `categories` have only the rows that are not as usual.  `again`: these places were sent
    before, and something changed, or the writer may have them already.
    """

    run: RunId
    start: int
    again: bool
    names: list[str]
    values: list[Any]
    lowers: list[Any]
    uppers: list[Any]
    units: list[str | None]
    verdicts: list[bool | None]
    times: list[Any]
    elapsed: list[Any]
    reports: list[bool]
    attempts: dict[int, int]
    notes: dict[int, str]
    categories: dict[int, list[str]]


class Cut(msgspec.Struct, array_like=True, tag=True):
    """The script has taken measurements back: only so many are left."""

    run: RunId
    measured: int


class Attach(msgspec.Struct, array_like=True, tag=True):
    run: RunId
    name: str
    at_us: int
    data: bytes


class UsedInstrument(msgspec.Struct, array_like=True, tag=True):
    run: RunId
    name: str
    identity: str
    calibration_due: str | None


class Happened(msgspec.Struct, array_like=True, tag=True):
    """An event; `id` makes it one of its kind when it is sent twice."""

    id: bytes
    run: RunId | None
    cell: int | None
    at_us: int
    kind: str
    text: str
    data: str


class End(msgspec.Struct, array_like=True, tag=True):
    """Seal the run; of one that is sealed already only a new outcome is kept, as a correction."""

    run: RunId
    serial_number: str | None
    measured: int
    end_us: int
    duration_us: int
    outcome: str
    reason: str
    details: str
    at_us: int


class CellState(msgspec.Struct, array_like=True):
    cell: int
    state: str
    run: RunId | None
    serial_number: str | None
    since_us: int
    measured: int
    progress: float | None
    heartbeat_us: int


class CellStates(msgspec.Struct, array_like=True, tag=True):
    cells: list[CellState]


class Told(msgspec.Struct, array_like=True, tag=True):
    """The operator has seen which units were interrupted, up to this seal."""

    seal: int


class Close(msgspec.Struct, array_like=True, tag=True):
    """The station ends in order: nothing is under way any more."""


Message: TypeAlias = (
    Hello
    | Content
    | Begin
    | Rows
    | Cut
    | Attach
    | UsedInstrument
    | Happened
    | End
    | CellStates
    | Told
    | Close
)


class InterruptedUnit(msgspec.Struct, array_like=True):
    """A run that nobody ended; `seal` is that of its record."""

    seal: int
    cell: int
    serial_number: str | None
    begin_us: int
    utc_offset_s: int
    measured: int


class Opened(msgspec.Struct, array_like=True, tag=True):
    """The file is open: whose it is, and what the operator has not been told yet."""

    station: RunId
    interrupted: list[InterruptedUnit]


class Reached(msgspec.Struct, array_like=True, tag=True):
    """Up to which message everything was read, and up to which it survives a power cut."""

    read: int
    durable: int


class Failed(msgspec.Struct, array_like=True, tag=True):
    """The writer ends; `refused`: trying again is of no use until somebody has mended it."""

    text: str
    refused: bool


Answer: TypeAlias = Opened | Reached | Failed


def pack(encoded: bytes) -> bytes:
    return _LENGTH.pack(len(encoded)) + encoded


def unpack(stream: Any) -> Iterator[bytes]:
    """The messages of a stream until it ends; half a message at its end is none."""
    buffer = bytearray()
    read = getattr(stream, "read1", stream.read)  # without waiting for more than there is
    while True:
        while len(buffer) >= _LENGTH.size and len(buffer) >= (
            end := _LENGTH.size + _LENGTH.unpack_from(buffer)[0]
        ):
            yield bytes(memoryview(buffer)[_LENGTH.size : end])
            del buffer[:end]
        block = read(_READ)
        if not block:
            return
        buffer += block
