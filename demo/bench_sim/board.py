"""The simulated unit under test: a 12 V to 5 V / 3 A converter board, different for every serial number."""

import hashlib
import math
import random
from collections.abc import Callable
from dataclasses import dataclass

AMBIENT_CELSIUS = 25.0
THERMAL_SECONDS = 0.8
DISCHARGE_SECONDS = 0.05
UVLO_HYSTERESIS_VOLT = 0.6
HICCUP_VOLT = 0.25
DEFECT_ONE_IN = 8


@dataclass
class BoardData:
    """What distinguishes one board from the next.  Volts, amperes, ohms, seconds, watts."""

    input_ohm: float
    idle_ampere: float
    start_volt: float
    set_volt: float
    output_ohm: float
    line_regulation: float
    ripple_volt: float
    trip_ampere: float
    aux_volt: float
    start_seconds: float
    loss_watt: float
    loss_ohm: float
    kelvin_per_watt: float
    firmware: str = "2.4.1"
    led_lit: bool = True


def _scale(name: str, factor: float) -> Callable[[BoardData], None]:
    def apply(board: BoardData) -> None:
        setattr(board, name, getattr(board, name) * factor)

    return apply


def _replace(name: str, value: object) -> Callable[[BoardData], None]:
    return lambda board: setattr(board, name, value)


# Each defect lies far outside the limits of the test, so that noise never decides a verdict.
DEFECTS: dict[str, Callable[[BoardData], None]] = {
    "input capacitor shorted": _replace("input_ohm", 2.2),
    "feedback divider wrong": _scale("set_volt", 0.94),
    "inductor badly soldered": _replace("output_ohm", 0.12),
    "output capacitor missing": _scale("ripple_volt", 4.0),
    "switch damaged": _replace("loss_ohm", 0.5),
    "start-up divider wrong": _replace("start_volt", 10.3),
    "thermal pad void": _replace("kelvin_per_watt", 34.0),
    "old firmware": _replace("firmware", "2.3.7"),
    "LED fitted the wrong way round": _replace("led_lit", False),
}


def _digest(serial_number: str) -> int:
    return int.from_bytes(hashlib.sha256(serial_number.encode()).digest()[:8], "big")


