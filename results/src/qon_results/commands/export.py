"""`export`: measurements as CSV, JSON Lines or Parquet."""

import argparse
from pathlib import Path

from ..export import FORMATS, export
from .common import Complaint, add_filter, add_source, opened, print_json, progress, wanted, written_whole


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    parser = commands.add_parser("export", help="write measurements as CSV, JSON Lines or Parquet")
    add_source(parser)
    add_filter(parser)
    parser.add_argument(
        "output", type=Path, metavar="FILE", help="its ending is the format: " + ", ".join(FORMATS)
    )
    parser.add_argument("--force", action="store_true", help="replace a file that is there")
    parser.set_defaults(run=write)


def write(given: argparse.Namespace) -> int:
    suffix = given.output.suffix.lower()
    if suffix not in FORMATS:
        raise Complaint(f"{given.output}: the ending tells the format, one of {', '.join(FORMATS)}.")
    with (
        opened(given) as store,
        written_whole(given.output, given.force) as beside,
        progress("exporting") as told,
    ):
        rows = export(store, wanted(given), beside, suffix, told)
    if given.json:
        print_json({"file": str(given.output), "measurements": rows})
    else:
        print(f"{given.output}: {rows} measurements")
    return 0
