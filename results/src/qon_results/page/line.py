"""The line at a glance: what stands at every cell now."""

from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from .tables import Column, Table, When
from .texts import later
from .view import View

PAGE = ("/", later("Line"))


async def line(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    cells = await view.pool.ask(lambda store: store.now())
    columns = [
        Column("cell", _("Cell"), "count"), Column("state", _("State"), "outcome"),
        Column("serial_number", _("Serial number")), Column("since", _("Since"), "time"),
    ]  # fmt: skip
    rows = [(each.cell, each.state, each.serial_number, When(each.since_us)) for each in cells]
    return view.respond("line.html", _("Line"), [Table("cells", columns, rows)])


ROUTES = [Route("/", line)]
