"""Texts of scripts made fit for drawing; what was recorded stays as it is."""

from __future__ import annotations

LIMIT = 600  # characters; more cannot be read in a cell or on a band, and measuring them takes long


def displayable(text: str, limit: int = LIMIT) -> str:
    """The text with what no font can draw (lone surrogates) spelled out, cut to a length."""
    if len(text) > limit:
        text = text[: limit - 1] + "\u2026"
    return text if text.isascii() else text.encode("utf-8", "backslashreplace").decode("utf-8")
