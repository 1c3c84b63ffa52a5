"""Operators under another name: the same person always under the same one, and nobody can tell whose it is without the key."""

import contextlib
import hmac
import logging
import os
import secrets
import unicodedata
from pathlib import Path

KEY_FILE = "operator.key"
_DIGITS = 10

log = logging.getLogger(__name__)


class Pseudonyms:
    """Keyed hashes of names; the key lies beside the results, readable by its owner, and in no backup of them."""

    def __init__(self, folder: Path) -> None:
        self._path = folder / KEY_FILE
        self._key = b""

    def of(self, name: str) -> str:
        """ "" for nobody; also, with a word in the log, when there can be no key: better unknown than named."""
        plain = unicodedata.normalize("NFKC", name).casefold().strip()
        if not plain:
            return ""
        try:
            self._key = self._key or self._read()
        except (OSError, ValueError):
            log.exception("Operators are not recorded: their key %s cannot be used.", self._path)
            return ""
        return "op-" + hmac.digest(self._key, plain.encode(errors="surrogatepass"), "sha256").hex()[:_DIGITS]

    def _read(self) -> bytes:
        with contextlib.suppress(FileExistsError):
            self._path.parent.mkdir(parents=True, exist_ok=True)
            handle = os.open(self._path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
            with os.fdopen(handle, "w", encoding="ascii") as file:
                file.write(secrets.token_hex(32))
        key = bytes.fromhex(self._path.read_text(encoding="ascii").strip())
        if len(key) < 16:
            raise ValueError(f"{self._path} has {len(key)} bytes, at least 16 are needed.")
        return key
