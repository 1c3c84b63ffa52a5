"""One item's readings with the runs they were made in, and how well the gauge repeats them."""

import math
from dataclasses import dataclass

import msgspec
import numpy as np
from numpy.typing import NDArray

from ..analysis.figure import Estimate, nothing
from ..analysis.gauge import repeatability_from_retests, study_of
from ..analysis.trials import Limits
from ..records import Outcome
from ..store.base import Filter, ItemColumns, Store
from .history import JUDGED, OUTCOMES, History, Rows
from .texts import later

STUDY = "gauge study"  # the purpose of its runs
# What analysis/ may give as the reason why there is no figure.
REASONS = (
    later("readings by part, cell and trial are needed"), later("fewer than two parts"), later("fewer than two trials"),
    later("a reading is missing"), later("no readings"), later("all trials of each part are equal"),
    later("not every part was measured equally often in every cell"), later("nothing varies"),
    later("no tolerance: there are not two limits"), later("the gauge shows no scatter at all"),
    later("fewer than two retests"), later("no limits"), later("the units differ no more than the gauge repeats"),
    later("the gauge's error is not known"), later("fewer than two values"), later("all values are equal"),
    later("the middle half of the values is equal"), later("no unit has a judged attempt"), later("no attempt was judged"),
    later("no numbers"),
)  # fmt: skip


@dataclass(frozen=True)
class Readings:
    """The readings of one item, run by run: reading i was made in the run `rows[run[i]]` of the history.

    Only readings that were judged in the end: what a retry within a run replaced is left out.  `ng`: how often each run
    has the item NG, retries included.  The limits are those of the newest reading.
    """

    name: str
    unit: str
    rows: Rows
    ng: NDArray[np.int64]
    run: NDArray[np.int64]
    value: NDArray[np.float64]
    lower: float | None
    upper: float | None

    def of_runs(self, limits: Limits) -> NDArray[np.float64]:
        """The reading of each run that decides with these limits: the worst; NaN where none is a number."""
        found = np.full(len(self.rows), np.nan)
        lower, upper = (
            (-np.inf if limits[0] is None else limits[0]),
            (np.inf if limits[1] is None else limits[1]),
        )
        margin = np.minimum(self.value - lower, upper - self.value)
        order = np.lexsort((-margin, self.run))  # the worst comes last and stays
        order = order[~np.isnan(self.value[order])]
        found[self.run[order]] = self.value[order]
        return found


def readings(history: History, store: Store, name: str, wanted: Filter) -> Readings:
    """KeyError when no run has the item."""
    columns = store.item(name, wanted)
    history.refresh(store)
    place = _places(history, columns)
    known = np.flatnonzero(place >= 0)
    found, run = np.unique(place[known], return_inverse=True)
    failed = np.bincount(run[columns.verdict[known] == 0], minlength=len(found))
    attempts = np.zeros(len(found), np.int64)
    np.maximum.at(attempts, run, columns.attempt[known])
    last = columns.attempt[known] == attempts[run]
    rows = history.rows[found]
    newest = known[np.argsort(rows["begin"][run], kind="stable")]
    lower, upper = (_newest(limits, newest) for limits in (columns.lower, columns.upper))
    return Readings(
        name, columns.unit, rows, failed, run[last], columns.value[known][last], lower, upper
    )  # fmt: skip


def _newest(limits: NDArray[np.float64], chosen: NDArray[np.intp]) -> float | None:
    """Of readings from the oldest to the newest."""
    if not len(chosen) or np.isnan(limits[chosen[-1]]):
        return None
    return float(limits[chosen[-1]])


def _places(history: History, columns: ItemColumns) -> NDArray[np.int64]:
    """Where the run of each reading stands in the history, -1 where it is not kept there."""
    rows = history.rows
    place = np.full(len(columns.run), -1, np.int64)
    for index, station in enumerate(columns.stations):
        own = np.flatnonzero(rows["station"] == history.names["station"].find(station.hex))
        here = np.flatnonzero(columns.station == index)
        if not len(own) or not len(here):
            continue
        own = own[np.argsort(rows["number"][own], kind="stable")]
        numbers = rows["number"][own]
        near = np.minimum(np.searchsorted(numbers, columns.run[here]), len(own) - 1)
        place[here] = np.where(numbers[near] == columns.run[here], own[near], -1)
    return place


def _judged(found: Readings) -> NDArray[np.bool_]:
    """Which readings are numbers of runs that came to a verdict."""
    kept: NDArray[np.bool_] = np.isin(found.rows["outcome"], JUDGED)[found.run] & np.isfinite(found.value)
    return kept


def from_retests(found: Readings) -> Estimate:
    """Sigma of repeatability, from units that were tested again by the way: an estimate."""
    kept = _judged(found)
    return repeatability_from_retests(found.rows["unit"][found.run[kept]], found.value[kept])


def from_study(history: History, store: Store, name: str, wanted: Filter) -> Estimate:
    """Sigma of repeatability of the study with the same product and operation, whenever it was made."""
    asked = msgspec.structs.replace(
        wanted, purpose=STUDY, outcome=None, station=None, cell=None, since=None, until=None, batch=None
    )
    try:
        found = readings(history, store, name, asked)
    except KeyError:
        return nothing("no readings")
    kept = _judged(found)
    rows = found.rows[found.run[kept]]
    places = np.unique(np.stack([rows["station"], rows["cell"]]), axis=1, return_inverse=True)[1]
    study = study_of(rows["unit"], places.ravel(), found.value[kept])
    return Estimate(math.sqrt(study.var_repeatability)) if study else nothing(study.reason)


def item_names(store: Store, wanted: Filter) -> list[str]:
    """Those of the newest runs asked for, to choose from."""
    names: dict[str, None] = {}
    for run in store.runs(wanted, 3):
        names.update(dict.fromkeys(each.item for each in store.record(run.id).measurements))
    return list(names)


def only_this_item(store: Store, found: Readings, wanted: Filter) -> NDArray[np.bool_]:
    """Of each run, whether nothing else was NG: an OK run, or one that failed in this item alone."""
    others = np.ones(len(found.rows), np.bool_)
    failed = store.runs(msgspec.structs.replace(wanted, failed_item=found.name, outcome=Outcome.NG), None)
    counted = {run.id.bytes: run.ng for run in failed}
    for place in np.flatnonzero(found.rows["outcome"] == OUTCOMES.index("NG")).tolist():
        ng = int(found.ng[place])
        others[place] = ng > 0 and counted.get(bytes(found.rows["id"][place]), -1) == ng
    return others


def among(rows: Rows, found: Readings) -> NDArray[np.int64]:
    """Where each of these runs stands in `found.rows`, -1 for one without a reading."""
    known = {bytes(id): place for place, id in enumerate(found.rows["id"])}
    return np.array([known.get(bytes(id), -1) for id in rows["id"]], np.int64)
