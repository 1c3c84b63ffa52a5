"""The tests of phases.py as OpenHTF tests; runs in an environment that has OpenHTF and nothing of ours."""

import json
import time
from collections.abc import Callable
from typing import Any

import openhtf as htf

MEASUREMENTS = 1_000
STEPS = 500
RUNS = {MEASUREMENTS: 12, STEPS: 6}


def limited(number: int) -> Any:
    return htf.Measurement(f"item{number}").in_range(4.5, 5.5)


@htf.measures(*(limited(number) for number in range(MEASUREMENTS)))
def measure_all(test: Any) -> None:
    for number in range(MEASUREMENTS):
        test.measurements[f"item{number}"] = 4.9 + number * 1e-4


def step(number: int) -> Callable[..., Any]:
    @htf.PhaseOptions(name=f"step{number}")
    @htf.measures(limited(number))
    def one(test: Any) -> None:
        test.measurements[f"item{number}"] = 5.0

    return one


def microseconds(phases: list[Any], count: int) -> float:
    records: list[Any] = []
    test = htf.Test(*phases)
    test.add_output_callbacks(records.append)
    times = []
    for _ in range(RUNS[count]):
        begin = time.perf_counter()
        passed = test.execute(test_start=lambda: "SN")
        times.append(time.perf_counter() - begin)
        assert passed and sum(len(phase.measurements) for phase in records[-1].phases) == count
    return min(times) / count * 1e6


def main() -> None:
    figures = {
        "measurement": microseconds([measure_all], MEASUREMENTS),
        "step": microseconds([step(number) for number in range(STEPS)], STEPS),
    }
    print("\n" + json.dumps(figures), flush=True)


if __name__ == "__main__":
    main()
