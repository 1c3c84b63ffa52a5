"""The recorder's thread: hands the writer what there is, and everything again to a new writer."""

import hashlib
import logging
import threading
import time
from collections import deque
from collections.abc import Callable
from dataclasses import dataclass, field

from ..store.file import FILE_NAME
from ..writer import messages
from ..writer.messages import Answer, Message
from . import encoding, place
from .link import Link, WriterGoneError
from .settings import Settings
from .tracked import Tracked

PERIOD = 0.05  # seconds
CHUNKS = 4  # of one unit, then the others have their turn
BREATH = 0.0002  # seconds between two chunks, in which test threads run
PROGRESS_SECONDS = 2.0
STATES_SECONDS = 1.0
STEADY_SECONDS = 10.0  # a writer that lived so long was a good one
_RETRIES = (0.05, 0.5, 1.0, 2.0, 5.0)  # seconds until the next writer is started

log = logging.getLogger(__name__)


@dataclass
class Condition:
    """What stands between the station and its results; empty texts when nothing does."""

    opened: bool = False
    since: float = field(default_factory=time.monotonic)  # when it was closed
    failed: str = ""  # why there is no writer
    free: int | None = None  # bytes


class Sender:
    """Owns the tracked units; `changed` is notified whenever one of them got further, or the condition is another."""

    def __init__(self, settings: Settings, states: Callable[[], list[messages.CellState]]) -> None:
        self.settings = settings
        self.path = settings.folder / FILE_NAME
        self.condition = Condition()
        self.changed = threading.Condition()
        self.interrupted: list[messages.InterruptedUnit] = []
        self.station = b""
        self.progress = 0  # answers of the writer, and steps of the recorder through units that have ended
        self._states = states
        self._tracked: dict[bytes, Tracked] = {}
        self._events: deque[messages.Happened] = deque()
        self._told = 0
        self._link: Link | None = None
        self._sent: dict[bytes, _Sent] = {}
        self._contents: set[bytes] = set()
        self._awaited: deque[tuple[int, Callable[[], None]]] = deque()
        self._failures = 0
        self._retry_at = 0.0
        self._states_at = 0.0
        self._told_sent = 0
        self._events_sent = 0
        self._wake = threading.Event()
        self._stopping = False
        self._thread = threading.Thread(target=self._run, name="results: recorder", daemon=True)

    def start(self) -> None:
        self._thread.start()

    def stop(self, seconds: float) -> bool:
        """Everything goes to the writer and onto the disk; False when that did not end in time."""
        self._stopping = True
        self._wake.set()
        self._thread.join(seconds)
        return not self._thread.is_alive()

    # Any thread.

    def track(self, tracked: Tracked) -> None:
        with self.changed:
            self._tracked[tracked.id] = tracked
        self._wake.set()

    def wake(self) -> None:
        self._wake.set()

    def event(self, event: messages.Happened) -> None:
        with self.changed:
            self._events.append(event)
        self._wake.set()

    def tell(self, seal: int) -> None:
        """The operator knows what was interrupted up to this seal."""
        self._told = max(self._told, seal)
        self._wake.set()

    def wait(self, done: Callable[[], bool]) -> bool:
        """Until it is so; False after two seconds in which neither the writer gave a sign of life nor the recorder
        came further with a unit that has ended.

        Time in which this thread could not run does not count: then the others could not either.
        """
        with self.changed:
            seen, idle = self.progress, 0.0
            while not done():
                began = time.monotonic()
                self.changed.wait(PERIOD)
                idle += min(time.monotonic() - began, 2 * PERIOD)
                if self.progress != seen:
                    seen, idle = self.progress, 0.0
                if idle >= PROGRESS_SECONDS:
                    return done()
            return True

    @property
    def waiting(self) -> int:
        """Units that have ended and are not on the disk yet."""
        with self.changed:
            return sum(tracked.end is not None and not tracked.sealed for tracked in self._tracked.values())

    # The recorder's thread.

    def _run(self) -> None:
        while True:
            self._wake.wait(PERIOD)
            self._wake.clear()
            try:
                if self._connected():
                    self._work()
                    if self._stopping and not self._left():
                        self._leave()
                        return
                elif self._stopping and self.condition.failed:
                    return
            except WriterGoneError:
                self._lost("the writer has ended")
            except Exception as error:
                log.exception("The recorder failed; everything that is not on the disk is sent again.")
                self._lost(f"{type(error).__name__}: {error}")

    def _connected(self) -> bool:
        if self._link is not None:
            return self.condition.opened
        if time.monotonic() >= self._retry_at:
            self._connect()
        return False

    def _connect(self) -> None:
        """A new writer, if the folder is one to write in."""
        try:
            place.make(self.settings.folder)
            share = place.is_on_share(self.settings.folder)
            if share:
                self._failed(f"{self.settings.folder} is on a network share ({share})")
                return
            if self.station and not self.path.exists():
                self._failed(
                    f"{self.path} has disappeared; put it back, or restart the station to begin anew"
                )
                return
            with self.changed:
                live = [id for id, tracked in self._tracked.items() if not tracked.sealed]
            greeting = messages.Hello(str(self.path), self.settings.station, live, self.settings.commit_ms)
            self._sent, self._contents = {}, set()
            self._events_sent = self._told_sent = 0
            with self.changed:
                self._awaited.clear()
            link = Link(self._heard)
            with self.changed:
                self._link = link
            link.start(greeting)
        except (OSError, WriterGoneError) as error:
            self._failed(str(error))

    def _work(self) -> None:
        with self.changed:
            units = list(self._tracked.values())
        busy = False
        for tracked in sorted(units, key=lambda unit: unit.end is None and unit.begun):
            busy |= self._advance(tracked)
        self._send_events()
        self._send_states()
        if busy:
            self._wake.set()

    def _advance(self, tracked: Tracked) -> bool:
        """Whether there is more of this unit."""
        if tracked.sealed:  # since the list was made
            return False
        sent = self._sent.get(tracked.id)
        if sent is None:
            sent = self._begin(tracked)
        self._send_extras(tracked, sent)
        more = tracked.new()
        for _, data in zip(range(CHUNKS), more, strict=False):
            self._send_encoded(data)
        if tracked.end is not None and tracked.end is not sent.end:
            self._end(tracked, sent)
            return False
        return tracked.taken < len(tracked.unit.assertions)

    def _begin(self, tracked: Tracked) -> "_Sent":
        for content in tracked.contents:
            sha256 = hashlib.sha256(content).digest()
            if sha256 not in self._contents:
                self._send(messages.Content(content))
                self._contents.add(sha256)
        self._await(self._send(tracked.begin), lambda: setattr(tracked, "begun", True))
        for data in tracked.everything():
            self._send_encoded(data)
        sent = self._sent[tracked.id] = _Sent()
        return sent

    def _end(self, tracked: Tracked, sent: "_Sent") -> None:
        end = tracked.end
        assert end is not None
        self._send_extras(tracked, sent)  # the last ones: a run that has ended takes no more
        if not tracked.sealed:
            for read_out in (tracked.new, tracked.changed):
                for data in read_out():
                    self._send_encoded(data)
                    self.progress += 1
        end.measured = tracked.taken
        sent.end = end
        self._await(self._send(end), lambda: self._sealed(tracked, end))

    def _send_extras(self, tracked: Tracked, sent: "_Sent") -> None:
        while sent.extras < len(tracked.extras):
            self._send(tracked.extras[sent.extras])
            sent.extras += 1

    def _sealed(self, tracked: Tracked, end: messages.End) -> None:
        if tracked.end is end:
            tracked.sealed = True
            self._tracked.pop(tracked.id, None)
            self._sent.pop(tracked.id, None)

    def _send_events(self) -> None:
        with self.changed:
            new = list(self._events)[self._events_sent :]
        for event in new:
            if event.run in self._tracked and event.run not in self._sent:
                return
            self._events_sent += 1
            self._await(self._send(event), self._event_kept)
        if self._told > self._told_sent:
            self._told_sent = self._told
            self._send(messages.Told(self._told))

    def _event_kept(self) -> None:
        self._events.popleft()
        self._events_sent -= 1

    def _send_states(self) -> None:
        now = time.monotonic()
        if now - self._states_at >= STATES_SECONDS:
            self._states_at = now
            self._look_at_disk()
            states = self._states()
            if states:
                self._send(messages.CellStates(states))

    def _look_at_disk(self) -> None:
        """A file that was deleted goes on being written, and is nowhere."""
        try:
            self.condition.free = place.free_bytes(self.settings.folder)
            self.path.stat()
        except FileNotFoundError as error:
            raise WriterGoneError(f"{self.path} has disappeared") from error
        except OSError:
            self.condition.free = None

    def _left(self) -> bool:
        with self.changed:
            return bool(self._awaited) or any(tracked.end is not None for tracked in self._tracked.values())

    def _leave(self) -> None:
        assert self._link is not None
        self._send(messages.Close())
        self._link.hang_up()
        self._link.wait()

    def _send(self, message: Message) -> int:
        return self._send_encoded(encoding.encoded_message(message))

    def _send_encoded(self, data: bytes) -> int:
        link = self._link
        if link is None:
            raise WriterGoneError("there is none")
        number = link.send_encoded(data) if data else 0
        time.sleep(BREATH)
        return number

    def _await(self, number: int, then: Callable[[], None]) -> None:
        with self.changed:
            self._awaited.append((number, then))

    # The thread that listens to the writer.

    def _heard(self, link: Link, answer: Answer | None) -> None:
        with self.changed:
            if self._link is not None and link is not self._link:
                return
            self.progress += 1
            match answer:
                case messages.Opened():
                    self.station, self.interrupted = answer.station, answer.interrupted
                    self.condition.opened, self.condition.failed = True, ""
                case messages.Reached():
                    self._reached(answer.durable)
                case messages.Failed():
                    self._fail(answer.text, answer.refused)
                case None:
                    self._gone(link)
            self.changed.notify_all()
        self._wake.set()

    def _reached(self, durable: int) -> None:
        while self._awaited and self._awaited[0][0] <= durable:
            self._awaited.popleft()[1]()

    def _fail(self, text: str, refused: bool) -> None:
        log.error("The writer of results gives up: %s", text)
        self._failures = len(_RETRIES) - 1 if refused else self._failures
        self.condition.failed = text

    def _gone(self, link: Link) -> None:
        if not self._stopping:
            log.warning(
                "The writer of results has ended (%s); another one is started.", link.process.returncode
            )
        self._link = None
        if time.monotonic() - link.began > STEADY_SECONDS:
            self._failures = 0
        if not self.condition.opened and not self.condition.failed:
            self.condition.failed = "the writer of results cannot be started"
        if self.condition.opened:
            self.condition.opened, self.condition.since = False, time.monotonic()
        self._retry_at = time.monotonic() + _RETRIES[min(self._failures, len(_RETRIES) - 1)]
        self._failures += 1

    def _lost(self, reason: str) -> None:
        """Nothing more goes to this writer."""
        with self.changed:
            link = self._link
        if link is not None:
            log.warning("The writer of results is given up: %s", reason)
            link.hang_up()
            if not link.wait(0.5):
                link.kill()
                link.wait(5.0)
            with self.changed:
                self.changed.wait_for(lambda: self._link is not link, 5.0)

    def _failed(self, text: str) -> None:
        with self.changed:
            self._fail(text, refused=True)
            self.condition.opened = False
            self._retry_at = time.monotonic() + _RETRIES[-1]
            self.changed.notify_all()


@dataclass
class _Sent:
    """What of a unit this writer has been given."""

    extras: int = 0
    end: messages.End | None = None
