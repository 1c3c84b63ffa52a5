"""After a restart the station's window goes on where it stood: the units of the last shift, and the totals."""

import logging
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from qon_companions.gui_thread import post
from qon_station import go_on

from ..records import Outcome
from ..store.base import FOREVER_US, Filter
from ..store.sqlite import SqliteStore
from ..writer.messages import InterruptedUnit
from .units import Past, RecordedUnit

MOST = 10_000  # units; of longer histories the newest are listed
HOUR_US = 3_600_000_000
TOTALS_CLEARED, LIST_CLEARED = "totals cleared", "list cleared"

log = logging.getLogger(__name__)


@dataclass
class History:
    """`units` in their order; `counts` by cell: OK and NG."""

    units: list[RecordedUnit] = field(default_factory=list)
    counts: dict[int, tuple[int, int]] = field(default_factory=dict)


def read(
    path: Path, hours: float, until_us: int, interrupted: list[InterruptedUnit] | None = None
) -> History:
    """What was there until a moment; of a file that is not written meanwhile, or is."""
    with SqliteStore(path) as store:
        cleared = max(store.last_events(LIST_CLEARED).values(), default=-FOREVER_US)
        since = max(until_us - round(hours * HOUR_US), cleared)
        found = store.runs(Filter(since=since, until=until_us), MOST)
        listed = {run.begin_us for run in found}
        for unit in interrupted or []:  # to be tested again, however long ago
            if unit.begin_us not in listed:
                at = Filter(since=unit.begin_us, until=unit.begin_us + 1, cell=unit.cell)
                found += store.runs(at)
        runs = sorted((run for run in found if run.outcome != Outcome.RUNNING), key=lambda run: run.number)
        past = Past(path, runs[0].begin_us if runs else since)
        return History([RecordedUnit(run, past) for run in runs], _counts(store, until_us))


def _counts(store: SqliteStore, until_us: int) -> dict[int, tuple[int, int]]:
    """Of each cell since its totals were cleared; an event without a cell means all."""
    cleared = store.last_events(TOTALS_CLEARED)
    of_all = cleared.pop(None, -FOREVER_US)
    begins = {cell: max(at_us, of_all) for cell, at_us in cleared.items()}
    counts: dict[int, list[int]] = {}
    for since in {of_all, *begins.values()}:
        for (cell, outcome), count in store.outcomes(since, until_us).items():
            if begins.get(cell, of_all) == since and outcome in (Outcome.OK, Outcome.NG, Outcome.TBD):
                counts.setdefault(cell, [0, 0])[outcome != Outcome.OK] += count
    return {cell: (ok, ng) for cell, (ok, ng) in counts.items()}


class GoingOn:
    """Reads in a thread of its own as soon as file and window are there; the window is not kept waiting."""

    def __init__(
        self,
        path: Path,
        hours: float,
        wait: Callable[[], str],
        interrupted: Callable[[], list[InterruptedUnit]],
    ) -> None:
        """`wait` returns when the file is open, with "" ; `interrupted` then tells which runs were cut off."""
        self._path, self._hours = path, hours
        self._wait, self._interrupted = wait, interrupted
        self._began_us = time.time_ns() // 1000

    def opened(self, frame: Any) -> None:
        """A listener of `qon_station.opened`."""
        threading.Thread(target=self._read, args=(frame,), name="results: history", daemon=True).start()

    def _read(self, frame: Any) -> None:
        try:
            if self._wait():
                return
            begin = time.monotonic()
            history = read(self._path, self._hours, self._began_us, self._interrupted())
            count = len(history.units)
            log.info("%d earlier units were read in %.0f ms.", count, 1000 * (time.monotonic() - begin))
            post(go_on, frame, history.units, history.counts)
        except Exception:
            log.exception("The station's list and totals begin anew: its earlier results cannot be read.")
