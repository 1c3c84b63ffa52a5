"""The line at a glance: what stands at every cell now, live over server-sent events."""

import asyncio
import contextlib
import datetime
import json
import math
import time
from collections.abc import AsyncIterator

from starlette.applications import Starlette
from starlette.exceptions import HTTPException
from starlette.requests import Request
from starlette.responses import Response, StreamingResponse
from starlette.routing import Route

from ..store.base import Store, TooSlow
from .board import Board, CellNow
from .pool import Busy, Unavailable
from .tables import Column, Table, When
from .texts import later, translation
from .view import View

PAGE = ("/", later("Line"))
LOOK_SECONDS = 0.3
ALIVE_SECONDS = 15.0
LISTENERS_MOST = 300
WORDS = {
    "READY": later("READY"), "TESTING": later("TESTING"), "PAUSED": later("PAUSED"), "WAITING": later("WAITING"),
    "ABORTED": later("ABORTED"), "EXCEPTION": later("EXCEPTION"), "INTERRUPTED": later("INTERRUPTED"),
    "CLOSED": later("CLOSED"), "LOST": later("LOST"), "SILENT": later("SILENT"),
}  # fmt: skip


class Hub:
    """Looks at the cells while anybody watches, once for all who do."""

    def __init__(self, app: Starlette) -> None:
        self._app = app
        self._board = Board(app.state.history, app.state.settings.shifts)
        self._tiles: dict[tuple[str, CellNow], str] = {}
        self._changed = asyncio.Condition()
        self._watched = asyncio.Event()
        self._looking = asyncio.Lock()
        self._looked = -LOOK_SECONDS
        self._ended = False
        self.listeners = 0
        self.cells: list[CellNow] = []
        self.trouble = ""

    async def run(self) -> None:
        while True:
            await self._watched.wait()
            with contextlib.suppress(Unavailable, TooSlow, Busy):
                await self.look()
            async with self._changed:
                self._changed.notify_all()
            await asyncio.sleep(LOOK_SECONDS)

    def end(self) -> None:
        """Who listens is let go."""
        self._ended = True
        self._watched.set()

    async def look(self) -> list[CellNow]:
        """The cells as they were not long ago; what cannot be read is raised, and kept for who listens."""
        async with self._looking:
            if time.monotonic() - self._looked < LOOK_SECONDS / 2:
                return self.cells
            try:
                self.cells = await self._app.state.pool.ask(self._ask)
                self.trouble = ""
            except (Unavailable, TooSlow, Busy) as error:
                self.trouble = str(error) or type(error).__name__
                raise
            self._looked = time.monotonic()
            return self.cells

    def _ask(self, store: Store) -> list[CellNow]:
        return self._board.look(store)

    async def listen(self, language: str) -> AsyncIterator[str]:
        """Events: `cells` are tiles that changed, `trouble` why there are none."""
        sent: dict[str, str] = {}
        trouble, alive = "", time.monotonic()
        self.listeners += 1
        self._watched.set()
        try:
            while not self._ended:
                tiles = self.tiles(language)
                changed = {key: tile for key, tile in tiles.items() if sent.get(key) != tile}
                if changed:
                    now = round(time.time() * 1000)
                    yield event("cells", {"now": now, "order": list(tiles), "tiles": changed})
                    sent, alive = tiles, time.monotonic()
                if self.trouble != trouble:
                    trouble = self.trouble
                    yield event("trouble", trouble)
                elif time.monotonic() - alive > ALIVE_SECONDS:
                    yield ": here\n\n"
                    alive = time.monotonic()
                async with self._changed:
                    await self._changed.wait()
        finally:
            self.listeners -= 1
            if not self.listeners:
                self._watched.clear()

    def tiles(self, language: str) -> dict[str, str]:
        """Each cell as HTML, and the totals of the shift."""
        template = self._app.state.templates.get_template("tile.html").module
        gettext = translation(language)
        stations = len({cell.station for cell in self.cells})
        found = {}
        for cell in self.cells:
            key = (language, cell)
            if key not in self._tiles:
                if len(self._tiles) > 4096:
                    self._tiles.clear()
                self._tiles[key] = str(template.tile(gettext, cell, WORDS, stations > 1))
            found[cell.key] = self._tiles[key]
        found["totals"] = str(
            template.totals(gettext, self._board.total, self._board.shift.strftime("%H:%M"))
        )
        return found

    @property
    def board(self) -> Board:
        return self._board


def event(name: str, data: object) -> str:
    return f"event: {name}\ndata: {json.dumps(data, ensure_ascii=False)}\n\n"


@contextlib.asynccontextmanager
async def running(app: Starlette) -> AsyncIterator[None]:
    app.state.hub = Hub(app)
    task = asyncio.create_task(app.state.hub.run())
    try:
        yield
    finally:
        task.cancel()


async def line(request: Request) -> Response:
    view = View(request)
    _ = view.gettext
    hub: Hub = request.app.state.hub
    cells = await hub.look()
    return view.respond(
        "line.html",
        _("Line"),
        [_table(view, cells)],
        tiles=hub.tiles(view.language),
        columns=columns_of(len(cells)),
        now=round(time.time() * 1000),
    )


def _table(view: View, cells: list[CellNow]) -> Table:
    _ = view.gettext
    columns = [
        Column("station", _("Station")), Column("cell", _("Cell"), "count"), Column("state", _("State"), "outcome"),
        Column("serial_number", _("Serial number")), Column("since", _("Since"), "time"),
        Column("expected_end", _("Expected end"), "time"), Column("last", _("Last verdict"), "outcome"),
        Column("units", _("Units of the shift"), "count"), Column("first_attempts", _("First attempts"), "count"),
        Column("first_passed", _("Passed"), "count"), Column("first_pass", _("First pass"), "percent"),
    ]  # fmt: skip
    rows = [
        (
            each.station_name, each.cell, each.word, each.serial_number, When(each.since_us),
            None if each.until_us is None else When(each.until_us), each.last, each.units, each.first_attempts,
            each.first_passed, each.first_passed / each.first_attempts if each.first_attempts else None,
        )
        for each in cells
    ]  # fmt: skip
    return Table("cells", columns, rows)


async def events(request: Request) -> Response:
    hub: Hub = request.app.state.hub
    view = View(request)
    if hub.listeners >= LISTENERS_MOST:
        raise HTTPException(503, view.gettext("Too many pages are open."))
    headers = {"Cache-Control": "no-store", "X-Accel-Buffering": "no"}
    return StreamingResponse(hub.listen(view.language), media_type="text/event-stream", headers=headers)


def columns_of(cells: int) -> int:
    """On a wall screen: tiles wider than high, and as few empty places as can be."""
    about = max(2, math.ceil(math.sqrt(cells * 1.6)))
    return min((about, about - 1, about + 1), key=lambda columns: -cells % columns)


def clock(us: int) -> str:
    """The time, with the date when that is not today's."""
    moment = datetime.datetime.fromtimestamp(us / 1e6)
    return moment.strftime("%H:%M:%S" if moment.date() == datetime.date.today() else "%Y-%m-%d %H:%M")


ROUTES = [Route("/", line), Route("/events", events)]
