"""Other limits tried on what was measured, and limits proposed from it."""

import math
import uuid
from dataclasses import dataclass
from typing import Any

import msgspec
import numpy as np
from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..analysis.figure import Estimate, Floats, numbers
from ..analysis.moments import Summary
from ..analysis.risk import Risk, guard_band, risk
from ..analysis.robust import part_average_limits
from ..analysis.tolerance import interval
from ..analysis.trials import Limits, Trial, kept, try_limits
from ..store.base import Filter, Store
from .charts import Chart
from .history import OK, OUTCOMES, History, Rows
from .readings import Readings, among, from_retests, from_study, item_names, only_this_item, readings
from .tables import Column, Link, Table, When
from .texts import later
from .view import BadInput, View

PAGE = ("/limits", later("Limits"))
BINS = 60
LISTED = 200  # units whose verdict changes
COVERAGE, CONFIDENCE = 0.9973, 0.95
SOURCES = {
    "study": later("from the gauge study"),
    "retests": later("estimated from retests"),
    "given": later("as given"),
}


@dataclass(frozen=True)
class Error:
    """The gauge's repeatability, and where it is known from."""

    sigma: Estimate
    source: str

    @property
    def value(self) -> float:
        return math.nan if self.sigma.value is None else self.sigma.value


@dataclass(frozen=True)
class Found:
    """What was measured, run by run with NaN where the item was not, and what other limits would have done."""

    readings: Readings
    rows: Rows
    value: Floats
    good: Floats  # of runs that were OK
    error: Error
    held: Limits
    limits: Limits
    trial: Trial
    whole: Summary
    own_sigma: float  # of the units, the gauge's taken out
    present: Risk  # with the limits in force
    serials: dict[int, str]  # of the runs that are listed


async def limits(request: Request) -> Response:
    view = View(request)
    name = view.text("item")
    wanted = msgspec.structs.replace(view.filter("30d"), failed_item=None, serial_number=None, outcome=None)
    asked, given = (_number(view, "lower"), _number(view, "upper")), _number(view, "sigma")
    if asked[0] is not None and asked[1] is not None and asked[0] > asked[1]:
        raise BadInput(view.gettext("The lower limit is above the upper one."))
    if given is not None and given <= 0:
        raise BadInput(view.gettext("A sigma is above 0."))
    history: History = request.app.state.history

    def read(store: Store) -> tuple[list[str], Found | None]:
        history.refresh(store)
        names = item_names(store, wanted)
        if name is None:
            return names, None
        try:
            found = readings(history, store, name, wanted)
        except KeyError:
            return names, None
        return names, _tried(history, store, found, wanted, asked, given)

    names, found = await view.pool.ask(read)
    tables: list[Table] = []
    charts: list[Chart] = []
    if found is not None:
        tables = [_compared(view, found), _changed(view, found), _proposals(view, found)]
        charts = [_histogram(view, found)]
    return view.respond(
        "limits.html",
        view.gettext("Limits"),
        tables,
        charts,
        history=history,
        names=[(each, each) for each in dict.fromkeys([*([name] if name else []), *names])],
        name=name,
        found=found,
        source=SOURCES[found.error.source] if found is not None else "",
        gauge="/gauge" + view.here(lower=None, upper=None, sigma=None, period=None, purpose=None, sort=None).removeprefix(request.url.path),
    )  # fmt: skip


def _number(view: View, name: str) -> float | None:
    text = view.text(name)
    if text is None:
        return None
    try:
        value = float(text)
    except ValueError:
        value = math.nan
    if not math.isfinite(value):
        raise BadInput(view.gettext("{name} is {value}; a number is expected.").format(name=name, value=text))
    return value


