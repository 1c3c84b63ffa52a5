"""The sender: `python -m qon_results.line FILE ADDRESS`, a process beside the writer, started by the recorder.

It tells on its standard output, a JSON object a line, what waits; it ends when its standard input does.
"""

import json
import sys
import threading
import time
from pathlib import Path

import apsw

from .connection import LineError
from .sending import Feed, Source

LOOK_SECONDS = 0.5  # between two looks into the file
LONGEST_PAUSE = 60.0  # after many failures
NOW_SECONDS = 1.0


class Loop:
    """Sends what comes until the station ends."""

    def __init__(self, feed: Feed, source: Source) -> None:
        self._feed, self._source = feed, source
        self._ended = threading.Event()
        self._pause = 1.0
        self._told = ""
        self._told_now = 0.0

    def end(self) -> None:
        self._ended.set()

    def run(self) -> None:
        while not self._ended.is_set():
            try:
                sent = self._feed.send()
                if not sent and time.monotonic() - self._told_now >= NOW_SECONDS:
                    self._feed.tell_now()
                    self._told_now = time.monotonic()
                self._pause = 1.0
                self._tell("")
                if not sent:
                    self._ended.wait(LOOK_SECONDS)
            except LineError as error:
                self._tell(str(error))
                self._ended.wait(self._pause)
                self._pause = min(2 * self._pause, LONGEST_PAUSE)
            except apsw.BusyError:
                self._ended.wait(LOOK_SECONDS)

    def _tell(self, trouble: str) -> None:
        waiting = self._source.newest() - self._feed.position if self._feed.position >= 0 else None
        since = self._source.waits_since(self._feed.position) if waiting else None
        said = json.dumps({"trouble": trouble, "waiting": waiting, "since_us": since})
        if said != self._told:
            self._told = said
            print(said, flush=True)


def main(path: str, address: str) -> int:
    source = Source(Path(path))
    feed = Feed(source, address)
    loop = Loop(feed, source)

    def watch() -> None:
        sys.stdin.buffer.read()
        loop.end()

    threading.Thread(target=watch, daemon=True).start()
    try:
        loop.run()
    except BrokenPipeError:  # the station is gone
        return 0
    finally:
        feed.close()
        source.close()
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
