"""Gauge studies: how much of what is measured is the gauge, item by item, from units measured again on purpose."""

import math
from typing import Any

from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..analysis.figure import Estimate
from ..analysis.gauge import Study, Term, average_and_range, study_of, table_of
from ..records import Kind, Outcome, Record
from ..store.base import PRODUCTION, Filter, Store
from .charts import Chart
from .history import History
from .readings import STUDY, from_retests, item_names, readings
from .tables import Column, Link, Table
from .texts import later
from .view import BadInput, View

PAGE = ("/gauge", later("Gauge"))
RUNS_MOST = 1000
FACTORS = {"cell": later("Cell"), "operator": later("Operator")}
VERDICTS = {
    "good": later("good"),
    "conditional": later("may do, depending on the use"),
    "bad": later("not fit to judge by"),
    "": "",
}
_JUDGED = (Outcome.OK, Outcome.NG, Outcome.TBD)
Reading = tuple[str, str, float]  # part, cell or operator, value


class ItemReadings:
    """One item's readings of the study; the limits are those of the newest."""

    def __init__(self) -> None:
        self.readings: list[Reading] = []
        self.unit = ""
        self.tolerance: float | None = None

    def study(self) -> Study:
        parts, places, values = zip(*self.readings, strict=True)
        return study_of(parts, places, values, self.tolerance)


async def gauge(request: Request) -> Response:
    view = View(request)
    wanted = view.filter("all", STUDY)
    factor = view.choice("factor", tuple(FACTORS), "cell")
    if factor == "operator" and not view.settings.by_operator:
        raise BadInput(
            view.gettext("Figures by operator are not allowed here; whoever starts the page may allow them.")
        )
    wanted, name = _without_item(wanted), view.text("item")
    production = _of_purpose(wanted, PRODUCTION)
    history: History = request.app.state.history

    def read(store: Store) -> tuple[dict[str, ItemReadings], int, Estimate | None, list[str]]:
        history.refresh(store)
        runs = [run for run in store.runs(wanted, RUNS_MOST) if run.outcome in _JUDGED and run.serial_number]
        found = collected([store.record(run.id) for run in reversed(runs)], factor, history)
        estimated = None
        if name is not None:
            try:
                estimated = from_retests(readings(history, store, name, production))
            except KeyError:
                estimated = Estimate(None, reason="no readings")
        return found, len(runs), estimated, list(found) or item_names(store, production)

    found, runs, estimated, names = await view.pool.ask(read)
    tables = [_items(view, found)]
    charts: list[Chart] = []
    study = None
    if name is not None and name in found:
        study = found[name].study()
        tables += [
            _components(view, found[name], study),
            _anova(view, study),
            _ranges(view, found[name], study),
        ]
        charts.append(_chart(view, name, found[name]))
    return view.respond(
        "gauge.html",
        view.gettext("Gauge"),
        tables,
        charts,
        history=history,
        factors=[(key, view.gettext(title)) for key, title in FACTORS.items() if key != "operator" or view.settings.by_operator],
        factor=factor,
        name=name,
        names=[(each, each) for each in names],
        unit=found[name].unit if name in found else "",
        study=study,
        reason=study.reason if study is not None else "",
        verdict=VERDICTS[study.verdict] if study else "",
        estimated=estimated,
        runs=runs,
        purpose=wanted.purpose or view.gettext("all"),
    )  # fmt: skip


def _without_item(wanted: Filter) -> Filter:
    """Here the field `item` names the item to look at, not one that failed."""
    return _replaced(wanted, failed_item=None)


def _of_purpose(wanted: Filter, purpose: str) -> Filter:
    return _replaced(wanted, purpose=purpose)


def _replaced(wanted: Filter, **changes: Any) -> Filter:
    fields = {name: getattr(wanted, name) for name in Filter.__struct_fields__}
    return Filter(**{**fields, **changes})


def collected(records: list[Record], factor: str, history: History) -> dict[str, ItemReadings]:
    """Of runs in their order; of several readings in one run the last one counts."""
    found: dict[str, ItemReadings] = {}
    for record in records:
        run = record.run
        place = (
            run.operator if factor == "operator" else f"{history.stations.get(run.station, '')} {run.cell}"
        )
        last = {each.item: each for each in record.measurements if each.kind in (Kind.NUMBER, Kind.INTEGER)}
        for name, each in last.items():
            if each.number is None:
                continue
            item = found.setdefault(name, ItemReadings())
            item.readings.append((run.serial_number or "", place.strip(), each.number))
            item.unit = each.unit or ""
            both = each.lower_number is not None and each.upper_number is not None
            item.tolerance = float(each.upper_number - each.lower_number) if both else None  # type: ignore[operator]
    return found


