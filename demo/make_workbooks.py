"""Writes the workbooks of the demonstration station: configuration, limits and parameters.

    python make_workbooks.py [DIRECTORY] [--port FIRST_PORT]

The files stand in the tree; run this after a change here.  The same input gives the same bytes.
"""

import argparse
import io
import re
import zipfile
from pathlib import Path
from typing import Any

from bench_sim.server import HOST, KINDS, port
from openpyxl import Workbook
from qon_testparameters import Parameter, write_sheet

HERE = Path(__file__).parent
CELLS = 4
FIRST_PORT = 15100
EPOCH = "2000-01-01T00:00:00Z"

Sheets = dict[str, list[Parameter]]


def row(name: str, value: Any, text: str, lower: Any = None, upper: Any = None, unit: str = "") -> Parameter:
    """One parameter; the type is the value's own, lists are kept as JSON."""
    kind = "json" if isinstance(value, list) else type(value).__name__
    return Parameter(name, text, value, lower, upper, unit, kind)


def station_sheets() -> Sheets:
    """Four cells; the fourth goes on after a failed item, to collect all of them."""
    main = [
        row("cell_count", CELLS, "Number of cells", 1, 20),
        row("column_count", 2, "Columns of cells in the window", 1, 20),
        row("show_toolbar", True, "Show the tool bar"),
        row("show_statistics_panel", True, "Show the totals of all cells"),
        row("startup_in_debug_mode", False, "Start in debug mode"),
        row("run_ticker", True, "Watch the fixtures for units from the start"),
        row("ticker_interval", 500, "Interval of that watch", 0, 60000, "ms"),
        row("mop_block_ticker", True, "No watch during manual operation"),
        row("results_required", True, "No test when nothing can be recorded"),
        row("scan_key_ms", 35, "Longest time between two keys of a scanner", 5, 200, "ms"),
    ]
    sheets = {"main": main}
    for number in range(1, CELLS + 1):
        sheets[f"cell{number}"] = cell_rows("scripts/dcdc_board.py", stop_if_ng=number != 4)
    return sheets


def recheck_sheets() -> Sheets:
    """One cell that repeats the few items for which boards come back from the field."""
    main = [
        row("cell_count", 1, "Number of cells", 1, 20),
        row("show_toolbar", True, "Show the tool bar"),
        row("run_ticker", True, "Watch the fixture for units from the start"),
        row("ticker_interval", 500, "Interval of that watch", 0, 60000, "ms"),
    ]
    return {"main": main, "cell1": cell_rows("scripts/dcdc_recheck.py", stop_if_ng=False, operation="recheck")}


def cell_rows(script: str, stop_if_ng: bool, operation: str = "final test") -> list[Parameter]:
    columns = [["Name", 210], ["Value", 110], ["Lower", 80], ["Upper", 80], ["Unit", 60], ["Result", 70]]
    return [
        row("script", script, "Test script"),
        row("product", "DC/DC converter board", "What is tested"),
        row("operation", operation, "Step of the process"),
        row("runner_class_name", "CellRunner", "Class in the script"),
        row("reload_cell_runner", True, "Read the script again before each test"),
        row("stop_if_ng", stop_if_ng, "A failed item ends the test"),
        row("none_unit", "", "Unit of an item without one"),
        row("show_debug_shell", True, "Page with a Python prompt"),
        row("allow_empty_serial_number", False, "Start without a serial number"),
        row("serial_number_pattern", "", "What a serial number looks like, as a regular expression"),
        row("acknowledge_ng", False, "An NG stays until somebody says where the unit is"),
        row("assertion_config_file", "limits.xlsx", "Workbook with the limits"),
        row("run_log_days", 90, "Days that the logs of single runs are kept", 0, None, "d"),
        row("column_titles", [title for title, _width in columns], "Texts over the columns"),
        row("column_info", columns, "Columns of the list of items: title, width in pixels"),
    ]


def limits() -> list[Parameter]:
    """Limits of production; an item that is not listed keeps the limits of the script."""
    return [
        row("INPUT_RESISTANCE", 10.0, "Input resistance without supply", 2.0, None, "kΩ"),
        row("START_UP_VOLTAGE", 8.7, "Input voltage at which the output appears", 8.2, 9.2, "V"),
        row("IDLE_CURRENT", 32.0, "Input current without load", 20.0, 42.0, "mA"),
        row("EFFICIENCY_HALF_LOAD", 90.0, "Efficiency at 1.5 A", 87.0, 100.0, "%"),
        row("BOARD_TEMPERATURE", 40.0, "Board after warming up at 3 A", 26.0, 52.0, "°C"),
        row("VOUT_FULL_LOAD", 4.98, "Output at 3 A", 4.88, 5.08, "V"),
        row("LOAD_REGULATION", 0.6, "Output change from 0 A to 3 A", 0.0, 1.2, "%"),
        row("RIPPLE", 24.0, "Output ripple at 3 A", None, 50.0, "mV"),
        row("EFFICIENCY_FULL_LOAD", 89.0, "Efficiency at 3 A", 86.0, 100.0, "%"),
        row("LINE_REGULATION", 0.2, "Output change from 10 V to 16 V input", None, 0.8, "%"),
        row("TRIP_CURRENT", 4.1, "Load current at which the output is cut off", 3.6, 4.8, "A"),
        row("VOUT_OFF", 0.0, "Output after switching off", None, 0.5, "V"),
    ]


