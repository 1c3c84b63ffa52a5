"""What lies in a station's file: whole after every power cut, exact for every value, proof against change."""

import datetime
import enum
import os
import random
import shutil
from decimal import Decimal
from pathlib import Path

import apsw
import numpy as np
import pytest
import qon_ats
import qon_results
from power_cut import NAME, Disk
from qon_results import Filter, Kind, Outcome
from qon_results.generator import Generator, Recipe
from qon_results.recorder import encoding
from qon_results.store import file
from qon_results.store.sqlite import SqliteStore
from qon_results.writer import database as writing
from qon_results.writer import messages
from qon_results.writer.database import Database

CUTS = int(os.environ.get("QON_POWER_CUTS", "300"))


@pytest.fixture(scope="module")
def small(tmp_path_factory) -> Path:
    """A store of 60 runs, to be copied."""
    return Generator(Recipe(units=60, items=12, failing=0.3)).write(tmp_path_factory.mktemp("small"))


def record(folder: Path, assertions: list, **ended: object) -> qon_results.Record:
    """One run of these assertions through the encoder and the writer's own code, read back."""
    database = Database(folder / file.FILE_NAME, 1000)
    database.open("test")
    (begin, _, end), run = next(Generator(Recipe(units=1)).runs()), database.runs
    database.begin(durable=True)
    run.begin(begin)
    data = encoding.encoded(begin.run, 0, assertions, {}, 1 << 20)
    run.rows(encoding._decoder.decode(data))
    end.measured, end.outcome = len(assertions), "OK"
    for name, value in ended.items():
        setattr(end, name, value)
    run.end(end)
    database.close()
    with qon_results.open(folder) as store:
        assert store.verify().fault is None
        return store.record(store.runs()[0].id)


def kept_in(folder: Path) -> set[bytes]:
    """The runs that have ended, in a file that verifies; none where not even the tables came onto the disk."""
    try:
        with qon_results.open(folder) as store:
            assert store.verify().fault is None
            return {run.id.bytes for run in store.runs(limit=None) if run.outcome is not Outcome.RUNNING}
    except ValueError:
        return set()


def lose_power(folder: Path, level: str, monkeypatch) -> tuple[int, int]:
    """Cut at many moments of writing 40 runs: (moments, those at which an acknowledged run was lost)."""
    monkeypatch.setattr(writing, "CHECKPOINT_FRAMES", 40)
    disk, acknowledged = Disk(), []
    place = folder / "station"
    place.mkdir()
    database = Database(place / file.FILE_NAME, 100, vfs=NAME, durable=level)
    database.open("test")
    for begin, rows, end in Generator(Recipe(units=40, items=12)).runs():
        for step, message in (
            (database.runs.begin, begin),
            (database.runs.rows, rows),
            (database.runs.end, end),
        ):
            database.begin(durable=message is not rows)
            step(message)
            database.commit()
        acknowledged.append((len(disk.log), begin.run))
        database.rest()
    database.close()
    chance, lost = random.Random(1), 0
    for number in range(CUTS):
        moment, after = chance.randrange(acknowledged[0][0], len(disk.log)), folder / str(number)
        after.mkdir()
        disk.cut(moment, after, chance)
        lost += not {run for when, run in acknowledged if when <= moment} <= kept_in(after)
        shutil.rmtree(after)
    return CUTS, lost


def test_a_power_cut_takes_no_acknowledged_run(tmp_path, monkeypatch):
    assert lose_power(tmp_path, "full", monkeypatch) == (CUTS, 0)


def test_the_power_cut_test_finds_what_is_not_synced(tmp_path, monkeypatch):
    moments, lost = lose_power(tmp_path, "normal", monkeypatch)
    assert lost > moments // 10


def test_every_value_is_kept_as_what_it_is(tmp_path):
    class Level(enum.IntEnum):
        HIGH = 3

    class Text(str):
        def __repr__(self) -> str:
            raise RuntimeError

    exact = [1.5, -0.0, 7, 2**53 + 1, -(2**63), 2**70, "4711", "", True, False, float("inf"), float("-inf"),
             np.float32(0.5), np.int64(-7), np.bool_(True), Level.HIGH, Text("plain"), "中文", Decimal("0.5")]  # fmt: skip
    odd = [
        float("nan"),
        "a\0b\ud800",
        [1, 2],
        object(),
        b"\xff",
        np.arange(40),
        [0.5] * 40,
        "long " * 10_000,
        10**5000,
    ]
    kept = record(
        tmp_path, [qon_ats.Assertion(f"v{n}", value, result=True) for n, value in enumerate(exact + odd)]
    )
    for given, found in zip(exact, kept.measurements, strict=False):
        assert found.value == given, found
        if isinstance(given, (bool, int, str)) and type(given) in (bool, int, str):
            assert type(found.value) is type(given), found
    kinds = [found.kind for found in kept.measurements[len(exact) :]]
    assert kinds == [
        Kind.NAN,
        Kind.TEXT,
        Kind.OTHER,
        Kind.OTHER,
        Kind.OTHER,
        Kind.ARRAY,
        Kind.ARRAY,
        Kind.TEXT,
        Kind.OTHER,
    ]
    assert kept.measurements[len(exact) + 1].value == "a\\x00b\\ud800"
    with qon_results.open(tmp_path) as store:
        array, other, text = (store.content(each.sha256) for each in kept.attachments)
    assert b"NUMPY" in array and b"NUMPY" in other and text.decode() == "long " * 10_000


