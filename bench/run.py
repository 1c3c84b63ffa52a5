"""Print one table: figure, ours, what it is compared with, ratio, target, with the spread over the rounds.

Both sides run in turn, each in a process of its own; a ratio is taken within each round.

    python bench/run.py [--rounds 5] [--flood-seconds 60] [--only hot_path memory ...]
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
from dataclasses import replace
from pathlib import Path

from figures import FIGURES, PROGRAMS, Program
from other_framework import environment
from table import Round, print_table, row

HERE = Path(__file__).parent
GROUPS = list(dict.fromkeys(program.group or name for name, program in PROGRAMS.items()))


def command(program: Program, side: str) -> list[str] | None:
    """None when the side is not to be had."""
    if side == "openhtf":
        python = environment()
        return [str(python), str(HERE / "phases_openhtf.py")] if python else None
    return [sys.executable, str(HERE / program.file), side, *program.arguments]


def run_process(line: list[str]) -> dict[str, float]:
    done = subprocess.run(line, capture_output=True, text=True, timeout=900, check=False)
    if done.returncode != 0:
        raise SystemExit(f"{' '.join(line[1:])} failed:\n{done.stdout}{done.stderr}")
    figures: dict[str, float] = json.loads(done.stdout.strip().splitlines()[-1])
    return figures


def run_rounds(name: str, program: Program, count: int) -> list[Round]:
    """The side that begins changes from round to round."""
    lines = {side: command(program, side) for side in program.sides}
    if None in lines.values():
        return []
    rounds = []
    for number in range(count):
        order = program.sides if number % 2 == 0 else program.sides[::-1]
        found = {side: [run_process(lines[side] or []) for _ in range(program.processes)] for side in order}
        rounds.append(
            {side: {key: min(each[key] for each in runs) for key in runs[0]} for side, runs in found.items()}
        )
        print(f"{name}: round {number + 1} of {count}", file=sys.stderr)
    return rounds


def with_display() -> None:
    """Windows need a display: start again on a virtual one where there is none."""
    if sys.platform == "linux" and not os.environ.get("DISPLAY") and shutil.which("Xvfb"):
        helper = str(HERE.parent / "tools" / "virtual-display")
        os.execv(helper, [helper, sys.executable, *sys.argv])


def main() -> None:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--flood-seconds", type=float, default=60.0)
    parser.add_argument("--only", nargs="+", choices=GROUPS, default=GROUPS)
    arguments = parser.parse_args()
    with_display()
    rounds: dict[str, list[Round]] = {}
    for name, program in PROGRAMS.items():
        if (program.group or name) in arguments.only:
            if name in ("flood", "results_flood"):
                seconds = str(arguments.flood_seconds)
                program = replace(program, arguments=(*program.arguments[:-1], seconds))
            rounds[name] = run_rounds(name, program, max(1, round(arguments.rounds * program.share)))
    shown = [
        figure
        for figure in FIGURES
        if (found := rounds.get(figure.program)) and figure.key in found[0][PROGRAMS[figure.program].sides[0]]
    ]
    if not shown:
        raise SystemExit("there is nothing to show")
    print(f"Python {sys.version.split()[0]}, up to {arguments.rounds} rounds: median (lowest..highest)\n")
    print_table([row(f, rounds[f.program], PROGRAMS[f.program].sides) for f in shown])


if __name__ == "__main__":
    main()
