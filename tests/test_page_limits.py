"""Pages of limits and of the gauge, asked without a server: the published study through a store, trials recounted."""

import asyncio
import csv
import json
from collections.abc import Iterator
from pathlib import Path
from typing import Any
from urllib.parse import urlencode

import msgspec
import pytest
import qon_results
from qon_results.generator import Generator, Recipe
from qon_results.page.app import application
from qon_results.page.settings import Settings
from qon_results.store.base import Filter
from qon_results.writer.messages import Begin, End, Rows
from starlette.applications import Starlette

REFERENCE = Path(__file__).parent / "reference"


class WithStudy(Generator):
    """Production, then the readings of a published study as those of one item."""

    def runs(self) -> Iterator[tuple[Begin, Rows, End]]:
        yield from super().runs()
        with (REFERENCE / "grr_spcexcel_5x3x3.csv").open() as file:
            for number, row in enumerate(csv.DictReader(file), self.recipe.units):
                begin, rows, end = self._run(number)
                part, cell = f"<b>{row['part']}", "ABC".index(row["operator"]) + 1
                one = Rows(
                    rows.run, 0, False, ["ITEM_000"], [1 + 0.001 * float(row["y"])], [0.98], [1.02], ["V"], [True],
                    rows.times[:1], [None], [True], {}, {}, {},
                )  # fmt: skip
                replace = msgspec.structs.replace
                yield (
                    replace(begin, purpose="gauge study", serial_number=part, cell=cell),
                    one,
                    replace(end, serial_number=part, measured=1, outcome="OK", reason=""),
                )


@pytest.fixture(scope="module")
def results(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return WithStudy(Recipe(units=600, items=30, failing=0.1)).write(tmp_path_factory.mktemp("results"))


@pytest.fixture(scope="module")
def page(results: Path) -> Iterator[Starlette]:
    app = application(Settings(str(results)))
    yield app
    app.state.pool.close()


async def _asked(app: Starlette, address: str, fields: dict[str, str]) -> tuple[int, bytes]:
    status, body = 0, b""

    async def receive() -> dict[str, Any]:
        return {"type": "http.request"}

    async def send(message: Any) -> None:
        nonlocal status, body
        status, body = message.get("status", status), body + message.get("body", b"")

    query = urlencode({"period": "all", **fields}).encode()
    scope = {
        "type": "http", "http_version": "1.1", "method": "GET", "scheme": "http", "path": address, "raw_path": address.encode(),
        "query_string": query, "root_path": "", "headers": [(b"host", b"localhost")], "server": ("localhost", 80),
    }  # fmt: skip
    await app(scope, receive, send)
    return status, body


def ask(app: Starlette, address: str, **fields: str) -> tuple[int, str]:
    status, body = asyncio.run(_asked(app, address, fields))
    return status, body.decode("utf-8-sig")


def table(app: Starlette, address: str, name: str, **fields: str) -> list[dict[str, Any]]:
    status, text = ask(app, address, **{"as": "json", "table": name}, **fields)
    assert status == 200, text
    return json.loads(text)  # type: ignore[no-any-return]


def test_published_study_comes_out_of_the_store_with_its_figures(page: Starlette) -> None:
    wanted = json.loads((REFERENCE / "grr_spcexcel_5x3x3.json").read_text())["figures"]
    (item,) = table(page, "/gauge", "study")
    assert (item["parts"], item["readings"], item["categories"]) == (5, 45, wanted["ndc"])
    assert 100 * item["study"] == pytest.approx(wanted["pct_study_var_grr"], abs=0.02)
    sources = {row["source"]: row for row in table(page, "/gauge", "components", item="ITEM_000")}
    assert 1e6 * sources["Repeatability"]["variance"] == pytest.approx(wanted["var_repeatability"], abs=1e-4)
    assert 100 * sources["Parts"]["contribution"] == pytest.approx(wanted["pct_contribution_part"], abs=0.02)
    status, text = ask(page, "/gauge", item="ITEM_000")
    assert status == 200 and "<b>1" not in text and "(an estimate)" in text


def test_tried_limits_change_the_verdicts_that_a_recount_changes(page: Starlette, results: Path) -> None:
    with qon_results.open(str(results)) as store:
        failing = store.pareto(Filter(purpose="production"))[0].item
        runs = {run.number: run for run in store.runs(Filter(purpose="production"), None)}
        columns = store.item(failing, Filter(purpose="production"))
    lower, upper = float(columns.lower[-1]), float(columns.upper[-1])
    middle, half = (lower + upper) / 2, (upper - lower) / 2
    tight = [middle - half / 3, middle + half / 3]
    wide = [middle - 3 * half, middle + 3 * half]
    for low, high in (tight, wide):
        expected = {
            (runs[number].serial_number, "OK" if low <= value <= high else "NG")
            for number, value in zip(columns.run.tolist(), columns.value.tolist(), strict=True)
            if (runs[number].outcome == "OK" and not low <= value <= high)
            or (runs[number].outcome == "NG" and runs[number].first_ng == failing and low <= value <= high)
        }
        fields = {"item": failing, "lower": repr(low), "upper": repr(high)}
        changed = table(page, "/limits", "changed", **fields)
        assert {(row["serial_number"], row["after"]) for row in changed} == expected and expected
        first = table(page, "/limits", "compared", **fields)[0]
        assert (first["after"] > first["before"]) == (high - low > upper - lower)
    assert table(page, "/limits", "changed", item=failing) == []


def test_gauge_known_from_the_study_gives_risks_and_a_guard_band(page: Starlette) -> None:
    status, text = ask(page, "/limits", item="ITEM_000")
    assert status == 200 and "from the gauge study" in text
    guard = table(page, "/limits", "proposals", item="ITEM_000")[-1]
    assert guard["lower"] == pytest.approx(0.98 + 2 * 0.001 * 0.0468**0.5, rel=1e-5)
    assert 0 <= guard["false_accept"] < 1e-4
    assert "estimated from retests" in ask(page, "/limits", item="ITEM_001")[1]


@pytest.mark.parametrize("address", ["/limits", "/gauge"])
def test_degenerate_questions_get_a_reason(page: Starlette, address: str) -> None:
    for fields in ({}, {"item": "ITEM_009"}, {"item": "ITEM_024"}, {"item": "<i>none"}, {"batch": "none"}):
        for lang in ("en", "zh_CN"):
            status, text = ask(page, address, **fields, lang=lang)
            assert status == 200 and "<i>none" not in text and ">nan" not in text, fields
    for fields in ({"lower": "2", "upper": "1"}, {"lower": "nan"}, {"sigma": "0"}):
        assert ask(page, "/limits", **fields)[0] == 400
