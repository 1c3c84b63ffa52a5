"""Keeps the figures up to date beside the page: python -m qon_results.page.rollups WHERE FILE BUDGET

In a process of its own, so that counting never keeps a page waiting.  It ends when its standard input does.
"""

import logging
import os
import sys
import threading
from contextlib import suppress
from pathlib import Path

import apsw

import qon_results

from .file import Rollups
from .making import update, watch

log = logging.getLogger("qon_results.page.rollups")
EVERY_SECONDS = 2.0
AGAIN_SECONDS = 10.0  # after something failed


def main(where: str, path: Path, budget: float) -> None:
    ended = threading.Event()
    threading.Thread(target=_wait_for_the_end, args=(ended,), daemon=True).start()
    with suppress(OSError):
        os.nice(5)
    failed = ""
    while not ended.is_set():
        try:
            _follow(where, path, budget, ended)
        except (OSError, ValueError, apsw.Error) as error:
            if str(error) != failed:
                log.warning("no figures are made: %s", error)
            failed = str(error)
            ended.wait(AGAIN_SECONDS)


def _follow(where: str, path: Path, budget: float, ended: threading.Event) -> None:
    with qon_results.open(where) as store:
        file = Rollups(path, write=True)
        try:
            file.begin(where)
            while not ended.is_set():
                while not ended.is_set() and (update(store, file) or watch(store, file, budget)):
                    pass
                ended.wait(EVERY_SECONDS)
        finally:
            file.close()


def _wait_for_the_end(ended: threading.Event) -> None:
    sys.stdin.buffer.read()
    ended.set()
    # A step that is under way is not waited for: it is made again whole.
    threading.Timer(2.0, os._exit, (0,)).start()


if __name__ == "__main__":
    logging.basicConfig(level=logging.WARNING, format="%(asctime)s %(levelname)s %(name)s: %(message)s")
    main(sys.argv[1], Path(sys.argv[2]), float(sys.argv[3]))
