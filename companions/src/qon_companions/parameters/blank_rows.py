"""Blank but formatted rows, of which some spreadsheet programs write a million below a table.

Reading them cell by cell takes half a minute; they are cut out of the sheet's XML before it is parsed.  Row numbers
stay right, because every row that is left carries its own.
"""

import io
import re
import zipfile

# Sheets below this size are parsed as they are: cutting would not pay.
LARGE_SHEET_BYTES = 1_000_000

_TAG = rb"<(?:\w+:)?"
_BLANK_CELL = _TAG + rb"c\b[^>]*(?:/>|>(?:" + _TAG + rb"v ?/>)?</(?:\w+:)?c>)"
_BLANK_ROW = re.compile(
    _TAG + rb"row [^>]*(?:/>|(?<!/)>(?:\s*" + _BLANK_CELL + rb")*\s*</(?:\w+:)?row>)",
)


def without_blank_rows(data: bytes) -> bytes:
    """The workbook file without the blank rows of its large sheets; the same bytes when it has none."""
    with zipfile.ZipFile(io.BytesIO(data)) as source:
        large = {info.filename for info in source.infolist() if _is_large_sheet(info)}
        if not large:
            return data
        target = io.BytesIO()
        with zipfile.ZipFile(target, "w", zipfile.ZIP_STORED) as cut:
            for name in dict.fromkeys(source.namelist()):
                content = source.read(name)
                cut.writestr(name, _BLANK_ROW.sub(b"", content) if name in large else content)
    return target.getvalue()


def _is_large_sheet(info: zipfile.ZipInfo) -> bool:
    name = info.filename.lower()
    return "/worksheets/" in name and name.endswith(".xml") and info.file_size >= LARGE_SHEET_BYTES
