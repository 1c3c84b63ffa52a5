"""From a request to an answer: what the address asks for, templates, downloads, and errors in words."""

import argparse
import datetime
import http
import uuid
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any
from urllib.parse import urlencode

import jinja2
import msgspec
from markupsafe import Markup
from starlette.requests import Request
from starlette.responses import HTMLResponse, Response

from ..commands.common import parsed_time
from ..records import Outcome
from ..store.base import PRODUCTION, Filter
from . import tables
from .charts import Chart
from .pool import Pool
from .settings import Settings
from .tables import Table
from .texts import COOKIE, LANGUAGES, Translate, language_of, later, plain, translation

PERIODS = {
    "today": later("today"),
    "yesterday": later("since yesterday"),
    "7d": later("7 days"),
    "30d": later("30 days"),
    "90d": later("90 days"),
    "365d": later("a year"),
    "all": later("everything"),
}
DOWNLOADS = ("csv", "json")
ANY = "*"  # of a purpose: all of them
ROWS_MOST = 1000  # of a table on the page
TEXT_MOST = 200  # signs of a field in a form


class BadInput(Exception):
    """Something in the address is wrong; the text says what."""


class NotThere(Exception):
    """There is no such unit, item, file."""


def template_environment() -> jinja2.Environment:
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(Path(__file__).with_name("templates")),
        autoescape=True,
        undefined=jinja2.StrictUndefined,
        finalize=_final,
        trim_blocks=True,
        lstrip_blocks=True,
    )
    environment.globals.update(LANGUAGES=LANGUAGES, ROWS_MOST=ROWS_MOST)
    environment.filters.update(shown=tables.shown, duration=tables.duration, pairs=_pairs)
    return environment


def _pairs(values: Sequence[str]) -> list[tuple[str, str]]:
    """Choices that are called what they are."""
    return [(value, value) for value in values]


def _final(value: Any) -> Any:
    """Of everything that a template puts out, before it is escaped."""
    return plain(value) if isinstance(value, str) and not isinstance(value, Markup) else value


