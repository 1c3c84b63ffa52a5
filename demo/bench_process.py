"""The simulated bench as a process of its own, and the hands and eyes of an operator in front of it."""

import subprocess
import sys
from pathlib import Path
from typing import Any

from cell_bench import bench_settings, fixture_of

HERE = Path(__file__).parent


class BenchProcess:
    """Runs `bench_sim` until it is closed; it also ends when this process ends in any way."""

    def __init__(self, cell_count: int, first_port: int) -> None:
        command = [sys.executable, "-m", "bench_sim", "--cells", str(cell_count), "--port", str(first_port)]
        self._process = subprocess.Popen(
            command,
            cwd=HERE,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        assert self._process.stdout and self._process.stderr
        if self._process.stdout.readline().strip() != "ready":
            _, reason = self._process.communicate(timeout=10.0)
            raise RuntimeError(
                f"{reason.strip()}\nIs another demonstration station open?  Close it, or choose another"
                ' "first_port" and resource names (make_workbooks.py --port).'
            )

    def close(self) -> None:
        if self._process.poll() is None:
            self._process.communicate(timeout=10.0)


class Hands:
    """Puts units into the simulated fixtures and takes them out; in one thread at a time."""

    def __init__(self, app_config: Any, cell_count: int) -> None:
        self._fixtures = [fixture_of(app_config, number) for number in range(1, cell_count + 1)]
        self._next_unit = 100

    def fit(self, cell_number: int, serial_number: str) -> None:
        """The unit with this label; without a label the one that lies there, or a new one."""
        lying = self.label(cell_number)
        if lying and serial_number in ("", lying):
            return
        escaped = (serial_number or self._new_unit()).replace('"', '""')
        self._fixtures[cell_number - 1].write(f'SIM:FIT "{escaped}"')

    def fit_new(self, cell_number: int) -> None:
        self.remove(cell_number)
        self.fit(cell_number, "")

    def remove(self, cell_number: int) -> None:
        self._fixtures[cell_number - 1].write("SIM:REM")

    def label(self, cell_number: int) -> str:
        return self._fixtures[cell_number - 1].label()

    def sees_led(self, cell_number: int) -> bool:
        return self._fixtures[cell_number - 1].query("SIM:LED?") == "1"

    def close(self) -> None:
        for fixture in self._fixtures:
            fixture.close()

    def _new_unit(self) -> str:
        self._next_unit += 1
        return f"4711-{self._next_unit:06d}"


def start_bench(app_config: Any, cell_count: int) -> BenchProcess | None:
    """The simulated bench, when the parameters ask for it."""
    bench = bench_settings(app_config)
    if not bench.get("simulated", False):
        return None
    return BenchProcess(cell_count, bench.first_port)
