"""What the table shows: programs, figures, targets."""

from dataclasses import dataclass

PLAIN = ("ours", "plain")
NAMES = {"plain": "plain Python", "headless": "no window", "openhtf": "OpenHTF", "off": "no recorder"}


@dataclass(frozen=True)
class Program:
    """One file that measures, and how it is run."""

    file: str
    sides: tuple[str, ...] = PLAIN  # ours first
    arguments: tuple[str, ...] = ()
    share: float = 1.0  # of the rounds asked for
    group: str = ""  # under which several are chosen together
    processes: int = 1  # a round; the fastest counts where a process is too short to average out other work


@dataclass(frozen=True)
class Figure:
    """One row; at most one of the targets."""

    program: str
    key: str
    title: str
    unit: str
    digits: int = 2
    at_least: float | None = None  # times faster than the other side
    at_most: float | None = None  # of the other side's
    limit: float | None = None  # for our own figure
    scale: float = 1.0  # from the program's unit to the row's
    at_least_ours: float | None = None  # for our own figure, too
    at_most_more: float | None = None  # than the other side's


CELLS = (1, 4, 20, 100)

PROGRAMS = {
    "hot_path": Program("hot_path.py"),
    "memory": Program("memory.py"),
    "analysis": Program("analysis.py"),
    "import_time": Program("import_time.py", processes=3),
    "start": Program("start.py", processes=3),
    "openhtf": Program("phases.py", ("ours", "openhtf"), share=0.6),
    **{
        f"steps_{n}": Program("steps.py", ("window", "headless"), (str(n), "10"), 0.4, "steps") for n in CELLS
    },
    **{f"rush_{n}": Program("steps.py", ("window", "headless"), (str(n), "0"), 0.6, "rush") for n in CELLS},
    "flood": Program("flood.py", ("window",), share=0.0),
    "results_cell": Program("results_run.py", ("on", "off"), ("1", "10"), 0.6, "results"),
    "results_flood": Program("results_run.py", ("on", "off"), ("8", "60"), 0.0, "results"),
    "results_write": Program("results_write.py", ("ours",), share=0.6, group="results"),
    "results_line": Program("results_line.py", ("ours",), share=0.6, group="results"),
    "results_read": Program("results_read.py", ("ours",), share=0.6, group="results"),
    "page_items": Program("page_items.py", ("ours",), share=0.6, group="results"),
}


def _hot_path() -> list[Figure]:
    rows = {
        "all in": "assert_limits, all in",
        "all in, unit None": "assert_limits, all in, unit None",
        "limits workbook": "assert_limits, limits workbook",
        "limits workbook, unit None": "assert_limits, limits workbook, unit None",
        "without the queue": "assert_limits, without the queue",
    }
    figures = [
        Figure("hot_path", key, title, "us", at_least=7.0 if key == "all in" else 6.0)
        for key, title in rows.items()
    ]
    return [
        *figures,
        Figure("hot_path", "all in, collector off", "assert_limits, all in, collector off", "us"),
    ]


def _steps() -> list[Figure]:
    """Steps of 10 ms against no window; then how late the event loop is; then steps without any wait."""
    titles = {n: f"{n} cell{'s' if n > 1 else ''}" for n in CELLS}
    return [
        *(
            Figure(f"steps_{n}", "total", f"500 steps of 10 ms, {titles[n]}", "s", at_most=2.0, scale=1e-3)
            for n in CELLS
        ),
        *(
            Figure(f"steps_{n}", "delay", f"  event loop delay meanwhile, {titles[n]}", "ms", 0, limit=100.0)
            for n in CELLS
        ),
        *(
            Figure(
                f"rush_{n}", "total", f"500 steps without a wait, {titles[n]}: per cell", "ms", 1, scale=1 / n
            )
            for n in CELLS
        ),
        *(
            Figure(f"rush_{n}", "delay", f"  event loop delay meanwhile, {titles[n]}", "ms", 0, limit=100.0)
            for n in CELLS
        ),
    ]


def _results() -> list[Figure]:
    """The recorder against none, the writer alone, questions to ten million measurements."""
    return [
        Figure("results_cell", "thread", "a recorded assertion at 10,000/s, test thread", "us", at_most=1.1),
        Figure("results_cell", "gap", "  gap between two calls, p99.9", "ms", 3, at_most_more=1.0),
        Figure(
            "results_flood", "delay", "event loop delay, 8 recorded cells of 10,000/s", "ms", 0, limit=50.0
        ),
        Figure("results_flood", "behind", "  the writer behind at most", "s", limit=2.0),
        Figure("results_flood", "thread", "  an assertion, test thread", "us"),
        Figure("results_write", "bulk", "writer alone, thousand measurements/s", "", 0, at_least_ours=200.0),
        Figure("results_write", "end", "end of a 100-item unit to its commit, median", "ms", 1, limit=10.0),
        Figure("results_write", "end p99", "  p99", "ms", 1, limit=50.0),
        Figure(
            "results_line",
            "rate",
            "catching up to PostgreSQL, thousand measurements/s",
            "",
            0,
            at_least_ours=30.0,
        ),
        Figure("results_line", "sender", "  a measurement, the sender's processor", "us", 1),
        Figure("results_read", "bytes", "bytes on disk for each measurement, all in", "B", 1, limit=45.0),
        Figure("results_read", "serial", "unit by serial number in 10 million, p99", "ms", 1, limit=10.0),
        Figure("results_read", "item", "one item's 100,000 values as arrays", "ms", 0, limit=50.0),
        Figure("results_read", "yield", "yield and Pareto of a month, 10 million", "ms", 0, limit=300.0),
        Figure("page_items", "cold", "items table, 200 items x 50,000 units, from nothing", "s", 1, limit=5.0),
        Figure("page_items", "table", "  from the kept figures", "ms", 0, limit=200.0),
        Figure("page_items", "cells", "  differences of its cells", "ms", 0, limit=300.0),
    ]


FIGURES = [
    *_hot_path(),
    Figure("memory", "memory", "memory per recorded assertion", "B", 0, at_most=0.6),
    Figure("memory", "left", "memory blocks left of a unit of 1,000", "", 1, limit=1.0),
    *_steps(),
    Figure("flood", "delay", "event loop delay, 8 cells of 10,000 assertions/s", "ms", 0, limit=100.0),
    Figure("flood", "longest", "  the longest one", "ms", 0),
    Figure("flood", "at the end", "  the longest one while the rows left are shown", "ms", 0),
    Figure(
        "analysis", "analysis with plot", "item analysis with its plot, 10,000 x 100", "ms", 1, at_least=4.0
    ),
    Figure("analysis", "analysis", "  of which without its plot", "ms", 1),
    Figure("analysis", "listing", "listing 10,000 units", "ms", 0, limit=1000.0),
    Figure("analysis", "filtering", "filtering 10,000 units", "ms", 0, limit=1000.0),
    *_results(),
    Figure("import_time", "import", "import of the module", "ms", 0, at_most=1.2),
    Figure("start", "start", "start of an 8-cell station", "ms", 0, at_most=1.2),
    Figure("openhtf", "measurement", "1,000 measurements in one run, each", "us", at_least=75.0),
    Figure("openhtf", "step", "500 steps of one measurement, each", "us", at_least=750.0),
]
