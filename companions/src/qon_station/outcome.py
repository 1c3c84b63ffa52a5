"""How a run ended: decided once, and the same for cell, list, report and record."""

from dataclasses import dataclass, replace
from enum import StrEnum


class Kind(StrEnum):
    """In which of these ways a run ended.

    TBD: it came to its end without a verdict, with items still open or none at all; it counts as NG.
    INTERRUPTED: the station was closed, or went down, while it ran.
    """

    OK = "OK"
    NG = "NG"
    TBD = "TBD"
    ABORTED = "ABORTED"
    EXCEPTION = "EXCEPTION"
    INTERRUPTED = "INTERRUPTED"

    @property
    def is_verdict(self) -> bool:
        """Whether the unit was judged; the other runs say nothing about it."""
        return self in (Kind.OK, Kind.NG, Kind.TBD)


class NotRecorded(Exception):
    """Raised by a listener of `run_ended` that could not keep the run: what is not stored is not OK."""

    def __init__(self, reason: str) -> None:
        super().__init__(reason)
        self.reason = reason


@dataclass(frozen=True)
class Outcome:
    """`reason` is one line for the operator, "" where the verdict says it all; `details` is for whoever mends it."""

    kind: Kind
    reason: str = ""
    details: str = ""

    def not_recorded(self, reason: str) -> "Outcome":
        """The outcome of a run that could not be kept; a fault of the unit stays what it is."""
        if self.kind in (Kind.OK, Kind.TBD):
            return replace(self, kind=Kind.EXCEPTION, reason=reason)
        return replace(self, reason="; ".join(part for part in (self.reason, reason) if part))

    def __str__(self) -> str:
        return f"{self.kind}: {self.reason}" if self.reason else str(self.kind)
