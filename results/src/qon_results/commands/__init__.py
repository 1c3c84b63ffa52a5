"""The command line: `qon-results COMMAND`.  Each module adds its commands to the parser."""

import argparse
import os
import sys
from collections.abc import Sequence

import apsw

from . import archive, care, export, figures, fleet, line, page, units
from .common import Complaint, complain

INTERRUPTED = 130  # as a shell says it


def parser() -> argparse.ArgumentParser:
    top = argparse.ArgumentParser(
        prog="qon-results", description="Ask, check and carry the results of test stations."
    )
    commands = top.add_subparsers(dest="command", required=True, metavar="COMMAND")
    for module in (units, figures, export, care, archive, fleet, line, page):
        module.add(commands)
    return top


def main(arguments: Sequence[str] | None = None) -> int:
    """Run one command; returns the exit code: 0, 1 when something is wrong with the results, 2 with the command."""
    given = parser().parse_args(arguments)
    try:
        return int(given.run(given) or 0)
    except KeyboardInterrupt:
        print("Stopped; what is there is whole.", file=sys.stderr)
        return INTERRUPTED
    except BrokenPipeError:  # the reader of our output has enough, as `head` has
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    except (Complaint, OSError, ValueError, KeyError) as error:
        complain(error)
        return 2
    except apsw.Error as error:
        complain(Complaint(f"The file cannot be read: {error}. `qon-results verify` tells more."))
        return 2
