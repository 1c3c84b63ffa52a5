"""One writer a file: a lock that the system takes back whatever becomes of its owner."""

import json
import os
import socket
import sys
import time
from pathlib import Path
from typing import IO

WAIT_SECONDS = 1.0  # for the writer of a station that has just ended; the recorder tries again


class InUseError(Exception):
    """Its text says by whom."""


class Lock:
    """Of a file that stands beside the one it guards; held until it is closed."""

    def __init__(self, path: Path, wait: float = WAIT_SECONDS) -> None:
        """InUseError when another writer still has it after so many seconds."""
        self._path = path.with_name(path.name + ".lock")
        self._file: IO[bytes] = self._path.open("a+b")
        deadline = time.monotonic() + wait
        while not self._taken():
            if time.monotonic() > deadline:
                owner = self._owner()
                self._file.close()
                raise InUseError(f"Another station records into {path.parent} already ({owner}).")
            time.sleep(0.05)  # there is nothing to wait on that all systems have
        self._sign()

    def close(self) -> None:
        self._file.close()

    def _taken(self) -> bool:
        self._file.seek(0)
        try:
            if sys.platform == "win32":
                import msvcrt

                msvcrt.locking(self._file.fileno(), msvcrt.LK_NBLCK, 1)
            else:
                import fcntl

                fcntl.flock(self._file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            return False
        return True

    def _sign(self) -> None:
        """Behind the byte that Windows locks, for whoever is refused."""
        owner = {
            "process": os.getpid(),
            "host": socket.gethostname(),
            "since": time.strftime("%Y-%m-%d %H:%M:%S"),
        }
        self._file.truncate(0)
        self._file.write(b" " + json.dumps(owner).encode())
        self._file.flush()

    def _owner(self) -> str:
        try:
            self._file.seek(1)
            owner = json.loads(self._file.read())
            return f"process {owner['process']} on {owner['host']} since {owner['since']}"
        except (OSError, ValueError, KeyError):
            return "its lock does not say which"
