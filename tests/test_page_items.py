"""Items, cells and alarms: the kept figures against those of all values, and the pages over odd data."""

import json
import math
import time
from collections.abc import Sequence
from pathlib import Path
from typing import Any
from urllib.parse import quote

import numpy as np
import pytest
import qon_results
from qon_results import Filter
from qon_results.analysis import alarms, capability, cells, moments
from qon_results.commands import main
from qon_results.generator import Generator, Recipe
from qon_results.page import itemfigures
from qon_results.page.cells import readable
from qon_results.page.item import decimated
from qon_results.page.rollups import making
from qon_results.page.rollups.file import ALARMS, Rollups
from qon_results.page.rollups.watching import Watch
from qon_results.writer.database import Database
from qon_results.writer.messages import Begin, End, Rows, SetupContents
from test_page import ask, serving

RECIPE = Recipe(units=400, items=40, cells=3, seconds=900.0, failing=0.1)


def made(folder: Path, path: Path) -> Rollups:
    file = Rollups(path, write=True)
    file.begin(str(folder))
    with qon_results.open(folder) as store:
        while making.update(store, file) or making.watch(store, file):
            pass
    return file


def told(rows: Sequence[itemfigures.ItemRow]) -> list[Any]:
    """Everything of a row that is a figure."""
    return [
        (row.name, row.values.n, row.ng, row.near, row.lower, row.upper, row.switches, row.others, row.drift.value, row.values.mean,
         row.values.sigma, row.capability.cpk.low, row.worst and row.worst.cell[1], row.worst and row.worst.apart.value) for row in rows
    ]  # fmt: skip


def same(found: Any, wanted: Any) -> None:
    for one, other in zip(found, wanted, strict=True):
        for a, b in zip(one, other, strict=True):
            assert a == pytest.approx(b, rel=1e-9, nan_ok=True) if isinstance(a, float) else a == b, (one, other)


