"""What has changed: shifts and drifts of items, yields and cycle times, within the budget of false alarms."""

from __future__ import annotations

import uuid
from dataclasses import dataclass
from typing import Any
from urllib.parse import parse_qs

import numpy as np
from starlette.requests import Request
from starlette.responses import RedirectResponse, Response
from starlette.routing import Route

from ..store.base import PRODUCTION, Filter, Store
from .charts import Chart
from .item import COLUMNS, INK, _local, decimated
from .items import asked, cell_name, item_address, station_names
from .rollups.file import ALARMS, Rollups, Stream
from .rollups.keeper import Keeper
from .rollups.making import is_number
from .rollups.watching import ITEM, TIME, YIELD
from .tables import Column, Link, Table, When
from .texts import later
from .view import BadInput, NotThere, View

PAGE = ("/alarms", later("Alarms"))
MOST = 500
BODY_FIELD_MOST = 500
US_A_DAY = 86_400_000_000

_ALARMS = """
SELECT a.kind, a.item, a.stream, a.slow, a.since_us, a.at_us, a.up, a.before, a.after, a.apart, a.false_days,
       k.name, k.words, k.told_us
FROM alarm AS a JOIN stream AS s ON s.id = a.stream
LEFT JOIN acknowledgement AS k ON k.kind = a.kind AND k.item = a.item AND k.station = s.station AND k.cell = s.cell
     AND k.slow = a.slow AND k.at_us = a.at_us
WHERE a.at_us >= ? AND a.at_us < ? ORDER BY a.at_us DESC LIMIT ?
"""


@dataclass(frozen=True)
class Found:
    """An alarm as it was kept, with who acknowledged it."""

    kind: str
    item: str
    stream: Stream
    unit: str
    slow: bool
    since_us: int
    at_us: int
    up: bool
    before: float
    after: float
    apart: float | None
    false_days: float
    name: str | None
    words: str | None
    told_us: int | None

    @property
    def key(self) -> str:
        return f"{self.at_us}-{self.kind}-{self.stream.id}-{int(self.slow)}"

    @property
    def identity(self) -> tuple[str, str, bytes, int, int, int, int]:
        station = self.stream.station.bytes
        return self.kind, self.item, station, self.stream.cell, int(self.slow), self.since_us, self.at_us


def found_alarms(file: Rollups, since_us: int, until_us: int, most: int = MOST) -> list[Found]:
    streams, units = file.streams(), dict(file.items().values())
    return [
        Found(
            kind, item, streams[stream], units.get(item, "") if kind == ITEM else "", bool(slow), since, at, bool(up),
            before, after, apart, rare, name, words, told,
        )
        for kind, item, stream, slow, since, at, up, before, after, apart, rare, name, words, told in file.rows(
            _ALARMS, (since_us, until_us, most)
        )
    ]  # fmt: skip


def what(view: View, each: Found) -> str:
    _ = view.gettext
    if each.kind == YIELD:
        return _("First-pass yield")
    return _("Test time") if each.kind == TIME else each.item


def said(view: View, each: Found) -> str:
    """From what to what."""
    _ = view.gettext
    if each.kind == YIELD:
        return f"{100 * each.before:.1f} % → {100 * each.after:.1f} %"
    unit = "s" if each.kind == TIME else each.unit
    return f"{each.before:.6g} → {each.after:.6g} {unit}".strip()


def sure(view: View, each: Found) -> str:
    _ = view.gettext
    if each.false_days >= 1000:
        return _("by chance less than once in 1000 days")
    return _("by chance once in {days:.2g} days").format(days=each.false_days)


