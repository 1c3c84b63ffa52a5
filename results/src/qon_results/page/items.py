"""All items with their figures, from the parts that are kept of them."""

import datetime
import io
import math
import uuid
import zipfile
from collections.abc import Callable
from typing import Any
from urllib.parse import urlencode

import msgspec
from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..analysis.figure import Estimate
from ..store.base import Filter, Store
from .itemfigures import ItemRow, day_range, item_rows
from .rollups.file import Rollups
from .rollups.keeper import Keeper, NotYet, running
from .tables import Column, Link, Table
from .texts import later
from .view import View

__all__ = ["PAGE", "ROUTES", "running"]

PAGE = ("/items", later("Items"))

# What the figures say instead of a value, marked to be translated.
REASONS = (
    later("no limits"), later("only one limit"), later("all values are equal"), later("no finite spread"),
    later("the upper limit is not above the lower one"), later("too few values"), later("all values at one time"),
    later("no other cell measured it"), later("fewer than 5 values"), later("no scatter"), later("yes or no"),
    later("texts"), later("no values"), later("the figure is beyond what a number can hold"),
)  # fmt: skip


def whole_days(wanted: Filter) -> Filter:
    """The same from the midnight before on: the figures are kept by day."""
    if wanted.since is None or isinstance(wanted.since, int):
        return wanted
    when = wanted.since
    if isinstance(when, datetime.datetime):
        when = when.astimezone().replace(hour=0, minute=0, second=0, microsecond=0)
    return msgspec.structs.replace(wanted, since=when)


def station_names(store: Store) -> dict[uuid.UUID, str]:
    return {station.id: station.name for station in store.stations()}


def cell_name(view: View, names: dict[uuid.UUID, str], key: tuple[uuid.UUID, int]) -> str:
    """With its station where there are several."""
    cell = view.gettext("cell {cell}").format(cell=key[1])
    return cell if len(names) < 2 else f"{names.get(key[0], str(key[0])[:8])}, {cell}"


def choices(file: Rollups) -> dict[str, list[Any]]:
    """What there is to choose from."""
    streams = file.streams().values()
    return {
        "products": sorted({each.product for each in streams}),
        "operations": sorted({each.operation for each in streams}),
        "cells": sorted({each.cell for each in streams}),
        "stations": sorted({each.station for each in streams}, key=str),
    }


async def asked(view: View, question: Callable[[Keeper, Rollups], Any]) -> Any:
    """What the figures say, or None while there are none."""
    keeper: Keeper = view.request.app.state.figures
    try:
        return await keeper.ask(lambda file: question(keeper, file))
    except NotYet:
        return None


