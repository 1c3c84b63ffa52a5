"""What is kept of a station's work, as records: the same from SQLite and from a line's database.

Times are UTC in microseconds since 1970, durations microseconds, ids UUIDs, hashes the 32 bytes of SHA-256.
"""

import enum
import uuid
from typing import TypeAlias

import msgspec

Value: TypeAlias = float | int | str | bool | None


class Kind(enum.IntEnum):
    """Of a value; it tells the column that holds it."""

    NOTHING = 0
    NUMBER = 1
    INTEGER = 2
    TEXT = 3
    BOOL = 4
    NAN = 5
    INFINITY = 6
    MINUS_INFINITY = 7
    OTHER = 8
    ARRAY = 9


class Verdict(enum.IntEnum):
    NG = 0
    OK = 1
    TBD = 2


class Outcome(enum.StrEnum):
    RUNNING = "RUNNING"
    OK = "OK"
    NG = "NG"
    TBD = "TBD"
    ABORTED = "ABORTED"
    EXCEPTION = "EXCEPTION"
    INTERRUPTED = "INTERRUPTED"


class Station(msgspec.Struct, frozen=True):
    id: uuid.UUID
    name: str
    created_us: int


class Setup(msgspec.Struct, frozen=True):
    """With what a run was made; the hashes name contents, None where there was no such file."""

    host: str
    script: str
    script_sha256: bytes | None
    limits: str
    limits_sha256: bytes | None
    config: str
    config_sha256: bytes | None
    parameters_sha256: bytes | None
    versions: dict[str, str]


class Run(msgspec.Struct, frozen=True):
    """One test of one unit.  `outcome` and `reason` are those that hold: a correction counts."""

    number: int
    id: uuid.UUID
    cell: int
    scanned: str | None
    product: str
    operation: str
    purpose: str
    operator: str
    batch: str
    serial_number: str | None
    utc_offset_s: int
    begin_us: int
    end_us: int | None
    duration_us: int | None
    outcome: Outcome
    reason: str
    details: str
    first_ng: str | None
    measured: int
    ng: int
    station: uuid.UUID


class Measurement(msgspec.Struct, frozen=True):
    """One judged item of a run; `time_us` counts from the run's begin."""

    seq: int
    item: str
    kind: Kind
    number: float | None
    text: str | None
    truth: bool | None
    verdict: Verdict
    time_us: int | None
    elapsed_us: int | None
    attempt: int
    note: str | None
    lower_kind: Kind
    lower_number: float | None
    lower_text: str | None
    upper_kind: Kind
    upper_number: float | None
    upper_text: str | None
    unit: str | None
    report: bool
    categories: tuple[str, ...]

    @property
    def value(self) -> Value:
        return value_of(self.kind, self.number, self.text, self.truth)

    @property
    def lower(self) -> Value:
        return value_of(self.lower_kind, self.lower_number, self.lower_text, None)

    @property
    def upper(self) -> Value:
        return value_of(self.upper_kind, self.upper_number, self.upper_text, None)


class Attachment(msgspec.Struct, frozen=True):
    """`seq`: the measurement whose value it is, None for one that a script attached."""

    number: int
    name: str
    seq: int | None
    sha256: bytes
    size: int
    at_us: int


class Instrument(msgspec.Struct, frozen=True):
    name: str
    identity: str
    calibration_due: str | None


class Event(msgspec.Struct, frozen=True):
    """`data` is JSON."""

    number: int
    id: uuid.UUID
    run: uuid.UUID | None
    cell: int | None
    at_us: int
    kind: str
    text: str
    data: str


class Correction(msgspec.Struct, frozen=True):
    seal: int
    at_us: int
    outcome: Outcome
    reason: str
    details: str


class Seal(msgspec.Struct, frozen=True):
    """`events`: the number of the last event that its hash covers."""

    number: int
    run: uuid.UUID
    at_us: int
    events: int
    hash: bytes
    chain: bytes


class Now(msgspec.Struct, frozen=True):
    """What stands at a cell; `progress` from 0 to 1 where the script tells it."""

    cell: int
    state: str
    run: uuid.UUID | None
    serial_number: str | None
    since_us: int
    measured: int
    progress: float | None
    heartbeat_us: int


class Record(msgspec.Struct, frozen=True):
    """Everything kept of one run; `own` is the run as it was sealed, before any correction."""

    run: Run
    own: Run
    setup: Setup
    measurements: list[Measurement]
    instruments: list[Instrument]
    attachments: list[Attachment]
    events: list[Event]
    corrections: list[Correction]
    seals: list[Seal]


_FLOATS = {Kind.NAN: float("nan"), Kind.INFINITY: float("inf"), Kind.MINUS_INFINITY: float("-inf")}


def value_of(kind: int, number: float | None, text: str | None, truth: int | bool | None) -> Value:
    """The value as it was recorded; for what SQLite has no column for, its text."""
    if kind == Kind.NUMBER:
        return number
    if kind == Kind.INTEGER:
        return int(text) if text is not None else int(number or 0)
    if kind in (Kind.TEXT, Kind.OTHER, Kind.ARRAY):
        return text
    if kind == Kind.BOOL:
        return bool(number if truth is None else truth)  # a limit has no truth of its own
    return _FLOATS.get(Kind(kind))
