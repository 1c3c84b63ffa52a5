"""`send` and `line`: a line of stations in one database."""

import argparse
import os
import time
from pathlib import Path

from ..store.file import FILE_NAME
from .common import Complaint, add_source, print_json, progress

ADDRESS = "QON_LINE"


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    send = commands.add_parser("send", help="send what waits to the line's database, now")
    add_source(send)
    _add_address(send)
    send.set_defaults(run=send_all)
    line = commands.add_parser("line", help="make a line's database, or a server for a trial")
    steps = line.add_subparsers(dest="step", required=True, metavar="STEP")
    make = steps.add_parser("make", help="make the tables in an empty database")
    _add_address(make)
    make.set_defaults(run=make_tables)
    months = steps.add_parser("months", help="make parts for the months to come; once a month or so")
    _add_address(months)
    months.add_argument("--ahead", type=int, default=12, metavar="N")
    months.set_defaults(run=make_months)
    trial = steps.add_parser(
        "trial", help="start a PostgreSQL server of one's own for a trial, reached from here alone"
    )
    trial.add_argument("folder", type=Path, help="for its data; made if it is not there")
    trial.add_argument("--stop", action="store_true", help="stop it")
    trial.set_defaults(run=run_trial)


def _add_address(parser: argparse.ArgumentParser) -> None:
    parser.add_argument(
        "--line", metavar="ADDRESS", default=os.environ.get(ADDRESS),
        help=f"as libpq takes it, without a password: service=line3, or an URL (default: ${ADDRESS})",
    )  # fmt: skip


def _address(given: argparse.Namespace) -> str:
    if not given.line:
        raise Complaint(f"Which database? Give --line, or set {ADDRESS}.")
    return str(given.line)


def send_all(given: argparse.Namespace) -> int:
    from ..line.sending import Feed, Source

    path = Path(given.results)
    source = Source(path / FILE_NAME if path.is_dir() else path)
    feed = Feed(source, _address(given))
    begin = time.monotonic()
    try:
        newest = source.newest()
        with progress("sending") as told:
            while feed.send():
                told(feed.position, newest)
        feed.tell_now()
    finally:
        feed.close()
        source.close()
    if given.json:
        print_json({"seal": feed.position, "seconds": time.monotonic() - begin})
    else:
        print(f"The line has everything up to seal {feed.position}.")
    return 0


def make_tables(given: argparse.Namespace) -> int:
    from ..line.administration import make

    print("The tables are made." if make(_address(given)) else "The tables are there already.")
    return 0


def make_months(given: argparse.Namespace) -> int:
    from ..line.administration import add_months

    print(f"{add_months(_address(given), given.ahead)} months added.")
    return 0


def run_trial(given: argparse.Namespace) -> int:
    from ..line.administration import Trial

    trial = Trial(given.folder.resolve())
    if given.stop:
        trial.stop()
        print("The server has stopped; its data stay.")
        return 0
    trial.start()
    print(f"A server runs.  Its address:\n\n    {trial.address}\n")
    print(f"qon-results line trial {given.folder} --stop  ends it.")
    return 0
