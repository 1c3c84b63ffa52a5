"""A unit's page: everything kept about it, its attempts side by side, and what has changed since."""

import difflib
from collections import Counter
from urllib.parse import quote, urlencode

from starlette.requests import Request
from starlette.responses import Response
from starlette.routing import Route

from ..capsule import capsule_of
from ..commands.units import safe_name
from ..records import Measurement, Record, Verdict
from ..store.base import Filter, Store
from .tables import Column, Link, Table, When, number
from .units import place_of
from .view import NotThere, View, plain_json

PAGE = None
SIDE_BY_SIDE = 6  # attempts
TEXT_MOST = 256 << 10  # bytes of a file that are shown
DIFFERENCE_MOST = 400  # lines


class Unit:
    """What the page needs, read in a store's thread."""

    def __init__(self, store: Store, which: str) -> None:
        try:
            run = store.run(which)
        except KeyError as error:
            raise NotThere(error.args[0]) from None
        self.runs = store.attempts(run)
        self.record = store.record(run.id)
        near = sorted(self.runs, key=lambda each: (each.id != run.id, -each.begin_us))[:SIDE_BY_SIDE]
        beside = sorted(near, key=lambda each: each.begin_us)
        self.records = [self.record if each.id == run.id else store.record(each.id) for each in beside]
        newest = store.runs(Filter(product=run.product, operation=run.operation), 1)
        self.newest: Record | None = None
        if newest and newest[0].id != run.id:
            self.newest = store.record(newest[0].id)
        self.script = self._text(store, self.record.setup.script_sha256)
        self.script_now = self._text(store, self.newest.setup.script_sha256) if self.newest else None
        self.texts = {each.number: self._text(store, each.sha256) for each in self.record.attachments}

    @staticmethod
    def _text(store: Store, sha256: bytes | None) -> str | None:
        """None for what is not kept, long, or no text."""
        try:
            data = store.content(sha256) if sha256 is not None else b"\0"
            return None if len(data) > TEXT_MOST or b"\0" in data else data.decode("utf-8")
        except (KeyError, UnicodeDecodeError):
            return None


async def unit(request: Request) -> Response:
    view = View(request)
    history = request.app.state.history
    which = request.path_params["id"]

    def read(store: Store) -> Unit:
        history.refresh(store)
        return Unit(store, which)

    found = await view.pool.ask(read)
    run = found.record.run
    return view.respond(
        "unit.html",
        run.serial_number or view.gettext("A unit without a number"),
        [_attempts(view, found), _side_by_side(view, found), _limits(view, found), _events(view, found)],
        run=run,
        record=found.record,
        facts=_facts(view, found.record),
        files=_files(view, found),
        script=found.script,
        difference=_difference(found),
        newest=found.newest,
    )


def _attempts(view: View, found: Unit) -> Table:
    _ = view.gettext
    columns = [
        Column("attempt", _("Attempt"), "count"), Column("begin", _("Begin"), "time"),
        Column("outcome", _("Outcome"), "outcome"), Column("reason", _("Why")), Column("duration", _("Lasted"), "duration"),
        Column("place", _("Place")), Column("operator", _("Operator")), Column("measured", _("Measured"), "count"),
        Column("ng", _("NG"), "count"),
    ]  # fmt: skip
    rows: list[tuple[object, ...]] = []
    marks: dict[int, str] = {}
    for place, run in enumerate(found.runs):
        if run.id == found.record.run.id:
            marks[place] = "chosen"
        rows.append(
            (
                place + 1, Link(When(run.begin_us, run.utc_offset_s), f"/unit/{run.id}"), str(run.outcome),
                run.reason or run.first_ng, run.duration_us, place_of(view, run), run.operator, run.measured, run.ng,
            )
        )  # fmt: skip
    return Table("attempts", columns, rows, marks=marks)


