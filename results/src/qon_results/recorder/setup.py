"""With what a run is made: script, workbooks and parameters as they are on the disk now, each read once a change."""

import hashlib
import json
import os
import socket
import threading
from pathlib import Path

from ..writer.messages import SetupContents
from .encoding import text
from .settings import versions

_Stamp = tuple[int, int]  # time of the last change in nanoseconds, size


class SetupReader:
    """Any thread."""

    def __init__(
        self, config: str | os.PathLike[str] | None, parameters: str | os.PathLike[str] | None
    ) -> None:
        self._config = "" if config is None else os.path.abspath(config)
        self._parameters = None if parameters is None else Path(os.path.abspath(parameters))
        self._lock = threading.Lock()
        self._known: dict[str, tuple[_Stamp, bytes]] = {}  # path: stamp and hash
        self._contents: dict[bytes, bytes] = {}
        self._versions = versions()
        self._host = socket.gethostname()

    def read(self, script: str, limits: str) -> tuple[SetupContents, list[bytes]]:
        """The setup of a run that begins now, and the contents that it names."""
        with self._lock:
            hashes = [self._file(path) for path in (script, limits, self._config)]
            manifest, files = self._directory()
            setup = SetupContents(
                self._host,
                text(script), hashes[0],
                text(limits), hashes[1],
                text(self._config), hashes[2],
                manifest,
                self._versions,
            )  # fmt: skip
            named = [sha256 for sha256 in (*hashes, *files, manifest) if sha256 is not None]
            return setup, [self._contents[sha256] for sha256 in named]

    def _file(self, path: str) -> bytes | None:
        """The hash of a file; None when there is none."""
        if not path:
            return None
        try:
            status = os.stat(path)
            stamp = status.st_mtime_ns, status.st_size
            if path not in self._known or self._known[path][0] != stamp:
                self._known[path] = stamp, self._keep(Path(path).read_bytes())
        except OSError:
            return None
        return self._known[path][1]

    def _directory(self) -> tuple[bytes | None, list[bytes]]:
        """The parameters: a JSON object of their files and hashes, and the files."""
        if self._parameters is None or not self._parameters.is_dir():
            return None, []
        found = {}
        for path in sorted(self._parameters.rglob("*.xlsx")):
            sha256 = self._file(str(path))
            if sha256 is not None and not path.name.startswith("~$"):
                found[text(path.relative_to(self._parameters).as_posix())] = sha256
        manifest = json.dumps({name: sha256.hex() for name, sha256 in found.items()}, ensure_ascii=False)
        return self._keep(manifest.encode()), list(found.values())

    def _keep(self, data: bytes) -> bytes:
        sha256 = hashlib.sha256(data).digest()
        self._contents[sha256] = data
        return sha256
