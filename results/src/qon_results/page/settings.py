"""With what the page is started."""

import datetime
import ipaddress
from dataclasses import dataclass, field
from pathlib import Path

PORT = 8480
LOOPBACK_NAMES = ("localhost", "127.0.0.1", "[::1]")
SHIFTS = (datetime.time(6), datetime.time(14), datetime.time(22))


@dataclass(frozen=True)
class Settings:
    """`where` as `qon_results.open` takes it.

    token: what a browser has to show once; "" for none.  hosts: names under which a proxy is reached.
    shifts: when they begin, local time.  by_operator: whether figures may be told apart by person.
    alarm_budget: false alarms of the whole line and day.  figures: the folder of the file with figures, by default beside
    a station's file.
    """

    where: str
    address: str = "127.0.0.1"
    port: int = PORT
    token: str = ""
    hosts: tuple[str, ...] = ()
    shifts: tuple[datetime.time, ...] = SHIFTS
    by_operator: bool = False
    alarm_budget: float = 1.0
    figures: Path | None = field(default=None, kw_only=True)
    fleet: str = field(default="", kw_only=True)  # what `qon-results fleet --output` wrote
    stores: int = field(default=4, kw_only=True)
    seconds: float = field(default=5.0, kw_only=True)  # that a question may take

    def __post_init__(self) -> None:
        if not self.token and not is_loopback(self.address):
            raise ValueError(
                f"Whoever reaches {self.address} could read all results: give --token, or leave --address at 127.0.0.1 "
                "and put a proxy that authenticates in front."
            )
        if self.token and len(self.token) < 8:
            raise ValueError("The token has fewer than 8 characters; it would be guessed.")
        if not 0 < self.alarm_budget <= 1000:
            raise ValueError(
                f"--alarm-budget is {self.alarm_budget:g}; more than 0 and at most 1000 a day are allowed."
            )
        if not self.shifts:
            raise ValueError("No shift is named; one begin is needed at least, like 06:00.")

    @property
    def url(self) -> str:
        shown = f"[{self.address}]" if ":" in self.address else self.address
        return f"http://{shown}:{self.port}/"


def is_loopback(address: str) -> bool:
    try:
        return ipaddress.ip_address(address).is_loopback
    except ValueError:
        return address == "localhost"


def shifts_of(text: str) -> tuple[datetime.time, ...]:
    """ "06:00,14:00,22:00" as times in order."""
    return tuple(
        sorted(datetime.time.fromisoformat(each.strip()) for each in text.split(",") if each.strip())
    )


def shift_begin(moment: datetime.datetime, shifts: tuple[datetime.time, ...]) -> datetime.datetime:
    """When the shift began that runs at this (local) moment."""
    days = (moment.date(), moment.date() - datetime.timedelta(days=1))
    begins = (datetime.datetime.combine(day, begin).astimezone() for day in days for begin in shifts)
    return max(begin for begin in begins if begin <= moment)
