"""A plot in a window."""

from .panel import MatplotPanel

__all__ = ["MatplotPanel"]
