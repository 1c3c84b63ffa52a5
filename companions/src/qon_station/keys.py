"""The keys of the configuration workbook, in one table: the check, the README and messages take them from here.

Another distribution tells its own by an entry point of the group `qon_station.keys`: an iterable of `Key`.
"""

import difflib
import functools
import importlib.metadata
import logging
from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any

MAIN, CELL = "main", "cell1"
GROUP = "qon_station.keys"

log = logging.getLogger(__name__)


@dataclass(frozen=True)
class Key:
    """`default` is what the README says; `kind` the type of the row; `low` the smallest number that has a meaning."""

    sheet: str
    name: str
    kind: str
    default: str
    meaning: str
    low: int | None = None
    may_be_empty: bool = False


KEYS = (
    Key(MAIN, "cell_count", "int", "1", "number of cells", 1),
    Key(MAIN, "column_count", "int", "1", "columns of cells in the window", 1),
    Key(MAIN, "show_toolbar", "bool", "no", "whether the tool bar is shown"),
    Key(MAIN, "show_statistics_panel", "bool", "yes", "whether the totals of all cells are shown"),
    Key(
        MAIN,
        "startup_in_debug_mode",
        "bool",
        "no",
        "whether `debug_print` and `debug_pause` act from the start",
    ),
    Key(MAIN, "run_ticker", "bool", "no", "whether `ticker_function` is called periodically"),
    Key(
        MAIN,
        "ticker_interval",
        "int",
        "100",
        "milliseconds from the end of one such call to the next",
        0,
        may_be_empty=True,
    ),
    Key(MAIN, "mop_block_ticker", "bool", "yes", "whether manual operation holds the ticker"),
    Key(
        MAIN,
        "scan_key_ms",
        "int",
        "35",
        "longest time between two keys of a scanner, milliseconds (5 to 200)",
        5,
    ),
    Key(MAIN, "ask_operator", "bool", "no", "whether the station asks once a shift who works at it"),
    Key(MAIN, "ask_batch", "bool", "no", "whether it asks for the batch"),
    Key(MAIN, "shift_hours", "int", "8", "hours until it asks again", 1),
    Key(
        MAIN,
        "operator_pattern",
        "str",
        "none",
        "regular expression of a whole badge; its first group, if any, is the operator",
        may_be_empty=True,
    ),
    Key(CELL, "script", "str", "–", "file of the test script"),
    Key(CELL, "runner_class_name", "str", "`CellRunner`", "class in that file"),
    Key(CELL, "reload_cell_runner", "bool", "yes", "whether the script is read again before each test"),
    Key(CELL, "stop_if_ng", "bool", "yes", "whether an NG item ends the test"),
    Key(CELL, "none_unit", "str", '""', "unit of an item that has none", may_be_empty=True),
    Key(CELL, "show_debug_shell", "bool", "yes", "whether the cell has a page with a Python prompt"),
    Key(CELL, "column_info", "json", "six columns", "list of items: titles and widths in pixels, as JSON"),
    Key(
        CELL,
        "column_titles",
        "json",
        "the titles",
        "texts shown over these columns, as JSON",
        may_be_empty=True,
    ),
    Key(
        CELL,
        "assertion_config_file",
        "str",
        "none",
        "limits workbook, its first sheet with one row per item",
        may_be_empty=True,
    ),
    Key(
        CELL,
        "allow_empty_serial_number",
        "bool",
        "yes",
        "whether a test starts without a number (the demonstration and a new station say no)",
    ),
    Key(
        CELL,
        "serial_number_pattern",
        "str",
        "none",
        "regular expression that a whole serial number has to match",
        may_be_empty=True,
    ),
    Key(CELL, "acknowledge_ng", "bool", "no", "whether an NG stays until somebody says where the unit went"),
    Key(CELL, "run_log_days", "int", "90", "days that the logs of single runs are kept; 0: for ever", 0),
)


def keys_of(sheet: str) -> dict[str, Key]:
    """The keys of the sheet "main", or of a cell's sheet, by name."""
    kind = MAIN if sheet == MAIN else CELL
    return {key.name: key for key in (*KEYS, *_keys_of_others()) if key.sheet == kind}


@functools.cache
def _keys_of_others() -> tuple[Key, ...]:
    found: list[Key] = []
    for entry in importlib.metadata.entry_points(group=GROUP):
        try:
            found += entry.load()
        except Exception:
            log.exception("The configuration keys of %s could not be read.", entry.value)
    return tuple(found)


def nearest(name: str, known: Iterable[str]) -> str:
    """The known name that was probably meant, "" when none is near."""
    by_plain = {_plain(each): each for each in known}
    near = difflib.get_close_matches(_plain(name), by_plain, 1, 0.75)
    return by_plain[near[0]] if near else ""


def misspelt(names: Iterable[str], sheet: str) -> dict[str, str]:
    """Names that are no key but nearly one, each with the key that was probably meant."""
    known = keys_of(sheet)
    near = {name: nearest(name, known) for name in names if name not in known}
    return {name: key for name, key in near.items() if key}


def readme_table(keys: Iterable[Key] = KEYS) -> str:
    """A table of the README."""
    lines = ["| sheet | variable | default | meaning |", "|---|---|---|---|"]
    told = ""
    for key in keys:
        sheet = {MAIN: "`main`", CELL: "`cell1`…"}[key.sheet] if key.sheet != told else ""
        told = key.sheet
        lines.append(f"| {sheet} | `{key.name}` | {key.default} | {key.meaning} |".replace("|  |", "| |"))
    return "\n".join(lines)


def wrong_value(key: Key, parameter: Any) -> str:
    """What is wrong with the value of a key, "" when nothing is."""
    value = parameter.value
    if value is None or value == "":
        empty = "is empty, which is no default: enter a value, or delete the row"
        return "" if key.may_be_empty else empty
    if parameter.kind != key.kind and not (key.kind == "int" and parameter.kind == "bool"):
        return f'has the type "{parameter.type}": give it the type "{key.kind}"'
    if key.low is not None and value < key.low:
        return f"is {value}, it must be at least {key.low}"
    return ""


def _plain(name: str) -> str:
    return "".join(char for char in name.casefold() if char.isalnum())
