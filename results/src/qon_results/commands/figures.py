"""`items`, `yield` and `pareto`: figures with the definition beside them."""

import argparse

from ..store.base import PRODUCTION
from .common import add_filter, add_source, opened, percent, print_json, print_table, wanted

FIRST_PASS = (
    "First pass: of the units whose first attempt ever falls into this time, those that passed it. An attempt ends OK, NG or "
    "TBD (which counts as not passed); aborted runs, exceptions and interruptions are no attempts and are counted apart.\n"
    "Final: of the units tested in this time, those whose last attempt passed.  Purpose: {purpose}."
)


def add(commands: "argparse._SubParsersAction[argparse.ArgumentParser]") -> None:
    for name, function, text in (
        ("items", list_items, "list the items with their counts"),
        ("yield", show_yield, "first-pass and final yield by product and operation"),
        ("pareto", show_pareto, "which items fail most"),
    ):
        parser = commands.add_parser(name, help=text)
        add_source(parser)
        add_filter(parser)
        parser.set_defaults(run=function)


def list_items(given: argparse.Namespace) -> int:
    with opened(given) as store:
        items = store.items(wanted(given))
    if given.json:
        print_json(items)
        return 0
    rows = [(each.name, each.count, each.runs, each.ng, percent(each.ng / each.count)) for each in items]
    print_table("", ["item", ">measured", ">runs", ">NG", ">NG share"], rows)
    return 0


def show_yield(given: argparse.Namespace) -> int:
    asked = wanted(given, PRODUCTION)
    with opened(given) as store:
        yields = store.yields(asked)
    definition = FIRST_PASS.format(purpose=asked.purpose)
    if given.json:
        print_json({"definition": definition, "yields": yields})
        return 0
    columns = [
        "product", "operation", ">first pass", ">passed", ">first attempts", ">final", ">units", ">runs",
        ">aborted", ">exceptions", ">interrupted",
    ]  # fmt: skip
    rows = [
        (
            each.product, each.operation, percent(each.first_pass), each.first_passed, each.first_attempts,
            percent(each.final), each.units, each.runs, each.aborted, each.exceptions, each.interrupted,
        )
        for each in yields
    ]  # fmt: skip
    print_table("", columns, rows, definition)
    return 0


def show_pareto(given: argparse.Namespace) -> int:
    asked = wanted(given, PRODUCTION)
    with opened(given) as store:
        bars = store.pareto(asked)
    if given.json:
        print_json(bars)
        return 0
    total = sum(each.first for each in bars)
    rows, so_far = [], 0
    for each in bars:
        so_far += each.first
        rows.append((each.item, each.first, percent(so_far / total if total else float("nan")), each.all))
    note = f"First: runs that failed in this item first. All: runs in which it was NG.  Purpose: {asked.purpose}."
    print_table("", ["item", ">first", ">cumulative", ">all"], rows, note)
    return 0
