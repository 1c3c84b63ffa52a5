"""The figures as the pages ask for them: the process that makes them, and connections that read them."""

from __future__ import annotations

import asyncio
import contextlib
import os
import subprocess
import sys
import threading
from collections.abc import AsyncIterator, Callable
from typing import TypeVar

import apsw
from starlette.applications import Starlette

from ..settings import Settings
from .file import Rollups, place_of

Answer = TypeVar("Answer")

# Linear algebra of this size gains nothing from threads, and other processes want the processors.
_ONE_THREAD = {"OPENBLAS_NUM_THREADS": "1", "OMP_NUM_THREADS": "1"}


class NotYet(Exception):
    """There are no figures so far."""


class Keeper:
    """Readers are opened when asked for and kept; a file that was made anew is noticed."""

    def __init__(self, settings: Settings) -> None:
        self.path = place_of(settings.where, settings.figures)
        self._settings = settings
        self._maker: subprocess.Popen[bytes] | None = None
        self._free: list[Rollups] = []
        self._lock = threading.Lock()
        self.answers: dict[tuple[object, ...], object] = {}  # of the newest state; see `kept`
        self._state = (-1.0, -1)

    def start(self) -> None:
        command = [sys.executable, "-m", "qon_results.page.rollups", self._settings.where, str(self.path)]
        self._maker = subprocess.Popen(
            [*command, str(self._settings.alarm_budget)],
            stdin=subprocess.PIPE,
            env={**os.environ, **_ONE_THREAD},
        )

    def stop(self) -> None:
        if self._maker is not None:
            assert self._maker.stdin is not None
            self._maker.stdin.close()
            try:
                self._maker.wait(5.0)
            except subprocess.TimeoutExpired:
                self._maker.kill()
                self._maker.wait()
        while self._free:
            self._free.pop().close()

    async def ask(self, question: Callable[[Rollups], Answer]) -> Answer:
        """In a thread; NotYet when there is nothing to ask."""
        return await asyncio.to_thread(self.answer, question)

    def answer(self, question: Callable[[Rollups], Answer]) -> Answer:
        with self._lock:
            file = self._free.pop() if self._free else None
        try:
            file = file or Rollups(self.path)
            answer = question(file)
        except (FileNotFoundError, apsw.Error) as error:
            if file is not None:
                file.close()
            raise NotYet(str(error)) from None
        except BaseException:
            if file is not None:
                file.close()
            raise
        with self._lock:
            self._free.append(file)
        return answer

    def kept(self, file: Rollups, key: tuple[object, ...], make: Callable[[], Answer]) -> Answer:
        """An answer is good until the figures change; what is asked again and again is found once."""
        ((at, seals),) = file.rows(
            "SELECT coalesce(max(at_us), 0), (SELECT coalesce(sum(seal), 0) FROM position WHERE task = 'parts') FROM progress WHERE task = 'parts'"
        )
        with self._lock:
            if self._state != (at, seals):
                self.answers.clear()
                self._state = (at, seals)
            if key in self.answers:
                return self.answers[key]  # type: ignore[return-value]
        found = make()
        with self._lock:
            if self._state == (at, seals) and len(self.answers) < 64:
                self.answers[key] = found
        return found


@contextlib.asynccontextmanager
async def running(app: Starlette) -> AsyncIterator[None]:
    app.state.figures.start()
    try:
        yield
    finally:
        await asyncio.to_thread(app.state.figures.stop)
