"""What can be asked of results, whether they lie in a station's file or in a line's database."""

import datetime
import uuid
from abc import ABC, abstractmethod
from collections.abc import Callable, Iterator, Mapping, Sequence
from types import TracebackType
from typing import Any, Self, TypeAlias

import msgspec
import numpy as np
from numpy.typing import NDArray

from ..records import Event, Now, Outcome, Record, Run, Seal, Station

When: TypeAlias = datetime.datetime | datetime.date | int | None
Progress: TypeAlias = Callable[[int, int], None]  # done, of all

PRODUCTION = "production"
FOREVER_US = 1 << 62


class Filter(msgspec.Struct, frozen=True, kw_only=True):
    """Which runs: None leaves a field open.  `serial_number` may contain `*` for any text.

    `since` (inclusive) and `until` (exclusive) are moments of the run's begin: a datetime (local time when it has no
    zone), a date (its local midnight) or microseconds since 1970.
    """

    serial_number: str | None = None
    product: str | None = None
    operation: str | None = None
    purpose: str | None = None
    outcome: Outcome | None = None
    station: uuid.UUID | None = None
    cell: int | None = None
    operator: str | None = None
    batch: str | None = None
    failed_item: str | None = None
    since: When = None
    until: When = None

    @property
    def since_us(self) -> int:
        return -FOREVER_US if self.since is None else microseconds(self.since)

    @property
    def until_us(self) -> int:
        return FOREVER_US if self.until is None else microseconds(self.until)


EVERYTHING = Filter()


class ItemColumns(msgspec.Struct, frozen=True):
    """One item over all its runs in the order of the runs: arrays of one length.

    `value` is NaN where the value is no number (`kind` says what it is); bools are 0 and 1.
    """

    name: str
    run: NDArray[np.int64]  # number of the run in its station
    station: NDArray[np.int64]  # index into `stations`
    seq: NDArray[np.int64]
    cell: NDArray[np.int64]
    attempt: NDArray[np.int64]
    kind: NDArray[np.int64]
    value: NDArray[np.float64]
    verdict: NDArray[np.int64]
    lower: NDArray[np.float64]  # NaN: no limit
    upper: NDArray[np.float64]
    time_us: NDArray[np.int64]  # since 1970
    unit: str
    stations: list[uuid.UUID]


class ItemCount(msgspec.Struct, frozen=True):
    """`count` measurements in `runs` runs, `ng` of them outside."""

    name: str
    count: int
    runs: int
    ng: int


class Yield(msgspec.Struct, frozen=True):
    """Counts of one product and operation; `units` are serial numbers, each counted once.

    First pass: the first attempt ever of a unit falls into the time asked for; aborted attempts, exceptions and
    interruptions are no attempts, but are counted beside.  Final: the last attempt in the time asked for.
    Runs without a serial number are units of their own.
    """

    product: str
    operation: str
    runs: int
    first_attempts: int
    first_passed: int
    units: int
    finally_passed: int
    aborted: int
    exceptions: int
    interrupted: int

    @property
    def first_pass(self) -> float:
        return self.first_passed / self.first_attempts if self.first_attempts else float("nan")

    @property
    def final(self) -> float:
        return self.finally_passed / self.units if self.units else float("nan")


class ParetoRow(msgspec.Struct, frozen=True):
    """How many runs failed first in this item, and how many had it among their failed ones."""

    item: str
    first: int
    all: int


class Sealed(msgspec.Struct, frozen=True):
    """A run as its newest seal left it, without what was measured: what yields, shifts and times are counted from.

    `first`: no earlier run of the unit, operation and purpose came to a verdict.  `corrects`: it had been sealed before.
    """

    station: uuid.UUID
    seal: int
    number: int
    id: uuid.UUID
    cell: int
    product: str
    operation: str
    purpose: str
    operator: str
    batch: str
    serial_number: str | None
    begin_us: int
    end_us: int | None
    duration_us: int | None
    outcome: Outcome
    first_ng: str | None
    first: bool
    corrects: bool


class Fault(msgspec.Struct, frozen=True):
    """The first thing that is wrong; `seal` None where a run's number or the file itself is meant."""

    text: str
    run: int | None = None
    seal: int | None = None


class Verification(msgspec.Struct, frozen=True):
    runs: int
    seals: int
    measurements: int
    chain: bytes  # of the newest seal: what to compare with what others hold
    fault: Fault | None


class TooSlow(Exception):
    """A question took longer than `Store.limit` allows."""


