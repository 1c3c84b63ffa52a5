"""After a restart the window goes on where it stood: earlier units in the list, counts in the totals."""

from collections.abc import Mapping, Sequence
from typing import Any

import qon_ats

from .unit import StationUnit


def go_on(frame: Any, units: Sequence[StationUnit], counts: Mapping[int, tuple[int, int]]) -> None:
    """List these units, which have ended, before those of this session, and add counts to the totals; GUI thread.

    units: in their order.  counts: OK and NG of each cell by its number; cells that are gone count for the frame alone.
    """
    if not frame:
        return
    if units:
        frame._ATSFrame__test_data_viewer.test_data_viewer_panel.put_before(units)
    cells = {cell.cell_number: cell for cell in frame.cells}
    for number, count in counts.items():
        for owner in (cells.get(number), frame):
            if owner is not None:
                _add(owner._statistics, *count)
    for cell in cells.values():
        cell._show_statistics()
    frame._update_statistics_event_handler(None)


def _add(statistics: qon_ats.Statistics, ok: int, ng: int) -> None:
    statistics._ok += ok
    statistics._ng += ng
