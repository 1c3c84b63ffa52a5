"""Does a cell measure differently from the others?"""

from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..analysis.cells import DISCOVERY_RATE
from .itemfigures import CellRow, day_range, differences
from .items import asked, cell_name, choices, interval, item_address, rounded, station_names, whole_days
from .tables import Column, Link, Table
from .texts import later
from .view import View

PAGE = ("/cells", later("Cells"))
SENTENCES = 10
LARGE = 0.01  # share of the tolerance, from which on a difference is said in words


async def cells(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    wanted = whole_days(view.filter("30d"))
    found = await asked(
        view,
        lambda keeper, file: (
            keeper.kept(file, ("cells", wanted, day_range(wanted)), lambda: differences(file, wanted)),
            file.progress(), choices(file),
        ),
    )  # fmt: skip
    (rows, questions), progress, known = found or (
        ([], 0),
        0.0,
        {"products": [], "operations": [], "cells": []},
    )
    names = await view.pool.ask(station_names)
    columns = [
        Column("cell", _("Cell")), Column("item", _("Item")), Column("n", "n", "count"),
        Column("apart", _("Difference"), "number"), Column("interval", _("95 %")), Column("unit", _("Unit")),
        Column("sigmas", _("in sigmas"), "number"), Column("tolerance", _("of the tolerance"), "percent"),
        Column("q", "q", "number"), Column("lost", _("Units lost"), "count"),
    ]  # fmt: skip
    table = Table(
        "cells", columns,
        [
            (cell_name(view, names, each.difference.cell), Link(each.row.name, item_address(view, each.row)),
             each.difference.n, rounded(each.difference.apart.value, 4), interval(each.difference.apart), each.row.unit,
             rounded(each.sigmas, 3), each.tolerance, rounded(each.difference.q, 2), each.difference.lost)
            for each in rows
        ],
        sortable=True,
        note=_(
            "Each cell against the mean of the others that do not differ themselves. q: p-value corrected for all {questions} "
            "questions that were asked; of what is listed (q up to {rate:.0%}) about that share is here by chance. With many values "
            "small differences are certain, too: the share of the tolerance says whether one matters. Units lost: failed in this item "
            "and would have passed without the difference."
        ).format(questions=questions, rate=DISCOVERY_RATE),
    )  # fmt: skip
    large = [
        each for each in rows if each.tolerance is None or each.tolerance >= LARGE or each.difference.lost
    ]
    words = [sentence(view, cell_name(view, names, each.difference.cell), each) for each in large[:SENTENCES]]
    return view.respond(
        "cells.html", _("Cells"), [table], progress=progress, known=known, names=names, sentences=words,
        questions=questions, more=len(large) - len(words),
    )  # fmt: skip


def sentence(view: View, cell: str, each: CellRow) -> str:
    """As one would say it."""
    _ = view.gettext
    apart = each.difference.apart.value or 0.0
    size, unit = readable(abs(apart), each.row.unit)
    words = (
        _("{cell} reads {item} {size} {unit} high")
        if apart > 0
        else _("{cell} reads {item} {size} {unit} low")
    )
    said = words.format(cell=cell, item=each.row.name, size=size, unit=unit).replace("  ", " ")
    lost = each.difference.lost
    if not lost:
        return said + "."
    one, many = (
        _("1 unit failed that would have passed elsewhere"),
        _("{count} units failed that would have passed elsewhere"),
    )
    return f"{said}; {one if lost == 1 else many.format(count=lost)}."


PREFIXED = frozenset(("V", "A", "W", "s", "Hz", "F", "H", "Ohm", "Ω", "m", "g", "J", "N", "Pa", "T"))
PREFIXES = (
    (1e-12, "p"),
    (1e-9, "n"),
    (1e-6, "µ"),
    (1e-3, "m"),
    (1.0, ""),
    (1e3, "k"),
    (1e6, "M"),
    (1e9, "G"),
)


def readable(size: float, unit: str) -> tuple[str, str]:
    """Two digits, with a prefix where the unit takes one: 0.0031 V is 3.1 mV."""
    if unit not in PREFIXED or size <= 0:
        return f"{size:.2g}", unit
    factor, prefix = max((each for each in PREFIXES if each[0] <= size * 1.0000001), default=PREFIXES[0])
    shown = f"{size / factor:.2g}"
    return (f"{size / factor:.0f}" if "e" in shown else shown), prefix + unit


ROUTES = [Route("/cells", cells)]
