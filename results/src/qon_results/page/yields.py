"""Yield over time and by station, cell, product and operation; what fails, and what retests and aborts cost."""

from collections import Counter
from typing import Any

from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..analysis.yields import pareto
from ..records import Outcome
from ..store.base import Filter, ParetoRow, Store
from . import counting
from .charts import Chart
from .counting import Counts
from .history import OUTCOMES, History, Rows
from .tables import Column, Link, Table, When
from .texts import later
from .view import BadInput, View

PAGE = ("/yield", later("Yield"))
BARS = 20
GROUPS = {
    "station": later("Station"),
    "cell": later("Cell"),
    "product": later("Product"),
    "operation": later("Operation"),
    "batch": later("Batch"),
    "operator": later("Operator"),
}
UNITS = {
    "hour": later("by hour"),
    "day": later("by day"),
    "week": later("by week"),
    "month": later("by month"),
}


async def yields(request: Request) -> Response:
    view = View(request)
    wanted = view.filter("30d")
    history: History = request.app.state.history
    groups = [name for name in GROUPS if name != "operator" or view.settings.by_operator]
    chosen = view.choice("by", groups, "cell")
    if wanted.operator is not None and not view.settings.by_operator:
        raise BadInput(
            view.gettext("Figures by operator are not allowed here; whoever starts the page may allow them.")
        )
    if wanted.serial_number or wanted.failed_item or wanted.outcome:
        raise BadInput(
            view.gettext(
                "A yield is counted over all units; it cannot be asked for some serial numbers or outcomes."
            )
        )

    def read(store: Store) -> list[ParetoRow]:
        history.refresh(store)
        return store.pareto(wanted)

    bars = await view.pool.ask(read)
    rows = history.select(wanted)
    total = counting.counts(rows)
    return view.respond(
        "yields.html",
        view.gettext("Yield"),
        [_groups(view, history, rows, chosen), _lost(view, history, rows)],
        [_over_time(view, rows), _first(view, history, rows, wanted), _all(view, bars, wanted)],
        total=total,
        history=history,
        definitions=_definitions(view, wanted),
        groups=[(name, view.gettext(GROUPS[name])) for name in groups],
        chosen=chosen,
        stations=sorted((name or str(id), str(id)) for id, name in history.stations.items()),
        purposes=[*history.choices("purpose"), ("*", view.gettext("all"))],
    )


def _definitions(view: View, wanted: Filter) -> dict[str, str]:
    _ = view.gettext
    purpose = wanted.purpose or _("all")
    return {
        "first_pass": _(
            "Of the units whose first judged attempt ever falls into this selection, those that passed it. An attempt is judged "
            "when it ended OK, NG or TBD (TBD counts as not passed); aborted runs, exceptions and interruptions are counted apart."
        ),
        "final": _("Of the units with a judged attempt in this selection, those whose last one passed."),
        "retests": _("Judged attempts that were not the first of their unit, of all judged attempts."),
        "purpose": _("Runs of purpose: {purpose}. Intervals are Wilson's, 95 %.").format(purpose=purpose),
    }


def _yield_columns(view: View) -> list[Column]:
    _ = view.gettext
    return [
        Column("first_pass", _("First pass"), "percent"), Column("first_pass_low", _("95 % from"), "percent"),
        Column("first_pass_high", _("to"), "percent"), Column("first_passed", _("Passed first"), "count"),
        Column("first_attempts", _("First attempts"), "count"), Column("final", _("Final"), "percent"),
        Column("finally_passed", _("Passed last"), "count"), Column("units", _("Units"), "count"),
        Column("retests", _("Retests"), "percent"), Column("attempts", _("Judged attempts"), "count"),
        Column("aborted", _("Aborted"), "count"), Column("exceptions", _("Exceptions"), "count"),
        Column("interrupted", _("Interrupted"), "count"),
    ]  # fmt: skip


def _yield_values(found: Counts) -> tuple[Any, ...]:
    first = found.first_pass
    return (
        first.value, first.low, first.high, found.first_passed, found.first_attempts, found.final.value,
        found.finally_passed, found.units, found.retests.value, found.attempts, found.aborted, found.exceptions,
        found.interrupted,
    )  # fmt: skip


