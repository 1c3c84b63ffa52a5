"""Units: search, and everything kept about one."""

from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from .tables import Column, Table, When
from .texts import later
from .view import View

PAGE = ("/units", later("Units"))


async def units(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    wanted = view.filter(purpose=None)
    runs = await view.pool.ask(lambda store: store.runs(wanted, 200))
    columns = [
        Column("serial_number", _("Serial number")), Column("begin", _("Begin"), "time"),
        Column("outcome", _("Outcome"), "outcome"),
    ]  # fmt: skip
    rows = [(run.serial_number, When(run.begin_us, run.utc_offset_s), str(run.outcome)) for run in runs]
    return view.respond("units.html", _("Units"), [Table("units", columns, rows)])


ROUTES = [Route("/units", units)]
