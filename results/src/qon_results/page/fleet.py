"""Figures over the archives of many stations, as `qon-results fleet --output` wrote them; nothing is computed here."""

import datetime
from pathlib import Path
from typing import Any

import anyio.to_thread
import msgspec
from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..fleet.result import Fleet, ItemFigures
from .charts import Chart
from .pool import Unavailable
from .tables import Column, Link, Table, When, told
from .texts import later
from .view import NotThere, View

PAGE = ("/fleet", later("Fleet"))
GROUPS = {
    "plant": later("Plant"),
    "station": later("Station"),
    "product": later("Product"),
    "operation": later("Operation"),
}


async def fleet(request: Request) -> Response:
    view = View(request)
    found, made = await anyio.to_thread.run_sync(_read, view)
    chosen = view.text("item") or (found.items[0].item if found.items else "")
    return view.respond(
        "fleet.html",
        view.gettext("Fleet"),
        [_yields(view, found), _items(view, found), _pareto(view, found)],
        [_histogram(view, found, chosen)],
        found=found,
        made=told(made),
        definitions=_definitions(view),
    )


def _read(view: View) -> tuple[Fleet, When]:
    path = Path(view.settings.fleet)
    if not view.settings.fleet or not path.is_file():
        raise NotThere(
            view.gettext(
                "There are no figures of a fleet yet: qon-results fleet FOLDER --output FILE makes them."
            )
        )
    try:
        found = msgspec.json.decode(path.read_bytes(), type=Fleet)
        made = datetime.datetime.fromtimestamp(path.stat().st_mtime).astimezone()
    except (OSError, msgspec.MsgspecError) as error:
        raise Unavailable(f"{path}: {error}") from None
    return found, When(round(made.timestamp() * 1e6))


def _definitions(view: View) -> list[str]:
    _ = view.gettext
    return [
        _(
            "A unit is a serial number of a product at an operation, over all stations and months. It is counted in the group "
            "of its first judged attempt."
        ),
        _(
            "First pass: units whose first judged attempt was OK. An attempt is judged when it ended OK, NG or TBD; aborted "
            "runs, exceptions and interruptions are counted apart. Final: units whose last judged attempt was OK."
        ),
    ]


def _heads(view: View, found: Fleet) -> list[Column]:
    return [Column(name, view.gettext(GROUPS.get(name, name))) for name in found.by]


def _yields(view: View, found: Fleet) -> Table:
    _ = view.gettext
    columns = [
        *_heads(view, found), Column("first_pass", _("First pass"), "percent"), Column("first_pass_low", _("95 % from"), "percent"),
        Column("first_pass_high", _("to"), "percent"), Column("passed_first", _("Passed first"), "count"),
        Column("units", _("Units"), "count"), Column("final", _("Final"), "percent"), Column("retests", _("Retests"), "percent"),
        Column("attempts", _("Judged attempts"), "count"), Column("aborted", _("Aborted"), "count"),
        Column("exceptions", _("Exceptions"), "count"), Column("interrupted", _("Interrupted"), "count"),
    ]  # fmt: skip
    rows = [
        (*one.group, one.first_pass.value, one.first_pass.low, one.first_pass.high, one.counts.first_ok, one.counts.units,
         one.final.value, one.retests.value, one.counts.attempts, one.counts.aborted, one.counts.exceptions,
         one.counts.interrupted)
        for one in found.yields
    ]  # fmt: skip
    return Table("yields", columns, rows, sortable=True)


def _items(view: View, found: Fleet) -> Table:
    _ = view.gettext
    columns = [
        *_heads(view, found), Column("item", _("Item")), Column("n", "n", "count"), Column("mean", _("Mean"), "number"),
        Column("sigma", "σ", "number"), Column("low", _("Lowest"), "number"), Column("high", _("Highest"), "number"),
        Column("unit", _("Unit of measure")), Column("ng_share", _("NG share"), "percent"), Column("cpk", "Cpk", "number"),
    ]  # fmt: skip
    rows = [
        (*one.group, Link(one.item, view.here(item=one.item)), one.n, one.mean, one.sigma, one.low, one.high, one.unit,
         one.ng_share, one.cpk.value)
        for one in found.items
    ]  # fmt: skip
    return Table(
        "items",
        columns,
        rows,
        _("No Cpk stands where an item has no limits, or more than one pair of them."),
        True,
    )


def _pareto(view: View, found: Fleet) -> Table:
    _ = view.gettext
    columns = [
        *_heads(view, found), Column("item", _("Item")), Column("first", _("Failed first"), "count"),
        Column("cumulative", _("Cumulative"), "percent"), Column("runs", _("Runs"), "count"),
    ]  # fmt: skip
    return Table(
        "pareto",
        columns,
        [(*one.group, one.item, one.first, one.cumulative, one.runs) for one in found.pareto],
    )


def _histogram(view: View, found: Fleet, item: str) -> Chart:
    _ = view.gettext
    shown = [one for one in found.items if one.item == item and one.counts]
    columns = [
        *_heads(view, found), Column("from", _("From"), "number"), Column("to", _("to"), "number"),
        Column("count", _("Values"), "count"),
    ]  # fmt: skip
    rows = [
        (*one.group, one.edges[place], one.edges[place + 1], count)
        for one in shown
        for place, count in enumerate(one.counts)
    ]
    reason = "" if shown else _("This item has no numbers.")
    layout: dict[str, Any] = {
        "xaxis": {"title": {"text": shown[0].unit if shown else ""}},
        "shapes": _limits(shown),
    }
    table = Table("histogram", columns, rows)
    return Chart(
        "histogram",
        f"{item}",
        [_trace(one) for one in shown],
        table,
        layout,
        _("Histogram with limits."),
        reason,
    )


def _trace(one: ItemFigures) -> dict[str, Any]:
    middles = [(low + high) / 2 for low, high in zip(one.edges, one.edges[1:], strict=False)]
    return {
        "type": "scatter", "mode": "lines", "line": {"shape": "hvh"}, "x": middles, "y": one.counts,
        "name": " / ".join(one.group) or one.item,
    }  # fmt: skip


def _limits(shown: list[ItemFigures]) -> list[dict[str, Any]]:
    places = sorted({limit for one in shown for limit in (one.lower, one.upper) if limit is not None})
    return [
        {
            "type": "line",
            "x0": place,
            "x1": place,
            "yref": "paper",
            "y0": 0,
            "y1": 1,
            "line": {"color": "#B00020"},
        }
        for place in places
    ]


ROUTES = [Route("/fleet", fleet)]
