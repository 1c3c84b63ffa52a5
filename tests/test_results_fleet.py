"""Figures over three stations and two months: those of one machine, however the work is parted and wherever it is done."""

import contextlib
import io
import json
import math
from collections import Counter
from dataclasses import asdict, replace
from pathlib import Path
from typing import Any

import duckdb
import msgspec
import numpy as np
import pytest
from qon_results.analysis.distribution import histogram
from qon_results.analysis.moments import Summary
from qon_results.analysis.yields import count
from qon_results.commands import main
from qon_results.generator import Generator, Recipe

dask = pytest.importorskip("dask", reason="dask is not installed: pip install qon-results[fleet]")
distributed = pytest.importorskip("distributed", reason="distributed is not installed")

from qon_results.fleet.figures import figures
from qon_results.fleet.files import Asked, FleetError

RECIPE = Recipe(units=60, items=26, seconds=80_000.0, failing=0.25, aborted=0.1)


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    home = tmp_path_factory.mktemp("fleet")
    for seed in (1, 2, 3):  # the same serial numbers: units go from station to station
        Generator(replace(RECIPE, seed=seed)).write(home / f"s{seed}")
        where = ["--results", str(home / f"s{seed}"), "--plant", "A" if seed < 3 else "B"]
        with contextlib.redirect_stdout(io.StringIO()):
            assert main(["archive", *where, "--before", "2026-03"]) == 0
    return home


def test_equal_to_one_machine_whatever_the_partitioning(folder: Path) -> None:
    with dask.config.set(scheduler="sync"):
        one = figures([str(folder)], Asked(), files_each=6, shares=1)
        parted = [figures([str(folder)], Asked(), each, shares) for each, shares in ((1, 7), (4, 3))]
        by = figures([str(folder)], Asked(by=("plant", "station")))
    for other in parted:
        assert [replace(item, mean=None, sigma=None, cpk=None) for item in other.items] == [
            replace(item, mean=None, sigma=None, cpk=None) for item in one.items
        ]
        assert other.yields == one.yields and other.pareto == one.pareto
    files = f"read_parquet('{folder}/**/measurements.parquet')"
    rows = duckdb.execute(f"SELECT item, value FROM {files} WHERE value IS NOT NULL").fetchall()
    for item in one.items:
        values = np.array([value for name, value in rows if name == item.item])
        whole = Summary.of(values)
        assert item.n == whole.n
        if whole.n:
            assert (item.low, item.high) == (whole.low, whole.high)
            for each in (
                item,
                *(found for other in parted for found in other.items if found.item == item.item),
            ):
                assert math.isclose(each.mean or 0, whole.mean, rel_tol=1e-14)
                assert math.isclose(each.sigma or 0, whole.sigma, rel_tol=1e-12)
            assert item.counts == histogram(values, np.array(item.edges)).counts.tolist()
            assert sum(item.counts) == whole.n and (item.cpk.value is None) == (item.lower is None)
    runs = duckdb.execute(
        f"SELECT serial_number, outcome, first_ng FROM '{folder}/**/runs.parquet' ORDER BY begin_us, run"
    ).fetchall()
    assert one.yields[0].counts == count([row[0] for row in runs], [row[1] for row in runs])
    firsts = Counter(row[2] for row in runs if row[1] == "NG")
    assert {bar.item: bar.first for bar in one.pareto} == firsts and one.runs == len(runs) == 180
    assert len(by.yields) == 3
    for name, total in asdict(one.yields[0].counts).items():
        assert sum(asdict(each.counts)[name] for each in by.yields) == total


def test_a_scheduler_given_by_address(
    folder: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    output = tmp_path / "fleet.json"
    with distributed.LocalCluster(
        n_workers=1,
        threads_per_worker=2,
        processes=False,
        protocol="tcp",
        host="127.0.0.1",
        dashboard_address=None,
    ) as cluster:
        ask = ["fleet", str(folder), "--scheduler", cluster.scheduler_address, "--item", "ITEM_003"]
        assert main([*ask, "--by", "plant", "--output", str(output)]) == 0
        found = json.loads(output.read_text())
        assert [(each["group"], each["item"]) for each in found["items"]] == [
            (["A"], "ITEM_003"),
            (["B"], "ITEM_003"),
        ]
        assert main([*ask, "--by", "shift"]) == 2 and "'shift'" in capsys.readouterr().err
        assert main(ask) == 0 and "first judged attempt" in capsys.readouterr().out


def test_a_damaged_or_missing_file_is_named(folder: Path, tmp_path: Path) -> None:
    with pytest.raises(FleetError, match="no measurements.parquet under"):
        figures([str(tmp_path)], Asked())
    for name in ("measurements.parquet", "runs.parquet"):
        path = next(folder.rglob(name))
        whole = path.read_bytes()
        path.write_bytes(whole[: len(whole) // 2])
        with dask.config.set(scheduler="sync"), pytest.raises(FleetError, match=str(path)):
            figures([str(folder)], Asked())
        path.unlink()
        with pytest.raises(FleetError, match=str(path.parent)):
            figures([str(folder)], Asked())
        path.write_bytes(whole)


def test_the_page_shows_the_computed_file(folder: Path, tmp_path: Path) -> None:
    pytest.importorskip("starlette", reason="the page's packages are not installed")
    import anyio
    from qon_results.page.app import application
    from qon_results.page.settings import Settings

    path = tmp_path / "fleet.json"
    with dask.config.set(scheduler="sync"):
        found = figures([str(folder)], Asked(by=("plant",)))
    app = application(Settings(str(folder / "s1"), fleet=str(path)))

    def get(query: str) -> tuple[int, str]:
        sent: list[Any] = []

        async def ask() -> None:
            async def receive() -> Any:
                return {"type": "http.request"}

            async def send(message: Any) -> None:
                sent.append(message)

            scope = {
                "type": "http",
                "method": "GET",
                "path": "/fleet",
                "raw_path": b"/fleet",
                "query_string": query.encode(),
                "scheme": "http",
            }
            await app(
                {**scope, "headers": [(b"host", b"127.0.0.1:8480")], "server": ("127.0.0.1", 8480)},
                receive,
                send,
            )

        anyio.run(ask)
        return sent[0]["status"], b"".join(each.get("body", b"") for each in sent[1:]).decode()

    assert get("")[0] == 404
    path.write_text("[]")
    assert get("")[0] == 503
    path.write_bytes(msgspec.json.encode(found))
    for language, word in (("en", "first judged attempt"), ("zh_CN", "首次判定")):
        status, page = get(f"item=ITEM_003&lang={language}")
        assert status == 200 and word in page and "chart-histogram" in page
    rows = json.loads(get("as=json&table=items")[1])
    assert [row["n"] for row in rows if row["plant"] == "B"] == [
        one.n for one in found.items if one.group == ("B",)
    ]
