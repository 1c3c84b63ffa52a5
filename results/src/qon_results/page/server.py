"""The page's server process: uvicorn around the application."""

import logging
import socket

import uvicorn
from starlette.applications import Starlette

from .app import application
from .settings import Settings

_CONNECTIONS = 512


def bound(settings: Settings) -> socket.socket:
    """The address taken, so that what is said about it is true; OSError in words when another program has it."""
    family = socket.AF_INET6 if ":" in settings.address else socket.AF_INET
    listening = socket.socket(family, socket.SOCK_STREAM)
    listening.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    try:
        listening.bind((settings.address, settings.port))
        listening.listen(128)
    except OSError as error:
        listening.close()
        raise OSError(f"{settings.address} port {settings.port} cannot be used: {error.strerror}.") from None
    return listening


def serve(settings: Settings, listening: socket.socket) -> None:
    """Until SIGINT or SIGTERM."""
    logging.basicConfig(level=logging.WARNING, format="%(asctime)s %(levelname)s %(name)s: %(message)s")
    server(settings).run([listening])


class Server(uvicorn.Server):
    """Lets go of who listens to events first: they would never end by themselves."""

    def __init__(self, app: Starlette, config: uvicorn.Config) -> None:
        super().__init__(config)
        self._app = app

    async def shutdown(self, sockets: list[socket.socket] | None = None) -> None:
        self._app.state.hub.end()
        await super().shutdown(sockets)


def server(settings: Settings) -> uvicorn.Server:
    app = application(settings)
    config = uvicorn.Config(
        app,
        log_config=None,
        access_log=False,
        server_header=False,
        limit_concurrency=_CONNECTIONS,
        timeout_graceful_shutdown=2,
        proxy_headers=False,
    )
    return Server(app, config)
