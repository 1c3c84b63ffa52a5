"""The writer alone, in bulk; then the end of a unit of 100 items, until it is on the disk.

    python bench/results_write.py ours
"""

import itertools
import statistics
import tempfile
import threading
import time
from pathlib import Path
from typing import Any

import msgspec
import qon_ats
import qon_results
from qon_results.generator import Generator, Recipe
from qon_results.recorder.link import Link
from qon_results.writer import messages
from qon_station import Outcome, before_run, run_ended
from qon_station.outcome import Kind
from qon_station.unit import StationUnit
from sides import report

UNITS, ITEMS = 100, 10_000  # in bulk
ENDS = 200


def bulk(folder: Path) -> float:
    """Measurements per second from the first message to the commit of the last."""
    folder.mkdir()
    encoder, done, opened = msgspec.msgpack.Encoder(), threading.Event(), threading.Event()
    numbers = []

    def heard(_link: Link, answer: Any) -> None:
        if isinstance(answer, messages.Opened):
            opened.set()
        if answer is None or (isinstance(answer, messages.Reached) and numbers and answer.durable >= numbers[-1]):
            done.set()

    encoded = []
    whole = (made for made in Generator(Recipe(units=2 * UNITS, items=100)).runs() if len(made[1].names) == 100)
    for begin, rows, end in itertools.islice(whole, UNITS):
        encoded.append(encoder.encode(begin))
        columns = ("names", "values", "lowers", "uppers", "units", "verdicts", "times", "elapsed", "reports")
        for start in range(0, ITEMS, 500):
            rows.start = start
            full = {name: getattr(rows, name)[:100] * 5 for name in columns}
            encoded.append(encoder.encode(msgspec.structs.replace(rows, **full)))
        end.measured = ITEMS
        encoded.append(encoder.encode(end))
    link = Link(heard)
    link.start(messages.Hello(str(folder / "results.db"), "bench", [], 1000))
    assert opened.wait(30)
    began = time.perf_counter()
    for data in encoded:
        number = link.send_encoded(data)
    numbers.append(number)
    link.send(messages.Told(0))  # it answers once more
    assert done.wait(120)
    took = time.perf_counter() - began
    link.send(messages.Close())
    assert link.wait()
    return UNITS * ITEMS / took


def ends(folder: Path) -> list[float]:
    """Milliseconds that a test thread waits at the end of each unit."""
    recorder = qon_results.record(folder, min_free_mb=1)
    assert recorder.wait_until_open() == "", recorder.trouble
    waited = []
    for number in range(ENDS):
        unit = StationUnit(f"SN{number}")
        before_run(unit)
        for item in range(100):
            unit.append_assertion(qon_ats.Assertion(f"item {item}", 5.0 + number * 1e-6, 4.5, 5.5, "V"))
            time.sleep(0.0005)
        unit.close()
        began = time.perf_counter()
        outcome = run_ended(unit, Outcome(Kind.OK))
        waited.append((time.perf_counter() - began) * 1e3)
        assert outcome.kind is Kind.OK
        unit.finish(outcome)
    recorder.close()
    return sorted(waited)


def main() -> None:
    with tempfile.TemporaryDirectory(dir=Path(__file__).parent) as name:  # on the disk of the project, not in memory
        rate, waited = bulk(Path(name) / "bulk"), ends(Path(name) / "ends")
    report({"bulk": rate / 1e3, "end": statistics.median(waited), "end p99": waited[int(len(waited) * 0.99)]})


if __name__ == "__main__":
    main()