def test_kept_figures_equal_those_of_all_values(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    Generator(RECIPE).write(tmp_path)
    whole = made(tmp_path, tmp_path / "a.db")
    rows = itemfigures.item_rows(whole, Filter())
    with qon_results.open(tmp_path) as store:
        for row in rows:
            columns = store.item(row.name)
            if not row.values.n:
                assert row.switches + row.others == len(columns.run) and row.capability.pp.reason
                continue
            plain = moments.Summary.of(columns.value)
            assert (row.values.n, row.ng) == (plain.n, (columns.verdict == 0).sum())
            assert row.values.sigma == pytest.approx(plain.sigma, rel=1e-12)
            steps = np.concatenate([np.abs(np.diff(columns.value[columns.cell == cell])) for cell in (1, 2, 3)])
            assert row.capability.cp.value == pytest.approx(
                (row.upper - row.lower) / 6 / (steps.mean() / 1.1283791670955126)
            )
            assert row.capability.ppk.value == pytest.approx(
                capability.capability(columns.value, row.lower, row.upper).ppk.value
            )
            levels = np.stack([columns.time_us / 8.64e10, *(columns.cell == cell for cell in (1, 2, 3))], axis=1)
            slope = np.linalg.lstsq(levels - [levels[0, 0], 0, 0, 0], columns.value, rcond=None)[0][0]
            assert row.drift.value == pytest.approx(slope * row.days, rel=1e-6, abs=1e-9)
    # Taken in little by little, after a correction and out of an archive: the same.
    monkeypatch.setitem(making.MOST_SEALS, "parts", 150)
    monkeypatch.setitem(making.MOST_SEALS, "alarms", 130)
    parts = made(tmp_path, tmp_path / "b.db")
    same(told(itemfigures.item_rows(parts, Filter())), told(rows))
    with qon_results.open(tmp_path) as store:
        runs = store.runs(limit=2)
        database = Database(tmp_path / "results.db", commit_ms=1, durable="off")
        database.open("generated")
        database.begin(durable=False)
        end = End(runs[0].id.bytes, runs[0].serial_number or "", runs[0].measured, 1, 1, "NG", "a second look", "", 2)
        database.runs.end(end)
        database.commit()
        database.close()
        assert store.run(runs[0].id).outcome == "NG"
        assert making.update(store, parts), "the correction is a seal"
    same(told(itemfigures.item_rows(parts, Filter())), told(rows))
    assert main(["archive", "--results", str(tmp_path), "--before", "2026-02"]) == 0
    same(told(itemfigures.item_rows(made(tmp_path, tmp_path / "c.db"), Filter())), told(rows))
    cell = itemfigures.item_rows(whole, Filter(cell=2, since=1_767_500_000_000_000))
    with qon_results.open(tmp_path) as store:
        first = itemfigures.day_range(Filter(since=1_767_500_000_000_000))[0] * 86_400_000_000
        assert cell[0].values.n == len(store.item(cell[0].name, Filter(cell=2, since=first)).run)
    assert whole.progress() == whole.progress(ALARMS) == 1.0


def test_alarms_of_a_stream_that_was_laid_down_are_those_of_one_that_was_not() -> None:
    chance = np.random.default_rng(5)
    values = np.concatenate([chance.normal(0, 1, 700), chance.normal(1.5, 1, 300)]).round(1)
    times = np.arange(1000) * 1_000_000
    whole, parts, state = Watch(7).feed(values, times, 5000.0), [], None
    for place in range(0, 1000, 17):
        watch = Watch(7, state)
        parts += watch.feed(values[place : place + 17], times[place : place + 17], 5000.0)
        state = watch.state()
    assert sorted(parts, key=lambda each: each[2]) == sorted(whole, key=lambda each: each[2])
    first = min(whole, key=lambda each: each[2])
    assert first[3].up and 690e6 <= first[1] <= first[2] < 740e6 and first[3].after - first[3].before == pytest.approx(1.5, abs=0.5)
    assert alarms.find(np.ones(5000), 200.0) == [], "equal values never changed"


def test_alarms_after_an_alarm_keep_the_budget_and_slow_drifts_are_found() -> None:
    """Short run lengths, so that most rounds begin after a false alarm; a drift of a sigma in 6,000 values."""
    chance = np.random.default_rng(2)
    found = [len(alarms.find(chance.normal(0, 1, 6000), 300.0, seed, 500)) for seed in range(20)]
    assert sum(found) <= 20 * 6000 / 300, found
    drifting = chance.normal(0, 1, 6000) + np.linspace(0, 1, 6000)
    assert alarms.find(drifting, 1e6, 1, 500) == []
    assert any(each.up for each in alarms.DriftDetector(alarms.Detector(1, 500)).feed(drifting, 1e6))


def test_one_cell_that_is_off_makes_no_other_look_off() -> None:
    chance = np.random.default_rng(3)
    cell = np.tile(np.arange(1, 9), 2000)
    items = {"V": cells.Item(chance.normal(0, 1, cell.size) + (cell == 3), cell, None, 3.5)}
    found = cells.differences(items)
    assert [each.cell for each in found if each.differs(0.001)] == [3]
    assert all(abs(each.apart.value) < 0.1 for each in found if each.cell != 3)


@pytest.mark.parametrize("n", [3, 10, 50])
def test_degrees_of_freedom_of_moving_ranges(n: int) -> None:
    sigma = np.abs(np.diff(np.random.default_rng(n).normal(size=(40_000, n)), axis=1)).mean(axis=1)
    assert capability.moving_range_freedom(n - 1) == pytest.approx(sigma.mean() ** 2 / sigma.var() / 2, rel=0.04)


def test_a_thinned_line_covers_what_all_values_would() -> None:
    values = np.random.default_rng(1).normal(size=50_000)
    values[31_234] = 99.0
    shown = decimated(values)
    assert len(shown) <= 1200 and 31_234 in shown and values.argmin() in shown and (np.diff(shown) > 0).all()
    assert [readable(*each) for each in ((0.0031, "V"), (1234.0, "Hz"), (0.5, "dB"), (250.0, "V"))] == [
        ("3.1", "mV"), ("1.2", "kHz"), ("0.5", "dB"), ("250", "V"),
    ]  # fmt: skip


# Name, values, lower and upper limit.
ODD: list[tuple[str, list[Any], float | None, float | None]] = [
    ("ONE", [1.0], 0.0, 2.0), ("TWO", [1.0, 1.5], 0.0, 2.0), ("EQUAL", [1.0] * 9, 0.0, 2.0), ("ALL_NAN", [math.nan] * 9, 0.0, 2.0),
    ("INFINITE", [math.inf, 1.0, -math.inf], None, 2.0), ("UPPER", [1.0, 1.2, 1.1, 5.0], None, 2.0), ("FREE", [3.0, 3.1, 3.2], None, None),
    ("CROSSED", [1.0, 1.1, 1.2], 2.0, 0.0), ("TEXT", ["a", "b"], None, None), ("SWITCH", [True, False], None, None),
    ("MIXED", [1.0, "x", None, True, 1.2, 1.1], 0.0, 2.0), ("HUGE", [1e308, -1e308, 1e308], None, 1.0), ("<b>&\"'", [1, 2, 3], 0, 9),
]  # fmt: skip


def odd_store(folder: Path) -> None:
    database = Database(folder / "results.db", commit_ms=1, durable="off")
    database.open("odd")
    database.begin(durable=False)
    setup = SetupContents("host", "odd.py", None, "", None, "", None, None, {})
    for number in range(9):
        own = [(name, values[number], low, high) for name, values, low, high in ODD if number < len(values)]
        run, at = bytes([number + 1] * 16), 1_767_225_600_000_000 + number * 1_000_000
        database.runs.begin(Begin(run, 1, "S1", "S1", "P", "T", "production", "", "", 0, at, setup))
        names, values, lowers, uppers = (list(column) for column in zip(*own, strict=True))
        many = len(own)
        database.runs.rows(
            Rows(run, 0, False, names, values, lowers, uppers, ["V"] * many, [True] * many, [at / 1e6] * many, [None] * many,
                 [True] * many, {}, {}, {})
        )  # fmt: skip
        database.runs.end(End(run, "S1", many, at + 1, 1, "OK", "", "", at + 1))
    database.commit()
    database.close()


def test_odd_data_are_shown_with_a_reason(tmp_path: Path) -> None:
    odd_store(tmp_path)
    with serving(tmp_path) as port:
        for _ in range(200):
            rows = json.loads(ask(port, "/items?period=all&as=json")[2])
            if rows:
                break
            time.sleep(0.1)  # another process makes the figures; the page has no event for it
        found = {row["item"]: row for row in rows}
        assert found.keys() == {name for name, *_ in ODD}
        assert "equal" in found["EQUAL"]["remark"] and "too few" in found["TWO"]["remark"] and found["ONE"]["sigma"] is None
        assert (found["ALL_NAN"]["n"], found["SWITCH"]["remark"], found["TEXT"]["remark"]) == (0, "yes or no", "texts")
        assert found["UPPER"]["pp"] is None and found["UPPER"]["ppk"] and found["FREE"]["remark"] == "no limits"
        assert found["CROSSED"]["cp"] is None and found["MIXED"]["n"] == 3
        for name, *_ in ODD:
            for language in ("en", "zh_CN"):
                status, _, text = ask(port, f"/items/item?period=all&lang={language}&name={quote(name)}")
                assert status == 200 and "<b>&" not in text, name
        for address in ("/items", "/items?period=all&lang=zh_CN", "/items?product=%3Cb%3E", "/cells?period=all", "/alarms?show=all"):
            assert ask(port, address)[0] == 200, address
        assert ask(port, "/items/item?name=none")[0] == ask(port, "/alarms/alarm?id=7-item-1-0")[0] == 404
        assert ask(port, "/alarms/acknowledge", "POST", Origin=f"http://127.0.0.1:{port}")[0] == 400
        assert ask(port, "/alarms/acknowledge", "POST")[0] == 403