def _side_by_side(view: View, found: Unit) -> Table:
    """One row an item; the n-th time that an attempt measured it stands beside the n-th time of the others."""
    _ = view.gettext
    numbers = {run.id: place for place, run in enumerate(found.runs, 1)}
    columns = [
        Column("item", _("Item")),
        Column("lower", _("Lower"), "number"),
        Column("upper", _("Upper"), "number"),
    ]
    columns += [Column("unit", _("Unit of measure"))]
    for record in found.records:
        head = _("Attempt {number}").format(number=numbers[record.run.id])
        columns.append(Column(f"attempt_{numbers[record.run.id]}", head, "number"))
    measured = [_by_item(record) for record in found.records]
    keys = list(dict.fromkeys(key for each in measured for key in each))
    rows: list[tuple[object, ...]] = []
    marks: dict[int, str] = {}
    for key in keys:
        there = [each.get(key) for each in measured]
        last = next(each for each in reversed(there) if each is not None)
        verdicts = {each.verdict for each in there if each is not None}
        if len(verdicts) > 1 or len({(each.lower, each.upper) for each in there if each is not None}) > 1:
            marks[len(rows)] = "changed"
        elif Verdict.NG in verdicts:
            marks[len(rows)] = "NG"
        address = urlencode(
            {"name": key[0], "product": found.record.run.product, "operation": found.record.run.operation}
        )
        item = Link(key[0], f"/items/item?{address}")
        rows.append((item, last.lower, last.upper, last.unit, *(_value(each) for each in there)))
    note = _(
        "✘ is NG. Yellow rows ended otherwise, or were judged by other limits, in one attempt than in another."
    )
    return Table("measurements", columns, rows, note, marks=marks)


def _by_item(record: Record) -> dict[tuple[str, int], Measurement]:
    times: Counter[str] = Counter()
    found = {}
    for each in record.measurements:
        times[each.item] += 1
        found[each.item, times[each.item]] = each
    return found


def _value(each: Measurement | None) -> object:
    if each is None:
        return None
    if each.verdict == Verdict.OK and not isinstance(each.value, bool):
        return each.value
    sign = {Verdict.NG: "✘ ", Verdict.TBD: "◌ "}.get(each.verdict, "")
    return sign + ("" if each.value is None else number(each.value))


def _limits(view: View, found: Unit) -> Table:
    """What these items are judged by in the newest run of the product, where that differs."""
    _ = view.gettext
    columns = [
        Column("item", _("Item")), Column("lower_then", _("Lower then"), "number"),
        Column("lower_now", _("Lower now"), "number"), Column("upper_then", _("Upper then"), "number"),
        Column("upper_now", _("Upper now"), "number"),
    ]  # fmt: skip
    now = {each.item: each for each in found.newest.measurements} if found.newest else {}
    rows = [
        (each.item, each.lower, now[each.item].lower, each.upper, now[each.item].upper)
        for each in {each.item: each for each in found.record.measurements}.values()
        if each.item in now and (each.lower, each.upper) != (now[each.item].lower, now[each.item].upper)
    ]
    return Table("limits", columns, rows)


def _events(view: View, found: Unit) -> Table:
    _ = view.gettext
    columns = [Column("at", _("At"), "time"), Column("kind", _("What")), Column("text", _("Text"))]
    offset = found.record.run.utc_offset_s
    return Table(
        "events", columns, [(When(each.at_us, offset), each.kind, each.text) for each in found.record.events]
    )


def _facts(view: View, record: Record) -> list[tuple[str, str]]:
    _ = view.gettext
    run, setup = record.run, record.setup
    versions = ", ".join(f"{name} {version}" for name, version in sorted(setup.versions.items()))
    corrections = [f"{each.outcome}: {each.reason}" for each in record.corrections]
    instruments = [
        _("{name}: {identity}, calibration due {due}").format(
            name=each.name, identity=each.identity, due=each.calibration_due or "?"
        )
        for each in record.instruments
    ]
    scanned = run.scanned if run.scanned != run.serial_number else ""
    facts = [
        (_("Why"), run.reason or run.first_ng), (_("Product"), run.product), (_("Operation"), run.operation),
        (_("Purpose"), run.purpose), (_("Batch"), run.batch), (_("Operator"), run.operator),
        (_("Place"), f"{place_of(view, run)} ({setup.host})"), (_("Scanned as"), scanned), (_("Script"), setup.script),
        (_("Limits"), setup.limits), (_("Versions"), versions), (_("Run"), str(run.id)),
        *((_("Corrected"), text) for text in corrections), *((_("Instrument"), text) for text in instruments),
        (_("Seal"), record.seals[-1].chain.hex() if record.seals else _("not sealed yet")),
    ]  # fmt: skip
    return [(name, text) for name, text in facts if text]


