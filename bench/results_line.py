"""Catching up with the line's database after an outage: what one station's file holds, sent by one sender.

    python bench/results_line.py ours [UNITS]

The server is PostgreSQL as it is installed here, started for this alone, with its own settings (each batch is synced to the disk).
Figures are without a word where none is installed.  Processor time is the sender's own; the server works in other processes.
"""

import sys
import tempfile
import time
from pathlib import Path

from qon_results.generator import Generator, Recipe
from qon_results.line.administration import Trial
from qon_results.line.connection import LineError
from qon_results.line.sending import Feed, Source
from sides import report

UNITS, ITEMS = 3000, 100


def main() -> None:
    units = int(sys.argv[2]) if len(sys.argv) > 2 else UNITS
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        folder.chmod(0o755)  # the server runs as another user
        trial = Trial(folder / "server")
        try:
            trial.start()
        except LineError as error:
            print(f"no line to send to: {error}", file=sys.stderr)
            report({})
            return
        try:
            rate, cpu = caught_up(
                Generator(Recipe(units=units, items=ITEMS)).write(folder / "station"), trial.address
            )
        finally:
            trial.stop()
    report({"rate": rate / 1e3, "sender": cpu * 1e6})


def caught_up(file: Path, address: str) -> tuple[float, float]:
    """Measurements a second, and seconds of the sender's processor for each."""
    source = Source(file)
    feed = Feed(source, address)
    began, cpu = time.perf_counter(), time.process_time()
    while feed.send():
        pass
    took, cpu = time.perf_counter() - began, time.process_time() - cpu
    assert feed.position == source.newest()
    ((measured,),) = source._ask("SELECT sum(measured) FROM run")
    feed.close()
    source.close()
    return measured / took, cpu / measured


if __name__ == "__main__":
    main()
