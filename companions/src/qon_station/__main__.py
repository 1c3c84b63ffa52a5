"""python -m qon_station new NAME - write the folder of a new station.
python -m qon_station check FOLDER - say what is wrong with a station.
"""

import argparse
import sys
from collections.abc import Sequence

from .check import CONFIG, PARAMETERS, Level, check_station
from .scaffold import new_station


def main(argv: Sequence[str] | None = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m qon_station", description="tools for station authors")
    commands = parser.add_subparsers(dest="command", required=True)
    new = commands.add_parser("new", help="write the folder of a new station")
    new.add_argument("name", help="folder to write; its last part names the station")
    check = commands.add_parser(
        "check", help="check configuration, scripts, limits and parameters of a station"
    )
    check.add_argument("folder", nargs="?", default=".", help="folder in which the station is started")
    check.add_argument("--config", default=CONFIG, help=f"configuration workbook ({CONFIG})")
    check.add_argument("--parameters", default=PARAMETERS, help=f"parameters directory ({PARAMETERS})")
    arguments = parser.parse_args(argv)
    if arguments.command == "check":
        return _check(arguments.folder, arguments.config, arguments.parameters)
    return _new(arguments.name)


def _new(name: str) -> int:
    try:
        written = new_station(name)
    except (OSError, ValueError) as error:
        print(error, file=sys.stderr)
        return 1
    for path in written:
        print(path)
    print(f"\nStart it:  cd {name} && python station.py\nTest it:   cd {name} && python -m pytest")
    print(f"Check it:  python -m qon_station check {name}")
    return 0


def _check(folder: str, config: str, parameters: str) -> int:
    """0 when there is no error; warnings may be meant."""
    findings = check_station(folder, config, parameters)
    for finding in findings:
        print(finding)
    errors = sum(finding.level is Level.ERROR for finding in findings)
    if findings:
        print(f"\nErrors: {errors}, warnings: {len(findings) - errors}")
    else:
        print("Configuration, scripts, limits and parameters are in order.")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
