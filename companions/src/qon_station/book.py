"""Workbooks that are saved whole or not at all."""

import contextlib
import logging
import os
import tempfile
from pathlib import Path
from typing import Any

from openpyxl import Workbook

from .report import describe

log = logging.getLogger(__name__)


class SafeBook(Workbook):
    """Stands for `_Book` of `qon_ats`: reports and exported limits."""

    def save(self, filename: Any) -> None:
        """Write beside the file, then take its place: what cannot be written leaves the old one as it was."""
        unit = getattr(filename, "unit", None)
        if unit is not None:
            describe(self, unit)
        path = Path(os.path.realpath(filename))
        try:
            self._save_beside(path)
        except Exception as error:
            if isinstance(error, OSError):
                error.filename, error.filename2 = os.fspath(filename), None  # not the file beside it
            log.exception("%s could not be saved; a file that was there is as it was.", filename)
            raise

    def _save_beside(self, path: Path) -> None:
        handle, beside = tempfile.mkstemp(prefix=f".{path.stem[:40]}-", suffix=".xlsx.part", dir=path.parent)
        try:
            with open(handle, "wb") as stream:
                super().save(stream)
                stream.flush()
                os.fsync(stream.fileno())
            _usual_mode(beside, path)
            os.replace(beside, path)
        except BaseException:
            with contextlib.suppress(OSError):
                os.unlink(beside)
            raise


def _usual_mode(beside: str, path: Path) -> None:
    """A temporary file is its owner's alone; the saved one gets the mode of the old one, or that of a new file."""
    try:
        mode = path.stat().st_mode & 0o777
    except OSError:
        mask = os.umask(0)
        os.umask(mask)
        mode = 0o666 & ~mask
    os.chmod(beside, mode)
