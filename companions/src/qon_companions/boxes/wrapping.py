"""Break a text into lines: at blanks, and between Chinese characters, which have none."""

import unicodedata
from collections.abc import Callable, Iterator

Measure = Callable[[str], int]


def wrapped(text: str, width: int, measure: Measure) -> str:
    """The text with line breaks so that no line is wider; what cannot be broken nicely is broken anywhere."""
    return "\n".join(line for paragraph in text.split("\n") for line in _lines(paragraph, width, measure))


def _lines(paragraph: str, width: int, measure: Measure) -> Iterator[str]:
    line = ""
    for piece in _pieces(paragraph):
        if measure(line + piece.rstrip()) <= width:
            line += piece
            continue
        if line.strip():
            yield line.rstrip()
            line = ""
        while measure(piece.rstrip()) > width:
            count = _fitting(piece, width, measure)
            yield piece[:count]
            piece = piece[count:]
        line = piece
    yield line.rstrip()


def _pieces(paragraph: str) -> Iterator[str]:
    """Words with the blanks behind them; a wide character is a piece of its own, with closing marks behind it."""
    piece = ""
    for character in paragraph:
        if piece and _may_break(piece[-1], character):
            yield piece
            piece = ""
        piece += character
    if piece:
        yield piece


def _may_break(before: str, after: str) -> bool:
    if before.isspace():
        return not after.isspace()
    if unicodedata.category(after) in ("Pe", "Pf", "Po") or unicodedata.category(before) in ("Ps", "Pi"):
        return False
    return _is_wide(before) or _is_wide(after)


def _is_wide(character: str) -> bool:
    return unicodedata.east_asian_width(character) in "WF"


def _fitting(piece: str, width: int, measure: Measure) -> int:
    """How many characters go into a line; at least one."""
    low, high = 1, len(piece)
    while low < high:
        middle = (low + high + 1) // 2
        low, high = (middle, high) if measure(piece[:middle]) <= width else (low, middle - 1)
    return low
