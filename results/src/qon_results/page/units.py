"""Units: search by whatever is known about them; all attempts of a unit stand together."""

import msgspec
from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..records import Outcome, Run
from ..store.base import Store
from .tables import Column, Link, Table, When
from .texts import later
from .view import View

PAGE = ("/units", later("Units"))
RUNS_MOST = 150  # found at a time
ATTEMPTS_MOST = 50  # shown of one unit


async def units(request: Request) -> Response:
    view = View(request)
    wanted = view.filter("30d", None)
    before = view.whole("before", most=1 << 62)
    if before is not None:
        wanted = msgspec.structs.replace(wanted, until=before)
    history = request.app.state.history

    def search(store: Store) -> tuple[list[Run], list[list[Run]]]:
        history.refresh(store)
        runs = store.runs(wanted, RUNS_MOST)
        return runs, together(store, runs)

    runs, found = await view.pool.ask(search)
    older = view.here(before=runs[-1].begin_us) if len(runs) == RUNS_MOST else ""
    return view.respond(
        "units.html",
        view.gettext("Units"),
        [_table(view, found, {run.id.hex for run in runs})],
        older=older,
        newest=view.here(before=None) if before is not None else "",
        count=len(found),
        wanted=wanted,
        history=history,
        stations=sorted((name or str(id), str(id)) for id, name in history.stations.items()),
        outcomes=[(str(each), str(each)) for each in Outcome],
    )


def together(store: Store, runs: list[Run]) -> list[list[Run]]:
    """The attempts of each unit, also those that were not asked for; units in the order of their newest run found."""
    found: dict[tuple[object, ...], list[Run]] = {}
    for run in runs:
        key = (run.product, run.operation, run.serial_number) if run.serial_number else (run.id,)
        if key not in found:
            found[key] = store.attempts(run)[-ATTEMPTS_MOST:]
    return list(found.values())


def _table(view: View, found: list[list[Run]], wanted: set[str]) -> Table:
    _ = view.gettext
    columns = [
        Column("serial_number", _("Serial number")), Column("attempt", _("Attempt"), "count"),
        Column("begin", _("Begin"), "time"), Column("outcome", _("Outcome"), "outcome"), Column("reason", _("Why")),
        Column("duration", _("Lasted"), "duration"), Column("place", _("Place")), Column("product", _("Product")),
        Column("operation", _("Operation")), Column("purpose", _("Purpose")), Column("batch", _("Batch")),
        Column("operator", _("Operator")), Column("id", "", "hidden"),
    ]  # fmt: skip
    rows: list[tuple[object, ...]] = []
    marks: dict[int, str] = {}
    for attempts in found:
        marks[len(rows)] = "group"
        for number, run in enumerate(attempts, 1):
            rows.append(
                (
                    Link(run.serial_number or _("without a number"), f"/unit/{run.id}"), number,
                    When(run.begin_us, run.utc_offset_s), str(run.outcome), run.reason or run.first_ng, run.duration_us,
                    place_of(view, run), run.product, run.operation, run.purpose, run.batch, run.operator, str(run.id),
                )
            )  # fmt: skip
            if run.id.hex not in wanted:
                marks[len(rows) - 1] = marks.get(len(rows) - 1, "") + " beside"
    return Table("units", columns, rows, marks=marks)


def place_of(view: View, run: Run) -> str:
    stations = view.request.app.state.history.stations
    cell = view.gettext("cell {number}").format(number=run.cell)
    return f"{stations.get(run.station) or run.station}, {cell}" if len(stations) > 1 else cell


ROUTES = [Route("/units", units)]
