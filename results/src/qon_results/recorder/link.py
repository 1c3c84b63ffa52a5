"""The line to the writer: its process, what is sent to it, what it answers."""

import contextlib
import logging
import os
import subprocess
import sys
import threading
import time
from collections.abc import Callable
from typing import Any

import msgspec

from ..writer import messages
from ..writer.messages import Answer, Message

PIPE_BYTES = 1 << 20
LEAVE_SECONDS = 30.0  # a writer that closes many runs has to be given time

log = logging.getLogger(__name__)

_encoder = msgspec.msgpack.Encoder()
_decoder = msgspec.msgpack.Decoder(Answer)


class WriterGoneError(Exception):
    """The pipe is broken."""


class Link:
    """One writer's life.  One thread sends; answers come in a thread of their own."""

    def __init__(self, heard: Callable[["Link", Answer | None], None]) -> None:
        """`heard` gets each answer, at last None.  OSError when no process can be started."""
        self._heard = heard
        self._number = 0
        self.began = time.monotonic()
        self.process = subprocess.Popen(
            [sys.executable, "-P", "-m", "qon_results.writer"],
            env=environment(),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            bufsize=0,
            close_fds=True,
            **apart(),
        )
        assert self.process.stdin is not None
        self._pipe = self.process.stdin
        _widen(self._pipe.fileno())

    def start(self, hello: messages.Hello) -> None:
        """From now on answers come."""
        threading.Thread(target=self._listen, name="results: answers", daemon=True).start()
        self.send(hello)

    def send(self, message: Message) -> int:
        """Its number.  WriterGoneError when nobody reads any more."""
        return self.send_encoded(_encoder.encode(message))

    def send_encoded(self, data: bytes) -> int:
        view = memoryview(messages.pack(data))
        try:
            while view:
                view = view[self._pipe.write(view) or 0 :]
        except (OSError, ValueError) as error:
            raise WriterGoneError(str(error)) from error
        self._number += 1
        return self._number

    def hang_up(self) -> None:
        """The writer ends when it has read everything."""
        with contextlib.suppress(OSError):
            self._pipe.close()

    def wait(self, seconds: float = LEAVE_SECONDS) -> bool:
        """Whether the process has ended in this time."""
        try:
            self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            return False
        return True

    def kill(self) -> None:
        """For one that does not answer; what it had not committed is sent to the next one."""
        self.process.kill()

    def _listen(self) -> None:
        stream = self.process.stdout
        assert stream is not None
        try:
            for data in messages.unpack(stream):
                self._heard(self, _decoder.decode(data))
        except Exception:
            log.exception("The writer of results could not be heard any more; another one is started.")
            self.kill()
        finally:
            self.process.wait()
            stream.close()
            self._heard(self, None)


def apart() -> dict[str, Any]:
    """The writer is to see the end of the station, not to share it: Ctrl+C and the like are not for it."""
    if sys.platform == "win32":
        return {"creationflags": subprocess.CREATE_NEW_PROCESS_GROUP | subprocess.CREATE_NO_WINDOW}
    return {"start_new_session": True}


def _widen(pipe: int) -> None:
    """So that a moment in which the disk is slow does not hold the recorder up."""
    with contextlib.suppress(OSError, ImportError, AttributeError):
        import fcntl

        fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, PIPE_BYTES)


def environment() -> dict[str, str]:
    """The writer finds this package where the station found it, and nothing in the station's folder by mistake."""
    home = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    known = os.environ.get("PYTHONPATH")
    return {**os.environ, "PYTHONPATH": os.pathsep.join((home, known)) if known else home}
