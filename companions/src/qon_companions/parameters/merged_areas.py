"""Merged areas: openpyxl makes an object for every cell of one when it loads a workbook for editing."""

import io
import re
import zipfile

from openpyxl.utils.cell import range_boundaries

# Loading more takes longer than anybody waits for a save.
MAX_MERGED_CELLS = 200_000

_REFERENCE = re.compile(rb'<(?:\w+:)?mergeCell\s[^>]*?ref="([^"]*)"')


def merged_cells(data: bytes) -> int:
    """How many cells of the workbook lie in merged areas."""
    count = 0
    with zipfile.ZipFile(io.BytesIO(data)) as archive:
        for name in archive.namelist():
            if "/worksheets/" in name:
                count += sum(_area(match[1].decode()) for match in _REFERENCE.finditer(archive.read(name)))
    return count


def _area(reference: str) -> int:
    left, top, right, bottom = range_boundaries(reference)
    return (int(right or 16_384) - int(left or 1) + 1) * (int(bottom or 1_048_576) - int(top or 1) + 1)
