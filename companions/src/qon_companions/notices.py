"""What a part of the station wants the operator to know between two units: words on the bands, a field of the status bar.

    notices.post("recorder", _("The disk is full: nothing can be recorded"), stop=True)
    notices.withdraw("recorder")
    notices.status("recorder", _("{count} units wait for the line").format(count=12))

Called in any thread, also before there is a window.  A notice stands on the band of every cell that is ready, with
`cell` (its number) of that one alone; a source has one notice a cell, a newer one takes the place of the older one.
`stop` says that no test can be started; the refusal itself is the business of who refuses the start.
"""

import logging
import threading
from collections.abc import Callable
from dataclasses import dataclass

log = logging.getLogger(__name__)


@dataclass(frozen=True)
class Notice:
    """Words of one source; `cell` None means every cell."""

    source: str
    text: str
    cell: int | None = None
    stop: bool = False


_lock = threading.Lock()
_notices: dict[tuple[str, int | None], Notice] = {}
_status: dict[str, str] = {}
_listeners: list[Callable[[], None]] = []


def post(source: str, text: str, cell: int | None = None, stop: bool = False) -> None:
    """Show a text until it is withdrawn; an empty one withdraws it."""
    _check(source, text, cell)
    if not text.strip():
        withdraw(source, cell)
        return
    notice = Notice(source, text.strip(), cell, bool(stop))
    with _lock:
        known = _notices.get((source, cell)) == notice
        _notices[source, cell] = notice
    if not known:
        where = "all cells" if cell is None else f"cell {cell}"
        log.log(logging.WARNING if stop else logging.INFO, "Notice of %s, %s: %s", source, where, text)
        _tell()


def withdraw(source: str, cell: int | None = None) -> None:
    """The source's notice of this cell no longer holds; without a cell none of its notices does."""
    _check(source, "", cell)
    with _lock:
        gone = [key for key in _notices if key[0] == source and cell in (None, key[1])]
        for key in gone:
            del _notices[key]
    if gone:
        log.info("Notice of %s withdrawn%s", source, "" if cell is None else f" from cell {cell}")
        _tell()


def status(source: str, text: str) -> None:
    """Show a text in a field of the status bar; an empty one removes the field."""
    _check(source, text, None)
    with _lock:
        known = _status.get(source, "") == text
        if text:
            _status[source] = text
        else:
            _status.pop(source, None)
    if not known:
        _tell()


def of_cell(number: int | None) -> list[Notice]:
    """The notices for a cell, those that stop it first; for None those that are meant for every cell."""
    with _lock:
        found = [notice for notice in _notices.values() if notice.cell in (None, number)]
    return sorted(found, key=lambda notice: not notice.stop)


def status_fields() -> list[str]:
    """The texts of the status bar, one a source."""
    with _lock:
        return list(_status.values())


def subscribe(listener: Callable[[], None]) -> Callable[[], None]:
    """Call it after each change, in the thread that made the change; what is returned ends that."""
    with _lock:
        _listeners.append(listener)

    def unsubscribe() -> None:
        with _lock:
            if listener in _listeners:
                _listeners.remove(listener)

    return unsubscribe


def _tell() -> None:
    with _lock:
        listeners = list(_listeners)
    for listener in listeners:
        try:
            listener()
        except Exception:  # who posts is not to suffer from who shows
            log.exception("A notice could not be shown.")


def _check(source: object, text: object, cell: object) -> None:
    for name, value in (("source", source), ("text", text)):
        if not isinstance(value, str):
            raise TypeError(f"The {name} of a notice must be a str, not {value!r}.")
    if cell is not None and (isinstance(cell, bool) or not isinstance(cell, int)):
        raise TypeError(f"The cell of a notice must be its number (int) or None, not {cell!r}.")
