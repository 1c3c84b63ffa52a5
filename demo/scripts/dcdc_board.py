"""Test of the 12 V to 5 V / 3 A converter board.

Limits come from the limits workbook of the cell, ratings and waiting times from the parameters "product".
"""

import math
from collections.abc import Callable

from cell_bench import (
    CHANNEL_AUX,
    CHANNEL_INPUT,
    CHANNEL_OUTPUT,
    CHANNEL_POWER_GOOD,
    CHANNEL_SENSOR,
    CellBench,
    parameters,
)
from qon_ats import Assertion, CellRunnerBase

KELVIN = 273.15


def celsius(sensor_ohm: float) -> float:
    """Temperature of the board's thermistor: 10 kilohm at 25 degrees, B = 3950 K."""
    return 1.0 / (1.0 / (25.0 + KELVIN) + math.log(sensor_ohm / 10.0e3) / 3950.0) - KELVIN


class CellRunner(CellRunnerBase):
    def __init__(self) -> None:
        super().__init__()
        self._bench: CellBench | None = None
        self._label = ""
        self._no_load_volt = 0.0
        self._rating = parameters(self.app_config, "product", "ratings")
        self._timing = parameters(self.app_config, "product", "timing")

    def run(self) -> None:
        self.set_prompt("Connecting the instruments")
        self._bench = CellBench(self.app_config, self.cell_number)
        steps: list[Callable[[], None]] = [
            self._wait_for_unit,
            self._input,
            self._start_up,
            self._no_load,
            self._identity,
            self._indicator,
            self._half_load,
            self._full_load,
            self._line_regulation,
            self._overload,
            self._switch_off,
        ]
        for step in steps:
            self.check_abort()
            self.debug_print(f"step {step.__name__}")
            step()
            self.increase_percentage(100 // len(steps))
        self._log_margins()

    def cleanup(self) -> None:
        """Also after an abort: nothing stays powered, no session stays open."""
        if self._bench is not None:
            try:
                self._bench.outputs_off()
            finally:
                self._bench.close()

    @property
    def bench(self) -> CellBench:
        assert self._bench is not None, "the instruments are opened first"
        return self._bench

    def _wait_for_unit(self) -> None:
        """The scanned unit has to lie in the fixture; nothing scanned, the label there counts."""
        wanted = self.uut.serial_number or ""
        self.set_prompt(f"Fit the board {wanted}, close the lid")
        while not (label := self.bench.unit_in_place(wanted)):
            self.sleep(0.2)
        if not wanted:
            self.set_serial_number(label)
        self.set_prompt("Testing")
        self._label = label
        self.print(f"{self.get_cell_name()}: unit {label}, meter {self.bench.meter.identity}")
        self.assert_equal("UNIT_LABEL", label, self.uut.serial_number, category="identity")

    def _input(self) -> None:
        ohm = self.bench.meter.ohm(CHANNEL_INPUT)
        self.assert_limits("INPUT_RESISTANCE", round(ohm / 1000.0, 3), 1.0, None, "kΩ", category="input")

    def _start_up(self) -> None:
        """Raise the input until the output appears."""
        supply, volt = self.bench.supply, self._rating.ramp_from_volt
        supply.set(volt, self._rating.limit_ampere)
        supply.switch(True)
        while volt < self._rating.ramp_to_volt and self.bench.meter.volt(CHANNEL_OUTPUT) < 0.5:
            volt += 0.05
            supply.set(volt, self._rating.limit_ampere)
            self.sleep(0.02)
        volt = self.bench.meter.volt(CHANNEL_INPUT)
        self.assert_limits("START_UP_VOLTAGE", volt, 8.2, 9.2, "V", category="input")

    def _no_load(self) -> None:
        self._apply(self._rating.nominal_volt, 0.0)
        volt = self._no_load_volt = self._settled_output("VOUT_NO_LOAD", 4.9, 5.1)
        self.assert_percent_limits("VOUT_NO_LOAD", volt, 5.0, 2.0, "V", category="regulation")
        idle = round(self.bench.supply.ampere() * 1000.0, 2)
        self.assert_limits("IDLE_CURRENT", idle, None, 45.0, "mA", category="input")
        aux = self.bench.meter.volt(CHANNEL_AUX)
        self.assert_percent_limits("VOUT_AUX", aux, 3.3, 2.5, "V", category="regulation")
        good = self.bench.meter.volt(CHANNEL_POWER_GOOD)
        self.assert_true("POWER_GOOD", good > 2.5, category="protection")

    def _identity(self) -> None:
        firmware, wanted = self.bench.fixture.firmware(), self._rating.firmware
        self.noumenon.logger.info("firmware %s, wanted %s", firmware, wanted)
        self.assert_result("FIRMWARE_VERSION", firmware, firmware == wanted, "", category="identity")
        self.bench.fixture.store_serial_number(self._label)
        stored = self.bench.fixture.stored_serial_number()
        self.assert_equal("SERIAL_NUMBER_STORED", stored, self._label, category="identity")

    def _indicator(self) -> None:
        self.set_prompt("Is the green LED lit?")
        lit = self.ask_true_or_false("Is the green LED lit?", "Lit", "Dark")
        self.set_prompt("Testing")
        self.assert_result("LED_GREEN", "lit" if lit else "dark", lit, "", category="identity")

    def _half_load(self) -> None:
        self._apply(self._rating.nominal_volt, self._rating.half_ampere)
        volt = self._settled_output("VOUT_HALF_LOAD", 4.9, 5.1)
        self.assert_percent_limits("VOUT_HALF_LOAD", volt, 5.0, 2.0, "V", category="regulation")
        self.assert_limits(
            "EFFICIENCY_HALF_LOAD", self._efficiency(), 86.0, 100.0, "%", category="efficiency"
        )

    def _full_load(self) -> None:
        """The board warms up meanwhile, so its temperature is listed first and judged last."""
        self._apply(self._rating.nominal_volt, self._rating.full_ampere)
        temperature = Assertion("BOARD_TEMPERATURE", unit="°C")
        self.append(temperature)
        try:
            volt = self._settled_output("VOUT_FULL_LOAD", 4.88, 5.1)
            self.assert_limits("VOUT_FULL_LOAD", volt, 4.88, 5.1, "V", category="regulation")
            drop = (1.0 - volt / self._no_load_volt) * 100.0
            self.assert_limits("LOAD_REGULATION", round(drop, 3), None, 1.5, "%", category="regulation")
            ripple = round(self.bench.meter.ripple_volt(CHANNEL_OUTPUT) * 1000.0, 2)
            self.assert_limits("RIPPLE", ripple, None, 50.0, "mV", category="regulation")
            self.assert_limits(
                "EFFICIENCY_FULL_LOAD", self._efficiency(), 86.0, 100.0, "%", category="efficiency"
            )
            self.set_prompt("Warming up")
            self.sleep(self._timing.warm_up_seconds)
            self.set_prompt("Testing")
        finally:
            self._judge_temperature(temperature)
        if temperature.is_ng() and self.cell_config.get("stop_if_ng", True):
            self.done()

    def _judge_temperature(self, temperature: Assertion) -> None:
        """Against the configured limits; also when another item ends the test."""
        value = round(celsius(self.bench.meter.ohm(CHANNEL_SENSOR)), 1)
        judged = self.try_limits("BOARD_TEMPERATURE", value, None, 55.0, "°C")
        temperature.update(value, judged.lower, judged.upper, result=judged.get_result_as_bool())
        self.print(f"temperature at the end of full load: {value} °C")

    def _line_regulation(self) -> None:
        volts = []
        for volt in (self._rating.lowest_volt, self._rating.highest_volt):
            self._apply(volt, self._rating.half_ampere)
            self.sleep(self._timing.settle_seconds)
            volts.append(self.bench.meter.volt(CHANNEL_OUTPUT))
        change = abs(volts[1] - volts[0]) / volts[0] * 100.0
        self.assert_limits("LINE_REGULATION", round(change, 3), None, 1.0, "%", category="regulation")

    def _overload(self) -> None:
        """Raise the load until the board protects itself, then see that it comes back."""
        self._apply(self._rating.nominal_volt, self._rating.full_ampere)
        ampere = self._rating.full_ampere
        while ampere < self._rating.overload_ampere and self.bench.meter.volt(CHANNEL_OUTPUT) > 4.5:
            ampere += 0.1
            self.bench.load.set(ampere)
            self.sleep(0.04)
        self.assert_limits("TRIP_CURRENT", round(ampere, 2), 3.5, 5.0, "A", category="protection")
        self.bench.load.set(self._rating.half_ampere)
        volt = self._settled_output("VOUT_HALF_LOAD", 4.9, 5.1)
        self.assert_percent_limits("VOUT_RECOVERED", volt, 5.0, 2.0, "V", category="protection")

    def _switch_off(self) -> None:
        self.bench.outputs_off()
        self.sleep(self._timing.discharge_seconds)
        volt = self.bench.meter.volt(CHANNEL_OUTPUT)
        self.assert_limits("VOUT_OFF", round(volt, 4), None, 0.5, "V", category="protection")
        self.append_ok("METER", self.bench.meter.identity, category="identity")

    def _apply(self, volt: float, ampere: float) -> None:
        self.bench.supply.set(volt, self._rating.limit_ampere)
        self.bench.load.set(ampere)
        self.bench.load.switch(ampere > 0.0)

    def _settled_output(self, name: str, lower: float, upper: float) -> float:
        """The output once it stands still within the item's limits, after at most twelve tries."""
        volt = 0.0
        for attempt in range(12):
            before, volt = volt, self.bench.meter.volt(CHANNEL_OUTPUT)
            if abs(volt - before) < 0.005 and self.try_limits(name, volt, lower, upper, "V").is_ok():
                break
            self.debug_print(f"{name}: try {attempt + 1}, {volt:.3f} V")
            self.sleep(self._timing.retry_seconds)
        return volt

    def _efficiency(self) -> float:
        """Output power over input power, in percent."""
        output = self.bench.meter.volt(CHANNEL_OUTPUT) * self.bench.load.ampere()
        drawn = self.bench.meter.volt(CHANNEL_INPUT) * self.bench.supply.ampere()
        return round(100.0 * output / drawn, 2)

    def _log_margins(self) -> None:
        """How far each regulated output is from the nearer limit."""
        for item in self.get_assertions("regulation"):
            margins = [abs(limit - item.value) for limit in (item.lower, item.upper) if limit is not None]
            self.print(f"{item.name}: {min(margins):.4g} {item.unit} to the limit")
