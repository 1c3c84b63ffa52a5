"""Languages: English in the source, others in `locale/LANGUAGE/LC_MESSAGES/qon_results.po`, compiled at installation."""

import functools
import gettext
from collections.abc import Callable
from pathlib import Path
from typing import TypeAlias

from starlette.requests import Request

DOMAIN = "qon_results"
LOCALE = Path(__file__).parents[1] / "locale"
LANGUAGES = {"en": "English", "zh_CN": "中文"}
COOKIE = "qon_lang"
_TURNING = frozenset("\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069\u200e\u200f")

Translate: TypeAlias = Callable[[str], str]


def later(text: str) -> str:
    """Marks a text that is translated where it is shown."""
    return text


def language_of(request: Request) -> str:
    """What the address says, else the cookie, else the browser's own order."""
    for told in (request.query_params.get("lang", ""), request.cookies.get(COOKIE, "")):
        if told in LANGUAGES:
            return told
    return accepted(request.headers.get("accept-language", ""))


def accepted(header: str) -> str:
    """The first language of an Accept-Language that there is; English when there is none."""
    wanted: list[tuple[float, str]] = []
    for part in header.split(",")[:20]:
        name, _, quality = part.strip().partition(";q=")
        try:
            wanted.append((-float(quality or 1), name.lower()))
        except ValueError:
            continue
    for _, name in sorted(wanted, key=lambda each: each[0]):
        for known in LANGUAGES:
            if name.split("-")[0] == known.split("_")[0]:
                return known
    return "en"


@functools.cache
def translation(language: str) -> Translate:
    found = gettext.translation(DOMAIN, LOCALE, [language], fallback=True)
    return lambda text: found.gettext(text) if text else ""


def plain(text: str) -> str:
    """Text from results, safe to stand among other text: signs that turn the direction of writing show as what they are."""
    turned = "".join(f"\\u{ord(each):04x}" if each in _TURNING else each for each in text)
    return turned.encode("utf-8", "backslashreplace").decode("utf-8")
