"""Labels in English and in each language that has a gettext catalogue "qon".

The environment variable QON_LANG chooses ("en", "zh_CN"), else the system's locale does.  A language is a file
locale/LANGUAGE/LC_MESSAGES/qon.po and nothing else; the (editable) installation compiles it.
"""

from __future__ import annotations

import functools
import gettext
import locale
import os
from pathlib import Path
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    import wx

DOMAIN = "qon"
ENGLISH = "en"
LOCALE_DIR = Path(__file__).parent / "locale"


def _(text: str) -> str:
    """The text in the language chosen now; the text itself where nothing is translated."""
    return _catalogue(language()).gettext(text) if text else ""


def language() -> str:
    """ENGLISH or the name of a catalogue; any language without one counts as English."""
    return _nearest(os.environ.get("QON_LANG", "").strip() or _system_language())


@functools.cache
def _nearest(wanted: str) -> str:
    """The first of a list like "zh_TW:en" that there is, if need be as it is spoken elsewhere ("zh_CN")."""
    there = sorted(path.parent.parent.name for path in LOCALE_DIR.glob(f"*/LC_MESSAGES/{DOMAIN}.mo"))
    for name in wanted.split(":"):
        full = locale.normalize(name.replace("-", "_")).partition(".")[0]
        spoken = full.partition("_")[0].lower()
        if spoken in (ENGLISH, "c", "posix"):
            break
        found = [each for each in there if each.partition("_")[0] == spoken]
        if found:
            return full if full in found else found[0]
    return ENGLISH


def _system_language() -> str:
    told = (os.environ.get(variable) for variable in ("LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"))
    return next(filter(None, told), None) or _desktop_language()


@functools.cache
def _desktop_language() -> str:
    """For systems that do not tell by environment variables."""
    try:
        import wx  # parameters are read on machines without windows too
    except ImportError:
        return ENGLISH
    info = wx.Locale.GetLanguageInfo(wx.Locale.GetSystemLanguage())
    return info.CanonicalName if info is not None else ENGLISH


@functools.cache
def _catalogue(name: str) -> gettext.NullTranslations:
    return gettext.translation(DOMAIN, LOCALE_DIR, [name], fallback=True)


def install_locale(app: wx.App) -> None:
    """Let wx's own labels (stock buttons, standard dialogs) follow the chosen language too.

    The locale object is kept by the application: wx goes back to English when it is destroyed.
    """
    import wx

    app.qon_locale = None  # wx crashes when an older locale object goes after a newer one came
    info = wx.Locale.FindLanguageInfo(language())
    wx.Locale.AddCatalogLookupPathPrefix(str(LOCALE_DIR))
    silence = wx.LogNull()  # a system without the locale's data is no news for the operator
    chosen = wx.Locale()
    chosen.Init(info.Language if info is not None else wx.LANGUAGE_ENGLISH)
    if language() != ENGLISH:
        chosen.AddCatalog(DOMAIN)
    del silence
    app.qon_locale = chosen
