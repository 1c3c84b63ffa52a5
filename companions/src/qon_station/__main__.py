"""python -m qon_station new NAME - write the folder of a new station."""

import argparse
import sys
from collections.abc import Sequence

from .scaffold import new_station


def main(argv: Sequence[str] | None = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m qon_station", description="tools for station authors")
    commands = parser.add_subparsers(dest="command", required=True)
    new = commands.add_parser("new", help="write the folder of a new station")
    new.add_argument("name", help="folder to write; its last part names the station")
    arguments = parser.parse_args(argv)
    try:
        written = new_station(arguments.name)
    except (OSError, ValueError) as error:
        print(error, file=sys.stderr)
        return 1
    for path in written:
        print(path)
    print(
        f"\nStart it:  cd {arguments.name} && python station.py\nTest it:   cd {arguments.name} && python -m pytest"
    )
    return 0


if __name__ == "__main__":
    sys.exit(main())