def _tried(
    history: History, store: Store, found: Readings, wanted: Filter, asked: Limits, given: float | None
) -> Found:
    """Without any limit asked for, those that hold are tried.

    All runs of the products and operations that have the item count, those that ended before it as well.
    """
    error = _error(history, store, found, wanted, given)
    held = found.lower, found.upper
    limits = held if asked == (None, None) else asked
    rows = history.select(wanted)
    kinds = {(product, operation) for product, operation in found.rows[["product", "operation"]].tolist()}
    rows = rows[[pair in kinds for pair in rows[["product", "operation"]].tolist()]]
    place = among(rows, found)
    there = place >= 0
    value, others = np.full(len(rows), np.nan), np.ones(len(rows), np.bool_)
    value[there] = found.of_runs(limits)[place[there]]
    others[there] = only_this_item(store, found, wanted)[place[there]]
    trial = try_limits(np.array(OUTCOMES)[rows["outcome"]], rows["unit"], others, value, limits, error.value)
    good = value[rows["outcome"] == OK]
    whole = Summary.of(numbers(value))
    own = math.sqrt(max(whole.sigma**2 - error.value**2, 0.0)) if whole.n > 1 else math.nan
    changed = np.concatenate([trial.to_ng, trial.to_ok])[:LISTED]
    serials = {
        place: store.run(uuid.UUID(bytes=bytes(rows["id"][place]))).serial_number or ""
        for place in changed.tolist()
    }
    return Found(
        found, rows, value, numbers(good), error, held, limits, trial, whole, own,
        risk(whole.mean, own, error.value, *held), serials,
    )  # fmt: skip


def _error(history: History, store: Store, found: Readings, wanted: Filter, given: float | None) -> Error:
    if given is not None:
        return Error(Estimate(given), "given")
    study = from_study(history, store, found.name, wanted)
    return Error(study, "study") if study else Error(from_retests(found), "retests")


def _compared(view: View, found: Found) -> Table:
    _ = view.gettext
    columns = [
        Column("what", _("Figure")), Column("before", _("As it was"), "percent"), Column("after", _("With these limits"), "percent"),
        Column("counted_before", _("Counts before")), Column("counted_after", _("Counts after")),
    ]  # fmt: skip
    before, after = found.trial.before, found.trial.after

    def counts(first: int, all: int) -> str:
        return f"{first} / {all}"

    def millionth(share: Estimate) -> str:
        if share.value is None:
            return _(share.reason)
        return _("{count} of a million units").format(count=f"{1e6 * share.value:.3g}")

    rows = [
        (_("First pass"), before.first_pass.value, after.first_pass.value,
         counts(before.first_ok, before.units), counts(after.first_ok, after.units)),
        (_("Final"), before.final.value, after.final.value,
         counts(before.last_ok, before.units), counts(after.last_ok, after.units)),
        (_("False accepts, expected"), found.present.false_accept.value, found.trial.risk.false_accept.value,
         millionth(found.present.false_accept), millionth(found.trial.risk.false_accept)),
        (_("False rejects, expected"), found.present.false_reject.value, found.trial.risk.false_reject.value,
         millionth(found.present.false_reject), millionth(found.trial.risk.false_reject)),
    ]  # fmt: skip
    note = _(
        "False accepts and rejects are shares of all units, for normal units and a normal gauge, each with the limits of its "
        "column taken as what a unit has to keep. A run changes only when this item alone decides; a run that stopped at the "
        "item did not measure what comes after it and counts as OK then. Retests are counted as they were made."
    )
    return Table("compared", columns, rows, note)


def _changed(view: View, found: Found) -> Table:
    _ = view.gettext
    columns = [
        Column("serial_number", _("Serial number")), Column("begin", _("Begin"), "time"), Column("cell", _("Cell"), "count"),
        Column("value", _("Value"), "number"), Column("before", _("As it was"), "outcome"),
        Column("after", _("With these limits"), "outcome"),
    ]  # fmt: skip
    rows = []
    for place, serial in found.serials.items():
        run = found.rows[place]
        before = OUTCOMES[run["outcome"]]
        link = Link(serial or _("without a number"), f"/unit/{uuid.UUID(bytes=bytes(run['id']))}")
        cell, after = int(run["cell"]), "NG" if before == "OK" else "OK"
        rows.append((link, When(int(run["begin"])), cell, float(found.value[place]), before, after))
    all_changed = len(found.trial.to_ng) + len(found.trial.to_ok)
    note = ""
    if all_changed > len(rows):
        note = _("The first {shown} of {all} are listed.").format(shown=len(rows), all=all_changed)
    return Table("changed", columns, rows, note, sortable=True)


