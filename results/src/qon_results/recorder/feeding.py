"""The sender's process: kept running while the station does, and what it says in the status bar."""

import contextlib
import datetime
import json
import logging
import subprocess
import sys
import threading
from pathlib import Path

from qon_companions import notices
from qon_companions.i18n import _

from .link import apart, environment

SOURCE = "results: line"
AGAIN_SECONDS = 5.0
END_SECONDS = 10.0

log = logging.getLogger(__name__)


class Feeding:
    """Starts the sender and starts it again when it ends.  The network is its business, not the station's."""

    def __init__(self, path: Path, address: str) -> None:
        from ..line.connection import checked

        self._command = [sys.executable, "-P", "-m", "qon_results.line", str(path), checked(address)]
        self._path = path
        self._ended = threading.Event()
        self._process: subprocess.Popen[bytes] | None = None
        self._trouble = ""
        self._thread = threading.Thread(target=self._keep, name="results: line", daemon=True)

    def start(self) -> None:
        self._thread.start()

    def stop(self) -> None:
        """What waits stays in the file and is sent at the next start."""
        self._ended.set()
        process = self._process
        if process is not None and process.stdin is not None:
            with contextlib.suppress(OSError):
                process.stdin.close()
            try:
                process.wait(END_SECONDS)
            except subprocess.TimeoutExpired:
                process.kill()
        notices.status(SOURCE, "")

    def _keep(self) -> None:
        while not self._ended.is_set():
            if self._path.exists():
                try:
                    self._once()
                except OSError:
                    log.exception("The sender to the line's database cannot be started.")
            self._ended.wait(AGAIN_SECONDS)

    def _once(self) -> None:
        self._process = process = subprocess.Popen(
            self._command, env=environment(), stdin=subprocess.PIPE, stdout=subprocess.PIPE, **apart()
        )
        assert process.stdout is not None
        with process.stdout as lines:
            for line in lines:
                self._show(json.loads(line))
        code = process.wait()
        if not self._ended.is_set():
            log.warning("The sender to the line's database ended with %s; it is started again.", code)

    def _show(self, said: dict[str, object]) -> None:
        trouble, waiting, since_us = str(said["trouble"]), said["waiting"], said["since_us"]
        if trouble != self._trouble:
            self._trouble = trouble
            if trouble:
                log.warning("The line's database: %s", trouble)
            else:
                log.info("The line's database takes results again.")
        if not waiting and not trouble:
            notices.status(SOURCE, "")
            return
        text = _("Line: units waiting: {count}").format(count="?" if waiting is None else waiting)
        if isinstance(since_us, int):
            since = datetime.datetime.fromtimestamp(since_us / 1e6)
            here = since.strftime("%H:%M" if since.date() == datetime.date.today() else "%Y-%m-%d %H:%M")
            text = _("{text} since {time}").format(text=text, time=here)
        notices.status(SOURCE, f"{text} ({trouble})" if trouble else text)
