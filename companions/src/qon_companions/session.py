"""Who works at the station, and on which batch: told by a dialog or a badge, asked by whoever keeps records.

    session.change(operator="A. Meyer", batch="B-18")
    session.current().operator
    session.subscribe(lambda before, after: ...)

Any thread.  What is told here is kept in memory and shown in the status bar, nowhere else: a name is not written to
a log, and what a record may keep of it is the business of who keeps the record.
"""

import logging
import re
import threading
from collections.abc import Callable
from dataclasses import dataclass, replace

from . import notices
from .i18n import _

SOURCE = "session"

log = logging.getLogger(__name__)


@dataclass(frozen=True)
class Session:
    """Empty texts: not told."""

    operator: str = ""
    batch: str = ""


Listener = Callable[[Session, Session], None]  # before, after

_lock = threading.Lock()
_current = Session()
_badge: re.Pattern[str] | None = None
_listeners: list[Listener] = []


def current() -> Session:
    """As it is now."""
    return _current


def change(operator: str | None = None, batch: str | None = None) -> None:
    """Somebody else works here, or on another batch; None leaves it, "" is for nobody and none."""
    global _current
    given = {"operator": operator, "batch": batch}
    with _lock:
        before = _current
        _current = after = replace(
            before, **{name: text.strip() for name, text in given.items() if text is not None}
        )
        listeners = list(_listeners)
    if before == after:
        return
    fields = ((_("Operator"), after.operator), (_("Batch"), after.batch))
    notices.status(SOURCE, " \u00b7 ".join(f"{title}: {text}" for title, text in fields if text))
    for listener in listeners:
        try:
            listener(before, after)
        except Exception:
            log.exception("A change of operator or batch could not be told to everybody.")


def subscribe(listener: Listener) -> Callable[[], None]:
    """Call it after each change, in the thread that made it; what is returned ends that."""
    with _lock:
        _listeners.append(listener)

    def unsubscribe() -> None:
        with _lock:
            if listener in _listeners:
                _listeners.remove(listener)

    return unsubscribe


def use_badges(pattern: re.Pattern[str] | None) -> None:
    """What a badge reads like, as a whole; its first group, where it has one, is the operator."""
    global _badge
    _badge = pattern


def take_badge(text: str) -> bool:
    """Whether this scan was a badge; then its operator works here from now on."""
    found = _badge.fullmatch(text.strip()) if _badge is not None else None
    if found is None:
        return False
    change(operator=(found[1] if found.re.groups else found[0]) or found[0])
    return True
