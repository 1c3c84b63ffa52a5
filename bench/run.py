"""Print one table: figure, ours, plain Python, ratio, with the spread over the rounds.

Both sides run in turn, each in a process of its own; a ratio is taken within each round.

    python bench/run.py [--rounds 7] [--only hot_path memory start import_time analysis]
"""

import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).parent
SIDES = ("ours", "plain")


@dataclass
class Figure:
    program: str
    key: str
    title: str
    unit: str
    at_least: float | None = None  # times faster than plain Python
    at_most: float | None = None  # of plain Python's
    digits: int = 2


FIGURES = [
    Figure("hot_path", "all in", "assert_limits, all in", "us", at_least=5.0),
    Figure("hot_path", "all in, unit None", "assert_limits, all in, unit None", "us", at_least=5.0),
    Figure("hot_path", "limits workbook", "assert_limits, limits workbook", "us", at_least=5.0),
    Figure(
        "hot_path",
        "limits workbook, unit None",
        "assert_limits, limits workbook, unit None",
        "us",
        at_least=5.0,
    ),
    Figure("hot_path", "without the queue", "assert_limits, without the queue", "us", at_least=5.0),
    Figure("hot_path", "all in, collector off", "assert_limits, all in, collector off", "us"),
    Figure("memory", "memory", "memory per recorded assertion", "B", at_most=0.6, digits=0),
    Figure("start", "start", "start of an 8-cell station", "ms", at_most=1.2, digits=0),
    Figure("import_time", "import", "import", "ms", at_most=1.2, digits=0),
    Figure("analysis", "listing", "listing 10,000 units", "ms", digits=0),
    Figure("analysis", "filtering", "filtering 10,000 units", "ms", digits=0),
    Figure("analysis", "analysis", "item analysis, 10,000 x 100", "ms", at_least=4.0, digits=1),
    Figure("analysis", "analysis with plot", "item analysis with its plot", "ms", digits=1),
]

# Processes per round of programs too short to average out the machine's other work: the fastest counts.
PROCESSES = {"start": 3, "import_time": 3}

Round = dict[str, dict[str, float]]


def run_process(program: str, side: str) -> dict[str, float]:
    command = [sys.executable, str(HERE / f"{program}.py"), side]
    done = subprocess.run(command, capture_output=True, text=True, timeout=600, check=False)
    if done.returncode != 0:
        raise SystemExit(f"{program} ({side}) failed:\n{done.stdout}{done.stderr}")
    return json.loads(done.stdout.strip().splitlines()[-1])


def run_side(program: str, side: str) -> dict[str, float]:
    figures = [run_process(program, side) for _ in range(PROCESSES.get(program, 1))]
    return {key: min(each[key] for each in figures) for key in figures[0]}


def run_rounds(program: str, count: int) -> list[Round]:
    """The side that begins changes from round to round."""
    rounds = []
    for number in range(count):
        order = SIDES if number % 2 == 0 else SIDES[::-1]
        rounds.append({side: run_side(program, side) for side in order})
        print(f"{program}: round {number + 1} of {count}", file=sys.stderr)
    return rounds


def spread(values: list[float], digits: int) -> str:
    low, middle, high = min(values), statistics.median(values), max(values)
    return f"{middle:.{digits}f} ({low:.{digits}f}..{high:.{digits}f})"


def row(figure: Figure, rounds: list[Round]) -> tuple[str, ...]:
    ours = [r["ours"][figure.key] for r in rounds]
    plain = [r["plain"][figure.key] for r in rounds]
    faster = figure.at_most is None
    ratios = [p / o if faster else o / p for o, p in zip(ours, plain, strict=True)]
    ratio = statistics.median(ratios)
    target, met = "", ""
    if figure.at_least is not None:
        target, met = f">= {figure.at_least:g}", "yes" if ratio >= figure.at_least else "NO"
    elif figure.at_most is not None:
        target, met = f"<= {figure.at_most:g}", "yes" if ratio <= figure.at_most else "NO"
    shown = [f"{spread(values, figure.digits)} {figure.unit}" for values in (ours, plain)]
    return (figure.title, *shown, f"{spread(ratios, 2)} {'x faster' if faster else 'of plain'}", target, met)


def print_table(rows: list[tuple[str, ...]]) -> None:
    head = ("figure", "ours", "plain Python", "ratio", "target", "met")
    widths = [max(len(r[column]) for r in [head, *rows]) for column in range(len(head))]
    for line in (head, tuple("-" * width for width in widths), *rows):
        print("  ".join(text.ljust(width) for text, width in zip(line, widths, strict=True)).rstrip())


def with_display() -> None:
    """Windows need a display: start again on a virtual one where there is none."""
    if sys.platform == "linux" and not os.environ.get("DISPLAY") and shutil.which("xvfb-run"):
        screen = ["xvfb-run", "-a", "-s", "-screen 0 1280x1024x24 -noreset"]
        os.execvp(screen[0], [*screen, sys.executable, *sys.argv])


def main() -> None:
    programs = list(dict.fromkeys(figure.program for figure in FIGURES))
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--only", nargs="+", choices=programs, default=programs)
    arguments = parser.parse_args()
    with_display()
    rows = []
    for program in arguments.only:
        rounds = run_rounds(program, arguments.rounds)
        rows += [row(figure, rounds) for figure in FIGURES if figure.program == program]
    print(f"Python {sys.version.split()[0]}, {arguments.rounds} rounds: median (lowest..highest)\n")
    print_table(rows)


if __name__ == "__main__":
    main()
