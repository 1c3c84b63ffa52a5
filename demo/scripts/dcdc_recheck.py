"""Short check of a board that came back: a list of items, each with its own number of retries."""

from collections.abc import Callable

from cell_bench import CHANNEL_AUX, CHANNEL_OUTPUT, CellBench, parameters
from qon_ats import Assertion, CellRunnerBase, TestItem
from qon_station import retry_item


class CellRunner(CellRunnerBase):
    def __init__(self) -> None:
        super().__init__()
        self._rating = parameters(self.app_config, "product", "ratings")
        self._bench: CellBench | None = None

    def items(self, bench: CellBench) -> list[TestItem]:
        """`test_func` measures; before and after a test the load is connected and taken off."""

        def load(ampere: float) -> Callable[[], None]:
            return lambda: self._load(bench, ampere)

        def volt(channel: int) -> Callable[[], float]:
            return lambda: bench.meter.volt(channel)

        off = load(0.0)
        full = load(self._rating.full_ampere)
        output, aux = volt(CHANNEL_OUTPUT), volt(CHANNEL_AUX)
        no_load = Assertion("VOUT_NO_LOAD", lower=4.9, upper=5.1, unit="V")
        auxiliary = Assertion("VOUT_AUX", lower=3.2, upper=3.4, unit="V")
        full_load = Assertion("VOUT_FULL_LOAD", lower=4.88, upper=5.1, unit="V")
        ripple = Assertion("RIPPLE", upper=50.0, unit="mV")
        return [
            TestItem("no load", no_load, output, retry_count=8, retry_interval=0.15),
            TestItem("auxiliary output", auxiliary, aux),
            TestItem("full load", full_load, output, full, off, 8, 0.15),
            TestItem("ripple", ripple, lambda: self._ripple(bench), full, off, 2, 0.1),
        ]

    def run(self) -> None:
        self._bench = CellBench(self.app_config, self.cell_number)
        wanted = self.uut.serial_number or ""
        self.set_prompt(f"Fit the board {wanted}, close the lid")
        while not (label := self._bench.unit_in_place(wanted)):
            self.sleep(0.2)
        self.set_serial_number(label)
        self._bench.supply.set(self._rating.nominal_volt, self._rating.limit_ampere)
        self._bench.supply.switch(True)
        items = self.items(self._bench)
        for item in items:
            self.set_prompt(item.name)
            retry_item(self, item)
            self.increase_percentage(100 // len(items))

    def cleanup(self) -> None:
        if self._bench is not None:
            try:
                self._bench.outputs_off()
            finally:
                self._bench.close()

    def _load(self, bench: CellBench, ampere: float) -> None:
        bench.load.set(ampere)
        bench.load.switch(ampere > 0.0)

    def _ripple(self, bench: CellBench) -> float:
        return round(bench.meter.ripple_volt(CHANNEL_OUTPUT) * 1000.0, 2)
