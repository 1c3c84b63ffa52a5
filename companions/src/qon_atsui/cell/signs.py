"""What the operator reads in a cell: the state, concluded from what the engine told the widgets.

The engine tells its widgets texts and colours, never a state.  `Signs` collects what was told, `read`
turns it into one `Face`: glyph, word, text and shade.  Nothing here needs a window.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable
from dataclasses import dataclass, field, replace

from qon_companions.i18n import _

from qon_atsui import palette
from qon_atsui.palette import Shade
from qon_atsui.texts import displayable

# The engine's own words on the prompt and on the start button.
RUNNING = "Running"
EXCEPTION = "Exception Aborted"
VOLUNTARILY = "Abort Voluntarily"
START = "Start"
PAUSE = "Pause"
RESUME = "Resume"
_BUSY_LABELS = (PAUSE, RESUME)
_BLINK = ("yellow", "gray")


@dataclass(frozen=True)
class Face:
    """What the band shows. `lead` says which of word and text is the large one."""

    state: str
    glyph: str
    word: str
    text: str
    shade: Shade
    lead: str = "word"


@dataclass
class Told:
    """The engine's words so far."""

    text: str = ""
    colour: str = "white"
    busy: bool = False
    paused: bool = False
    aborting: bool = False
    waits_for: str = ""  # what keeps a test from being aborted
    asking: bool = False
    question: str = ""
    verdict: str = ""
    failed: str = ""
    fault: str = ""
    phase: bool = False
    notices: str = ""  # of other parts of the station
    stopped: bool = False  # one of them says that nothing can be started
    stuck: str = ""  # what to do about a cell that cannot be used any more
    marked: bool = True  # the next scan is for this cell


def _same(text: str, *words: str) -> bool:
    return text.strip().casefold() in {word.casefold() for word in words}


def _asking(told: Told) -> Face:
    """The band repeats the question: it is larger than any box."""
    text = told.question or ("" if _same(told.text, RUNNING) else told.text)
    shade = palette.YELLOW if told.phase else palette.YELLOW_DIM
    return Face("waiting", "question", _("WAITING"), text, shade, "text" if told.question else "word")


def _aborting(told: Told) -> Face:
    shade = palette.CYAN_DIM if told.phase else palette.CYAN_PALE
    text = _("Waits for the answer: {question}").format(question=told.question) if told.asking else ""
    text = text or told.waits_for or _("Waits for the next check point of the test")
    return Face("aborting", "hourglass", _("ABORTING"), text, shade)


def _busy(told: Told) -> Face:
    text = "" if _same(told.text, RUNNING) else told.text
    if told.paused:
        shade = palette.GRAY if told.phase else palette.GRAY_DIM
        return Face("paused", "pause", _("PAUSED"), text, shade)
    shade = palette.SLATE if told.phase else palette.SLATE_DIM
    if told.colour not in (*_BLINK, "white"):
        shade = palette.shade_of(told.colour)  # a script's own colour, until the next blink
    return Face("testing", "progress", _("TESTING"), text, shade, "text" if text else "word")


def _ended(told: Told) -> Face | None:
    if told.colour == "green":
        word = told.verdict or "OK"
        return Face("ok", "tick", word, "" if _same(told.text, word, "OK") else told.text, palette.GREEN)
    if told.colour == "red":
        word = told.verdict or "NG"
        text = told.failed if _same(told.text, word, "NG") else told.text
        return Face("ng", "cross", word, text, palette.RED)
    if told.colour == "cyan":
        verdict = told.verdict or told.text
        if _same(verdict, EXCEPTION) and told.fault and _same(told.text, EXCEPTION):
            return Face("exception", "warning", _("EXCEPTION"), told.fault, palette.CYAN)
        if _same(verdict, EXCEPTION):
            plain = _same(told.text, verdict) and word_is_english()
            return Face("exception", "warning", _("EXCEPTION"), "" if plain else told.text, palette.CYAN)
        plain = _same(told.text, "Aborted") and word_is_english()
        text = _("Abort Voluntarily") if _same(told.text, VOLUNTARILY) else told.text
        return Face("aborted", "abort", _("ABORTED"), "" if plain else text, palette.CYAN)
    return None


def word_is_english() -> bool:
    """In another language the engine's own English word is shown below ours."""
    return _("ABORTED") == "ABORTED"