def test_whatever_has_the_methods_is_recorded(tmp_path):
    class Own:
        name, lower, upper, assert_time, report_needed = "own", None, 2**80, "noon", False

        def get_value(self) -> float:
            return 1.0

        def is_ng(self) -> bool:
            return True

    class Broken:
        def __getattr__(self, name: str) -> object:
            raise RuntimeError(name)

    retried = qon_ats.Assertion("retried", 1.0, 0, 2.5, "V")
    retried.attempt, retried.earlier_values = 3, [9.0, 8.0]
    nothing = qon_ats.Assertion("nothing")
    own, broken, last, none = record(tmp_path, [Own(), Broken(), retried, nothing], outcome="NG").measurements
    assert (none.kind, none.verdict, none.value) == (Kind.NOTHING, 2, None)
    assert (own.value, own.upper, own.verdict, own.report, own.time_us) == (1.0, 2**80, 0, False, None)
    assert (broken.item, broken.value, broken.verdict) == ("", None, 2)
    assert (last.attempt, last.note, last.lower, last.upper) == (3, "earlier values: [9.0, 8.0]", 0, 2.5)


def test_texts_are_data(tmp_path):
    """Serial numbers, item names and reasons reach neither SQL nor a pattern."""
    nasty = "'; DROP TABLE run; --[a]?%_"
    kept = record(
        tmp_path, [qon_ats.Assertion(nasty, nasty, result=False)], serial_number=nasty, reason=nasty
    )
    assert (kept.run.serial_number, kept.run.first_ng, kept.measurements[0].value) == (nasty,) * 3
    with qon_results.open(tmp_path) as store:
        found = {
            wanted: len(store.runs(Filter(serial_number=wanted)))
            for wanted in (nasty, "';*", "'? DROP*", "*")
        }
        assert list(found.values()) == [1, 1, 0, 1]
        assert len(store.runs(Filter(failed_item=nasty))) == 1 and len(store.item(nasty).value) == 1


def test_what_is_sent_again_is_kept_once_and_what_changed_wins(tmp_path):
    database = Database(tmp_path / file.FILE_NAME, 1000)
    database.open("test")
    runs = list(Generator(Recipe(units=3, items=40, failing=0, aborted=0)).runs())
    database.begin(durable=True)
    for begin, rows, end in runs:
        for _ in range(2):
            database.runs.begin(begin)
        database.runs.rows(rows)
        rows.again, rows.values[3], rows.names[4] = True, 4711.0, "renamed"
        database.runs.rows(rows)
        for _ in range(2):
            database.runs.end(end)
        end.outcome, end.reason = "EXCEPTION", "not in time"
        for _ in range(2):
            database.runs.end(end)
    database.close()
    with qon_results.open(tmp_path) as store:
        assert store.verify().fault is None
        found = store.record(store.runs()[0].id)
        assert (found.run.outcome, found.own.outcome, len(found.seals)) == ("EXCEPTION", "OK", 2)
        assert len(found.measurements) == 40 and found.measurements[3].value == 4711.0
        assert found.measurements[4].item == "renamed"


def damage(path: Path, query: str) -> None:
    """Somebody changes the file, with all that protects it from mistakes taken away."""
    with apsw.Connection(str(path)) as connection:
        for (name,) in connection.execute("SELECT name FROM sqlite_schema WHERE type = 'trigger'").fetchall():
            connection.execute(f"DROP TRIGGER {name}")
        connection.execute(query)


