"""`units` lists runs, `unit` shows one, `capsule` writes one into a file that tells everything by itself."""

import argparse
import sys
import uuid
from pathlib import Path

from ..capsule import capsule_of
from ..records import Measurement, Record, Run, Verdict
from .common import (
    Complaint,
    add_filter,
    add_source,
    opened,
    print_json,
    print_table,
    said,
    seconds,
    told,
    wanted,
    written_whole,
)

SHOWN = 50


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    units = commands.add_parser("units", help="list runs, the newest first")
    add_source(units)
    add_filter(units)
    units.add_argument(
        "--limit", type=int, default=SHOWN, metavar="N", help=f"at most N runs (default {SHOWN}; 0: all)"
    )
    units.set_defaults(run=list_units)
    unit = commands.add_parser("unit", help="show everything about one run")
    add_source(unit)
    unit.add_argument("id", help="of the run, or its beginning")
    unit.set_defaults(run=show_unit)
    capsule = commands.add_parser(
        "capsule", help="write one run as a HTML file that needs no program of ours"
    )
    add_source(capsule)
    capsule.add_argument("id", help="of the run, or its beginning")
    capsule.add_argument(
        "-o", "--output", type=Path, metavar="FILE", help="default: SERIAL-ID.html; - for standard output"
    )
    capsule.add_argument("--force", action="store_true", help="replace a file that is there")
    capsule.set_defaults(run=write_capsule)


def list_units(given: argparse.Namespace) -> int:
    with opened(given) as store:
        runs = store.runs(wanted(given), given.limit or None)
        if given.json:
            print_json(runs)
            return 0
        stations = {station.id: station.name for station in store.stations()}
    columns = [
        "id",
        "serial number",
        "outcome",
        "begin",
        ">lasted",
        "cell",
        "product",
        "operation",
        ">items",
        "why",
    ]
    rows = [
        [
            run.id.hex[:13], run.serial_number, run.outcome, told(run.begin_us, run.utc_offset_s),
            seconds(run.duration_us), place(run, stations), run.product, run.operation, run.measured, said(run),
        ]
        for run in runs
    ]  # fmt: skip
    more = (
        f"The newest {len(runs)} runs; --limit 0 lists all."
        if given.limit and len(runs) == given.limit
        else ""
    )
    print_table("", columns, rows, more or f"{len(runs)} runs")
    return 0


def place(run: Run, stations: dict[uuid.UUID, str]) -> str:
    return str(run.cell) if len(stations) < 2 else f"{stations.get(run.station, '?')}/{run.cell}"


def show_unit(given: argparse.Namespace) -> int:
    with opened(given) as store:
        record = store.record(given.id)
        attempts = store.attempts(record.run)
    if given.json:
        print_json(record)
        return 0
    run = record.run
    rows = [
        ("id", run.id),
        ("serial number", run.serial_number if run.serial_number == run.scanned else f"{run.serial_number} (scanned as {run.scanned})"),
        ("outcome", run.outcome),
        ("why", said(run)),
        ("attempt", f"{[each.id for each in attempts].index(run.id) + 1} of {len(attempts)}"),
        ("begin, end", f"{told(run.begin_us, run.utc_offset_s)}, {told(run.end_us, run.utc_offset_s)} ({seconds(run.duration_us)})"),
        ("cell", f"{run.cell} at {record.setup.host}, run number {run.number}"),
        ("product, operation, purpose", f"{run.product}, {run.operation}, {run.purpose}"),
        ("operator, batch", f"{run.operator or '-'}, {run.batch or '-'}"),
        ("script", record.setup.script),
        ("limits", record.setup.limits),
        *(("correction", f"{told(each.at_us)}: {each.outcome}, {each.reason}") for each in record.corrections),
        *(("instrument", f"{each.name}: {each.identity}, calibration due {each.calibration_due or '?'}") for each in record.instruments),
        *(("attachment", f"{each.name} ({each.size} bytes)") for each in record.attachments),
        *(("event", f"{told(each.at_us, run.utc_offset_s)} {each.kind}: {each.text}") for each in record.events),
    ]  # fmt: skip
    print_table("", ["what", "value"], [(what, value) for what, value in rows if value])
    items = [">#", "item", ">value", ">lower", ">upper", "unit", "verdict", ">attempt", "note"]
    print_table("", items, [item_row(each) for each in record.measurements])
    if run.details:
        print(run.details)
    return 0


def item_row(each: Measurement) -> list[object]:
    verdict = Verdict(each.verdict).name
    return [
        each.seq + 1, each.item, each.value, each.lower, each.upper, each.unit, verdict, each.attempt, each.note,
    ]  # fmt: skip


def write_capsule(given: argparse.Namespace) -> int:
    with opened(given) as store:
        record = store.record(given.id)
        page = capsule_of(store, record)
    if str(given.output) == "-":
        sys.stdout.write(page)
        return 0
    path = given.output or Path(f"{safe_name(record)}.html")
    if path.is_dir():
        raise Complaint(f"{path} is a folder; name the file.")
    with written_whole(path, given.force) as beside:
        beside.write_text(page, encoding="utf-8")
    print(path)
    return 0


def safe_name(record: Record) -> str:
    """Of the serial number what a file name can hold, and the run's id."""
    serial = "".join(
        each if each.isalnum() or each in "-_" else "_" for each in record.run.serial_number or "unit"
    )
    return f"{serial[:60]}-{record.run.id.hex[:13]}"
