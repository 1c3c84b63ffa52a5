"""The command line: what it prints, writes and refuses; hostile texts stay texts."""

import csv
import json
import re
from collections.abc import Iterator
from datetime import datetime
from html.parser import HTMLParser
from pathlib import Path

import duckdb
import pytest
import qon_results
from qon_results.capsule import capsule_of
from qon_results.commands import main
from qon_results.commands.common import parsed_time, printable
from qon_results.export import rows_of
from qon_results.generator import Generator, Recipe
from qon_results.records import Kind, Measurement

HOSTILE = '=cmd|"x"!A1</script><script>alert(1)</script>\u202e\x1b[2J[red]'


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    made = tmp_path_factory.mktemp("results")
    Generator(Recipe(units=40, items=12, failing=0.2, aborted=0.1)).write(made)
    return made


Printed = pytest.CaptureFixture[str]


def said(capsys: Printed, *arguments: str) -> str:
    assert main(arguments) == 0, capsys.readouterr().err
    return capsys.readouterr().out


def test_every_table_has_its_json(folder: Path, capsys: Printed) -> None:
    where = ["--results", str(folder)]
    runs = json.loads(said(capsys, "units", "--limit", "0", "--json", *where))
    assert len(runs) == 40 and "40 runs" in said(capsys, "units", *where)
    ng = json.loads(said(capsys, "units", "--outcome", "ng", "--json", *where))
    assert ng and {run["outcome"] for run in ng} == {"NG"}
    one = json.loads(said(capsys, "unit", ng[0]["id"][:20], "--json", *where))
    assert one["run"] == ng[0] and len(one["measurements"]) == ng[0]["measured"]
    assert ng[0]["first_ng"] in said(capsys, "unit", ng[0]["id"], *where)
    figures = json.loads(said(capsys, "yield", "--json", *where))
    assert "first attempt ever" in figures["definition"] and figures["yields"][0]["runs"] == 40
    assert "first attempt ever" in said(capsys, "yield", *where)
    assert sum(row["first"] for row in json.loads(said(capsys, "pareto", "--json", *where))) == len(ng)
    assert len(json.loads(said(capsys, "items", "--json", *where))) == 12
    chain = json.loads(said(capsys, "verify", "--json", *where))["chain"]
    assert chain in said(capsys, "verify", "--chain", chain[:16], *where)
    assert main(["verify", "--chain", "00ff", *where]) == 1, "somebody else holds another chain"
    copy = folder / "copy.db"
    said(capsys, "backup", str(copy), *where)
    assert chain in said(capsys, "verify", "--results", str(copy))


def test_exports_agree(folder: Path, capsys: Printed) -> None:
    for name in ("rows.csv", "rows.jsonl", "rows.parquet"):
        said(capsys, "export", str(folder / name), "--results", str(folder), "--cell", "2")
        assert main(["export", str(folder / name), "--results", str(folder)]) == 2, "it is there already"
    lines = [json.loads(line) for line in (folder / "rows.jsonl").read_text().splitlines()]
    with (folder / "rows.csv").open(encoding="utf-8-sig") as file:
        rows = list(csv.DictReader(file))
    table = duckdb.execute(
        "SELECT item, value, serial_number FROM read_parquet(?)", [str(folder / "rows.parquet")]
    )
    found = table.fetchall()
    assert [(row["item"], row["value"], row["serial_number"]) for row in lines] == found and lines
    assert [row["value"] for row in rows] == [
        "" if row["value"] is None else str(row["value"]) for row in lines
    ]
    assert not [path for path in folder.iterdir() if "part" in path.name]


class Tags(HTMLParser):
    def __init__(self) -> None:
        super().__init__()
        self.scripts: list[dict[str, str | None]] = []
        self.data = ""

    def handle_starttag(self, tag: str, attrs: list[tuple[str, str | None]]) -> None:
        if tag == "script":
            self.scripts.append(dict(attrs))

    def handle_data(self, data: str) -> None:
        if '"own"' in data:
            self.data = data


@pytest.fixture
def hostile(folder: Path) -> Iterator[tuple[qon_results.Store, qon_results.Record]]:
    """A record whose texts want to be something else."""
    with qon_results.open(folder) as store:
        record = store.record(store.runs(limit=1)[0].id)
        run = qon_results.Run(**{name: getattr(record.run, name) for name in record.run.__struct_fields__} | {
            "serial_number": HOSTILE, "operator": HOSTILE, "details": HOSTILE, "reason": HOSTILE,
        })  # fmt: skip
        first = record.measurements[0]
        fields = {name: getattr(first, name) for name in first.__struct_fields__}
        odd = Measurement(
            **fields | {"item": HOSTILE, "kind": Kind.INTEGER, "number": None, "text": str(2**70 + 1)}
        )
        nan = Measurement(**fields | {"kind": Kind.NAN, "number": None})
        parts = {name: getattr(record, name) for name in record.__struct_fields__}
        yield store, qon_results.Record(**parts | {"run": run, "measurements": [odd, nan]})


def test_texts_are_data(hostile: tuple[qon_results.Store, qon_results.Record]) -> None:
    store, record = hostile
    page = capsule_of(store, record)
    tags = Tags()
    tags.feed(page)
    assert (
        tags.scripts == [{"type": "application/json", "id": "record"}]
        and "\u202e" not in page.split("<script")[0]
    )
    inside = json.loads(tags.data)
    assert inside["run"]["serial_number"] == HOSTILE and not re.search(r"(src|href)=[\"']?https?:", page)
    big, nan = rows_of(record)
    assert (big["value"], big["text"], nan["value"], nan["text"]) == (None, str(2**70 + 1), None, "nan")
    assert "\x1b" not in printable(HOSTILE) and "\u202e" not in printable(HOSTILE)


def test_what_is_wrong_with_a_command_is_said(folder: Path, tmp_path: Path, capsys: Printed) -> None:
    (tmp_path / "other.db").write_bytes(b"no database at all" * 100)
    for arguments, words in (
        (["units", "--results", str(tmp_path / "absent")], "no results"),
        (["units", "--results", str(tmp_path / "other.db")], "no file of results"),
        (["unit", "zz", "--results", str(folder)], "hexadecimal"),
        (["export", "x.txt", "--results", str(folder)], ".parquet"),
        (["send", "--results", str(folder)], "--line"),
    ):
        assert main(arguments) == 2 and words in capsys.readouterr().err, arguments
    now = datetime(2026, 11, 21, 15, 30).astimezone()
    assert parsed_time("today", now).hour == 0 and parsed_time("90m", now).hour == 14
    assert parsed_time("2026-11-20", now).day == 20
