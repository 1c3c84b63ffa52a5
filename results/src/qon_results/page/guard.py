"""What stands before every request: who may ask, how long a request may be, and what a browser may do with the answer."""

import hashlib
import hmac
import secrets
from urllib.parse import parse_qsl, urlencode

from starlette.datastructures import Headers, MutableHeaders
from starlette.requests import Request
from starlette.responses import PlainTextResponse, RedirectResponse, Response
from starlette.types import ASGIApp, Message, Receive, Scope, Send

from .settings import LOOPBACK_NAMES, Settings, is_loopback
from .texts import language_of, translation

COOKIE = "qon_page"
ADDRESS_MOST = 4096  # bytes of path and query
BODY_MOST = 64 << 10
HEADERS = {
    # plotly.js sets styles of elements; scripts come from this server alone.
    "Content-Security-Policy": (
        "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self' data: blob:; "
        "connect-src 'self'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'"
    ),
    "X-Content-Type-Options": "nosniff",
    "Referrer-Policy": "no-referrer",
    "Cross-Origin-Opener-Policy": "same-origin",
    "Cross-Origin-Resource-Policy": "same-origin",
}


class Guard:
    """Around the whole application."""

    def __init__(self, app: ASGIApp, settings: Settings) -> None:
        self._app = app
        self._token = settings.token
        # Of the token only a keyed hash is left in the browser; a new start of the page asks nobody again.
        self._cookie = hashlib.sha256(b"qon page " + settings.token.encode()).hexdigest()
        self._names = {*LOOPBACK_NAMES, *settings.hosts} if is_loopback(settings.address) else set()

    async def __call__(self, scope: Scope, receive: Receive, send: Send) -> None:
        if scope["type"] != "http":
            await self._app(scope, receive, send)
            return

        async def guarded(message: Message) -> None:
            if message["type"] == "http.response.start":
                headers = MutableHeaders(raw=message["headers"])
                for name, value in HEADERS.items():
                    headers.setdefault(name, value)
                headers.setdefault("Cache-Control", "no-store")
                message["headers"] = headers.raw
            await send(message)

        request = Request(scope)
        answer = self._refusal(request) or self._entry(request)
        await (answer or self._app)(scope, receive, guarded)

    def _refusal(self, request: Request) -> Response | None:
        """In plain words; what asks like this is seldom a person."""
        headers = request.headers
        if len(request.scope["raw_path"]) + len(request.scope["query_string"]) > ADDRESS_MOST:
            return PlainTextResponse(f"The address is longer than {ADDRESS_MOST} bytes.", 414)
        length = headers.get("content-length", "0")
        if not length.isdecimal() or int(length) > BODY_MOST or "transfer-encoding" in headers:
            return PlainTextResponse(f"A request holds {BODY_MOST} bytes at most and says how many.", 413)
        if self._names and host_name(headers) not in self._names:
            # A page elsewhere that lets its name point to this machine would read along.
            return PlainTextResponse(
                "This name is not known here; start the page with --host NAME to allow it.", 400
            )
        if request.method not in ("GET", "HEAD") and not _same_origin(headers):
            return PlainTextResponse("A change is asked for from another page.", 403)
        return None

    def _entry(self, request: Request) -> Response | None:
        """None for who has shown the token; it is taken out of the address before anything else sees it."""
        if not self._token:
            return None
        given = request.query_params.get("token", "")
        if given and _equal(given, self._token):
            rest = [
                pair for pair in parse_qsl(request.url.query, keep_blank_values=True) if pair[0] != "token"
            ]
            path = "/" + request.url.path.lstrip("/")  # never //host
            answer = RedirectResponse(f"{path}?{urlencode(rest)}" if rest else path, 303)
            answer.set_cookie(COOKIE, self._cookie, max_age=365 * 86400, httponly=True, samesite="lax")
            return answer
        kind, _, bearer = request.headers.get("authorization", "").partition(" ")
        known = _equal(request.cookies.get(COOKIE, ""), self._cookie)
        if known or (kind.lower() == "bearer" and _equal(bearer.strip(), self._token)):
            return None
        _ = translation(language_of(request))
        words = _(
            "This page asks for a token. Open it once with ?token=... behind its address; whoever started it knows it."
        )
        return PlainTextResponse(words, 401, {"WWW-Authenticate": "Bearer"})


def _equal(given: str, wanted: str) -> bool:
    """In a time that tells nothing."""
    return hmac.compare_digest(given.encode(), wanted.encode())


def host_name(headers: Headers) -> str:
    host = headers.get("host", "")
    name, _, port = host.rpartition(":")
    return (name if name and port.isdecimal() else host).lower()


def _same_origin(headers: Headers) -> bool:
    origin = headers.get("origin", "")
    return origin.partition("://")[2] == headers.get("host", "") and bool(origin)


def new_token() -> str:
    return secrets.token_urlsafe(18)
