"""Yield over time and by station, cell, product and operation; what fails, and what retests and aborts cost."""

from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from .charts import Chart
from .tables import Column, Table
from .texts import later
from .view import View

PAGE = ("/yield", later("Yield"))


async def yields(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    wanted = view.filter()
    found, bars = await view.pool.ask(lambda store: (store.yields(wanted), store.pareto(wanted)))
    columns = [
        Column("product", _("Product")), Column("operation", _("Operation")),
        Column("first_pass", _("First pass"), "percent"), Column("units", _("Units"), "count"),
    ]  # fmt: skip
    rows = [(each.product, each.operation, each.first_pass, each.units) for each in found]
    pareto = Table(
        "pareto", [Column("item", _("Item")), Column("first", _("Failed first"), "count")],
        [(bar.item, bar.first) for bar in bars[:20]],
    )  # fmt: skip
    chart = Chart(
        "pareto", _("Items that failed first"),
        [{"type": "bar", "x": [bar.item for bar in bars[:20]], "y": [bar.first for bar in bars[:20]]}], pareto,
        reason="" if bars else _("No run failed in this time."),
    )  # fmt: skip
    return view.respond("yields.html", _("Yield"), [Table("yields", columns, rows)], [chart])


ROUTES = [Route("/yield", yields)]
