"""Nothing recorded is lost and every cell comes back, whatever scripts and operator do.

QON_SOAK_MEASUREMENTS and QON_SOAK_UNIT (measurements of a unit, on the average) make it a long run.
"""

import os

from soak import Soak
from station import Station

pytest_plugins = ["stationplugin"]

MEASUREMENTS = int(os.environ.get("QON_SOAK_MEASUREMENTS", "8000"))
UNIT = int(os.environ.get("QON_SOAK_UNIT", "60"))


def test_the_station_keeps_what_scripts_and_operator_count(station: Station) -> None:
    totals = Soak(station, UNIT).soak(MEASUREMENTS)
    print(*(f"{number:12,}  {name}" for name, number in sorted(totals.items())), sep="\n")
    for kind in ("ended: returned", "ended: _DoneException", "ended: OSError", "shown: Aborted", "shown: NG", "help"):
        assert totals[kind], f"no {kind}: the load is not what it should be"