def read(told: Told) -> Face:
    """The face for what was told."""
    if told.stuck:
        return Face("exception", "warning", _("EXCEPTION"), told.stuck, palette.CYAN, "text")
    return _read(told)


def _read(told: Told) -> Face:
    """The face for what was told; the most urgent state wins."""
    if told.busy and told.aborting:
        return _aborting(told)
    if told.asking:
        return _asking(told)
    if told.busy:
        return _busy(told)
    ended = _ended(told)
    if ended is not None:
        news = [line for line in told.notices.splitlines() if line not in ended.text]
        return replace(ended, text=_lines(ended.text, *news))
    return _idle(told)


def _idle(told: Told) -> Face:
    """Nothing runs and no verdict is shown."""
    if told.stopped:
        return Face("stopped", "stop", _("NOT READY"), told.notices, palette.YELLOW, "text")
    if told.colour == "yellow":  # the application wants something done before the next unit
        text = _lines(told.text, told.notices)
        return Face("waiting", "question", _("WAITING"), text, palette.YELLOW, "text" if text else "word")
    shade = palette.NEUTRAL if told.colour in ("white", "gray") else palette.shade_of(told.colour)
    text = _lines(told.text, told.notices)
    hint = _("Scan or type the serial number, then Enter")
    if not told.marked:
        hint = _("To scan for this cell click into it, or press F4")
    return Face("ready", "dot", _("READY"), text or hint, shade, "text" if text else "word")


def _lines(*texts: str) -> str:
    return "\n".join(filter(None, texts))


@dataclass
class Signs:
    """Collects what the engine tells a cell's widgets; `changed` is called after each change."""

    changed: Callable[[], None]
    told: Told = field(default_factory=Told)
    entry_disabled: bool = False

    def _update(self, **changes: object) -> None:
        told = vars(self.told)
        if any(told[name] != value for name, value in changes.items()):
            told.update(changes)
            self.changed()

    def prompt_text(self, text: str) -> None:
        """A test may be over before its first blink: its first word tells that it runs."""
        self._update(text=text, busy=self.told.busy or (self.entry_disabled and _same(text, RUNNING)))

    def prompt_colour(self, name: str) -> None:
        """A blinking colour while the entry is disabled: a test runs.  Each call is one beat."""
        busy = self.told.busy or (self.entry_disabled and name in _BLINK)
        self._update(colour=name, busy=busy, phase=not self.told.phase if busy else True)

    def start_label(self, label: str) -> None:
        busy = self.told.busy or (self.entry_disabled and label in _BUSY_LABELS)
        self._update(busy=busy, paused=label == RESUME)

    def entry_enabled(self, enabled: bool, verdict: str = "", failed: str = "") -> None:
        """The entry is disabled for the length of a test.

        `verdict` is the history's word for its end, `failed` names the NG items of a test that went on after them.
        """
        self.entry_disabled = not enabled
        if enabled and self.told.busy:
            self._update(
                busy=False, paused=False, aborting=False, waits_for="", verdict=verdict, failed=failed
            )
        elif not enabled:
            self._update(verdict="", failed="", fault="")

    def abort_asked(self, waits_for: str = "") -> None:
        """The test is to end; until it does the engine says nothing about it."""
        self._update(aborting=self.told.busy, waits_for=displayable(waits_for))

    @property
    def wants_fault(self) -> bool:
        """The run ended by an exception; what it says has not been found yet."""
        return self.told.verdict == EXCEPTION and not self.told.fault

    def fault(self, line: str) -> None:
        """What the exception that ended the run says."""
        self._update(fault=line)

    def notices(self, texts: Iterable[str], stopped: bool) -> None:
        """What other parts of the station say to a cell that is ready."""
        self._update(notices=_lines(*map(displayable, texts)), stopped=stopped)

    def questions(self, texts: list[str]) -> None:
        """What the operator is asked on behalf of this cell, the one whose turn comes first at the front."""
        self._update(asking=bool(texts), question=displayable(texts[0].strip()) if texts else "")

    def mark(self, marked: bool) -> None:
        """Whether the next scan is for this cell."""
        self._update(marked=marked)

    def stuck(self, line: str) -> None:
        """The cell cannot be used any more; the line says what to do."""
        self._update(stuck=line)