def _proposals(view: View, found: Found) -> Table:
    _ = view.gettext
    columns = [
        Column("what", _("Proposal")), Column("lower", _("Lower limit"), "number"), Column("upper", _("Upper limit"), "number"),
        Column("outside", _("Outside it, of all runs measured"), "percent"),
        Column("false_accept", _("False accepts"), "percent"), Column("false_reject", _("False rejects"), "percent"),
        Column("why_not", _("Why there is none")),
    ]  # fmt: skip
    rows: list[tuple[Any, ...]] = []
    for title, proposed, reason in _proposed(view, found):
        if reason:
            rows.append((title, None, None, None, None, None, _(reason)))
            continue
        address = view.here(
            lower=None if proposed[0] is None else repr(proposed[0]),
            upper=None if proposed[1] is None else repr(proposed[1]),
        )
        measured = numbers(found.value)
        outside = float(1 - kept(measured, proposed).mean()) if measured.size else None
        risks = risk(found.whole.mean, found.own_sigma, found.error.value, *found.held, *proposed)
        rows.append(
            (Link(title, address), *proposed, outside, risks.false_accept.value, risks.false_reject.value, "")
        )
    note = _(
        "False accepts and rejects of a proposal: units that break or keep the limits in force, judged by the proposal. "
        "Choosing a proposal tries it above."
    )
    return Table("proposals", columns, rows, note)


def _proposed(view: View, found: Found) -> list[tuple[str, Limits, str]]:
    """Title, limits, and why there are none."""
    _ = view.gettext
    covering = interval(found.good, COVERAGE, CONFIDENCE)
    average = part_average_limits(found.good)
    title = _("Tolerance interval: {coverage} of the good units, sure by {confidence}")
    proposals: list[tuple[str, Limits, str]] = [
        (
            title.format(coverage=f"{COVERAGE:.2%}", confidence=f"{CONFIDENCE:.0%}"),
            (covering.lower, covering.upper),
            covering.reason,
        ),
        (_("Part average limits: median and six robust sigmas"), (average.lower, average.upper), average.reason),
    ]  # fmt: skip
    guarded: Limits = (None, None)
    reason = (
        "no limits" if found.held == (None, None) else "" if found.error.sigma else found.error.sigma.reason
    )
    if not reason:
        try:
            guarded = guard_band(*found.held, found.error.value)
        except ValueError:
            reason = later("The limits leave nothing between them once guarded.")
    proposals.append(
        (_("Guard band of one expanded uncertainty (k = 2) inside the limits in force"), guarded, reason)
    )
    return proposals


def _histogram(view: View, found: Found) -> Chart:
    _ = view.gettext
    columns = [
        Column("low", _("From"), "number"), Column("high", _("to"), "number"), Column("runs", _("Runs"), "count")
    ]  # fmt: skip
    values = numbers(found.value)
    title = _("Readings of {item} with the limits").format(item=found.readings.name)
    if not values.size:
        return Chart("histogram", title, [], Table("histogram", columns, []), reason=_("no numbers"))
    counts, edges = np.histogram(values, bins=BINS)
    rows = [
        (low, high, count)
        for low, high, count in zip(edges[:-1].tolist(), edges[1:].tolist(), counts.tolist(), strict=True)
    ]
    traces: list[dict[str, Any]] = [
        {
            "type": "bar",
            "name": _("Runs"),
            "x": (edges[:-1] + edges[1:]) / 2,
            "y": counts,
            "width": np.diff(edges),
        }
    ]
    tallest = int(counts.max())
    for limits, words, dash in (
        (found.held, _("Limits in force"), "solid"),
        (found.limits, _("Tried"), "dash"),
    ):
        edges_x = [x for limit in limits if limit is not None for x in (limit, limit, None)]
        traces.append(
            {
                "type": "scatter", "mode": "lines", "name": words, "x": edges_x, "line": {"dash": dash},
                "y": [y for limit in limits if limit is not None for y in (0, tallest, None)],
            }
        )  # fmt: skip
    layout = {
        "xaxis": {"title": {"text": found.readings.unit}},
        "yaxis": {"title": {"text": _("Runs")}},
        "bargap": 0,
    }
    return Chart("histogram", title, traces, Table("histogram", columns, rows), layout)


ROUTES = [Route("/limits", limits)]
