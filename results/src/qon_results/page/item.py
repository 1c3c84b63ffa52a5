"""One item: how its values are spread and run, by cell, station and hour, and what they would be without retests."""

import math
import uuid
from dataclasses import dataclass
from typing import Any

import msgspec
import numpy as np
from numpy.typing import NDArray
from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..analysis.capability import of_summary, share_outside
from ..analysis.charts import moving_range_sigma
from ..analysis.distribution import edges_for, histogram, near_limits, normal_plot
from ..analysis.figure import Estimate
from ..analysis.moments import Summary
from ..records import Kind, Verdict
from ..store.base import Filter, ItemColumns, Store, moment
from .charts import Chart
from .items import asked, cell_name, interval, reason, rounded, station_names, whole_days
from .rollups.file import Rollups
from .rollups.making import is_number
from .tables import Column, Table, When
from .view import NotThere, View

PAGE = None
COLUMNS = 600  # of pixels, for the run chart
LIMIT = "#C4202B"
INK = "#2F5582"
Floats = NDArray[np.float64]


@dataclass(frozen=True)
class Values:
    """The finite numbers of one item in their order."""

    columns: ItemColumns
    value: Floats
    cell: NDArray[np.int64]  # index into `cells`
    cells: list[tuple[uuid.UUID, int]]
    time_us: NDArray[np.int64]
    first: NDArray[np.bool_]  # in the first run of its unit, and not repeated within it
    lower: float | None
    upper: float | None


def values_of(columns: ItemColumns, first_runs: dict[uuid.UUID, NDArray[np.int64]]) -> Values:
    chosen = is_number(columns) & np.isfinite(columns.value)
    pairs = columns.station * (1 << 20) + columns.cell
    known, which = np.unique(pairs, return_inverse=True)
    cells = [(columns.stations[pair >> 20], pair & 0xFFFFF) for pair in known.tolist()]
    first = np.zeros(len(chosen), dtype=bool)
    for place, station in enumerate(columns.stations):
        own = columns.station == place
        first[own] = np.isin(columns.run[own], first_runs.get(station, np.empty(0, np.int64)))
    first &= columns.attempt <= 1
    lower, upper = (
        None if not len(side) or math.isnan(side[-1]) or not chosen.any() else float(side[-1])
        for side in (columns.lower, columns.upper)
    )
    return Values(
        columns,
        columns.value[chosen],
        which[chosen],
        cells,
        columns.time_us[chosen],
        first[chosen],
        lower,
        upper,
    )


def found_values(
    store: Store, name: str, wanted: Filter, first: dict[uuid.UUID, NDArray[np.int64]]
) -> Values:
    return values_of(store.item(name, wanted), first)


