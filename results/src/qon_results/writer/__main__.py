"""The writer: `python -m qon_results.writer`, started by the recorder, fed through its standard input.

It ends when the recorder says so or is gone; in the second case it commits what it got and closes the runs.  Whatever
goes wrong ends it, too, with a word to the recorder, which starts another one and sends again what was not durable yet.
"""

import contextlib
import os
import queue
import signal
import sys
import threading
import time
from pathlib import Path
from typing import BinaryIO

import apsw
import msgspec

from . import messages
from .database import Database
from .lock import InUseError, Lock
from .messages import Answer, Message
from .runs import OutOfStepError

INBOX = 64  # messages read ahead
TOGETHER_SECONDS = 0.02  # so long others may join a durable commit
SAY_SECONDS = 0.1

_decoder = msgspec.msgpack.Decoder(Message)
_encoder = msgspec.msgpack.Encoder()
_DURABLE = (messages.Begin, messages.End, messages.Happened, messages.Attach, messages.Told)


class Writer:
    """Takes messages in their order; answers through `say`."""

    def __init__(self, hello: messages.Hello, say: "Voice") -> None:
        path = Path(hello.path)
        self._say = say
        self._lock = Lock(path)
        self._database = Database(path, hello.commit_ms)
        self._database.open(hello.station)
        self._runs = self._database.runs
        self._read = 1  # the greeting
        self._asked = 0.0  # since when somebody waits for a durable commit
        self._close_open_runs(set(hello.live))
        say(messages.Opened(self._database.station, self._runs.interrupted()))

    def take(self, message: Message) -> None:
        durable = isinstance(message, _DURABLE)
        self._database.begin(durable)
        if durable and not self._asked:
            self._asked = time.monotonic()
        self._act(message)
        self._read += 1

    def tick(self, more: bool) -> None:
        """Commit what is due; `more`: other messages wait."""
        now = time.monotonic()
        if self._asked and (not more or now - self._asked > TOGETHER_SECONDS):
            self._database.commit()
            self._asked = 0.0
            self._say.reached(self._read, self._read)
        elif self._database.wait() == 0.0:
            self._commit_in_time()
        elif now - self._say.last > SAY_SECONDS:
            self._say.reached(self._read)
        if not more:
            self._database.rest()

    def wait(self) -> float | None:
        return 0.0 if self._asked else self._database.wait()

    def leave(self, in_order: bool) -> None:
        """The recorder is gone: what it left open is closed."""
        self._database.begin(durable=True)
        self._close_open_runs(set())
        self._database.cells_are("CLOSED" if in_order else "LOST")
        self._database.commit()
        self._say.reached(self._read, self._read)
        self._database.close()
        self._lock.close()

    def _commit_in_time(self) -> None:
        if self._database.commit():
            self._say.reached(self._read, self._read)
        else:
            waits = self._database.wait()
            if waits == 0.0:
                self._database.sync()
                self._say.reached(self._read, self._read)
            else:
                self._say.reached(self._read)

    def _act(self, message: Message) -> None:
        match message:
            case messages.Rows():
                self._runs.rows(message)
            case messages.Begin():
                self._runs.begin(message)
            case messages.End():
                self._runs.end(message)
            case messages.Content():
                self._runs.content(message.data)
            case messages.Cut():
                self._runs.cut(message.run, message.measured)
            case messages.Attach():
                self._runs.attach(message)
            case messages.UsedInstrument():
                self._runs.instrument(message)
            case messages.Happened():
                self._runs.event(message)
            case messages.CellStates():
                self._database.cells(message.cells)
            case messages.Told():
                self._database.remember("told", str(message.seal))
            case _:
                raise OutOfStepError(f"{type(message).__name__} is not expected here.")

    def _close_open_runs(self, live: set[bytes]) -> None:
        self._database.begin(durable=True)
        for run in self._runs.open_runs():
            if run not in live:
                self._runs.interrupt(run, time.time_ns() // 1000)
        self._database.commit()


class Voice:
    """What the recorder is told; it may be gone."""

    def __init__(self, stream: BinaryIO) -> None:
        self._stream = stream
        self._durable = 0
        self.last = time.monotonic()

    def __call__(self, answer: Answer) -> None:
        self.last = time.monotonic()
        with contextlib.suppress(OSError, ValueError):
            view = memoryview(messages.pack(_encoder.encode(answer)))
            while view:  # an unbuffered stream may take a part only
                view = view[self._stream.write(view) or 0 :]
            self._stream.flush()

    def reached(self, read: int, durable: int | None = None) -> None:
        self._durable = durable or self._durable
        self(messages.Reached(read, self._durable))


def read_ahead(stream: BinaryIO) -> "queue.Queue[Message | None]":
    """The messages, decoded while others are written; None behind the last one."""
    inbox: queue.Queue[Message | None] = queue.Queue(INBOX)

    def read() -> None:
        try:
            for data in messages.unpack(stream):
                inbox.put(_decoder.decode(data))
        except (OSError, msgspec.MsgspecError) as error:
            print(f"The recorder cannot be understood any more: {error}", file=sys.stderr)
        inbox.put(None)

    threading.Thread(target=read, name="read ahead", daemon=True).start()
    return inbox


def serve(hello: messages.Hello, inbox: "queue.Queue[Message | None]", say: Voice) -> None:
    writer = Writer(hello, say)
    while True:
        try:
            message = inbox.get(timeout=writer.wait())
        except queue.Empty:
            writer.tick(more=False)
            continue
        if message is None or isinstance(message, messages.Close):
            writer.leave(in_order=message is not None)
            return
        writer.take(message)
        writer.tick(more=not inbox.empty())


def words(error: BaseException, path: str) -> tuple[str, bool]:
    """What is wrong, and whether somebody has to mend it first."""
    if isinstance(error, apsw.FullError):
        return f"the disk with {path} is full", False
    if isinstance(error, (apsw.ReadOnlyError, apsw.CantOpenError, apsw.PermissionsError, PermissionError)):
        return f"{path} cannot be written", True
    if isinstance(error, (apsw.CorruptError, apsw.NotADBError)):
        return f"{path} is damaged ({error}); keep it and its neighbours, then restore a backup", True
    if isinstance(error, (InUseError, ValueError)):
        return str(error), True
    return f"{type(error).__name__}: {error}", False


def main() -> int:
    for name in ("SIGINT", "SIGTERM", "SIGHUP"):  # those are for the station, which tells what to do
        with contextlib.suppress(AttributeError, ValueError):
            signal.signal(getattr(signal, name), signal.SIG_IGN)
    sys.setswitchinterval(0.0005)  # the thread that reads ahead decodes for longer than that
    say = Voice(sys.stdout.buffer)
    inbox = read_ahead(sys.stdin.buffer)
    hello = inbox.get()
    if not isinstance(hello, messages.Hello):
        print("The recorder has gone, or it does not begin with its greeting.", file=sys.stderr)
        return 2
    try:
        serve(hello, inbox, say)
    except Exception as error:  # noqa: BLE001 - whatever it is, the recorder has to know before this process ends
        text, refused = words(error, hello.path)
        say(messages.Failed(text, refused))
        print(f"qon_results.writer: {text}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    code = main()
    sys.stderr.flush()
    os._exit(code)  # the thread that reads ahead may sit in a read
