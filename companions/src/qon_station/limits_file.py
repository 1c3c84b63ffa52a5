"""Which limits a unit was tested with."""

import hashlib
import time
from pathlib import Path


def fingerprint(file: str) -> str:
    """The workbook's time of change and the beginning of its SHA-256: one limits workbook told from another.

    "" when it cannot be read.
    """
    path = Path(file)
    try:
        digest = hashlib.sha256(path.read_bytes()).hexdigest()
        changed = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(path.stat().st_mtime))
    except OSError:
        return ""
    return f"{changed}, sha256 {digest[:12]}"