def _items(view: View, found: dict[str, ItemReadings]) -> Table:
    _ = view.gettext
    columns = [
        Column("item", _("Item")), Column("unit", _("Measured in")), Column("parts", _("Parts"), "count"),
        Column("readings", _("Readings"), "count"), Column("repeatability", _("Sigma of repeatability"), "number"),
        Column("reproducibility", _("Sigma of reproducibility"), "number"), Column("study", _("%R&R of study"), "percent"),
        Column("tolerance", _("%R&R of tolerance"), "percent"), Column("categories", _("Distinct categories"), "count"),
        Column("verdict", _("Verdict")),
    ]  # fmt: skip
    rows: list[tuple[Any, ...]] = []
    for name, item in found.items():
        study = item.study()
        parts = len({part for part, _place, _value in item.readings})
        head = (Link(name, view.here(item=name)), item.unit, parts, len(item.readings))
        if not study:
            rows.append((*head, None, None, None, None, None, _(study.reason)))
            continue
        rows.append(
            (
                *head, math.sqrt(study.var_repeatability), math.sqrt(study.var_reproducibility),
                _share(study.percent_of_study(study.var_grr)), _share(study.percent_of_tolerance(study.var_grr)),
                _whole(study.categories), _(VERDICTS[study.verdict]),
            )
        )  # fmt: skip
    note = _(
        "Good is below 10 % of the tolerance (of the study where there are not two limits) with 5 categories at least, "
        "conditional up to 30 %. A study is six sigmas wide."
    )
    return Table("study", columns, rows, note, sortable=True)


def _share(percent: Estimate) -> float | None:
    return None if percent.value is None else percent.value / 100


def _whole(figure: Estimate) -> int | None:
    return None if figure.value is None else int(figure.value)


def _components(view: View, item: ItemReadings, study: Study) -> Table:
    _ = view.gettext
    columns = [
        Column("source", _("Source")), Column("sigma", _("Sigma"), "number"), Column("variance", _("Variance"), "number"),
        Column("contribution", _("Of the variance"), "percent"), Column("study", _("Of the study"), "percent"),
        Column("tolerance", _("Of the tolerance"), "percent"),
    ]  # fmt: skip
    sources = (
        (_("Gauge in all (R&R)"), study.var_grr), (_("Repeatability"), study.var_repeatability),
        (_("Reproducibility"), study.var_reproducibility), (_("of it: cells or operators"), study.var_operator),
        (_("of it: interaction with the part"), study.var_interaction), (_("Parts"), study.var_part),
        (_("All"), study.var_total),
    )  # fmt: skip
    rows = [
        (
            title, math.sqrt(variance), variance, variance / study.var_total if study.var_total > 0 else None,
            _share(study.percent_of_study(variance)), _share(study.percent_of_tolerance(variance)),
        )
        for title, variance in sources
    ] if study else []  # fmt: skip
    note = (
        ""
        if item.tolerance
        else _("Without two limits there is no tolerance to hold the gauge's scatter against.")
    )
    return Table("components", columns, rows, note)


def _anova(view: View, study: Study) -> Table:
    _ = view.gettext
    columns = [
        Column("source", _("Source")), Column("df", _("Degrees of freedom"), "count"),
        Column("ss", _("Sum of squares"), "number"), Column("ms", _("Mean square"), "number"),
        Column("f", "F", "number"), Column("p", "p", "number"),
    ]  # fmt: skip
    lines: tuple[tuple[str, Term], ...] = (
        (_("Part"), study.part), (_("Cell or operator"), study.operator), (_("Interaction"), study.interaction),
        (_("Repeatability"), study.repeatability),
    )  # fmt: skip
    rows = [(title, term.df, term.ss, term.ms, term.f, term.p) for title, term in lines] if study else []
    note = ""
    if study:
        note = (
            _("The interaction is not significant (p above 0.05): it counts as repeatability.")
            if study.pooled
            else _(
                "The interaction is significant: cells (or operators) differ more on some parts than on others."
            )
        )
    return Table("anova", columns, rows, note)


def _ranges(view: View, item: ItemReadings, study: Study) -> Table:
    _ = view.gettext
    columns = [Column("source", _("Source")), Column("sigma", _("Sigma"), "number")]
    rows: list[tuple[str, float]] = []
    if study:
        table = table_of(*zip(*item.readings, strict=True))
        by_hand = average_and_range(table)
        rows = [
            (_("Gauge in all (R&R)"), by_hand.grr), (_("Repeatability"), by_hand.equipment),
            (_("Reproducibility"), by_hand.appraiser), (_("Parts"), by_hand.part), (_("All"), by_hand.total),
        ]  # fmt: skip
    return Table(
        "ranges", columns, rows, _("The average and range method, for comparison; it knows no interaction.")
    )


def _chart(view: View, name: str, item: ItemReadings) -> Chart:
    _ = view.gettext
    columns = [
        Column("part", _("Part")), Column("place", _("Cell or operator")), Column("value", _("Value"), "number")
    ]  # fmt: skip
    places = sorted({place for _part, place, _value in item.readings})
    traces = [
        {
            "type": "scatter", "mode": "markers", "name": place,
            "x": [part for part, each, _value in item.readings if each == place],
            "y": [value for _part, each, value in item.readings if each == place],
        }
        for place in places
    ]  # fmt: skip
    layout = {"xaxis": {"type": "category"}, "yaxis": {"title": {"text": item.unit}}, "showlegend": True}
    table = Table("readings", columns, item.readings)
    title = _("Readings of {item} by part").format(item=name)
    return Chart("readings", title, traces, table, layout, _("A colour for each cell or operator."))


ROUTES = [Route("/gauge", gauge)]
