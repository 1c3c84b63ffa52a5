"""Binding of `on_*` handlers by name.

The name is looked up when the event arrives, so a subclass or the other base of a mixed class decides what
happens; a name that nobody defines means that nothing happens.  Only a weak reference to the window is kept.
"""

from __future__ import annotations

import weakref
from collections.abc import Callable, Iterator
from typing import Any

import wx

Relay = Callable[[wx.Event], None]


def is_offered(owner: wx.Window, name: str) -> bool:
    """Whether a handler does something: the engine's own of these are there to be overridden."""
    definer = next((kind for kind in type(owner).__mro__ if name in vars(kind)), None)
    return definer is not None and definer.__module__ != "qon_ats"


def relay(owner: wx.Window, name: str, otherwise: Callable[[wx.Event], Any] | None = None) -> Relay:
    """A callable that hands an event to `owner.<name>`; `otherwise` gets it when there is no such handler."""
    reference = weakref.ref(owner)

    def forward(event: wx.Event) -> None:
        target = reference()
        handler = getattr(target, name, None) if target else None
        if handler is not None:
            handler(event)
        elif otherwise is not None:
            otherwise(event)

    return forward


def bind(owner: wx.Window, source: wx.EvtHandler, binder: wx.PyEventBinder, name: str) -> None:
    """An event of `source` goes to the owner's handler of that name."""
    source.Bind(binder, relay(owner, name))


def descendants(window: wx.Window) -> Iterator[wx.Window]:
    """All windows in a window, at any depth."""
    for child in window.GetChildren():
        yield child
        yield from descendants(child)
