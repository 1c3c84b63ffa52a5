"""`fleet`: figures over the archives of many stations."""

import argparse
import os
from pathlib import Path
from typing import Any

import msgspec

from .common import Complaint, percent, print_table, written_whole

MISSING = (
    "Figures over a fleet need packages that are not installed: pip install qon-results[fleet] ({error})."
)


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    parser = commands.add_parser("fleet", help="figures over the archives of many stations, by Dask")
    parser.add_argument(
        "folders", nargs="+", metavar="FOLDER", help="what `archive` wrote; workers see the same path"
    )
    parser.add_argument("--item", metavar="NAME", help="this item alone")
    parser.add_argument(
        "--by", default="", metavar="NAMES", help="plant,station,product,operation or some of them"
    )
    parser.add_argument("--purpose", default="production", help="default: %(default)s; * stands for all")
    parser.add_argument(
        "--scheduler", default="", metavar="ADDRESS", help="like tcp://host:8786; else this machine"
    )
    parser.add_argument(
        "--workers", type=int, metavar="N", help="on this machine (default: one for each core)"
    )
    parser.add_argument("--json", action="store_true", help="print JSON instead of tables")
    parser.add_argument(
        "--output", type=Path, metavar="FILE", help="write JSON, for `qon-results page --fleet FILE`"
    )
    parser.set_defaults(run=run)


def run(given: argparse.Namespace) -> int:
    try:
        from ..fleet.figures import computing, figures
        from ..fleet.files import GROUPS, Asked
    except ImportError as error:
        raise Complaint(MISSING.format(error=error)) from None
    by = tuple(name.strip() for name in given.by.split(",") if name.strip())
    if unknown := [name for name in by if name not in GROUPS]:
        raise Complaint(f"--by has {unknown[0]!r}; these are known: {', '.join(GROUPS)}.")
    if given.workers is not None and given.workers < 1:
        raise Complaint(f"--workers is {given.workers}; at least 1 is needed.")
    asked = Asked(by, given.item, given.purpose)
    with computing(given.scheduler, given.workers):
        found = figures([os.fspath(folder) for folder in given.folders], asked)
    data = msgspec.json.format(msgspec.json.encode(found), indent=1)
    if given.output is not None:
        with written_whole(given.output, overwrite=True) as beside:
            beside.write_bytes(data)
    if given.json:
        print(data.decode())
    elif given.output is None:
        _tables(found)
    return 0


def _tables(found: Any) -> None:
    def number(value: float | None) -> str:
        return "-" if value is None else f"{value:.6g}"

    rows = [
        (*one.group, one.item, one.n, number(one.mean), number(one.sigma), number(one.low), number(one.high),
         one.unit, percent(one.ng_share), one.cpk.reason or number(one.cpk.value))
        for one in found.items
    ]  # fmt: skip
    heads = [*found.by, "item", ">n", ">mean", ">sigma", ">low", ">high", "unit", ">NG share", ">Cpk"]
    print_table(f"{found.measurements} measurements in {found.files} files", heads, rows)
    yields = [
        (*one.group, *(percent(float("nan") if each.value is None else each.value) for each in
                       (one.first_pass, one.final, one.retests)),
         one.counts.first_ok, one.counts.units, one.counts.attempts, one.counts.aborted, one.counts.exceptions,
         one.counts.interrupted)
        for one in found.yields
    ]  # fmt: skip
    heads = [*found.by, ">first pass", ">final", ">retests", ">passed first", ">units", ">judged", ">aborted",
             ">exceptions", ">interrupted"]  # fmt: skip
    note = "\n".join(found.definitions.values()) + f"\nPurpose: {found.purpose}."
    print_table("", heads, yields, note)
    bars = [(*one.group, one.item, one.first, percent(one.cumulative), one.runs) for one in found.pareto]
    print_table("", [*found.by, "item", ">first", ">cumulative", ">all"], bars)