@pytest.mark.parametrize(
    "query, run, seal",
    [
        ("UPDATE measurement SET number = number + 1e-9 WHERE run = 17 AND seq = 3", 17, 17),
        ("DELETE FROM measurement WHERE run = 17 AND seq = 0", 17, 17),
        ("UPDATE run SET outcome = 'OK', begin_us = begin_us + 1 WHERE number = 20", 20, 20),
        ("UPDATE criterion SET upper = upper + 1 WHERE id = 2", 1, 1),
        ("DELETE FROM run WHERE number = 30", 31, None),
        ("DELETE FROM seal WHERE number = 30", 31, 31),
        ("UPDATE seal SET hash = (SELECT hash FROM seal WHERE number = 5) WHERE number = 6", 6, 6),
    ],
)
def test_verify_names_what_was_changed(small, tmp_path, query, run, seal):
    path = Path(shutil.copy(small, tmp_path))
    damage(path, query)
    with qon_results.open(path) as store:
        fault = store.verify().fault
    assert fault and (fault.run, fault.seal) == (run, seal)


def test_a_flipped_byte_is_found_or_changes_nothing(small, tmp_path):
    """What is not found hit free space: every record is still the same."""
    with qon_results.open(small) as store:
        genuine = list(store.records())
    chance, data, found = random.Random(3), small.read_bytes(), 0
    path = tmp_path / file.FILE_NAME
    for _ in range(40):
        place = chance.randrange(100, len(data))
        path.write_bytes(data[:place] + bytes([data[place] ^ 0x55]) + data[place + 1 :])
        try:
            with qon_results.open(path) as store:
                if store.verify().fault is None:
                    assert list(store.records()) == genuine, place
                    continue
        except (ValueError, apsw.Error):
            pass
        found += 1
    assert found > 10


def test_a_newer_a_foreign_and_no_file_are_refused_in_words(small, tmp_path):
    path = Path(shutil.copy(small, tmp_path))
    damage(path, f"PRAGMA user_version = {file.VERSION + 1}")
    with pytest.raises(ValueError, match="newer version"):
        SqliteStore(path)
    with pytest.raises(ValueError, match="newer version"):
        Database(path, 1000)
    foreign = tmp_path / "foreign.db"
    apsw.Connection(str(foreign)).execute("CREATE TABLE t (a)")
    with pytest.raises(ValueError, match="another program"):
        SqliteStore(foreign)
    with pytest.raises(FileNotFoundError):
        qon_results.open(tmp_path / "nowhere")


def test_sealed_runs_refuse_changes(small, tmp_path):
    connection = apsw.Connection(shutil.copy(small, tmp_path))
    for query in ("UPDATE run SET reason = 'x' WHERE number = 1", "DELETE FROM run WHERE number = 1",
                  "UPDATE seal SET at_us = 0", "UPDATE correction SET reason = ''"):  # fmt: skip
        if "correction" not in query:
            with pytest.raises(apsw.ConstraintError):
                connection.execute(query)


def test_questions_agree_with_the_records(small):
    with qon_results.open(small) as store:
        runs = store.runs(limit=None)
        judged = [run for run in runs if run.outcome in ("OK", "NG")]
        (figures,) = store.yields(Filter(purpose="production"))
        firsts = {run.serial_number: run for run in reversed(runs) if run in judged}
        by_unit = {
            serial: min((r for r in judged if r.serial_number == serial), key=lambda r: r.number)
            for serial in firsts
        }
        assert figures.first_attempts == len(by_unit)
        assert figures.first_passed == sum(run.outcome == "OK" for run in by_unit.values())
        failed = [run for run in runs if run.outcome == "NG"]
        assert sum(row.first for row in store.pareto(Filter())) == len(failed)
        again = next(run for run in runs if len(store.attempts(run)) > 1)
        assert {run.serial_number for run in store.attempts(again)} == {again.serial_number}
        cell = store.item("ITEM_003", Filter(cell=2))
        wanted = [(r.number, m.value) for r in reversed(runs) if r.cell == 2
                  for m in store.record(r.id).measurements if m.item == "ITEM_003"]  # fmt: skip
        assert list(zip(cell.run.tolist(), cell.value.tolist(), strict=True)) == wanted
        counts = {item.name: item.count for item in store.items()}
        assert counts == {item.name: item.count for item in store.items(Filter(since=0))}
        assert sum(counts.values()) == sum(run.measured for run in runs)
        day = datetime.datetime.fromtimestamp(runs[0].begin_us / 1e6, datetime.UTC)
        assert store.runs(Filter(since=day))[0] == runs[0] and not store.runs(Filter(until=0))


def test_messages_survive_any_cut_of_the_pipe():
    sent = [bytes([n]) * n * 100 for n in range(8)]
    data = b"".join(map(messages.pack, sent))

    class Pipe:
        def __init__(self) -> None:
            self.left, self.chance = data[:-1], random.Random(1)

        def read(self, _most: int) -> bytes:
            size = self.chance.randrange(1, 300)
            block, self.left = self.left[:size], self.left[size:]
            return block

    assert list(messages.unpack(Pipe())) == sent[:-1]