class View:
    """One request: its language, its address, its store."""

    def __init__(self, request: Request) -> None:
        self.request = request
        self.pool: Pool = request.app.state.pool
        self.settings: Settings = request.app.state.settings
        self.language = language_of(request)
        self.gettext: Translate = translation(self.language)

    def text(self, name: str, default: str | None = None) -> str | None:
        """A field of the address; None when it is missing or empty."""
        value = self.request.query_params.get(name, "").strip()
        if len(value) > TEXT_MOST:
            raise BadInput(
                self.gettext("{name} is longer than {most} signs.").format(name=name, most=TEXT_MOST)
            )
        return value or default

    def whole(self, name: str, default: int | None = None, least: int = 0, most: int = 1 << 31) -> int | None:
        value = self.text(name)
        if value is None:
            return default
        if not value.isdecimal() or not least <= int(value[:12]) <= most:
            words = self.gettext("{name} is {value}; a whole number from {least} to {most} is expected.")
            raise BadInput(words.format(name=name, value=value, least=least, most=most))
        return int(value)

    def choice(self, name: str, allowed: Sequence[str], default: str) -> str:
        value = self.text(name) or default
        if value not in allowed:
            words = self.gettext("{name} is {value}; these are known: {allowed}.")
            raise BadInput(words.format(name=name, value=value, allowed=", ".join(allowed)))
        return value

    def filter(self, period: str = "7d", purpose: str | None = PRODUCTION) -> Filter:
        """Which runs the address asks for.  `since` and `until` win over `period`; `purpose=*` stands for all."""
        asked = self.text("purpose", purpose)
        outcome, station = self.text("outcome"), self.text("station")
        since = self.time("since")
        if since is None:
            chosen = self.choice("period", tuple(PERIODS), period)
            since = None if chosen == "all" else parsed_time(chosen)
        try:
            return Filter(
                serial_number=self.text("serial"),
                product=self.text("product"),
                operation=self.text("operation"),
                purpose=None if asked == ANY else asked,
                outcome=Outcome(outcome) if outcome else None,
                station=uuid.UUID(station) if station else None,
                cell=self.whole("cell"),
                operator=self.text("operator"),
                batch=self.text("batch"),
                failed_item=self.text("item"),
                since=since,
                until=self.time("until"),
            )
        except ValueError as error:
            raise BadInput(str(error)) from None

    def time(self, name: str) -> datetime.datetime | None:
        value = self.text(name)
        if value is None:
            return None
        try:
            return parsed_time(value)
        except (argparse.ArgumentTypeError, OverflowError):
            words = self.gettext(
                "{name} is {value}; times are like today, 12h, 7d, 2026-11-21 or 2026-11-21T14:30."
            )
            raise BadInput(words.format(name=name, value=value)) from None

    def here(self, **changes: str | int | None) -> str:
        """This address with other fields; None takes one out."""
        fields = {
            name: value
            for name, value in self.request.query_params.items()
            if value and name not in ("as", "table")
        }
        fields.update({name: str(value) for name, value in changes.items() if value is not None})
        kept = {name: value for name, value in fields.items() if changes.get(name, "") is not None}
        return f"{self.request.url.path}?{urlencode(kept)}" if kept else self.request.url.path

    def respond(
        self,
        template: str,
        title: str,
        found_tables: Sequence[Table] = (),
        charts: Sequence[Chart] = (),
        status: int = 200,
        **context: Any,
    ) -> Response:
        """The page, or the one of its tables that the address asks for (`as=csv&table=...`).

        Sorting is by `sort=TABLE.COLUMN` or `sort=TABLE.-COLUMN`.
        """
        shown = {
            table.name: self._sorted(table) for table in (*found_tables, *(chart.table for chart in charts))
        }
        kind = self.text("as")
        if kind is not None:
            return self._download(shown, kind)
        response = HTMLResponse(
            self.render(
                template, title=title, tables=shown, charts={chart.name: chart for chart in charts}, **context
            ),
            status,
        )
        if self.request.query_params.get("lang") in LANGUAGES:
            response.set_cookie(COOKIE, self.language, max_age=365 * 86400, samesite="lax")
        return response

    def render(self, template: str, **context: Any) -> str:
        state = self.request.app.state
        return str(
            state.templates.get_template(template).render(
                _=self.gettext, view=self, language=self.language, pages=state.pages, version=state.version,
                PERIODS=PERIODS, **context,
            )
        )  # fmt: skip

    def _sorted(self, table: Table) -> Table:
        wanted, _, column = (self.text("sort") or "").partition(".")
        return table.sorted_by(column) if table.sortable and wanted == table.name else table

    def _download(self, shown: Mapping[str, Table], kind: str) -> Response:
        self.choice("as", DOWNLOADS, "csv")
        name = self.choice("table", tuple(shown), next(iter(shown), ""))
        if name not in shown:
            raise NotThere(self.gettext("This page has no table."))
        headers = {"Content-Disposition": f'attachment; filename="{name}.{kind}"'}
        if kind == "csv":
            return Response(tables.as_csv(shown[name]), media_type="text/csv; charset=utf-8", headers=headers)
        return Response(tables.as_json(shown[name]), media_type="application/json", headers=headers)


def plain_json(value: Any) -> bytes:
    """Any record as JSON."""
    return msgspec.json.format(msgspec.json.encode(value), indent=1)


def error_page(view: View, status: int, words: str) -> Response:
    """Never a traceback."""
    titles = {
        400: view.gettext("This cannot be asked"),
        404: view.gettext("There is nothing here"),
        503: view.gettext("The results cannot be read now"),
        504: view.gettext("The question takes too long"),
    }
    title = titles.get(status) or http.HTTPStatus(status).phrase
    return HTMLResponse(view.render("error.html", title=title, words=words, status=status), status)
