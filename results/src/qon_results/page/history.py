"""All runs as columns in memory, kept up to date by the seals: yields and shifts of any selection in milliseconds.

A hundred bytes a run.  Of more than `MOST` runs the newest are kept, and the pages say since when.
"""

import threading
import time
import uuid

import numpy as np
from numpy.typing import NDArray

from ..records import Outcome, Run
from ..store.base import Filter, Sealed, Store

MOST = 2_000_000
CHUNK = 20_000  # seals a question
FRESH_SECONDS = 0.25  # younger is not looked up again
OUTCOMES = [str(each) for each in Outcome]
OK = OUTCOMES.index("OK")
JUDGED = [OUTCOMES.index(each) for each in ("OK", "NG", "TBD")]

RUN = np.dtype(
    [
        ("station", np.int32), ("number", np.int64), ("id", "V16"), ("cell", np.int32), ("product", np.int32),
        ("operation", np.int32), ("purpose", np.int32), ("operator", np.int32), ("batch", np.int32), ("unit", np.int64),
        ("begin", np.int64), ("duration", np.int64), ("outcome", np.int8), ("item", np.int32), ("first", np.bool_),
    ],
    align=True,
)  # fmt: skip

Rows = NDArray[np.void]


class Names:
    """Numbers for texts that come again and again."""

    def __init__(self) -> None:
        self.texts: list[str] = []
        self._codes: dict[str, int] = {}

    def code(self, text: str) -> int:
        if text not in self._codes:
            self._codes[text] = len(self.texts)
            self.texts.append(text)
        return self._codes[text]

    def find(self, text: str) -> int:
        """-1 for one that never came."""
        return self._codes.get(text, -1)


class History:
    """Filled and read in any thread; `version` grows with each change."""

    def __init__(self, most: int = MOST) -> None:
        self._most = most
        self._lock = threading.Lock()
        self._rows: Rows = np.empty(1024, RUN)
        self._count = 0
        self._looked = -FRESH_SECONDS
        self._after: dict[uuid.UUID, int] = {}  # newest seal of each station
        self.version = 0
        self.stations: dict[uuid.UUID, str] = {}
        self.names = {
            name: Names()
            for name in ("station", "product", "operation", "purpose", "operator", "batch", "item")
        }

    @property
    def rows(self) -> Rows:
        return self._rows[: self._count]

    @property
    def whole(self) -> bool:
        """Whether nothing older was left out."""
        return self._count < self._most

    def refresh(self, store: Store) -> None:
        """Take in what was sealed since; several threads wait for one."""
        with self._lock:
            if time.monotonic() - self._looked < FRESH_SECONDS:
                return
            self.stations = {station.id: station.name for station in store.stations()}
            newest = store.newest_seals()
            if any(newest.get(station, 0) < seal for station, seal in self._after.items()):
                self._after, self._count = {}, 0  # another database than before
            first_time = not self._after
            if first_time:
                share = self._most // max(1, len(newest))
                self._after = {station: max(0, seal - share) for station, seal in newest.items()}
            while found := store.sealed(self._after, CHUNK):
                self._take(store, found, first_time)
            self._looked = time.monotonic()

    def select(self, wanted: Filter) -> Rows:
        """The runs of a filter, by begin.  Serial numbers and failed items are no business of this class."""
        rows = self.rows
        mask = (rows["begin"] >= wanted.since_us) & (rows["begin"] < wanted.until_us)
        for name in ("product", "operation", "purpose", "operator", "batch"):
            value = getattr(wanted, name)
            if value is not None:
                mask &= rows[name] == self.names[name].find(value)
        if wanted.station is not None:
            mask &= rows["station"] == self.names["station"].find(wanted.station.hex)
        if wanted.cell is not None:
            mask &= rows["cell"] == wanted.cell
        if wanted.outcome is not None:
            mask &= rows["outcome"] == OUTCOMES.index(str(wanted.outcome))
        found = rows if mask.all() else rows[mask]
        begin = found["begin"]
        return found if (begin[1:] >= begin[:-1]).all() else found[np.argsort(begin, kind="stable")]

    def known(self, name: str) -> list[str]:
        """All values of products, operations and so on, for a list to choose from."""
        return sorted(filter(None, self.names[name].texts))

    def choices(self, name: str) -> list[tuple[str, str]]:
        return [(each, each) for each in self.known(name)]

    def station_of(self, code: int) -> uuid.UUID:
        return uuid.UUID(self.names["station"].texts[code])

    def station_name(self, code: int) -> str:
        id = self.station_of(code)
        return self.stations.get(id, "") or str(id)

    def _take(self, store: Store, found: list[Sealed], first_time: bool) -> None:
        known = self.rows["unit"].copy()
        for run in found:
            row = self._row(run)
            if run.corrects:
                self._rows[self._places(run)] = row
            else:
                self._append(row)
            self._after[run.station] = run.seal
        for run in found:
            if not first_time and run.serial_number and (known == _unit(run)).any():
                self._mend(store, run)
        self.version += 1

    def _append(self, row: tuple[object, ...]) -> None:
        if self._count == len(self._rows):  # who reads the old rows goes on reading them
            self._rows = np.concatenate([self._rows, np.empty(len(self._rows), RUN)])
        self._rows[self._count] = row
        self._count += 1

    def _row(self, run: Sealed) -> tuple[object, ...]:
        names = self.names
        return (
            names["station"].code(run.station.hex), run.number, run.id.bytes, run.cell,
            names["product"].code(run.product), names["operation"].code(run.operation),
            names["purpose"].code(run.purpose), names["operator"].code(run.operator), names["batch"].code(run.batch),
            _unit(run), run.begin_us, run.duration_us or 0, OUTCOMES.index(str(run.outcome)),
            -1 if run.first_ng is None else names["item"].code(run.first_ng), run.first,
        )  # fmt: skip

    def _places(self, run: Sealed | Run) -> NDArray[np.intp]:
        """Where the run stands; nowhere when it is older than what is kept."""
        rows = self.rows
        station = self.names["station"].find(run.station.hex)
        return np.flatnonzero((rows["number"] == run.number) & (rows["station"] == station))

    def _mend(self, store: Store, run: Sealed) -> None:
        """A correction, or a run that came late from its station: which attempt of the unit is its first?"""
        tried: set[str] = set()
        for each in sorted(store.attempts(store.run(run.id)), key=lambda each: (each.begin_us, each.id)):
            self._rows["first"][self._places(each)] = each.purpose not in tried
            if OUTCOMES.index(str(each.outcome)) in JUDGED:
                tried.add(each.purpose)


def _unit(run: Sealed) -> int:
    return hash((run.product, run.operation, run.serial_number) if run.serial_number else run.id)