def instrument_sheets(first_port: int, cells: int) -> Sheets:
    """Resource names as VISA spells them; a real bench has other names here, and "simulated" off."""
    bench = [
        row("library", "@py", "VISA library: @py, @ivi or the path of one"),
        row("timeout_ms", 2000, "Time limit of an answer", 100, 60000, "ms"),
        row("simulated", True, "Start the simulated bench together with the station"),
        row("first_port", first_port, "First port of the simulated bench", 1024, 65000),
    ]
    sheets = {"bench": bench}
    for number in range(1, cells + 1):
        sheets[f"cell{number}"] = [
            row(kind, f"TCPIP::{HOST}::{port(first_port, number, kind)}::SOCKET", f"Resource of the {kind}")
            for kind in KINDS
        ]
    return sheets


def product_sheets() -> Sheets:
    ratings = [
        row("nominal_volt", 12.0, "Nominal input", 9.5, 18.0, "V"),
        row("lowest_volt", 10.0, "Lowest rated input", 9.5, 18.0, "V"),
        row("highest_volt", 16.0, "Highest rated input", 9.5, 18.0, "V"),
        row("limit_ampere", 4.0, "Current limit of the supply", 0.1, 5.0, "A"),
        row("half_ampere", 1.5, "Half load", 0.0, 3.0, "A"),
        row("full_ampere", 3.0, "Full load", 0.0, 3.0, "A"),
        row("overload_ampere", 5.2, "Highest load of the overload test", 3.0, 6.0, "A"),
        row("ramp_from_volt", 8.0, "Input at which the start-up ramp begins", 5.0, 9.0, "V"),
        row("ramp_to_volt", 11.0, "Input at which it gives up", 9.0, 12.0, "V"),
        row("firmware", "2.4.1", "Firmware to be shipped"),
    ]
    timing = [
        row(
            "retry_seconds", 0.15, "Wait before an output that has not settled is read again", 0.01, 5.0, "s"
        ),
        row("settle_seconds", 0.4, "Wait after a change of the input", 0.0, 10.0, "s"),
        row("warm_up_seconds", 2.0, "Full load before the temperature is judged", 0.0, 600.0, "s"),
        row("discharge_seconds", 0.5, "Wait after switching off", 0.0, 10.0, "s"),
    ]
    return {"ratings": ratings, "timing": timing}


def save(path: Path, sheets: Sheets) -> None:
    book = Workbook()
    book.remove(book.active)
    for title, rows in sheets.items():
        write_sheet(book.create_sheet(title), rows)
    buffer = io.BytesIO()
    book.save(buffer)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(without_times(buffer))


def without_times(source: io.BytesIO) -> bytes:
    """A workbook records when it was written, in its properties and for each file inside."""
    target = io.BytesIO()
    with zipfile.ZipFile(source) as old, zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED) as new:
        for name in old.namelist():
            content = old.read(name)
            if name == "docProps/core.xml":
                content = re.sub(rb"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", EPOCH.encode(), content)
            new.writestr(zipfile.ZipInfo(name, (2000, 1, 1, 0, 0, 0)), content, zipfile.ZIP_DEFLATED)
    return target.getvalue()


def write_all(directory: Path, first_port: int = FIRST_PORT, cells: int = CELLS) -> None:
    save(directory / "ats_config.xlsx", station_sheets())
    save(directory / "recheck_config.xlsx", recheck_sheets())
    save(directory / "limits.xlsx", {"limits": limits()})
    save(directory / "app_config" / "instruments.xlsx", instrument_sheets(first_port, cells))
    save(directory / "app_config" / "product.xlsx", product_sheets())


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description="write the workbooks of the demonstration station")
    parser.add_argument("directory", type=Path, nargs="?", default=HERE)
    parser.add_argument("--port", type=int, default=FIRST_PORT, help="first port of the simulated bench")
    arguments = parser.parse_args()
    write_all(arguments.directory, arguments.port)
