"""The instruments of one cell, as the parameters name them, opened together and left safe together."""

from contextlib import ExitStack
from typing import Any, TypeVar

from scpi_instruments import Fixture, Load, Meter, ScpiInstrument, Supply

CHANNEL_INPUT, CHANNEL_OUTPUT, CHANNEL_AUX, CHANNEL_POWER_GOOD, CHANNEL_SENSOR = range(101, 106)

Kind = TypeVar("Kind", bound=ScpiInstrument)


def parameters(app_config: Any, workbook: str, sheet: str) -> Any:
    """A sheet of the parameters directory; the error names what is missing."""
    if app_config is None:
        raise LookupError('The parameters directory "app_config" is missing; make_workbooks.py writes it.')
    return app_config[f"{workbook}/{sheet}"]


def bench_settings(app_config: Any) -> Any:
    return parameters(app_config, "instruments", "bench")


def open_instrument(app_config: Any, cell_number: int, role: str, kind: type[Kind]) -> Kind:
    """One instrument of a cell, by its role."""
    bench = bench_settings(app_config)
    resource = parameters(app_config, "instruments", f"cell{cell_number}")[role]
    return kind(f"{role} of cell {cell_number}", resource, bench.library, bench.timeout_ms)


def fixture_of(app_config: Any, cell_number: int) -> Fixture:
    return open_instrument(app_config, cell_number, "fixture", Fixture)


class CellBench:
    """Supply, load, meter and fixture of a cell; what was opened is closed again when one of them fails."""

    def __init__(self, app_config: Any, cell_number: int) -> None:
        with ExitStack() as opening:

            def connect(role: str, kind: type[Kind]) -> Kind:
                instrument = open_instrument(app_config, cell_number, role, kind)
                opening.callback(instrument.close)
                return instrument

            self.supply = connect("supply", Supply)
            self.load = connect("load", Load)
            self.meter = connect("meter", Meter)
            self.fixture = connect("fixture", Fixture)
            self._sessions = opening.pop_all()

    def unit_in_place(self, wanted: str) -> str:
        """The label of the unit in the fixture, "" while it is not the wanted one; any will do when none is."""
        label = self.fixture.label()
        return label if label == (wanted or label) else ""

    def outputs_off(self) -> None:
        """The load first, so that it never pulls on a unit without supply; the supply in any case."""
        try:
            self.load.switch(False)
        finally:
            self.supply.switch(False)

    def close(self) -> None:
        self._sessions.close()
