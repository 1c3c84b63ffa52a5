"""`page`: the line at a glance in a browser."""

import argparse
import os
import re
import sys
from pathlib import Path

from .common import VARIABLE, Complaint

TOKEN = "QON_PAGE_TOKEN"
MISSING = "The page needs packages that are not installed: pip install qon-results[page] ({error})."


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    parser = commands.add_parser("page", help="show the line and its results in a browser")
    parser.add_argument(
        "--results", metavar="WHERE", default=os.environ.get(VARIABLE, "."),
        help=f"a station's folder or file, or the address of a line's database (default: ${VARIABLE}, else this folder)",
    )  # fmt: skip
    parser.add_argument(
        "--address", default="127.0.0.1", help="to listen at (default: %(default)s, this machine alone)"
    )
    parser.add_argument("--port", type=int, default=8480, help="default: %(default)s")
    parser.add_argument(
        "--token", metavar="TEXT", default=os.environ.get(TOKEN, ""),
        help=f"what a browser has to show once; needed for another address than this machine's (default: ${TOKEN})",
    )  # fmt: skip
    parser.add_argument(
        "--host", metavar="NAME", action="append", default=[],
        help="a name under which a proxy on this machine is reached; may be repeated",
    )  # fmt: skip
    parser.add_argument(
        "--shifts",
        metavar="TIMES",
        default="06:00,14:00,22:00",
        help="when shifts begin (default: %(default)s)",
    )
    parser.add_argument("--by-operator", action="store_true", help="allow figures by operator")
    parser.add_argument(
        "--alarm-budget", metavar="N", type=float, default=1.0,
        help="false alarms a day that the whole line may cost (default: %(default)g)",
    )  # fmt: skip
    parser.add_argument(
        "--figures", metavar="FOLDER", type=Path,
        help="where the page keeps its figures and acknowledged alarms (default: beside a station's file, or "
        "~/.local/share/qon-results for a line)",
    )  # fmt: skip
    parser.add_argument(
        "--fleet",
        default="",
        metavar="FILE",
        help="figures of many stations, from `qon-results fleet --output FILE`",
    )
    parser.set_defaults(run=run_page)


def run_page(given: argparse.Namespace) -> int:
    try:
        from ..page.server import bound, serve
        from ..page.settings import Settings, shifts_of
    except ImportError as error:
        raise Complaint(MISSING.format(error=error)) from None
    try:
        shifts = shifts_of(given.shifts)
    except ValueError:
        raise Complaint(f"--shifts is {given.shifts!r}; times like 06:00,14:00,22:00 are expected.") from None
    settings = Settings(
        given.results, given.address, given.port, given.token, tuple(name.lower() for name in given.host), shifts,
        given.by_operator, given.alarm_budget, figures=given.figures,
        fleet=given.fleet,
    )  # fmt: skip
    if not re.match(r"postgres(ql)?://|\w+=", given.results) and not os.path.exists(given.results):
        print(
            f"There is nothing at {given.results} yet; the page shows it as soon as there is.",
            file=sys.stderr,
        )
    listening = bound(settings)
    print(f"The page is at {settings.url}  (Ctrl+C ends it)", flush=True)
    serve(settings, listening)
    return 0
