"""Labels in English and Simplified Chinese, from the gettext catalogue "qon".

The environment variable QON_LANG chooses ("en", "zh_CN"), else the system's locale does.  Entries are added to
locale/zh_CN/LC_MESSAGES/qon.po; the (editable) installation compiles it.
"""

from __future__ import annotations

import functools
import gettext
import os
from pathlib import Path
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    import wx

DOMAIN = "qon"
ENGLISH = "en"
CHINESE = "zh_CN"
LOCALE_DIR = Path(__file__).parent / "locale"


def _(text: str) -> str:
    """The text in the language chosen now; the text itself where nothing is translated."""
    return _catalogue(language()).gettext(text) if text else ""


def language() -> str:
    """ENGLISH or CHINESE; any language without a catalogue counts as English."""
    wanted = os.environ.get("QON_LANG", "").strip() or _system_language()
    return CHINESE if wanted.lower().startswith(("zh", "chinese")) else ENGLISH


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
    chinese = language() == CHINESE
    wx.Locale.AddCatalogLookupPathPrefix(str(LOCALE_DIR))
    silence = wx.LogNull()  # a system without the locale's data is no news for the operator
    locale = wx.Locale()
    locale.Init(wx.LANGUAGE_CHINESE_SIMPLIFIED if chinese else wx.LANGUAGE_ENGLISH)
    if chinese:
        locale.AddCatalog(DOMAIN)
    del silence
    app.qon_locale = locale
