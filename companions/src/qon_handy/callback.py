"""An event that listeners subscribe to."""

import threading
from collections.abc import Callable
from typing import Any

Listener = Callable[..., Any]

# Shared by all events, because units and runners make one each: it guards only the exchange of a tuple.
_exchange = threading.Lock()


class Callback:
    """A list of listeners, called in the order of subscription with the arguments given when the event fires.

    Any thread may subscribe, unsubscribe and call, also while the listeners are being called: a new listener is
    called from the next time on, a removed one is not called any more.
    """

    __slots__ = ("__weakref__", "_listeners")

    def __init__(self) -> None:
        self._listeners: tuple[Listener, ...] = ()

    def subscribe(self, listener: Listener) -> None:
        """Call this function, too.  Subscribed twice it is called twice."""
        if not callable(listener):
            raise TypeError(f"A listener must be callable, not {listener!r}.")
        while True:
            before = self._listeners
            if self._exchanged(before, (*before, listener)):
                return

    def unsubscribe(self, listener: Listener) -> bool:
        """Do not call this function any more; False when it was not subscribed.

        A bound method is found again although `window.method` is a new object each time.
        """
        while True:
            before = self._listeners
            if listener not in before:
                return False
            place = before.index(listener)
            if self._exchanged(before, before[:place] + before[place + 1 :]):
                return True

    def _exchanged(self, before: tuple[Listener, ...], after: tuple[Listener, ...]) -> bool:
        """Exchange the listeners unless another thread was faster.

        Nothing is compared, made or dropped under the lock, so no foreign code and no collector runs there.
        """
        with _exchange:
            if self._listeners is not before:
                return False
            self._listeners = after
            return True

    def __call__(self, *args: Any, **kwargs: Any) -> None:
        """Call all listeners in the calling thread, then raise what they raised: one as it is, several as a group."""
        errors: list[BaseException] = []
        listeners = self._listeners
        for listener in listeners:
            if self._listeners is not listeners and listener not in self._listeners:
                continue
            try:
                listener(*args, **kwargs)
            except BaseException as error:  # noqa: BLE001 - raised below, after the other listeners
                errors.append(error)
        if errors:
            _raise(errors)

    def __len__(self) -> int:
        return len(self._listeners)

    def __bool__(self) -> bool:
        """An event is true also without listeners."""
        return True

    def __contains__(self, listener: object) -> bool:
        return listener in self._listeners

    def __repr__(self) -> str:
        return f"<Callback, {len(self._listeners)} listeners>"


def _raise(errors: list[BaseException]) -> None:
    try:
        if len(errors) == 1:
            raise errors[0]
        raise BaseExceptionGroup(f"{len(errors)} listeners failed", errors)
    finally:
        errors.clear()  # the exceptions hold the frames that hold this list: no cycle for the collector
