"""Barcode scanners: keyboards that type a number and Enter, wherever the focus is.

    watch(take, gap_ms=35)

From then on what a scanner types reaches no window of the process: it is handed to `take` as one text, with False behind it when its beginning may be missing.  A scan is
at least four characters, each at most `gap_ms` after the one before by the times of the events themselves, with Enter
or Tab as close behind them; a key that is held down is none.  What a person types arrives as ever, `gap_ms` later.
"""

from collections.abc import Callable

import wx

from .run import FEWEST_KEYS, GAP_MS, Run, Taker
from .wx_keys import WxKeys

__all__ = ["FEWEST_KEYS", "GAP_MS", "Run", "WxKeys", "leave", "set_gap", "tab_was_pressed", "watch"]

_run: Run | None = None


def watch(take: Taker, gap_ms: int = GAP_MS) -> None:
    """Hand scans to `take`, GUI thread; it takes the place of whoever took them before."""
    global _run
    if _run is None:
        _run = _keys_of_the_desktop()
    _run.take, _run.gap_ms = take, gap_ms


def set_gap(take: Taker, gap_ms: int) -> None:
    """Change the time between two characters, if this is still who takes the scans."""
    if _run is not None and _run.take == take:
        _run.gap_ms = gap_ms


def leave(take: Taker) -> None:
    """Scans are typed as before, unless somebody else takes them by now."""
    if _run is not None and _run.take == take:
        _run.take = None


def tab_was_pressed() -> bool:
    """Whether the focus that changes now may follow the Tab key."""
    return _run is not None and _run.tab_was_pressed()


def _keys_of_the_desktop() -> Run:
    """GTK lets keys be held back before any window sees them, its own boxes and menus included."""
    install: Callable[[], Run] = WxKeys
    if "gtk3" in wx.PlatformInfo:
        from .gtk_keys import GtkKeys

        install = GtkKeys
    return install()
