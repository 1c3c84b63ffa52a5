"""The page without a browser: a real server on the loopback interface, asked over HTTP."""

import contextlib
import csv
import http.client
import io
import json
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from random import Random
from typing import Any
from urllib.parse import quote, urlencode

import pytest
import qon_results
from babel.messages.extract import extract_from_dir
from babel.messages.pofile import read_po
from qon_results.commands import main
from qon_results.generator import Generator, Recipe
from qon_results.page import texts
from qon_results.page.history import JUDGED, History
from qon_results.page.server import bound, server
from qon_results.page.settings import Settings
from qon_results.store.base import Filter
from qon_results.writer.database import Database
from qon_results.writer.messages import CellState

HOSTILE = [
    "<script>alert(1)</script>", "\"><img src=x onerror=alert(1)>", "a\u202egnp.exe", "../../etc/passwd", "=1+1",
    "' OR 1=1 --", "{{ 7*7 }}", "</script><b>", "%00%0d%0aSet-Cookie: a=b", "产品-7", "x" * 300,
]  # fmt: skip


class HostileGenerator(Generator):
    def _new_serial(self) -> str:
        self._made += 1
        return f"{HOSTILE[self._made % len(HOSTILE)]}{self._made // len(HOSTILE) or ''}"


@contextlib.contextmanager
def serving(where: Path | str, **settings: Any) -> Iterator[int]:
    """The port."""
    chosen = Settings(str(where), port=0, **settings)
    listening = bound(chosen)
    running = server(chosen)
    running.install_signal_handlers = lambda: None  # type: ignore[attr-defined]
    thread = threading.Thread(target=running.run, args=([listening],), name="page")
    thread.start()
    try:
        yield listening.getsockname()[1]
    finally:
        running.should_exit = True
        thread.join(20)
        assert not thread.is_alive()


def ask(
    port: int, address: str, method: str = "GET", **headers: str
) -> tuple[int, http.client.HTTPMessage, str]:
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
    try:
        connection.request(
            method, address, headers={name.replace("_", "-"): text for name, text in headers.items()}
        )
        answer = connection.getresponse()
        return answer.status, answer.headers, answer.read().decode("utf-8-sig")
    finally:
        connection.close()


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("page")
    HostileGenerator(Recipe(units=400, items=8, failing=0.1, aborted=0.03)).write(folder)
    return folder


@pytest.fixture(scope="module")
def port(folder: Path) -> Iterator[int]:
    with serving(folder) as port:
        yield port


def test_whatever_is_asked_the_answer_is_a_page(port: int, folder: Path) -> None:
    """Also for texts that are markup, paths, formulas or nonsense; none of them reaches the browser as more than text."""
    chance = Random(3)
    with qon_results.open(folder) as store:
        runs = [str(run.id) for run in store.runs(limit=20)]
    fields = [
        "serial", "period", "since", "until", "cell", "outcome", "station", "item", "by", "sort", "as", "table", "before",
        "purpose", "lang", "operator",
    ]  # fmt: skip
    values = [
        *HOSTILE,
        "all",
        "*",
        "1",
        "-1",
        "9" * 30,
        "٣",
        "NG",
        "7d",
        "9" * 20 + "d",
        "2026-02-30",
        "groups.-units",
        "csv",
    ]
    seen = set()
    for number in range(150):
        path = chance.choice(
            [
                "/",
                "/units",
                "/yield",
                "/limits",
                "/gauge",
                f"/unit/{chance.choice([*runs, quote(chance.choice(HOSTILE), safe='')])}",
            ]
        )
        asked = {chance.choice(fields): chance.choice(values) for _ in range(number % 4)}
        status, headers, body = ask(port, f"{path}?{urlencode(asked)}")
        seen.add(status)
        assert status in (200, 400, 404) and "Traceback" not in body, (path, asked, body[:500])
        assert (
            "script-src 'self';" in headers["Content-Security-Policy"]
            and not headers["Set-Cookie"]
            or "lang" in asked
        )
        if headers["Content-Type"].startswith("text/html"):
            assert "<script>" not in body and "onerror=alert(1)>" not in body and "\u202e" not in body
    assert seen == {200, 400, 404}


def test_downloads_hold_what_the_page_shows(port: int, folder: Path) -> None:
    _status, headers, text = ask(port, "/yield?period=all&by=cell&as=csv&table=groups")
    assert "attachment" in headers["Content-Disposition"]
    rows = list(csv.DictReader(io.StringIO(text)))
    with qon_results.open(folder) as store:
        [counted] = store.yields(Filter(purpose="production"))
        bars = store.pareto(Filter(purpose="production"))
        run = store.runs(Filter(serial_number=HOSTILE[4] + "*"))[0]
        assert sum(int(row["first_passed"]) for row in rows) == counted.first_passed
        assert sum(int(row["aborted"]) for row in rows) == counted.aborted
        found = json.loads(ask(port, "/yield?period=all&as=json&table=all_failing")[2])
        assert {row["item"]: row["runs"] for row in found} == {bar.item: bar.all for bar in bars}
        assert (
            f"'{HOSTILE[4]}" in ask(port, "/units?period=all&serial=%3D*&as=csv")[2]
        )  # no formula in a spreadsheet
        record = store.record(run.id)
        assert len(json.loads(ask(port, f"/unit/{run.id}/record.json")[2])["measurements"]) == len(
            record.measurements
        )
        status, headers, page = ask(port, f"/unit/{run.id}/capsule")
        assert status == 200 and "attachment" in headers["Content-Disposition"] and str(run.id) in page
        assert ask(port, f"/unit/{run.id}/file/{'0' * 64}")[0] == 404


