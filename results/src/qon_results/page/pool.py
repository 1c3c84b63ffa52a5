"""Stores for requests: a few, read-only, each used by one thread at a time, and no question without an end."""

import asyncio
import contextlib
import threading
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import TypeVar

import apsw

import qon_results

from ..store.base import Store
from ..store.file import FILE_NAME

Answer = TypeVar("Answer")

WAITING_MOST = 64  # questions; who comes later is told to come again


class Unavailable(Exception):
    """The results cannot be read now; the text says why."""


class Busy(Exception):
    """Too many questions at a time."""


class Pool:
    """Opened at the first question and again after a failure; a database that comes back is used at once."""

    def __init__(self, where: str, size: int, seconds: float) -> None:
        self._where, self._seconds = where, seconds
        self._free: list[tuple[Store, object]] = []
        self._lock = threading.Lock()
        self._threads = ThreadPoolExecutor(size, "page: store")
        self._waiting = 0

    async def ask(self, question: Callable[[Store], Answer]) -> Answer:
        """The answer of a function that reads a store, given in a thread.

        Unavailable, Busy and the store's TooSlow are for the reader of the page; what else the function raises passes through.
        """
        if self._waiting >= WAITING_MOST:
            raise Busy
        self._waiting += 1
        try:
            return await asyncio.get_running_loop().run_in_executor(self._threads, self._answer, question)
        finally:
            self._waiting -= 1

    def close(self) -> None:
        self._threads.shutdown(wait=True, cancel_futures=True)
        while self._free:
            self._free.pop()[0].close()

    def _answer(self, question: Callable[[Store], Answer]) -> Answer:
        store, of = self._taken()
        try:
            answer = question(store)
        except (apsw.Error, OSError) as error:
            with contextlib.suppress(Exception):
                store.close()
            raise Unavailable(str(error)) from error
        except BaseException:
            self._give_back(store, of)
            raise
        self._give_back(store, of)
        return answer

    def _taken(self) -> tuple[Store, object]:
        """A store and the file it reads; one of a file that was replaced or is gone is left behind."""
        there = self._file()
        with self._lock:
            while self._free:
                store, of = self._free.pop()
                if of == there:
                    return store, of
                store.close()
        try:
            store = qon_results.open(self._where)
            store.limit(self._seconds)
        except (apsw.Error, OSError, ValueError) as error:
            raise Unavailable(str(error)) from error
        return store, there

    def _file(self) -> object:
        path = Path(self._where)
        with contextlib.suppress(OSError):
            found = (path / FILE_NAME if path.is_dir() else path).stat()
            return found.st_dev, found.st_ino
        return None

    def _give_back(self, store: Store, of: object) -> None:
        with self._lock:
            self._free.append((store, of))