def implied_defect(serial_number: str) -> str | None:
    """What is wrong with the board of this serial number; None for a good one."""
    digest = _digest(serial_number)
    if digest % DEFECT_ONE_IN:
        return None
    names = list(DEFECTS)
    return names[digest // DEFECT_ONE_IN % len(names)]


def implied_verdict(serial_number: str) -> str:
    """The verdict a correct station has to give, known without measuring anything."""
    return "NG" if implied_defect(serial_number) else "OK"


def led_lit(serial_number: str) -> bool:
    """What an operator sees when the board is powered."""
    return make_board(serial_number).led_lit


def make_board(serial_number: str) -> BoardData:
    """The same board for the same serial number, on every machine."""
    spread = random.Random(_digest(serial_number))
    board = BoardData(
        input_ohm=spread.uniform(8.0e3, 12.0e3),
        idle_ampere=spread.uniform(0.014, 0.020),
        start_volt=spread.uniform(8.55, 8.85),
        set_volt=spread.uniform(4.97, 5.04),
        output_ohm=spread.uniform(0.007, 0.012),
        line_regulation=spread.uniform(0.001, 0.003),
        ripple_volt=spread.uniform(0.018, 0.028),
        trip_ampere=spread.uniform(3.9, 4.3),
        aux_volt=spread.uniform(3.27, 3.33),
        start_seconds=spread.uniform(0.04, 0.12),
        loss_watt=spread.uniform(0.14, 0.18),
        loss_ohm=spread.uniform(0.07, 0.09),
        kelvin_per_watt=spread.uniform(9.0, 12.0),
    )
    defect = implied_defect(serial_number)
    if defect:
        DEFECTS[defect](board)
    return board


class Board:
    """The board as a circuit: what its terminals show for a supply voltage and a load current, over time."""

    def __init__(self, serial_number: str, clock: Callable[[], float]) -> None:
        self.serial_number = serial_number
        self.data = make_board(serial_number)
        self.stored_serial_number = ""
        self._clock = clock
        self._noise = random.Random(serial_number)
        self._input_volt = 0.0
        self._demand_ampere = 0.0
        self._running = False
        self._changed_at = clock()
        self._output_before = 0.0
        self._celsius = AMBIENT_CELSIUS
        self._celsius_at = clock()

    def apply(self, input_volt: float, demand_ampere: float) -> None:
        """New settings of supply and load; the board reacts from this moment on."""
        self._age()
        output = self.output_volt()
        self._input_volt, self._demand_ampere = input_volt, demand_ampere
        stop = self.data.start_volt - UVLO_HYSTERESIS_VOLT
        enough = input_volt >= (stop if self._running else self.data.start_volt)
        running = enough and demand_ampere < self.data.trip_ampere
        if running != self._running:
            self._running, self._output_before, self._changed_at = running, output, self._clock()

    def output_volt(self) -> float:
        passed = self._clock() - self._changed_at
        if not self._running:
            floor = HICCUP_VOLT if self._tripped() else 0.0
            return floor + (self._output_before - floor) * math.exp(-passed / DISCHARGE_SECONDS)
        data = self.data
        target = data.set_volt * (1.0 + data.line_regulation * (self._input_volt - 12.0) / 6.0)
        target -= data.output_ohm * self._demand_ampere
        return target + (self._output_before - target) * math.exp(-passed / data.start_seconds)

    def output_ampere(self) -> float:
        if self._tripped():
            return 0.05 * self.data.trip_ampere
        return self._demand_ampere if self.output_volt() > 0.5 else 0.0

    def input_ampere(self) -> float:
        if self._input_volt < 0.1:
            return 0.0
        bias = self.data.idle_ampere * (1.0 if self._running else 0.1)
        power = self.output_volt() * self.output_ampere() + self._loss_watt()
        return bias + self._input_volt / self.data.input_ohm + power / self._input_volt

    def input_ohm(self) -> float:
        return self.data.input_ohm

    def ripple_volt(self) -> float:
        return self.data.ripple_volt * (0.3 + 0.7 * self.output_ampere() / 3.0) if self._running else 0.0

    def aux_volt(self) -> float:
        return self.data.aux_volt if self.output_volt() > 4.0 else 0.0

    def power_good_volt(self) -> float:
        return self.aux_volt() * (1.0 if abs(self.output_volt() / 5.0 - 1.0) < 0.1 else 0.05)

    def sensor_ohm(self) -> float:
        """The 10 kilohm thermistor (B = 3950 K) beside the switch."""
        self._age()
        kelvin = self._celsius + 273.15
        return 10.0e3 * math.exp(3950.0 * (1.0 / kelvin - 1.0 / 298.15))

    def led_lit(self) -> bool:
        return self.data.led_lit and self.output_volt() > 4.0

    def noisy(self, value: float, relative: float = 1.0e-4) -> float:
        return value * (1.0 + self._noise.gauss(0.0, relative))

    def _tripped(self) -> bool:
        return self._demand_ampere >= self.data.trip_ampere and self._input_volt > self.data.start_volt

    def _loss_watt(self) -> float:
        current = self.output_ampere()
        return (
            self.data.loss_watt + 0.2 * current + self.data.loss_ohm * current * current
            if self._running
            else 0.0
        )

    def _age(self) -> None:
        """Let the board warm up or cool down until now."""
        now = self._clock()
        target = AMBIENT_CELSIUS + self.data.kelvin_per_watt * self._loss_watt()
        weight = math.exp(-(now - self._celsius_at) / THERMAL_SECONDS)
        self._celsius = target + (self._celsius - target) * weight
        self._celsius_at = now
