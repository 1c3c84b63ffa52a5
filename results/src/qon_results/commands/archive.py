"""`archive`: the measurements of whole months into Parquet."""

import argparse
import datetime
from pathlib import Path

from ..store.archiving import ArchiveError, archive
from ..store.file import FILE_NAME
from ..writer.lock import InUseError
from .common import Complaint, add_source, print_json, print_table, progress


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    parser = commands.add_parser(
        "archive", help="move the measurements of whole months into Parquet files beside the station's file"
    )
    add_source(parser)
    parser.add_argument(
        "--before",
        type=_date,
        required=True,
        metavar="DATE",
        help="months that ended before the month of this date",
    )
    parser.add_argument("--plant", default="plant", help="name of the topmost folder")
    parser.set_defaults(run=run)


def _date(text: str) -> datetime.date:
    try:
        return datetime.date.fromisoformat(f"{text}-01" if len(text) == 7 else text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is no date like 2026-11-01") from None


def run(given: argparse.Namespace) -> int:
    path = Path(given.results)
    path = path / FILE_NAME if path.is_dir() else path
    if not path.is_file():
        raise Complaint(f"There are no results at {path}; only a station's file can be archived.")
    try:
        with progress("archiving") as told:
            months = archive(path, given.before, given.plant, told)
    except (ArchiveError, InUseError) as error:
        raise Complaint(str(error)) from None
    if given.json:
        print_json([{"month": each.month, "runs": each.runs, "path": str(each.path)} for each in months])
        return 0
    print_table(
        "",
        ["month", ">runs", ">measurements", "file"],
        [(m.month, m.runs, m.measurements, m.path) for m in months],
    )
    return 0