async def alarms(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    wanted = view.filter("30d", None)
    open_only = view.choice("show", ("open", "all"), "open") == "open"
    found = await asked(
        view,
        lambda keeper, file: (found_alarms(file, wanted.since_us, wanted.until_us), file.progress(ALARMS)),
    )
    known, progress = found or ([], 0.0)
    names = await view.pool.ask(station_names)
    shown = [each for each in known if each.name is None or not open_only]
    table = alarms_table(view, shown, names)
    return view.respond(
        "alarms.html", _("Alarms"), [table], progress=progress, budget=view.settings.alarm_budget,
        open_only=open_only, hidden=len(known) - len(shown),
    )  # fmt: skip


def alarms_table(view: View, shown: list[Found], names: dict[uuid.UUID, str]) -> Table:
    _ = view.gettext
    columns = [
        Column("what", _("What")), Column("kind", _("Change")), Column("where", _("Where")), Column("product", _("Product")),
        Column("since", _("Since"), "time"), Column("at", _("Found"), "time"), Column("change", _("From → to")),
        Column("apart", _("in sigmas"), "number"), Column("sure", _("How sure")), Column("acknowledged", _("Acknowledged")),
    ]  # fmt: skip
    rows = [
        (
            Link(what(view, each), f"/alarms/alarm?id={each.key}"), _("drift") if each.slow else _("shift"),
            cell_name(view, names, each.stream.cell_key), each.stream.product, When(each.since_us), When(each.at_us),
            said(view, each), None if each.apart is None else round(each.apart, 2), sure(view, each), each.name,
        )
        for each in shown
    ]  # fmt: skip
    note = _(
        "Each value of each item, verdict of a first attempt and duration of a passed run is ranked among those before it in its "
        "cell; production runs only. The limits are such that all of them together cost {budget:g} false alarms a day. Since: "
        "where the average last crossed its middle."
    )
    return Table("alarms", columns, rows, sortable=True, note=note.format(budget=view.settings.alarm_budget))


async def _one(view: View, key: str) -> Found:
    at = key.partition("-")[0]
    if not at.isdecimal():
        raise NotThere(view.gettext("There is no such alarm; it may have been made anew."))
    found = await asked(view, lambda keeper, file: found_alarms(file, int(at[:18]), int(at[:18]) + 1))
    for each in found or []:
        if each.key == key:
            return each  # type: ignore[no-any-return]
    raise NotThere(view.gettext("There is no such alarm; it may have been made anew."))


async def alarm(request: Request) -> Response:
    view = View(request)
    each = await _one(view, view.text("id") or "")
    names, chart = await view.pool.ask(lambda store: (station_names(store), alarm_chart(view, store, each)))
    return view.respond(
        "alarm.html", what(view, each), [alarms_table(view, [each], names)], [chart], each=each,
        where=cell_name(view, names, each.stream.cell_key), said=said(view, each), sure=sure(view, each),
        item_page=_item_page(view, each), When=When,
    )  # fmt: skip


def _item_page(view: View, each: Found) -> str:
    if each.kind != ITEM:
        return ""

    class Row:
        name, product, operation = each.item, each.stream.product, each.stream.operation

    return item_address(view, Row)  # type: ignore[arg-type]


def alarm_chart(view: View, store: Store, each: Found) -> Chart:
    """The stream around the alarm: as much before as after it began, and some days more."""
    _ = view.gettext
    reach = max(2 * (each.at_us - each.since_us), US_A_DAY)
    stream = each.stream
    wanted = Filter(
        product=stream.product, operation=stream.operation, purpose=PRODUCTION, station=stream.station, cell=stream.cell,
        since=each.since_us - reach, until=each.at_us + reach,
    )  # fmt: skip
    if each.kind == ITEM:
        columns = store.item(each.item, wanted)
        chosen = is_number(columns) & np.isfinite(columns.value)
        times, values = columns.time_us[chosen], columns.value[chosen]
    else:
        runs = [run for run in reversed(store.runs(wanted, 5000)) if run.outcome in ("OK", "NG", "TBD")]
        if each.kind == TIME:
            runs = [run for run in runs if run.outcome == "OK" and run.duration_us is not None]
        times = np.array([run.begin_us for run in runs], np.int64)
        values = np.array(
            [
                (run.duration_us or 0) / 1e6 if each.kind == TIME else float(run.outcome == "OK")
                for run in runs
            ]
        )
    shown = decimated(values, COLUMNS)
    unit = "s" if each.kind == TIME else each.unit
    table = Table(
        "values", [Column("time", _("Time"), "time"), Column("value", _("Value"), "number")],
        [(When(us), value) for us, value in zip(times[shown].tolist(), values[shown].tolist(), strict=True)],
    )  # fmt: skip
    traces: list[dict[str, Any]] = [
        {"type": "scatter", "mode": "markers", "x": [_local(us) for us in times[shown].tolist()], "y": values[shown],
         "marker": {"size": 4, "color": INK}, "name": _("values"), "opacity": 0.6},
    ]  # fmt: skip
    if len(values) >= 25:
        mean = np.convolve(values, np.ones(25) / 25, "valid")
        at = times[24:]
        some = decimated(mean, COLUMNS)
        traces.append(
            {"type": "scatter", "mode": "lines", "x": [_local(us) for us in at[some].tolist()], "y": mean[some],
             "line": {"color": "#B35A00", "width": 2}, "name": _("mean of 25")}
        )  # fmt: skip
    lines = [
        {"type": "line", "x0": _local(us), "x1": _local(us), "y0": 0, "y1": 1, "yref": "paper",
         "line": {"color": color, "width": 2, "dash": "dot"}, "label": {"text": text, "textposition": "end"}}
        for us, color, text in ((each.since_us, "#55626F", _("since")), (each.at_us, "#C4202B", _("found")))
    ]  # fmt: skip
    layout = {
        "shapes": lines,
        "yaxis": {"title": {"text": f"{what(view, each)} [{unit}]" if unit else what(view, each)}},
    }
    return Chart(
        "values", _("Around the alarm"), traces, table, layout, said(view, each),
        "" if len(values) else _("There are no numbers to draw."), 420,
    )  # fmt: skip


async def acknowledge(request: Request) -> Response:
    """The one thing that is written here: who has seen it, and what they say."""
    view = View(request)
    _ = view.gettext
    fields = parse_qs((await request.body()).decode("utf-8", "replace"), max_num_fields=10)
    key, name, words = (fields.get(field, [""])[0].strip() for field in ("id", "name", "words"))
    if not name:
        raise BadInput(_("An alarm is acknowledged by name."))
    if max(len(name), len(words)) > BODY_FIELD_MOST:
        raise BadInput(_("Name and words have {most} signs at most.").format(most=BODY_FIELD_MOST))
    each = await _one(view, key)
    keeper: Keeper = request.app.state.figures
    await keeper.ask(lambda file: file.acknowledge(each.identity, name, words))
    return RedirectResponse(f"/alarms/alarm?id={each.key}", 303)


ROUTES = [
    Route("/alarms", alarms),
    Route("/alarms/alarm", alarm),
    Route("/alarms/acknowledge", acknowledge, methods=["POST"]),
]
