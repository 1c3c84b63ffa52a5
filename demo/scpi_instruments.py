"""Drivers of the bench's SCPI instruments on PyVISA.

A resource name and a VISA library ("@py", "@ivi", a simulation) are all that tells one bench from another.
A session belongs to the thread that opened it.
"""

import threading
from functools import cache
from typing import Any

import pyvisa

_manager_lock = threading.Lock()


class InstrumentError(RuntimeError):
    """An instrument does not answer or refuses a command; the text names role and resource."""


@cache
def _open_manager(library: str) -> pyvisa.ResourceManager:
    return pyvisa.ResourceManager(library)


def resource_manager(library: str) -> pyvisa.ResourceManager:
    """One manager for each VISA library, shared by all cells."""
    with _manager_lock:
        return _open_manager(library)


class ScpiInstrument:
    """A message-based session with time limit; every failure becomes an InstrumentError.

    It is open when the instrument has told its identity: a socket alone may open towards nobody.
    """

    def __init__(self, role: str, resource: str, library: str, timeout_ms: int) -> None:
        self._role, self._resource = role, resource
        try:
            self._session: Any = resource_manager(library).open_resource(
                resource,
                read_termination="\n",
                write_termination="\n",
                timeout=timeout_ms,
                open_timeout=timeout_ms,
            )
        except Exception as error:  # some VISA libraries raise nothing more special
            raise self._failure(f"cannot be opened: {error}") from error
        try:
            self.identity = self.query("*IDN?")
        except InstrumentError:
            self.close()
            raise

    def write(self, command: str) -> None:
        """Send a setting, and make sure that the instrument accepted it."""
        answer = self.query(f"{command};:SYST:ERR?")
        if not answer.lstrip("+").startswith("0,"):
            raise self._failure(f'refused "{command}": {answer}')

    def query(self, command: str) -> str:
        try:
            return str(self._session.query(command)).strip()
        except (pyvisa.Error, OSError) as error:
            raise self._failure(f'does not answer to "{command}": {error}') from error

    def measure(self, command: str) -> float:
        answer = self.query(command)
        try:
            return float(answer)
        except ValueError:
            raise self._failure(f'answered "{answer}" to "{command}", a number was expected') from None

    def text(self, command: str) -> str:
        """The answer to a query for a string."""
        return self.query(command)[1:-1].replace('""', '"')

    def close(self) -> None:
        self._session.close()

    def _failure(self, what: str) -> InstrumentError:
        return InstrumentError(
            f"{self._role} {self._resource} {what}.  Check that it is switched on and connected,"
            ' and its resource name in the parameters "instruments".'
        )


class Supply(ScpiInstrument):
    """DC supply; volts and amperes."""

    def set(self, volt: float, limit_ampere: float) -> None:
        self.write(f"VOLT {volt:.3f};:CURR {limit_ampere:.3f}")

    def switch(self, on: bool) -> None:
        self.write(f"OUTP {'ON' if on else 'OFF'}")

    def is_on(self) -> bool:
        return self.query("OUTP?") == "1"

    def volt(self) -> float:
        return self.measure("MEAS:VOLT?")

    def ampere(self) -> float:
        return self.measure("MEAS:CURR?")


class Load(ScpiInstrument):
    """Electronic load in constant-current mode; amperes."""

    def set(self, ampere: float) -> None:
        self.write(f"CURR {ampere:.3f}")

    def switch(self, on: bool) -> None:
        self.write(f"INP {'ON' if on else 'OFF'}")

    def ampere(self) -> float:
        return self.measure("MEAS:CURR?")


class Meter(ScpiInstrument):
    """Multimeter with a scanner card; a channel stays closed until the next one is chosen."""

    def volt(self, channel: int) -> float:
        return self.measure(f"ROUT:CLOS (@{channel});:MEAS:VOLT:DC?")

    def ripple_volt(self, channel: int) -> float:
        return self.measure(f"ROUT:CLOS (@{channel});:MEAS:VOLT:AC?")

    def ohm(self, channel: int) -> float:
        return self.measure(f"ROUT:CLOS (@{channel});:MEAS:RES?")


class Fixture(ScpiInstrument):
    """Test fixture: lid switch, label reader, and the service port of the unit."""

    def is_closed(self) -> bool:
        return self.query("LID:CLOS?") == "1"

    def label(self) -> str:
        """The serial number on the label of the unit; "" while the fixture is empty."""
        return self.text("UNIT:LAB?")

    def firmware(self) -> str:
        return self.text("UNIT:FIRM?")

    def store_serial_number(self, serial_number: str) -> None:
        escaped = serial_number.replace('"', '""')
        self.write(f'UNIT:SER "{escaped}"')

    def stored_serial_number(self) -> str:
        return self.text("UNIT:SER?")
