"""The application: its pages, its files, what happens when something is wrong."""

import contextlib
import gzip
import hashlib
import importlib.util
import logging
from collections.abc import AsyncIterator
from importlib.metadata import version
from pathlib import Path

from starlette.applications import Starlette
from starlette.exceptions import HTTPException
from starlette.middleware import Middleware
from starlette.middleware.gzip import GZipMiddleware
from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..store.base import TooSlow
from . import alarms, cells, fleet, gauge, item, items, limits, line, unit, units, yields
from .guard import Guard
from .history import History
from .pool import Busy, Pool, Unavailable
from .rollups.keeper import Keeper
from .settings import Settings
from .view import BadInput, NotThere, View, error_page, template_environment

log = logging.getLogger(__name__)

# In the order of the navigation.  Each has ROUTES and PAGE (path, title), or None for what is reached from others.
PAGES = (line, units, unit, yields, items, item, cells, alarms, limits, gauge, fleet)

_STATIC = Path(__file__).with_name("static")
_KINDS = {".js": "text/javascript", ".css": "text/css", ".svg": "image/svg+xml"}


def application(settings: Settings) -> Starlette:
    files = Files()

    @contextlib.asynccontextmanager
    async def lifespan(app: Starlette) -> AsyncIterator[None]:
        async with contextlib.AsyncExitStack() as stack:
            for page in PAGES:
                if hasattr(page, "running"):  # what a page does beside its requests
                    await stack.enter_async_context(page.running(app))
            yield
        app.state.pool.close()

    app = Starlette(
        routes=[*(route for page in PAGES for route in page.ROUTES), Route("/static/{name}", files.serve)],
        middleware=[
            Middleware(Guard, settings=settings),
            Middleware(GZipMiddleware, minimum_size=1000, compresslevel=5),
        ],
        exception_handlers={
            BadInput: _bad_input,
            NotThere: _not_there,
            TooSlow: _too_slow,
            Unavailable: _unavailable,
            Busy: _busy,
            HTTPException: _refused,
            Exception: _fault,
        },
        lifespan=lifespan,
    )
    app.state.settings = settings
    app.state.pool = Pool(settings.where, settings.stores, settings.seconds)
    app.state.history = History()
    app.state.figures = Keeper(settings)
    app.state.templates = template_environment()
    app.state.templates.globals.update(static=files.address, clock=line.clock)
    app.state.pages = [page.PAGE for page in PAGES if page.PAGE and (page is not fleet or settings.fleet)]
    app.state.version = version("qon-results")
    return app


class Files:
    """Style, scripts and plotly.js as its package brings it, compressed once; the address changes with the content."""

    def __init__(self) -> None:
        plotly = importlib.util.find_spec("plotly")  # its Python is not needed
        assert plotly is not None and plotly.origin is not None
        data = Path(plotly.origin).parent / "package_data" / "plotly.min.js"
        self._paths = {path.name: path for path in (*_STATIC.iterdir(), data)}
        self._kept: dict[str, tuple[bytes, str]] = {}

    def address(self, name: str) -> str:
        return f"/static/{name}?v={self._file(name)[1]}"

    def _file(self, name: str) -> tuple[bytes, str]:
        if name not in self._kept:
            data = self._paths[name].read_bytes()
            self._kept[name] = gzip.compress(data, 9), hashlib.sha256(data).hexdigest()[:12]
        return self._kept[name]

    def serve(self, request: Request) -> Response:
        name = request.path_params["name"]
        if name not in self._paths:
            raise HTTPException(404)
        data, _ = self._file(name)
        headers = {"Cache-Control": "public, max-age=31536000, immutable", "Vary": "Accept-Encoding"}
        if "gzip" in request.headers.get("accept-encoding", ""):
            headers["Content-Encoding"] = "gzip"
        else:
            data = gzip.decompress(data)
        return Response(data, media_type=_KINDS[Path(name).suffix], headers=headers)


def _bad_input(request: Request, error: Exception) -> Response:
    return error_page(View(request), 400, str(error))


def _not_there(request: Request, error: Exception) -> Response:
    return error_page(View(request), 404, str(error.args[0]) if error.args else "")


def _too_slow(request: Request, error: Exception) -> Response:
    view = View(request)
    words = view.gettext(
        "It was stopped after {seconds:g} s so that others are served. Ask for less: a shorter time, one product."
    )
    return error_page(view, 504, words.format(seconds=view.settings.seconds))


def _unavailable(request: Request, error: Exception) -> Response:
    log.warning("%s: %s", request.url.path, error)
    return error_page(View(request), 503, str(error))


def _busy(request: Request, error: Exception) -> Response:
    view = View(request)
    return error_page(view, 503, view.gettext("Too many questions at a time; try again in a moment."))


def _refused(request: Request, error: Exception) -> Response:
    assert isinstance(error, HTTPException)
    view = View(request)
    words = (
        view.gettext("This page does not exist: {path}").format(path=request.url.path)
        if error.status_code == 404
        else ""
    )
    return error_page(view, error.status_code, words or error.detail)


def _fault(request: Request, error: Exception) -> Response:
    view = View(request)
    words = view.gettext(
        "This is a fault of the page itself; its log has the details. The results are not touched by it."
    )
    return error_page(view, 500, words)
