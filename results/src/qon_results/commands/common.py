"""What the commands share: where the results are, which runs are meant, tables and JSON."""

import argparse
import datetime
import math
import os
import re
import sys
import uuid
from collections.abc import Iterable, Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import msgspec
from rich.console import Console
from rich.markup import escape
from rich.progress import BarColumn, MofNCompleteColumn, TextColumn, TimeRemainingColumn
from rich.progress import Progress as Bar
from rich.table import Table

import qon_results

from ..records import Outcome, Run
from ..store.base import Filter, Progress, Store, moment

VARIABLE = "QON_RESULTS"
STYLES = {
    "OK": "green",
    "NG": "bold red",
    "TBD": "yellow",
    "ABORTED": "cyan",
    "EXCEPTION": "cyan",
    "INTERRUPTED": "cyan",
}


class Complaint(Exception):
    """What is wrong with the command, in words for whoever typed it."""


def complain(error: Exception) -> None:
    text = error.args[0] if isinstance(error, KeyError) and error.args else error
    print(f"qon-results: {text}", file=sys.stderr)


def add_source(parser: argparse.ArgumentParser) -> None:
    parser.add_argument(
        "--results", metavar="WHERE", default=os.environ.get(VARIABLE, "."),
        help=f"a station's folder or file, or the address of a line's database (default: ${VARIABLE}, else this folder)",
    )  # fmt: skip
    parser.add_argument("--json", action="store_true", help="print JSON instead of a table")


def add_filter(parser: argparse.ArgumentParser) -> None:
    group = parser.add_argument_group("which runs")
    group.add_argument("--serial", metavar="NUMBER", help="serial number; * stands for any text")
    for name, text in (
        ("product", "product"), ("operation", "process step"), ("purpose", "production, engineering, ..."),
        ("operator", "operator"), ("batch", "batch"),
    ):  # fmt: skip
        group.add_argument(f"--{name}", metavar=name.upper(), help=text)
    group.add_argument(
        "--outcome", type=str.upper, choices=[str(each) for each in Outcome], help="how they ended"
    )
    group.add_argument("--failed", metavar="ITEM", help="an item that was NG")
    group.add_argument("--cell", type=int, metavar="N")
    group.add_argument("--station", type=_id, metavar="ID", help="of a line's database")
    when = "today, yesterday, 12h, 7d, 2026-11-21 or 2026-11-21T14:30"
    group.add_argument("--since", type=parsed_time, metavar="TIME", help=when)
    group.add_argument("--until", type=parsed_time, metavar="TIME", help="the same, exclusive")


def wanted(given: argparse.Namespace, purpose: str | None = None) -> Filter:
    """The filter of the arguments; `purpose` where none was given."""
    return Filter(
        serial_number=given.serial, product=given.product, operation=given.operation,
        purpose=given.purpose or purpose, outcome=Outcome(given.outcome) if given.outcome else None,
        station=given.station, cell=given.cell, operator=given.operator, batch=given.batch,
        failed_item=given.failed, since=given.since, until=given.until,
    )  # fmt: skip


def _id(text: str) -> uuid.UUID:
    try:
        return uuid.UUID(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is no id of a station") from None


def parsed_time(text: str, now: datetime.datetime | None = None) -> datetime.datetime:
    """A moment in local time: a date, a date with time, a word, or how long ago."""
    here = (now or datetime.datetime.now()).astimezone()
    midnight = here.replace(hour=0, minute=0, second=0, microsecond=0)
    if text == "today":
        return midnight
    if text == "yesterday":
        return midnight - datetime.timedelta(days=1)
    if ago := re.fullmatch(r"(\d+)([mhdw])", text):
        unit = {"m": "minutes", "h": "hours", "d": "days", "w": "weeks"}[ago[2]]
        return here - datetime.timedelta(**{unit: int(ago[1])})
    try:
        return datetime.datetime.fromisoformat(text).astimezone()
    except ValueError:
        raise argparse.ArgumentTypeError(
            f"{text!r} is no time: today, yesterday, 12h, 7d, 2026-11-21 and 2026-11-21T14:30 are"
        ) from None


def opened(given: argparse.Namespace) -> Store:
    return qon_results.open(given.results)


def print_json(value: Any) -> None:
    """As JSON, with ids and hashes as hexadecimal text."""
    print(msgspec.json.format(msgspec.json.encode(value, enc_hook=_plain), indent=2).decode())


def _plain(value: Any) -> Any:
    if hasattr(value, "tolist"):
        return value.tolist()
    raise TypeError(f"{type(value).__name__} has no JSON form")


def print_table(title: str, columns: Sequence[str], rows: Iterable[Sequence[object]], note: str = "") -> None:
    """Columns that begin with ">" are aligned right.  What comes from results is text, never markup."""
    table = Table(title=escape(title) or None, header_style="bold", expand=False)
    for name in columns:
        table.add_column(
            name.lstrip(">"), justify="right" if name.startswith(">") else "left", overflow="fold"
        )
    for row in rows:
        table.add_row(*(_cell(value) for value in row))
    console = _console()
    console.print(table)
    if note:
        console.print(escape(note))


def _cell(value: object) -> str:
    text = "" if value is None else printable(str(value))
    return f"[{STYLES[text]}]{text}[/]" if text in STYLES else escape(text)


def printable(text: str) -> str:
    """Without control characters, which a terminal would obey."""
    return "".join(each if each.isprintable() else repr(each)[1:-1] for each in text)


def _console() -> Console:
    # A file gets whole lines; a terminal folds them.
    return Console(highlight=False, width=None if sys.stdout.isatty() else 200)


def told(us: int | None, offset_s: int | None = None) -> str:
    """Local time of the station, to the second."""
    return "" if us is None else moment(us, offset_s).strftime("%Y-%m-%d %H:%M:%S")


def seconds(us: int | None) -> str:
    return "" if us is None else f"{us / 1e6:.1f} s"


def percent(value: float) -> str:
    return "-" if math.isnan(value) else f"{100 * value:.2f} %"


def said(run: Run) -> str:
    """Why the run ended as it did, in one line."""
    return printable(run.reason or (run.first_ng or ""))


@contextmanager
def progress(what: str) -> Iterator[Progress]:
    """A bar on standard error, when that is a terminal."""
    columns = (TextColumn("{task.description}"), BarColumn(), MofNCompleteColumn(), TimeRemainingColumn())
    with Bar(*columns, console=Console(stderr=True), disable=not sys.stderr.isatty(), transient=True) as bar:
        task = bar.add_task(what, total=None)
        yield lambda done, of: bar.update(task, completed=done, total=of)


@contextmanager
def written_whole(path: Path, overwrite: bool = False) -> Iterator[Path]:
    """Gives a name beside `path` to write to; it takes the place of `path` at the end, or goes."""
    if path.exists() and not overwrite:
        raise Complaint(f"{path} is there already; give --force to replace it.")
    beside = path.with_name(f".{path.name}.{os.getpid()}.part")
    try:
        yield beside
        os.replace(beside, path)
    finally:
        beside.unlink(missing_ok=True)
