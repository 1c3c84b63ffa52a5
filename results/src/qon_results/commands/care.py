"""`verify`, `status` and `backup`: what keeps results trustworthy."""

import argparse
import time
from collections.abc import Iterator
from pathlib import Path

import apsw

from ..line.postgres import LineStore
from ..records import Now, Seal
from ..store.base import Filter, Store
from ..store.file import connect
from ..store.sqlite import SqliteStore
from .common import (
    Complaint,
    add_source,
    opened,
    print_json,
    print_table,
    progress,
    told,
    written_whole,
)

PAGES = 2000  # copied at a time
FRESH_US = 5_000_000  # of a heartbeat


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    check = commands.add_parser("verify", help="check every hash, the chain and the numbers")
    add_source(check)
    check.add_argument(
        "--chain", metavar="HASH", help="the newest seal's hash, or its beginning, as somebody else holds it"
    )
    check.set_defaults(run=verify)
    status = commands.add_parser(
        "status", help="what stands at the cells, what waits to be sent, how much there is"
    )
    add_source(status)
    status.set_defaults(run=show_status)
    backup = commands.add_parser("backup", help="copy a station's file, also while the station runs")
    add_source(backup)
    backup.add_argument("output", type=Path, metavar="FILE")
    backup.add_argument("--force", action="store_true", help="replace a file that is there")
    backup.set_defaults(run=make_backup)


def verify(given: argparse.Namespace) -> int:
    with opened(given) as store, progress("verifying") as told_progress:
        found = store.verify(told_progress)
        held = given.chain.lower() if given.chain else ""
        known = not held or any(seal.chain.hex().startswith(held) for seal in _all_seals(store))
    if given.json:
        print_json({"verification": found, "chain": found.chain.hex(), "holds_the_given_chain": known})
    elif found.fault is not None:
        place = f" (run {found.fault.run})" if found.fault.run is not None else ""
        print(f"WRONG: {found.fault.text}{place}")
    else:
        print(
            f"{found.runs} runs, {found.measurements} measurements, {found.seals} seals: all as they were sealed."
        )
        print(f"chain {found.chain.hex()}")
    if not known and not given.json:
        print(f"WRONG: no seal has the chain {given.chain}: what was there has been changed or taken away.")
    return int(found.fault is not None or not known)


def _all_seals(store: Store) -> Iterator[Seal]:
    after = 0
    while seals := store.seals(after):
        yield from seals
        after = seals[-1].number


def show_status(given: argparse.Namespace) -> int:
    now_us = time.time_ns() // 1000
    with opened(given) as store:
        cells = _cells(store)
        stations = store.stations()
        last = store.runs(limit=1)
        open_runs = [run for run in store.runs(Filter(), 200) if run.outcome == "RUNNING"]
        size = store.path.stat().st_size if isinstance(store, SqliteStore) else None
    if given.json:
        print_json(
            {"stations": stations, "cells": cells, "last_run": last, "running": open_runs, "bytes": size}
        )
        return 0
    rows = [
        (f"{name} / {each.cell}" if name else each.cell, each.state if _fresh(each, now_us) else f"no word since {told(each.heartbeat_us)}",
         each.serial_number, told(each.since_us), each.measured)
        for name, each in cells
    ]  # fmt: skip
    print_table(
        ", ".join(each.name for each in stations), ["cell", "state", "unit", "since", ">measured"], rows
    )
    if last:
        print(f"Newest run: {told(last[0].begin_us, last[0].utc_offset_s)}, {last[0].outcome}.")
    if size is not None:
        print(f"{given.results}: {size / 1e6:.1f} MB.")
    return 0


def _cells(store: Store) -> list[tuple[str, Now]]:
    """Each with its station's name where there are several."""
    if not isinstance(store, LineStore):
        return [("", each) for each in store.now()]
    names = {station.id: station.name for station in store.stations()}
    return [(names.get(station, "?"), each) for station, each in store.now_of_stations()]


def _fresh(cell: Now, now_us: int) -> bool:
    return now_us - cell.heartbeat_us < FRESH_US


def make_backup(given: argparse.Namespace) -> int:
    with opened(given) as store:
        if not isinstance(store, SqliteStore):
            raise Complaint(
                "A line's database is backed up with its own tools (pg_dump); this command copies a station's file."
            )
        source = store.path
    with written_whole(given.output, given.force) as beside, progress("copying") as told_progress:
        reader = connect(source, write=False)
        target = apsw.Connection(str(beside))
        try:
            with target.backup("main", reader, "main") as copy:
                while not copy.done:
                    copy.step(PAGES)
                    told_progress(copy.page_count - copy.remaining, copy.page_count)
            target.pragma("journal_mode", "delete")  # one file, nothing beside it
        finally:
            target.close()
            reader.close()
    with SqliteStore(given.output) as copied:
        count = len(copied.seals(limit=1))
    if given.json:
        print_json({"file": str(given.output), "bytes": given.output.stat().st_size})
    else:
        print(
            f"{given.output}: {given.output.stat().st_size / 1e6:.1f} MB"
            + ("" if count else ", without any sealed run")
        )
    return 0
