"""What is used of openpyxl beyond its documented interface, in this one place.

Tried with 3.1, which the distribution demands (`pyproject.toml`).
"""

import zipfile
from typing import Any

from openpyxl.workbook import Workbook


def archive_of(book: Workbook) -> zipfile.ZipFile | None:
    """The open file behind a workbook that was opened read-only; None where there is none."""
    archive = getattr(book, "_archive", None)
    return archive if book.read_only and isinstance(archive, zipfile.ZipFile) and archive.fp else None


def become(made: Any, kind: type) -> None:
    """Make a cell or sheet one of another class: a workbook has no choice of the classes it makes."""
    made.__class__ = kind