class Store(ABC):
    """Results, read-only.  Any thread, one at a time."""

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    @abstractmethod
    def close(self) -> None: ...

    @abstractmethod
    def limit(self, seconds: float) -> None:
        """From now on a single question that takes longer ends with TooSlow."""

    @abstractmethod
    def stations(self) -> list[Station]:
        """Whose results these are: one of a file, many of a line."""

    @abstractmethod
    def runs(self, wanted: Filter = EVERYTHING, limit: int | None = 1000) -> list[Run]:
        """The newest first."""

    @abstractmethod
    def run(self, which: uuid.UUID | str) -> Run:
        """By id, or by an unambiguous beginning of it; KeyError says what is wrong."""

    @abstractmethod
    def record(self, which: uuid.UUID | str) -> Record:
        """Everything about one run."""

    @abstractmethod
    def attempts(self, run: Run) -> list[Run]:
        """All runs of its product, serial number and operation, in order; itself alone without a serial number."""

    @abstractmethod
    def content(self, sha256: bytes) -> bytes:
        """A script, workbook or attachment; KeyError when it is not kept."""

    @abstractmethod
    def items(self, wanted: Filter = EVERYTHING) -> list[ItemCount]:
        """The items of these runs by name.  Without a filter it is counted item by item, else run by run."""

    @abstractmethod
    def item_names(self) -> list[str]:
        """All that were ever measured, by name."""

    @abstractmethod
    def item(self, name: str, wanted: Filter = EVERYTHING) -> ItemColumns:
        """One item's values as arrays; KeyError when no run has it."""

    @abstractmethod
    def yields(self, wanted: Filter) -> list[Yield]:
        """By product and operation; give a purpose, else studies and reference units count too."""

    @abstractmethod
    def pareto(self, wanted: Filter) -> list[ParetoRow]:
        """The items of failed runs, the most frequent first."""

    @abstractmethod
    def events(self, wanted: Filter = EVERYTHING, limit: int | None = 1000) -> list[Event]:
        """The newest first; of the filter cell and time count."""

    @abstractmethod
    def now(self) -> list[Now]:
        """What stands at each cell."""

    def now_of_stations(self) -> list[tuple[uuid.UUID, Now]]:
        """What stands at each cell of each station."""
        (station,) = self.stations()
        return [(station.id, each) for each in self.now()]

    @abstractmethod
    def seals(self, after: int = 0, limit: int = 1000) -> list[Seal]:
        """In the chain's order."""

    @abstractmethod
    def sealed(self, after: Mapping[uuid.UUID, int], limit: int = 20_000) -> list[Sealed]:
        """What was sealed since these seals of each station, in each station's order; `limit` counts each station's."""

    @abstractmethod
    def newest_seals(self) -> dict[uuid.UUID, int]:
        """The number of each station's newest seal, 0 without any."""

    @abstractmethod
    def verify(self, progress: Progress | None = None) -> Verification:
        """Recount all hashes, the chain and the numbers."""

    def records(self, wanted: Filter = EVERYTHING) -> Iterator[Record]:
        """Whole records, one after the other, the newest first."""
        for run in self.runs(wanted, None):
            yield self.record(run.id)


def id_bounds(which: uuid.UUID | str) -> tuple[uuid.UUID, uuid.UUID]:
    """The first and the last id that begin so; KeyError for what is no beginning of an id."""
    text = which.hex if isinstance(which, uuid.UUID) else which.replace("-", "").lower()
    if not 0 < len(text) <= 32 or set(text) - set("0123456789abcdef"):
        raise KeyError(f"{which!r} is no id of a run: hexadecimal digits are expected.")
    return uuid.UUID(text.ljust(32, "0")), uuid.UUID(text.ljust(32, "f"))


def only(found: Sequence[Any], which: uuid.UUID | str) -> Any:
    """The one that was found; KeyError for none or several."""
    if len(found) != 1:
        raise KeyError(
            f"{'Several runs have' if found else 'No run has'} an id that begins with {str(which)!r}."
        )
    return found[0]


def microseconds(when: datetime.datetime | datetime.date | int) -> int:
    if isinstance(when, int):
        return when
    if not isinstance(when, datetime.datetime):
        when = datetime.datetime.combine(when, datetime.time())
    aware = when.astimezone(datetime.UTC)
    return (aware - datetime.datetime(1970, 1, 1, tzinfo=datetime.UTC)) // datetime.timedelta(microseconds=1)


def moment(us: int, offset_s: int | None = None) -> datetime.datetime:
    """The moment in the zone where it was recorded, or in the local one."""
    utc = datetime.datetime(1970, 1, 1, tzinfo=datetime.UTC) + datetime.timedelta(microseconds=us)
    if offset_s is None:
        return utc.astimezone()
    return utc.astimezone(datetime.timezone(datetime.timedelta(seconds=offset_s)))


def floats(column: list[Any]) -> NDArray[np.float64]:
    """None becomes NaN."""
    return np.array(column, dtype=np.float64)