def _files(view: View, found: Unit) -> list[tuple[str, str, int | None, str | None]]:
    """Name, address, bytes and text of what a run was made with and of what is attached to it."""
    _ = view.gettext
    setup, address = found.record.setup, f"/unit/{found.record.run.id}/file"
    kept = [
        (_("Script"), setup.script_sha256), (_("Limits"), setup.limits_sha256),
        (_("Configuration"), setup.config_sha256), (_("Parameters"), setup.parameters_sha256),
    ]  # fmt: skip
    files: list[tuple[str, str, int | None, str | None]] = [
        (name, f"{address}/{sha256.hex()}", None, None) for name, sha256 in kept if sha256 is not None
    ]
    for each in found.record.attachments:
        files.append((each.name, f"{address}/{each.sha256.hex()}", each.size, found.texts[each.number]))
    return files


def _difference(found: Unit) -> list[str]:
    """The script's lines that differ from those of the newest run."""
    if found.script is None or found.script_now is None or found.script == found.script_now:
        return []
    then, now = found.script.splitlines(), found.script_now.splitlines()
    return list(difflib.unified_diff(then, now, "then", "now", lineterm="", n=2))[:DIFFERENCE_MOST]


async def capsule(request: Request) -> Response:
    view = View(request)

    def write(store: Store) -> tuple[str, str]:
        record = _record(store, request.path_params["id"])
        return safe_name(record), capsule_of(store, record)

    name, page = await view.pool.ask(write)
    return _file(page.encode(), f"{name}.html", "text/html; charset=utf-8")


async def record_json(request: Request) -> Response:
    view = View(request)
    record = await view.pool.ask(lambda store: _record(store, request.path_params["id"]))
    return _file(plain_json(record), f"{safe_name(record)}.json", "application/json")


async def content(request: Request) -> Response:
    """A script, workbook or attachment of this run and of no other."""
    view = View(request)
    wanted = request.path_params["sha256"].lower()

    def read(store: Store) -> tuple[str, bytes]:
        record = _record(store, request.path_params["id"])
        setup = record.setup
        names: dict[bytes | None, str] = {
            setup.script_sha256: setup.script, setup.limits_sha256: setup.limits, setup.config_sha256: setup.config,
            setup.parameters_sha256: "parameters", **{each.sha256: each.name for each in record.attachments},
        }  # fmt: skip
        for sha256, name in names.items():
            if sha256 is not None and sha256.hex() == wanted:
                try:
                    return name, store.content(sha256)
                except KeyError as error:
                    raise NotThere(error.args[0]) from None
        raise NotThere(view.gettext("This run has no such file."))

    name, data = await view.pool.ask(read)
    return _file(data, name.replace("\\", "/").rpartition("/")[2] or "file", "application/octet-stream")


def _record(store: Store, which: str) -> Record:
    try:
        return store.record(which)
    except KeyError as error:
        raise NotThere(error.args[0]) from None


def _file(data: bytes, name: str, kind: str) -> Response:
    """To be saved, never shown by the browser under this address."""
    simple = "".join(each if each.isascii() and (each.isalnum() or each in "-_. ") else "_" for each in name)
    disposition = f"attachment; filename=\"{simple}\"; filename*=UTF-8''{quote(name, safe='')}"
    return Response(data, media_type=kind, headers={"Content-Disposition": disposition})


ROUTES = [
    Route("/unit/{id}", unit),
    Route("/unit/{id}/capsule", capsule),
    Route("/unit/{id}/record.json", record_json),
    Route("/unit/{id}/file/{sha256}", content),
]
