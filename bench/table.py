"""Rows of the table: the median over the rounds, with the lowest and the highest."""

import statistics

from figures import NAMES, Figure

Round = dict[str, dict[str, float]]
Row = tuple[str, ...]

HEAD = ("figure", "ours", "compared with", "ratio", "target", "met")


def _number(value: float, digits: int) -> str:
    return f"{value:.{digits}f}".replace("-0.0", "0.0")


def _spread(values: list[float], digits: int, unit: str = "") -> str:
    low, middle, high = (_number(f(values), digits) for f in (min, statistics.median, max))
    shown = middle if len(values) == 1 else f"{middle} ({low}..{high})"
    return f"{shown} {unit}".rstrip()


def _verdict(
    figure: Figure, ours: list[float], ratios: list[float], more: list[float]
) -> tuple[str, str]:
    target, value, good = "", 0.0, True
    if figure.limit is not None:
        value = statistics.median(ours)
        target, good = f"<= {figure.limit:g} {figure.unit}".rstrip(), value <= figure.limit
    elif figure.at_least_ours is not None:
        target, good = f">= {figure.at_least_ours:g}", statistics.median(ours) >= figure.at_least_ours
    elif more and figure.at_most_more is not None:
        value = statistics.median(more)
        target, good = f"<= {figure.at_most_more:g} {figure.unit} more", value <= figure.at_most_more
    elif ratios and figure.at_least is not None:
        value = statistics.median(ratios)
        target, good = f">= {figure.at_least:g} x", value >= figure.at_least
    elif ratios and figure.at_most is not None:
        value = statistics.median(ratios)
        target, good = f"<= {figure.at_most:g} x", value <= figure.at_most
    return target, ("yes" if good else "NO") if target else ""


def row(figure: Figure, rounds: list[Round], sides: tuple[str, ...]) -> Row:
    """A figure that the other side does not have is ours alone."""
    mine, other = sides[0], sides[-1]
    ours = [each[mine][figure.key] * figure.scale for each in rounds]
    compared, ratio, ratios, more = "", "", [], []
    if other != mine and figure.key in rounds[0][other]:
        theirs = [each[other][figure.key] * figure.scale for each in rounds]
        faster = figure.at_most is None and figure.limit is None and other not in ("headless", "off")
        pairs = list(zip(ours, theirs, strict=True))
        more = [a - b for a, b in pairs]
        ratios = [b / a if faster else a / b for a, b in pairs] if figure.key != "left" else []
        compared = f"{_spread(theirs, figure.digits, figure.unit)} {NAMES[other]}"
        ratio = f"{_spread(ratios, 2)} x {'faster' if faster else 'of it'}" if ratios else ""
    elif "starved" in rounds[0][mine]:
        starved = [each[mine]["starved"] for each in rounds]
        compared = f"{_spread(starved, 0)} % of the time no processor"
    shown = _spread(ours, figure.digits, figure.unit)
    return (figure.title, shown, compared, ratio, *_verdict(figure, ours, ratios, more))


def print_table(rows: list[Row]) -> None:
    widths = [max(len(each[column]) for each in [HEAD, *rows]) for column in range(len(HEAD))]
    for line in (HEAD, tuple("-" * width for width in widths), *rows):
        print("  ".join(text.ljust(width) for text, width in zip(line, widths, strict=True)).rstrip())