def _over_time(view: View, rows: Rows) -> Chart:
    _ = view.gettext
    columns = [Column("begin", _("From"), "time"), *_yield_columns(view)]
    if not len(rows):
        empty = Table("over_time", columns, [])
        return Chart(
            "over_time", _("First-pass yield over time"), [], empty, reason=_("No run in this selection.")
        )
    kind, edges, which = counting.buckets(rows)
    parts = counting.grouped(rows, which, len(edges))
    found = [(edge, each) for edge, each in zip(edges, parts, strict=True) if each.runs]
    firsts = [(edge, each.first_pass, each) for edge, each in found]
    x = [edge.isoformat() for edge, _first_pass, _counts in firsts]

    def percent(values: list[float | None]) -> list[float | None]:
        return [None if value is None else 100 * value for value in values]

    traces = [
        {
            "type": "scatter", "mode": "lines+markers", "name": _("First pass"), "x": x,
            "y": percent([first.value for _edge, first, _counts in firsts]),
            "error_y": {
                "type": "data", "symmetric": False, "thickness": 1, "color": "#8F99A3",
                "array": percent([(first.high or 0) - (first.value or 0) for _edge, first, _counts in firsts]),
                "arrayminus": percent([(first.value or 0) - (first.low or 0) for _edge, first, _counts in firsts]),
            },
        },
        {
            "type": "scatter", "mode": "lines", "name": _("Final"), "x": x, "line": {"dash": "dot"},
            "y": percent([each.final.value for _edge, _first_pass, each in firsts]),
        },
    ]  # fmt: skip
    table = Table(
        "over_time",
        columns,
        [(When(round(edge.timestamp() * 1e6)), *_yield_values(each)) for edge, each in found],
    )
    title = _("First-pass and final yield")
    title += " " + _(UNITS[kind])
    layout = {"yaxis": {"title": {"text": "%"}, "ticksuffix": ""}, "hovermode": "x unified"}
    return Chart("over_time", title, traces, table, layout, _("Bars are 95 % intervals."))


def _groups(view: View, history: History, rows: Rows, chosen: str) -> Table:
    _ = view.gettext
    names = ("station", "cell") if chosen == "cell" and len(history.stations) > 1 else (chosen,)
    columns = [Column(name, _(GROUPS[name])) for name in names] + _yield_columns(view)
    found = []
    for codes, each in counting.by(rows, *names):
        heads = [_name(view, history, name, code) for name, code in zip(names, codes, strict=True)]
        found.append((*heads, *_yield_values(each)))
    return Table("groups", columns, found, sortable=True)


def _name(view: View, history: History, kind: str, code: int) -> Any:
    if kind == "cell":
        return Link(code, view.here(cell=code, by="product"))
    if kind == "station":
        return Link(history.station_name(code), view.here(station=str(history.station_of(code)), by="cell"))
    text = history.names[kind].texts[code]
    return Link(text, view.here(**{kind: text})) if text else view.gettext("(none)")


def _lost(view: View, history: History, rows: Rows) -> Table:
    """By product and operation."""
    _ = view.gettext
    columns = [
        Column("product", _("Product")), Column("operation", _("Operation")), Column("time", _("All runs"), "duration"),
        Column("retested", _("Retests"), "duration"), Column("broken", _("Without verdict"), "duration"),
        Column("share", _("Lost"), "percent"),
    ]  # fmt: skip
    found = []
    for (product, operation), each in counting.by(rows, "product", "operation"):
        names = history.names["product"].texts[product], history.names["operation"].texts[operation]
        lost = (each.retested + each.broken) / each.time if each.time else None
        found.append((*names, each.time, each.retested, each.broken, lost))
    note = _("Test time of retests, and of runs that ended aborted, by an exception or by an interruption.")
    return Table("lost", columns, found, note)


def _first(view: View, history: History, rows: Rows, wanted: Filter) -> Chart:
    _ = view.gettext
    failed = rows[(rows["outcome"] == OUTCOMES.index("NG")) & (rows["item"] >= 0)]
    texts = history.names["item"].texts
    counted = Counter(texts[code] for code in failed["item"].tolist())
    return _pareto(view, "first_failing", _("Items that failed first"), counted, wanted)


def _all(view: View, bars: list[ParetoRow], wanted: Filter) -> Chart:
    counted = Counter({bar.item: bar.all for bar in bars})
    return _pareto(view, "all_failing", view.gettext("All items that failed"), counted, wanted)


def _pareto(view: View, name: str, title: str, counted: Counter[str], wanted: Filter) -> Chart:
    _ = view.gettext
    columns = [
        Column("item", _("Item")), Column("runs", _("Runs"), "count"), Column("cumulative", _("Cumulative"), "percent")
    ]  # fmt: skip
    rows = [(Link(bar.name, _units(view, bar.name)), bar.count, bar.cumulative) for bar in pareto(counted)]
    bars = pareto(counted, BARS)
    names = [bar.name or _("all others") for bar in bars]
    traces = [
        {"type": "bar", "name": _("Runs"), "x": names, "y": [bar.count for bar in bars]},
        {
            "type": "scatter", "mode": "lines+markers", "name": _("Cumulative"), "x": names, "yaxis": "y2",
            "y": [100 * bar.cumulative for bar in bars],
        },
    ]  # fmt: skip
    layout = {
        "xaxis": {"type": "category", "tickangle": -45},
        "yaxis": {"rangemode": "tozero", "title": {"text": _("Runs")}},
        "yaxis2": {
            "overlaying": "y",
            "side": "right",
            "range": [0, 105],
            "title": {"text": "%"},
            "showgrid": False,
        },
    }
    table = Table(name, columns, rows)
    return Chart(
        name, title, traces, table, layout, reason="" if rows else _("No run failed in this selection.")
    )


def _units(view: View, item: str) -> str:
    """Where the units that failed in an item are listed."""
    address = view.here(
        item=item, outcome=str(Outcome.NG), by=None, sort=None, period=view.text("period") or "30d"
    )
    return "/units" + address.removeprefix(view.request.url.path)


ROUTES = [Route("/yield", yields)]
