"""Nothing recorded is lost and every cell comes back, whatever scripts and operator do: the soak, small."""

import os

from soak import Soak
from station import Station

pytest_plugins = ["stationplugin"]

MEASUREMENTS = int(os.environ.get("QON_SOAK_MEASUREMENTS", "8000"))


def test_the_station_keeps_what_scripts_and_operator_count(station: Station) -> None:
    totals = Soak(station, MEASUREMENTS).soak()
    print(dict(totals))
    assert totals["all"] >= MEASUREMENTS
    for kind in ("ended: returned", "ended: _DoneException", "ended: OSError", "shown: Aborted", "shown: NG", "help"):
        assert totals[kind], f"no {kind}: the load is not what it should be"
