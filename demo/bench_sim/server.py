"""Serves the simulated instruments as SCPI sockets on the loopback interface, each on its own port."""

import asyncio
import os
import socket
import threading
import time
from collections import deque
from collections.abc import Awaitable, Callable
from typing import Self

from .instruments import Fixture, Load, Meter, Slot, Supply
from .scpi import ScpiInstrument

HOST = "127.0.0.1"
KINDS = ("supply", "load", "meter", "fixture")
MEASURE_SECONDS = 0.015
# Below the ports that the system gives to outgoing connections.
FREE_PORTS = range(15200, 32000)


def port(first_port: int, cell_number: int, kind: str) -> int:
    """Ten ports are set aside for each cell."""
    return first_port + 10 * (cell_number - 1) + KINDS.index(kind)


def free_port(cell_count: int) -> int:
    """A first port whose followers nobody uses, for a bench beside others."""
    size = 10 * cell_count
    candidates = deque(range(FREE_PORTS.start, FREE_PORTS.stop, size))
    candidates.rotate(-os.getpid())  # two that look at the same moment find different ones
    for first in candidates:
        try:
            for number in range(first, first + size):
                with socket.socket() as probe:
                    probe.bind((HOST, number))
        except OSError:
            continue
        return first
    raise RuntimeError(f"no {size} free ports on the loopback interface")


class BenchServer:
    """All instruments of the bench in one event loop, which is the only thread that touches the boards."""

    def __init__(self, cell_count: int, first_port: int, clock: Callable[[], float] = time.monotonic) -> None:
        self._instruments: dict[int, ScpiInstrument] = {}
        for cell_number in range(1, cell_count + 1):
            slot = Slot(clock)
            for kind, maker in zip(KINDS, (Supply, Load, Meter, Fixture), strict=True):
                self._instruments[port(first_port, cell_number, kind)] = maker(cell_number, slot)

    async def serve(self, ready: Callable[[], None]) -> None:
        """Listen until cancelled; a port that is taken raises OSError before anything is served."""
        servers = []
        try:
            for number, instrument in self._instruments.items():
                servers.append(await asyncio.start_server(self._client(instrument), HOST, number))
            ready()
            await asyncio.Event().wait()
        finally:
            for server in servers:
                server.close()

    def _client(
        self, instrument: ScpiInstrument
    ) -> Callable[[asyncio.StreamReader, asyncio.StreamWriter], Awaitable[None]]:
        async def talk(reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
            try:
                while line := await reader.readline():
                    command = line.decode("utf-8", "replace").strip()
                    if "MEAS" in command.upper():
                        await asyncio.sleep(MEASURE_SECONDS)
                    answer = instrument.execute(command)
                    if answer is not None:
                        writer.write(answer.encode() + b"\n")
                        await writer.drain()
            except (ConnectionError, asyncio.CancelledError):
                pass
            finally:
                writer.close()

        return talk


class BenchThread:
    """A bench inside this process, for tests."""

    def __init__(self, cell_count: int, first_port: int) -> None:
        self._server = BenchServer(cell_count, first_port)
        self._ready = threading.Event()
        self._error: OSError | None = None
        self._thread = threading.Thread(target=self._run, name="bench", daemon=True)

    def __enter__(self) -> Self:
        self._thread.start()
        self._ready.wait(10.0)
        if self._error:
            self._thread.join(10.0)
            raise self._error
        return self

    def __exit__(self, *_exception: object) -> None:
        self._loop.call_soon_threadsafe(self._serving.cancel)
        self._thread.join(10.0)

    def _run(self) -> None:
        try:
            asyncio.run(self._serve())
        except asyncio.CancelledError:
            pass
        except OSError as error:
            self._error = error
            self._ready.set()

    async def _serve(self) -> None:
        self._loop = asyncio.get_running_loop()
        self._serving = asyncio.ensure_future(self._server.serve(self._ready.set))
        await self._serving