async def items(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    wanted = whole_days(view.filter("30d"))
    found = await asked(
        view,
        lambda keeper, file: (
            keeper.kept(file, ("items", wanted, day_range(wanted)), lambda: item_rows(file, wanted)),
            file.progress(), choices(file),
        ),
    )  # fmt: skip
    rows, progress, known = found or (
        [],
        0.0,
        {"products": [], "operations": [], "cells": [], "stations": []},
    )
    names, unmeasured = await view.pool.ask(
        lambda store: (station_names(store), never_measured(store, wanted) if found else [])
    )
    table = items_table(view, rows, names)
    without = Table(
        "unmeasured", [Column("item", _("Item")), Column("workbook", _("Limits workbook"))], unmeasured,
    )  # fmt: skip
    return view.respond(
        "items.html", _("Items"), [table, without], progress=progress, known=known, names=names,
        unlimited=sum(not row.limited and row.values.n > 0 for row in rows),
    )  # fmt: skip


def items_table(view: View, rows: list[ItemRow], names: dict[uuid.UUID, str]) -> Table:
    _ = view.gettext
    several = len({(row.product, row.operation) for row in rows}) > 1
    plan = [Column("product", _("Product")), Column("operation", _("Operation"))] if several else []
    numbers = [("n", "n", "count"), ("mean", _("Mean"), "number"), ("sigma", "σ", "number")]
    columns = [
        Column("item", _("Item")), *plan, *(Column(*each) for each in numbers), Column("unit", _("Unit")),
        Column("lower", _("Lower limit"), "number"), Column("upper", _("Upper limit"), "number"),
        *(each for name in ("Cp", "Cpk", "Pp", "Ppk")
          for each in (Column(name.lower(), name, "number"), Column(f"{name.lower()}_interval", _("95 %")))),
        Column("outside", _("Outside"), "percent"), Column("near", _("Near"), "percent"),
        Column("worst", _("Worst cell")), Column("worst_by", _("by"), "number"),
        Column("drift", _("Drift"), "number"), Column("remark", _("Remark")),
    ]  # fmt: skip
    marks = {
        place: "changed"
        for place, row in enumerate(rows)
        if row.limited and (row.capability.ppk.value or 9) < 1
    }
    return Table(
        "items", columns, [_cells(view, row, several, names) for row in rows], sortable=True, marks=marks,
        note=_(
            "σ, Pp and Ppk by all values, Cp and Cpk by the steps from one value of a cell to its next; intervals hold with 95 %. "
            "Limits: those of the newest value. Outside: judged NG, of all that were judged. Near: inside by less than a tenth "
            "of the distance of the limits. Drift: along a straight line within each cell, over the whole time, in sigmas; empty "
            "where its interval holds 0. Worst cell: the farthest from the others, certain or not. Every measured value counts, "
            "repeats too."
        ),
    )  # fmt: skip


def _cells(view: View, row: ItemRow, several: bool, names: dict[uuid.UUID, str]) -> list[Any]:
    n, sigma = row.values.n, row.values.sigma
    found = row.capability
    indices: list[Any] = []
    for each in (found.cp, found.cpk, found.pp, found.ppk):
        indices += [rounded(each.value, 3), interval(each)]
    drift = row.drift
    moves = drift.value is not None and (drift.low or 0) * (drift.high or 0) > 0 and sigma > 0
    worst = row.worst
    return [
        Link(row.name, item_address(view, row)), *([row.product, row.operation] if several else []),
        n, row.values.mean if n else None, sigma if n > 1 else None, row.unit, row.lower, row.upper, *indices,
        row.ng / row.judged if row.judged else None, row.near / n if n and _two(row) else None,
        cell_name(view, names, worst.cell) if worst else None, worst.apart.value if worst else None,
        rounded((drift.value or 0) / sigma, 3) if moves else None, remark(view, row),
    ]  # fmt: skip


def _two(row: ItemRow) -> bool:
    return row.lower is not None and row.upper is not None


def rounded(value: float | None, digits: int) -> float | None:
    return None if value is None or not math.isfinite(value) else float(f"{value:.{digits}g}")


def interval(each: Estimate) -> str | None:
    return None if each.low is None or each.high is None else f"{each.low:.3g} … {each.high:.3g}"


def reason(view: View, text: str) -> str:
    """In the reader's language; a number in front stays."""
    number, sign, rest = text.partition(" values: ")
    return f"{number} {view.gettext('values')}: {view.gettext(rest)}" if sign else view.gettext(text)


def remark(view: View, row: ItemRow) -> str:
    """Why a figure is missing, and what is to be known of those that are there."""
    _ = view.gettext
    words = []
    if not row.values.n:
        words.append(_("yes or no") if row.switches else _("texts") if row.others else _("no values"))
    else:
        words += dict.fromkeys(
            reason(view, each.reason) for each in (row.capability.pp, row.capability.ppk) if each.reason
        )
        if row.switches + row.others:
            words.append(_("{count} of its values are no numbers").format(count=row.switches + row.others))
    if row.values.missing:
        words.append(_("{count} not finite").format(count=row.values.missing))
    if row.changed:
        words.append(_("limits changed"))
    return "; ".join(words)


def item_address(view: View, row: ItemRow) -> str:
    kept = {
        name: value
        for name, value in view.request.query_params.items()
        if name in ("period", "since", "until", "purpose", "station", "cell") and value
    }
    return "/items/item?" + urlencode(
        {"name": row.name, "product": row.product, "operation": row.operation, **kept}
    )


def never_measured(store: Store, wanted: Filter) -> list[tuple[str, str]]:
    """Items of the newest limits workbook that no run ever measured; read from its own cells."""
    newest = store.runs(Filter(product=wanted.product, operation=wanted.operation), 1)
    if not newest:
        return []
    setup = store.record(newest[0].id).setup
    if setup.limits_sha256 is None:
        return []
    try:
        listed = workbook_items(store.content(setup.limits_sha256))
    except (KeyError, ValueError, OSError, zipfile.BadZipFile):
        return []
    measured = set(store.item_names())
    return [(name, setup.limits) for name in listed if name not in measured]


def workbook_items(content: bytes) -> list[str]:
    """The names in the first column of a limits workbook, below its heading."""
    try:
        import openpyxl
    except ImportError:
        return []
    book = openpyxl.load_workbook(io.BytesIO(content), read_only=True, data_only=True)
    try:
        rows = (
            row
            for sheet in book.worksheets
            for row in sheet.iter_rows(min_row=2, max_col=1, values_only=True)
        )
        return list(dict.fromkeys(str(name) for (name,) in rows if name is not None))
    finally:
        book.close()


ROUTES = [Route("/items", items)]
