"""Charts of a page: what plotly.js draws, with the table behind it and words where there is nothing to draw."""

from dataclasses import dataclass, field
from html import escape
from typing import Any

import msgspec
from markupsafe import Markup

from .tables import Table


@dataclass(frozen=True)
class Chart:
    """`traces` and `layout` as plotly.js takes them; numbers that are none become gaps.

    `words` say what is to be seen, for who does not see it; `reason` why there is no chart.
    """

    name: str
    title: str
    traces: list[dict[str, Any]]
    table: Table
    layout: dict[str, Any] = field(default_factory=dict)
    words: str = ""
    reason: str = ""
    height: int = 320

    @property
    def data(self) -> Markup:
        """JSON that no text inside can leave: it stands in a script element of no executable type."""
        drawn = _as_text({"traces": self.traces, "layout": self.layout})
        found = msgspec.json.encode(drawn, enc_hook=_plain).decode()
        for sign in "<>&\u2028\u2029":
            found = found.replace(sign, f"\\u{ord(sign):04x}")
        return Markup(found)


def _as_text(value: Any) -> Any:
    """plotly takes `<b>` and the like in a text for markup; what comes from results has none."""
    if isinstance(value, str):
        return escape(value, False)
    if isinstance(value, dict):
        return {name: _as_text(each) for name, each in value.items()}
    return [_as_text(each) for each in value] if isinstance(value, list | tuple) else value


def _plain(value: Any) -> Any:
    if hasattr(value, "tolist"):  # numpy's arrays and numbers
        return value.tolist()
    raise TypeError(f"{type(value).__name__} has no place in a chart")
