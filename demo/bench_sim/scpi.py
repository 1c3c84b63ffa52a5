"""A SCPI parser for simulated instruments: headers in short or long form, parameters, an error queue."""

import inspect
import re
from collections import deque
from collections.abc import Callable

Handler = Callable[..., object]

NO_ERROR = '0,"No error"'


class ScpiError(Exception):
    """Goes into the instrument's error queue; the client reads it with SYST:ERR?"""

    def __init__(self, number: int, text: str) -> None:
        super().__init__(f'{number},"{text}"')


def _header_pattern(header: str) -> re.Pattern[str]:
    """`MEASure:VOLTage[:DC]?` accepts `meas:volt?` and `MEASURE:VOLTAGE:DC?`."""
    pattern = ""
    for token in re.findall(r"\[|\]|[?*:]|\w+", header):
        if token == "[":
            pattern += "(?:"
        elif token == "]":
            pattern += ")?"
        elif token in "?*:":
            pattern += re.escape(token)
        else:
            short = "".join(letter for letter in token if letter.isupper())
            pattern += f"(?:{token}|{short})"
    return re.compile(f":?{pattern}", re.IGNORECASE)


def number(text: str, lowest: float, highest: float) -> float:
    """A numeric parameter within the instrument's range."""
    try:
        value = float(text)
    except ValueError:
        raise ScpiError(-104, f"Data type error; {text}") from None
    if not lowest <= value <= highest:
        raise ScpiError(-222, f"Data out of range; {text}")
    return value


def switch(text: str) -> bool:
    """ON, OFF, 1 or 0."""
    if text.upper() not in ("ON", "OFF", "1", "0"):
        raise ScpiError(-224, f"Illegal parameter value; {text}")
    return text.upper() in ("ON", "1")


def quoted(text: str) -> str:
    """A string parameter."""
    if len(text) < 2 or text[0] not in "\"'" or text[-1] != text[0]:
        raise ScpiError(-150, f"String data error; {text}")
    return text[1:-1].replace(text[0] * 2, text[0])


def quote(text: str) -> str:
    """A string answer."""
    return '"' + text.replace('"', '""') + '"'


class ScpiInstrument:
    """Commands of one instrument; subclasses name theirs in `commands()`."""

    model = "INSTRUMENT"

    def __init__(self, cell_number: int) -> None:
        self._identity = f"SIMULATED,{self.model},{cell_number:04d},1.0"
        self._errors: deque[str] = deque(maxlen=20)
        self._commands = [(_header_pattern(header), function) for header, function in self._all().items()]

    def commands(self) -> dict[str, Handler]:
        raise NotImplementedError

    def reset(self) -> None:
        """The state after power-on."""

    def execute(self, line: str) -> str | None:
        """One message, maybe of several commands; the answers of its queries, or None when there is none."""
        answers = []
        for command in _split(line, ";"):
            try:
                answer = self._execute(command.strip())
            except ScpiError as error:
                self._errors.append(str(error))
                continue
            if answer is not None:
                answers.append(_text(answer))
        return ";".join(answers) if answers else None

    def _execute(self, command: str) -> object:
        header, _, rest = command.partition(" ")
        arguments = [argument.strip() for argument in _split(rest, ",")] if rest.strip() else []
        for pattern, function in self._commands:
            if pattern.fullmatch(header):
                try:
                    inspect.signature(function).bind(*arguments)
                except TypeError:
                    raise ScpiError(-115, f"Unexpected number of parameters; {command}") from None
                return function(*arguments)
        raise ScpiError(-113, f"Undefined header; {header}")

    def _all(self) -> dict[str, Handler]:
        common: dict[str, Handler] = {
            "*IDN?": lambda: self._identity,
            "*RST": self.reset,
            "*CLS": lambda: self._errors.clear(),
            "*OPC?": lambda: "1",
            "SYSTem:ERRor[:NEXT]?": lambda: self._errors.popleft() if self._errors else NO_ERROR,
        }
        return common | self.commands()


def _split(text: str, separator: str) -> list[str]:
    """Split outside quotes and parentheses."""
    return re.findall(rf"""(?:"[^"]*"|'[^']*'|\([^)]*\)|[^{separator}"'(])+""", text)


def _text(answer: object) -> str:
    if isinstance(answer, bool):
        return "1" if answer else "0"
    return f"{answer:.6E}" if isinstance(answer, float) else str(answer)
