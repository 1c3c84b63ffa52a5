"""The simulated instruments of one cell: supply, electronic load, multimeter with scanner, and fixture."""

import re
from collections.abc import Callable

from .board import Board
from .scpi import Handler, ScpiError, ScpiInstrument, number, quote, quoted, switch

OPEN_CIRCUIT = 9.9e37


class Slot:
    """The place for a board in one fixture, and the wires between it and the instruments."""

    def __init__(self, clock: Callable[[], float]) -> None:
        self._clock = clock
        self.board: Board | None = None
        self.supply_volt = 0.0
        self.load_ampere = 0.0

    def fit(self, serial_number: str) -> None:
        self.board = Board(serial_number, self._clock)
        self.changed()

    def remove(self) -> None:
        self.board = None

    def changed(self) -> None:
        if self.board:
            self.board.apply(self.supply_volt, self.load_ampere)

    def measured(self, quantity: Callable[[Board], float], without_board: float = 0.0) -> float:
        if self.board is None:
            return without_board
        return self.board.noisy(quantity(self.board))


class Supply(ScpiInstrument):
    model = "PS-3010"

    def __init__(self, cell_number: int, slot: Slot) -> None:
        self._slot = slot
        super().__init__(cell_number)
        self.reset()

    def reset(self) -> None:
        self._volt, self._limit, self._on = 0.0, 1.0, False
        self._connect()

    def commands(self) -> dict[str, Handler]:
        return {
            "[SOURce:]VOLTage[:LEVel]": self._set_volt,
            "[SOURce:]VOLTage[:LEVel]?": lambda: self._volt,
            "[SOURce:]CURRent[:LEVel]": self._set_limit,
            "[SOURce:]CURRent[:LEVel]?": lambda: self._limit,
            "OUTPut[:STATe]": self._switch,
            "OUTPut[:STATe]?": lambda: self._on,
            "MEASure:VOLTage[:DC]?": lambda: self._slot.supply_volt,
            "MEASure:CURRent[:DC]?": self._current,
        }

    def _set_volt(self, text: str) -> None:
        self._volt = number(text, 0.0, 30.0)
        self._connect()

    def _set_limit(self, text: str) -> None:
        self._limit = number(text, 0.0, 10.0)

    def _switch(self, text: str) -> None:
        self._on = switch(text)
        self._connect()

    def _connect(self) -> None:
        self._slot.supply_volt = self._volt if self._on else 0.0
        self._slot.changed()

    def _current(self) -> float:
        return min(self._limit, self._slot.measured(lambda board: board.input_ampere()))


class Load(ScpiInstrument):
    model = "EL-150"

    def __init__(self, cell_number: int, slot: Slot) -> None:
        self._slot = slot
        super().__init__(cell_number)
        self.reset()

    def reset(self) -> None:
        self._ampere, self._on = 0.0, False
        self._connect()

    def commands(self) -> dict[str, Handler]:
        return {
            "[SOURce:]CURRent[:LEVel]": self._set_ampere,
            "[SOURce:]CURRent[:LEVel]?": lambda: self._ampere,
            "INPut[:STATe]": self._switch,
            "INPut[:STATe]?": lambda: self._on,
            "MEASure:CURRent[:DC]?": lambda: self._slot.measured(lambda board: board.output_ampere()),
            "MEASure:VOLTage[:DC]?": lambda: self._slot.measured(lambda board: board.output_volt()),
        }

    def _set_ampere(self, text: str) -> None:
        self._ampere = number(text, 0.0, 15.0)
        self._connect()

    def _switch(self, text: str) -> None:
        self._on = switch(text)
        self._connect()

    def _connect(self) -> None:
        self._slot.load_ampere = self._ampere if self._on else 0.0
        self._slot.changed()


class Meter(ScpiInstrument):
    """Scanner channels: 101 input, 102 output, 103 auxiliary output, 104 power-good, 105 thermistor."""

    model = "DM-65"
    CHANNELS = range(101, 106)

    def __init__(self, cell_number: int, slot: Slot) -> None:
        self._slot = slot
        super().__init__(cell_number)
        self.reset()

    def reset(self) -> None:
        self._channel = 101

    def commands(self) -> dict[str, Handler]:
        return {
            "ROUTe:CLOSe": self._close,
            "ROUTe:CLOSe?": lambda: f"(@{self._channel})",
            "MEASure:VOLTage[:DC]?": self._direct_volt,
            "MEASure:VOLTage:AC?": self._alternating_volt,
            "MEASure:RESistance?": self._resistance,
        }

    def _close(self, text: str) -> None:
        match = re.fullmatch(r"\(@(\d+)\)", text)
        if not match or int(match.group(1)) not in self.CHANNELS:
            raise ScpiError(-224, f"Illegal parameter value; {text}")
        self._channel = int(match.group(1))

    def _direct_volt(self) -> float:
        quantities: dict[int, Callable[[Board], float]] = {
            102: Board.output_volt,
            103: Board.aux_volt,
            104: Board.power_good_volt,
        }
        if self._channel == 101:
            return self._slot.supply_volt
        quantity = quantities.get(self._channel)
        return self._slot.measured(quantity) if quantity else 0.0

    def _alternating_volt(self) -> float:
        return self._slot.measured(Board.ripple_volt) if self._channel == 102 else 0.0

    def _resistance(self) -> float:
        quantity = {101: Board.input_ohm, 105: Board.sensor_ohm}.get(self._channel)
        return self._slot.measured(quantity, OPEN_CIRCUIT) if quantity else OPEN_CIRCUIT


class Fixture(ScpiInstrument):
    """Lid, label reader and the service port of the board; SIMulation commands are the operator's hands."""

    model = "FX-1"

    def __init__(self, cell_number: int, slot: Slot) -> None:
        self._slot = slot
        super().__init__(cell_number)

    def commands(self) -> dict[str, Handler]:
        return {
            "LID[:CLOSed]?": lambda: self._slot.board is not None,
            "UNIT:LABel?": lambda: quote(self._slot.board.serial_number if self._slot.board else ""),
            "UNIT:FIRMware?": lambda: quote(self._powered().data.firmware),
            "UNIT:SERial": self._store_serial_number,
            "UNIT:SERial?": lambda: quote(self._powered().stored_serial_number),
            "SIMulation:FIT": lambda text: self._slot.fit(quoted(text)),
            "SIMulation:REMove": self._slot.remove,
            "SIMulation:LED?": lambda: self._slot.board is not None and self._slot.board.led_lit(),
        }

    def _store_serial_number(self, text: str) -> None:
        self._powered().stored_serial_number = quoted(text)

    def _powered(self) -> Board:
        board = self._slot.board
        if board is None or board.aux_volt() < 1.0:
            raise ScpiError(-365, "Time out error; the unit does not answer")
        return board
