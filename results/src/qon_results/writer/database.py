"""The file while it is written: transactions that survive a crash soon, and a power cut when they have to."""

import time
import uuid
from pathlib import Path

import apsw

from ..store.file import ask, connect, migrate
from ..store.verify import check_newest
from .messages import CellState
from .runs import Runs

CRASH_SECONDS = 0.1  # what was measured longer ago survives the end of station and writer
CHECKPOINT_FRAMES = (
    1000  # pages in the log: then they are moved into the file when nothing else is to be done
)
_MOST_FRAMES = 16_000  # 64 MiB: then at once
_LOG_LIMIT = 64 << 20  # bytes; a longer log is cut off

_CELL = "INSERT OR REPLACE INTO now VALUES (?, ?, ?, ?, ?, ?, ?, ?)"
_REMEMBER = "INSERT OR REPLACE INTO memory VALUES (?, ?)"


class Database:
    """One transaction after the other.  In WAL mode one commit with `synchronous` FULL makes all before it durable.

    Rows are committed every 100 ms without waiting for the disk, so that they outlive the processes, and
    durably every `commit_ms`; begins and seals durably at once.
    """

    def __init__(self, path: Path, commit_ms: int, vfs: str | None = None, durable: str = "full") -> None:
        self._connection = connect(path, write=True, vfs=vfs)
        if self._connection.readonly("main"):  # SQLite would say so only when the first run begins
            self._connection.close()
            raise PermissionError(f"{path} cannot be written")
        self._connection.pragma("journal_mode", "wal")
        self._connection.pragma("wal_autocheckpoint", _MOST_FRAMES)
        self._connection.pragma("journal_size_limit", _LOG_LIMIT)
        self._durable_level = durable
        self._durable_seconds = commit_ms / 1000
        self._frames = 0
        self._connection.set_wal_hook(self._count_frames)
        self._set_level(durable)
        migrate(self._connection, path)
        self._began = self._synced = time.monotonic()
        self._unsynced = False  # something is committed that a power cut would take
        self._commits = 0

    def open(self, station: str) -> None:
        """The station's own row; the newest records are counted again, so that damage is known before the next test."""
        with self._connection:
            known = list(self._connection.execute("SELECT 1 FROM station"))
            if not known:
                row = (uuid.uuid4().bytes, station, time.time_ns() // 1000)
                self._connection.execute("INSERT INTO station VALUES (?, ?, ?)", row)
        fault = check_newest(self._connection)
        if fault is not None:
            raise apsw.CorruptError(fault.text)
        self.runs = Runs(self._connection)

    @property
    def station(self) -> bytes:
        return bytes(next(ask(self._connection, "SELECT id FROM station"))[0])

    # Transactions.

    def begin(self, durable: bool) -> None:
        """What follows belongs to a transaction that survives a power cut once it is committed, or a crash only."""
        due = time.monotonic() - self._synced >= self._durable_seconds
        level = self._durable_level if durable or due else "normal"
        if self._connection.in_transaction:
            if not durable or self._level == self._durable_level:
                return
            self.commit()
        self._set_level(level)
        self._connection.execute("BEGIN IMMEDIATE")
        self._began = time.monotonic()

    def commit(self) -> bool:
        """Whether everything so far survives a power cut."""
        if self._connection.in_transaction:
            self._connection.execute("COMMIT")
            self._unsynced = self._level != self._durable_level
            if not self._unsynced:
                self._synced = time.monotonic()
        return not self._unsynced

    def sync(self) -> None:
        """Make what was committed durable: a commit that waits for the disk, with something small in it."""
        if self._unsynced:
            self.begin(durable=True)
            self._commits += 1
            self.remember("commits", str(self._commits))
            self.commit()

    def wait(self) -> float | None:
        """Seconds until something has to be committed; None when nothing has."""
        now = time.monotonic()
        if self._connection.in_transaction:
            return max(0.0, self._began + CRASH_SECONDS - now)
        if self._unsynced:
            return max(0.0, self._synced + self._durable_seconds - now)
        return None

    def rest(self) -> None:
        """Nothing else is to be done: move the log into the file when it has become long."""
        if self._frames >= CHECKPOINT_FRAMES and not self._connection.in_transaction:
            self._frames = 0
            self._set_level(self._durable_level)
            self._connection.wal_checkpoint(None, apsw.SQLITE_CHECKPOINT_PASSIVE)

    def close(self) -> None:
        """The log goes into the file, unless somebody reads."""
        self.commit()
        self._set_level(self._durable_level)
        self._connection.close()

    # What is no run.

    def cells(self, states: list[CellState]) -> None:
        rows = [tuple(getattr(state, name) for name in CellState.__struct_fields__) for state in states]
        self._connection.executemany(_CELL, rows)

    def cells_are(self, state: str) -> None:
        """Nobody is at work any more."""
        self._connection.execute("UPDATE now SET state = ?, run = NULL", (state,))

    def remember(self, key: str, value: str) -> None:
        self._connection.execute(_REMEMBER, (key, value))

    def _set_level(self, level: str) -> None:
        self._level = level
        self._connection.pragma("synchronous", level)

    def _count_frames(self, _connection: apsw.Connection, _name: str, frames: int) -> int:
        self._frames = frames
        if frames >= _MOST_FRAMES:
            self._connection.wal_checkpoint(None, apsw.SQLITE_CHECKPOINT_PASSIVE)
        return apsw.SQLITE_OK
