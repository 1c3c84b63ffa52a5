"""Months moved into Parquet: the same answers as before, nothing moved that was not compared."""

from pathlib import Path
from typing import Any

import duckdb
import numpy as np
import pytest
import qon_results
from qon_results.commands import main
from qon_results.generator import Generator, Recipe
from qon_results.store.base import Filter
from qon_results.store.file import connect
from qon_results.writer.lock import Lock

RECIPE = Recipe(units=90, items=27, seconds=60_000.0, failing=0.2, aborted=0.1)  # two months


def answers(folder: Path) -> list[Any]:
    with qon_results.open(folder) as store:
        found = store.verify()
        runs = store.runs(limit=None)
        items = store.items()
        failed = store.pareto(Filter())[0].item
        columns = [store.item(each.name) for each in items]
        return [
            found, runs, items, store.items(Filter(cell=2)), store.pareto(Filter()), store.yields(Filter()),
            store.runs(Filter(failed_item=failed), None), [store.record(run.id) for run in runs[::7]],
            [(one.run.tolist(), one.kind.tolist(), one.verdict.tolist(), one.time_us.tolist(), one.unit) for one in columns],
            [np.nan_to_num(np.stack([one.value, one.lower, one.upper]), nan=-1e9).tolist() for one in columns],
        ]  # fmt: skip


def test_an_archived_month_answers_as_before(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    path = Generator(RECIPE).write(tmp_path)
    before = answers(tmp_path)
    lock = Lock(path)
    assert main(["archive", "--results", str(tmp_path), "--before", "2026-02-01"]) == 2
    assert "Close the station first" in capsys.readouterr().err
    lock.close()
    for _ in range(2):  # the second time there is nothing left to move
        assert (
            main(["archive", "--results", str(tmp_path), "--before", "2026-02", "--plant", "../Süd 1"]) == 0
        )
    [moved] = tmp_path.rglob("measurements.parquet")
    copy = moved.with_name("runs.parquet")
    assert moved.parent.relative_to(tmp_path).parts[::4] == ("archive", "month=01") and "plant=Süd_1" in str(
        moved
    )
    assert answers(tmp_path) == before
    query = "SELECT count(*), count(DISTINCT number), min(month), any_value(plant) FROM read_parquet(?)"
    count, runs, month, plant = duckdb.execute(
        query, [str(tmp_path / "archive" / "**" / "measurements.parquet")]
    ).fetchone()
    assert (
        0 < runs < 90
        and count == sum(run.measured for run in before[1][-runs:])
        and (month, plant) == ("01", "Süd_1")
    )
    copied = duckdb.execute("SELECT run, outcome FROM read_parquet(?) ORDER BY number", [str(copy)]).fetchall()
    assert copied == [(str(run.id), run.outcome) for run in reversed(before[1])][:runs]
    duckdb.execute(f"COPY (SELECT * REPLACE ('OK' AS outcome) FROM '{copy}') TO '{copy}2' (FORMAT parquet)")
    copy.with_name("runs.parquet2").replace(copy)
    with qon_results.open(tmp_path) as store:
        fault = store.verify().fault
        assert fault is not None and str(copy) in fault.text
    copy.unlink()  # made again from the station's file
    assert main(["archive", "--results", str(tmp_path), "--before", "2026-02"]) == 0 and copy.is_file()
    moved.write_bytes(moved.read_bytes()[:-100])
    with qon_results.open(tmp_path) as store:
        assert store.verify().fault is not None
    moved.unlink()
    with qon_results.open(tmp_path) as store:
        fault = store.verify().fault
        assert fault is not None and "is not there" in fault.text
        assert len(store.runs(limit=None)) == 90


def test_a_wrong_record_is_not_archived(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    path = Generator(RECIPE).write(tmp_path)
    connection = connect(path, write=True)
    connection.execute("UPDATE measurement SET number = number + 1e-9 WHERE run = 3 AND number IS NOT NULL")
    connection.close()
    assert main(["archive", "--results", str(tmp_path), "--before", "2026-02-01"]) == 2
    assert "run 3" in capsys.readouterr().err and not list(tmp_path.rglob("*.parquet"))
