"""Puts an exception into words for an operator: what is wrong, where, and what to do."""

import os
import site
import sysconfig
import traceback
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType

from qon_companions.i18n import _

_COMPANIONS = str(Path(__file__).parent.parent)


@dataclass(frozen=True)
class Explanation:
    """`place` is the line of the application that led there, "" when there is none."""

    what: str
    advice: str
    place: str

    def __str__(self) -> str:
        return "\n".join(part for part in (self.what, self.advice, self.place) if part)


def explain(error: BaseException) -> Explanation:
    """What happened, without a traceback."""
    what, advice = _words(error)
    place = "" if isinstance(error, SyntaxError) else place_of(error.__traceback__)
    return Explanation(what, advice, place and _("At: {place}").format(place=place))


def details(error: BaseException) -> str:
    """The whole traceback, for whoever mends it."""
    return "".join(traceback.format_exception(error)).rstrip()


def place_of(trace: TracebackType | None) -> str:
    """The deepest line that belongs to the application, "" when none does."""
    own = [frame for frame in traceback.extract_tb(trace) if not is_library(frame.filename)]
    return f"{own[-1].filename}, line {own[-1].lineno}, in {own[-1].name}" if own else ""


def _words(error: BaseException) -> tuple[str, str]:
    again = _("Correct it and start again.")
    if isinstance(error, SyntaxError):
        line = (error.text or "").strip()
        text = _("File {file}, line {line} is no valid Python: {reason}")
        what = text.format(file=error.filename, line=error.lineno, reason=error.msg)
        return f"{what}\n    {line}" if line else what, again
    if isinstance(error, ModuleNotFoundError) and error.name:
        what = _("The module {name} is not installed.").format(name=error.name)
        text = _("Install it for this Python, or put {name}.py beside the application.")
        return what, text.format(name=error.name.partition(".")[0])
    if isinstance(error, ImportError) and isinstance(error.__cause__, Exception):
        return _words(
            error.__cause__
        )  # what a native module says about a fault in what it imports is no help
    if isinstance(error, ImportError):
        return _("A module does not fit: {reason}").format(reason=error), again
    if isinstance(error, OSError) and error.filename is not None:
        return f"{os.fspath(error.filename)}:\n{error.strerror or type(error).__name__}", again
    if isinstance(error, KeyError):
        return _("There is no entry {key}.").format(key=error), again
    return str(error) or type(error).__name__, again if isinstance(error, ValueError) else ""


def is_library(file: str) -> bool:
    libraries = (sysconfig.get_path("stdlib"), *site.getsitepackages(), _COMPANIONS, "<frozen")
    return file.startswith(tuple(libraries)) or f"{os.sep}dist-packages{os.sep}" in file