def test_who_may_ask(folder: Path, port: int, capsys: pytest.CaptureFixture[str]) -> None:
    assert main(["page", "--address", "0.0.0.0", "--results", str(folder)]) == 2
    assert "--token" in capsys.readouterr().err
    assert ask(port, "/", Host="evil.example")[0] == 400  # a foreign name that points here
    assert ask(port, "/units", "POST", Origin="http://evil.example", Content_Length="0")[0] == 403
    assert ask(port, "/" + "a" * 5000)[0] == 414
    with serving(folder, token="long enough") as guarded:
        assert ask(guarded, "/")[0] == ask(guarded, "/static/style.css")[0] == 401
        assert ask(guarded, "/?token=wrong")[0] == ask(guarded, "/", Cookie="qon_page=long enough")[0] == 401
        status, headers, _text = ask(guarded, "/yield?period=all&token=long%20enough")
        assert status == 303 and headers["Location"] == "/yield?period=all"
        assert "HttpOnly" in headers["Set-Cookie"] and "long" not in headers["Set-Cookie"]
        assert ask(guarded, "/yield", Cookie=headers["Set-Cookie"].partition(";")[0])[0] == 200
        assert ask(guarded, "/yield", Authorization="Bearer long enough")[0] == 200


def test_results_that_go_away_and_questions_that_take_long(tmp_path: Path) -> None:
    with serving(tmp_path / "line") as port:
        assert ask(port, "/")[0] == ask(port, "/yield")[0] == 503
        Generator(Recipe(units=50, items=4)).write(tmp_path / "line")
        assert ask(port, "/yield?period=all")[0] == 200
        (tmp_path / "line" / "results.db").rename(tmp_path / "away")
        status, _headers, text = ask(port, "/units", Accept_Language="zh-CN,zh;q=0.9,en;q=0.8")
        assert status == 503 and "现在无法读取测试结果" in text
        (tmp_path / "away").rename(tmp_path / "line" / "results.db")
        assert ask(port, "/units")[0] == 200
    Generator(Recipe(units=3000, items=40)).write(tmp_path / "large")
    with serving(tmp_path / "large", seconds=1e-9) as port:
        status, _headers, text = ask(port, "/yield?period=all")
        assert status == 504 and "stopped after" in text


def test_the_line_is_live(tmp_path: Path) -> None:
    """A new state is told to who watches, and a station that says nothing is shown as such."""
    path = Generator(Recipe(units=20, items=4)).write(tmp_path)
    database = Database(path, commit_ms=1000, durable="off")
    database.open("generated")

    def write(cell: int, state: str, age: float) -> None:
        now = time.time_ns() // 1000
        database.begin(durable=True)
        database.cells([CellState(cell, state, None, HOSTILE[0], now, 0, None, now - int(age * 1e6))])
        database.commit()

    try:
        write(1, "TESTING", 0)
        write(2, "TESTING", 3600)
        with serving(tmp_path) as port:
            words = json.loads(ask(port, "/?as=json&table=cells")[2])
            assert [row["state"] for row in words] == ["TESTING", "SILENT"]
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=5)
            connection.request("GET", "/events")
            answer = connection.getresponse()
            assert "TESTING" in _event(answer) and write(1, "PAUSED", 0) is None
            changed = _event(answer)
            assert "PAUSED" in changed and "&lt;script&gt;" in changed and "SILENT" not in changed
            connection.close()
    finally:
        database.close()


def _event(answer: http.client.HTTPResponse) -> str:
    lines = iter(answer.readline, b"")
    return next(line.decode() for line in lines if line.startswith(b"data:"))


def test_history_follows_corrections_and_late_runs(tmp_path: Path) -> None:
    path = Generator(Recipe(units=300, items=4, failing=0.3, repeated=1.0)).write(tmp_path)
    history = History()

    def first_pass() -> tuple[int, int]:
        history._looked = 0.0
        with qon_results.open(path) as store:
            history.refresh(store)
            [counted] = store.yields(Filter(purpose="production"))
        rows = history.select(Filter(purpose="production"))
        first = rows["first"] & [outcome in JUDGED for outcome in rows["outcome"]]
        assert int(first.sum()) == counted.first_attempts
        return counted.first_attempts, len(rows)

    before = first_pass()
    database = Database(path, commit_ms=1000, durable="off")
    database.open("generated")
    try:
        generator = Generator(Recipe(units=40, items=4, failing=0.5, repeated=1.0, seed=9))
        database.begin(durable=True)
        waiting = []
        for begin, rows, end in generator.runs():  # the same units again, ended in another order than begun
            database.runs.begin(begin)
            waiting.append((rows, end))
        for rows, end in reversed(waiting):
            database.runs.rows(rows)
            database.runs.end(end)
        database.commit()
    finally:
        database.close()
    assert first_pass()[1] == before[1] + 40


def test_every_text_is_translated() -> None:
    found = extract_from_dir(
        Path(texts.__file__).parent,
        [("**.py", "python"), ("templates/**.html", "jinja2")],
        keywords={"_": None, "gettext": None, "later": None},
    )
    wanted = {message for _file, _line, message, *_rest in found if isinstance(message, str)}
    with (texts.LOCALE / "zh_CN" / "LC_MESSAGES" / "qon_results.po").open("rb") as catalogue:
        known = {message.id for message in read_po(catalogue) if message.string}
    assert len(wanted) > 100 and wanted - known == set()
    assert known - wanted == {""} or known - wanted == set()