async def item(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    name = view.text("name")
    wanted = whole_days(msgspec.structs.replace(view.filter("30d"), failed_item=None))
    if name is None:
        raise NotThere(_("No item is named."))

    def question(store: Store) -> tuple[dict[uuid.UUID, str], ItemColumns]:
        try:
            return station_names(store), store.item(name, wanted)
        except KeyError:
            raise NotThere(_('No run has an item "{name}".').format(name=name)) from None

    names, columns = await view.pool.ask(question)

    def firsts(_keeper: Any, file: Rollups) -> dict[uuid.UUID, NDArray[np.int64]]:
        return {station: file.first_runs(station) for station in columns.stations}

    found = values_of(columns, await asked(view, firsts) or {})
    charts = [
        spread_chart(view, found), run_chart(view, found), normal_chart(view, found),
        box_chart(view, "cells", _("By cell"), _("Cell"), by_cell(view, found, names)),
        box_chart(view, "hours", _("By hour of the day"), _("Hour"), by_hour(found)),
    ]  # fmt: skip
    if len(names) > 1:
        charts.append(box_chart(view, "stations", _("By station"), _("Station"), by_station(found, names)))
    return view.respond(
        "item.html", name, [figures_table(view, found), verdicts_table(view, columns)], charts,
        name=name, unit=columns.unit, reason=_why_nothing(view, columns, found),
    )  # fmt: skip


def _why_nothing(view: View, columns: ItemColumns, found: Values) -> str:
    _ = view.gettext
    if len(found.value):
        return ""
    if not len(columns.run):
        return _("It was not measured in this time.")
    if (columns.kind == Kind.BOOL).all():
        return _("Its values are yes or no: only how often is to be told.")
    if np.isin(columns.kind, (Kind.NAN, Kind.INFINITY, Kind.MINUS_INFINITY)).all():
        return _("None of its values is a finite number.")
    return _("Its values are no numbers.")


def figures_table(view: View, found: Values) -> Table:
    """All values beside those of first attempts alone."""
    _ = view.gettext
    whole, first = (_figures(view, found, which) for which in (np.ones(len(found.value), bool), found.first))
    rows = [(name, value, other) for (name, value), (_name, other) in zip(whole, first, strict=True)]
    return Table(
        "figures",
        [Column("figure", _("Figure")), Column("all", _("All values"), "number"), Column("first", _("Without retests"), "number")],
        rows,
        note=_(
            "Without retests: only the first run of each unit, and in it only the first attempt at the item. The limits are those "
            "of the newest value; the expected share is that of a normal distribution with this mean and sigma."
        ),
    )  # fmt: skip


def _figures(view: View, found: Values, which: NDArray[np.bool_]) -> list[tuple[str, Any]]:
    _ = view.gettext
    value = found.value[which]
    whole = Summary.of(value)
    near, outside = near_limits(value, found.lower, found.upper)
    two = found.lower is not None and found.upper is not None
    steps = [np.abs(np.diff(found.value[which & (found.cell == cell)])) for cell in range(len(found.cells))]
    steps = [each for each in steps if len(each)]
    together = np.concatenate(steps) if steps else np.empty(0)
    sigma = float(together.mean()) / 1.1283791670955126 if len(together) else moving_range_sigma([])
    index = of_summary(whole, sigma, len(together), len(steps), found.lower, found.upper)
    expected = share_outside(whole.mean, whole.sigma, found.lower, found.upper)
    n = whole.n

    def told(each: Estimate) -> str:
        if each.value is None:
            return reason(view, each.reason)
        return f"{each.value:.3f}  ({interval(each)})" if each.low is not None else f"{each.value:.3f}"

    percent = "{:.3f} %"
    return [
        ("n", n), (_("Mean"), whole.mean if n else None), ("σ", whole.sigma if n > 1 else _("too few values")),
        (_("Least"), whole.low if n else None), (_("Greatest"), whole.high if n else None),
        (_("Lower limit"), found.lower), (_("Upper limit"), found.upper),
        ("Cp", told(index.cp)), ("Cpk", told(index.cpk)), ("Pp", told(index.pp)), ("Ppk", told(index.ppk)),
        (_("Outside"), f"{outside} ({percent.format(100 * outside / n)})" if n else None),
        (_("Near"), f"{near} ({percent.format(100 * near / n)})" if n and two else _("only with two limits")),
        (_("Expected outside"), percent.format(100 * expected.value) if expected.value is not None else reason(view, expected.reason)),
    ]  # fmt: skip


def verdicts_table(view: View, columns: ItemColumns) -> Table:
    _ = view.gettext
    rows = [
        (
            str(verdict.name),
            int((columns.verdict == verdict).sum()),
            float((columns.verdict == verdict).mean()),
        )
        for verdict in Verdict
        if (columns.verdict == verdict).any()
    ]
    return Table(
        "verdicts", [Column("verdict", _("Verdict"), "outcome"), Column("count", _("Count"), "count"),
                     Column("share", _("Share"), "percent")], rows,
    )  # fmt: skip


def _limit_lines(found: Values, along: str) -> list[dict[str, Any]]:
    """Across the whole chart: `along` is the axis on which values stand."""
    other = "y" if along == "x" else "x"
    return [
        {
            "type": "line", f"{along}0": limit, f"{along}1": limit, f"{other}0": 0, f"{other}1": 1,
            f"{other}ref": "paper", "line": {"color": LIMIT, "width": 2, "dash": "dash"},
            "label": {"text": text, "font": {"color": LIMIT}, "textposition": "end"},
        }
        for limit, text in ((found.lower, "≥"), (found.upper, "≤"))
        if limit is not None
    ]  # fmt: skip


def _titled(found: Values) -> str:
    return f"{found.columns.name} [{found.columns.unit}]" if found.columns.unit else found.columns.name


def spread_chart(view: View, found: Values) -> Chart:
    _ = view.gettext
    edges = edges_for(found.value, found.lower, found.upper)
    counts = histogram(found.value, edges).counts
    table = Table(
        "histogram", [Column("from", _("From"), "number"), Column("to", _("To"), "number"), Column("count", _("Count"), "count")],
        list(zip(edges[:-1].tolist(), edges[1:].tolist(), counts.tolist(), strict=True)),
    )  # fmt: skip
    bars = {
        "type": "bar",
        "x": (edges[:-1] + edges[1:]) / 2,
        "y": counts,
        "width": np.diff(edges),
        "marker": {"color": INK},
    }
    layout = {
        "bargap": 0, "showlegend": False, "xaxis": {"title": {"text": _titled(found)}},
        "yaxis": {"title": {"text": _("Count")}}, "shapes": _limit_lines(found, "x"),
    }  # fmt: skip
    return Chart(
        "histogram", _("How the values are spread"), [bars], table, layout,
        _("Histogram of {n} values with the limits.").format(n=len(found.value)), _none(view, found),
    )  # fmt: skip


def decimated(value: Floats, columns: int = COLUMNS) -> NDArray[np.int64]:
    """Places of the least and the greatest value of each column of pixels: what a line through all of them would cover."""
    if len(value) <= 2 * columns:
        return np.arange(len(value))
    edges = np.linspace(0, len(value), columns + 1).astype(np.int64)
    places = []
    for begin, end in zip(edges[:-1].tolist(), edges[1:].tolist(), strict=True):
        part = value[begin:end]
        places += sorted({begin + int(part.argmin()), begin + int(part.argmax())})
    return np.array(places)


def run_chart(view: View, found: Values) -> Chart:
    _ = view.gettext
    order = np.argsort(found.time_us, kind="stable")
    value, time_us, cell = found.value[order], found.time_us[order], found.cell[order]
    shown = decimated(value)
    times = [_local(us) for us in time_us[shown].tolist()]
    thinned = len(shown) < len(value)
    table = Table(
        "run", [Column("time", _("Time"), "time"), Column("cell", _("Cell"), "count"), Column("value", _("Value"), "number")],
        [(When(us), found.cells[own][1], each) for us, own, each in
         zip(time_us[shown].tolist(), cell[shown].tolist(), value[shown].tolist(), strict=True)],
        note=_("Of {n} values the least and the greatest of each column of pixels.").format(n=len(value)) if thinned else "",
    )  # fmt: skip
    trace = {
        "type": "scatter", "mode": "lines" if thinned else "lines+markers", "x": times, "y": value[shown],
        "line": {"color": INK, "width": 1}, "marker": {"size": 4},
    }  # fmt: skip
    layout = {
        "showlegend": False,
        "yaxis": {"title": {"text": _titled(found)}},
        "shapes": _limit_lines(found, "y"),
    }
    words = _("{n} values in their order with the limits.").format(n=len(value))
    return Chart("run", _("One after the other"), [trace], table, layout, words, _none(view, found))


def normal_chart(view: View, found: Values) -> Chart:
    _ = view.gettext
    scores, values = normal_plot(found.value, 1000)
    whole = Summary.of(found.value)
    why = _none(view, found) or (_("all values are equal") if whole.n > 1 and whole.m2 == 0 else "")
    table = Table(
        "normal", [Column("score", _("Normal score"), "number"), Column("value", _("Value"), "number")],
        list(zip(scores.tolist(), values.tolist(), strict=True)),
    )  # fmt: skip
    traces: list[dict[str, Any]] = [
        {
            "type": "scatter",
            "mode": "markers",
            "x": scores,
            "y": values,
            "marker": {"color": INK, "size": 4},
            "name": _("values"),
        }
    ]
    if whole.n > 1:
        ends = np.array([scores[0], scores[-1]])
        traces.append(
            {"type": "scatter", "mode": "lines", "x": ends, "y": whole.mean + whole.sigma * ends,
             "line": {"color": "#B35A00", "width": 1}, "name": _("normal")}
        )  # fmt: skip
    layout = {
        "xaxis": {"title": {"text": _("Normal score")}}, "yaxis": {"title": {"text": _titled(found)}},
        "shapes": _limit_lines(found, "y"),
    }  # fmt: skip
    words = _("The points lie on the line where values are normal.")
    return Chart("normal", _("Normal plot"), traces, table, layout, words, why)


Groups = list[tuple[str, Floats]]


def by_cell(view: View, found: Values, names: dict[uuid.UUID, str]) -> Groups:
    return [
        (cell_name(view, names, key), found.value[found.cell == place])
        for place, key in enumerate(found.cells)
    ]


def by_station(found: Values, names: dict[uuid.UUID, str]) -> Groups:
    stations = np.array([key[0].int & 0xFFFFFFFF for key in found.cells])
    groups = []
    for station in dict.fromkeys(key[0] for key in found.cells):
        own = np.isin(found.cell, np.flatnonzero(stations == station.int & 0xFFFFFFFF))
        groups.append((names.get(station, str(station)), found.value[own]))
    return groups


def by_hour(found: Values) -> Groups:
    hours = found.time_us // 3_600_000_000
    known, which = np.unique(hours, return_inverse=True)
    local = np.array([moment(hour * 3_600_000_000).hour for hour in known.tolist()], np.int64)
    hour = local[which] if len(which) else which
    return [(f"{each:02d}", found.value[hour == each]) for each in range(24) if (hour == each).any()]


def box_chart(view: View, name: str, title: str, axis: str, groups: Groups) -> Chart:
    """Quartiles, and what lies within 1.5 of their distance; counted here, so that the browser gets few numbers."""
    _ = view.gettext
    rows = [_box(label, value) for label, value in groups if len(value)]
    columns = [Column("group", axis), Column("n", "n", "count")] + [
        Column(key, text, "number")
        for key, text in (
            ("mean", _("Mean")), ("sigma", "σ"), ("least", _("Least")), ("low", _("Lower whisker")), ("q1", _("Quarter")),
            ("median", _("Median")), ("q3", _("Three quarters")), ("high", _("Upper whisker")), ("greatest", _("Greatest")),
        )
    ]  # fmt: skip
    data = list(zip(*rows, strict=True)) if rows else [()] * 11
    trace = {
        "type": "box", "x": data[0], "q1": data[6], "median": data[7], "q3": data[8], "lowerfence": data[5],
        "upperfence": data[9], "mean": data[2], "marker": {"color": INK}, "line": {"width": 1.5},
    }  # fmt: skip
    layout = {"showlegend": False, "xaxis": {"title": {"text": axis}, "type": "category"}}
    why = "" if rows else _("There are no numbers to draw.")
    return Chart(name, title, [trace], Table(name, columns, rows), layout, title, why)


def _box(label: str, value: Floats) -> tuple[Any, ...]:
    q1, middle, q3 = (float(each) for each in np.percentile(value, [25, 50, 75]))
    reach = 1.5 * (q3 - q1)
    inside = value[(value >= q1 - reach) & (value <= q3 + reach)] if math.isfinite(reach) else value
    whole = Summary.of(value)
    sigma = rounded(whole.sigma, 6)
    return (
        label, whole.n, whole.mean, sigma, whole.low, float(inside.min()), q1, middle, q3, float(inside.max()), whole.high,
    )  # fmt: skip


def _none(view: View, found: Values) -> str:
    return "" if len(found.value) else view.gettext("There are no numbers to draw.")


def _local(us: int) -> str:
    return moment(us).replace(tzinfo=None).isoformat(" ", "milliseconds")


ROUTES = [Route("/items/item", item)]
