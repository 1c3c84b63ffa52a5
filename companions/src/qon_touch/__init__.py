"""Entries for touch screens."""

from .integer_entry import input_integer

__all__ = ["input_integer"]
