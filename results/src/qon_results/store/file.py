"""The file itself: how it is opened, what version it has, and how an older one is brought up to date."""

from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any, TypeAlias

import apsw

Row: TypeAlias = tuple[Any, ...]

VERSION = 1
APPLICATION_ID = 0x516F6E52  # "QonR": what file(1) and SQLite's own tools show
FILE_NAME = "results.db"
_SCHEMA = Path(__file__).with_name("schema.sql")
# Steps from each version to the next one, schema_2.sql and so on; a new file gets schema.sql alone.
_MIGRATIONS: dict[int, Path] = {
    version: _SCHEMA.with_name(f"schema_{version}.sql") for version in range(2, VERSION + 1)
}


def connect(path: Path, *, write: bool, vfs: str | None = None) -> apsw.Connection:
    """FileNotFoundError when it is only to be read and is not there."""
    if not write and not path.is_file():
        raise FileNotFoundError(f"There are no results at {path}.")
    flags = apsw.SQLITE_OPEN_READWRITE | apsw.SQLITE_OPEN_CREATE if write else apsw.SQLITE_OPEN_READONLY
    connection = apsw.Connection(str(path), flags, vfs)
    connection.set_busy_timeout(5000)
    try:
        _prepare(connection, write)
    except apsw.NotADBError:
        connection.close()
        raise ValueError(f"{path} is no file of results, or it is damaged at its beginning.") from None
    except BaseException:
        connection.close()
        raise
    return connection


def _prepare(connection: apsw.Connection, write: bool) -> None:
    connection.pragma("foreign_keys", False)  # the writer's dictionaries see to it, and a look-up a row costs
    connection.pragma("cache_size", -65536)  # KiB
    connection.pragma("temp_store", "memory")
    if write:
        connection.pragma("recursive_triggers", True)
    else:
        connection.pragma("query_only", True)
        connection.pragma("mmap_size", 1 << 30)


def check_version(connection: apsw.Connection, path: Path) -> None:
    """ValueError in words unless the file is a store of this version."""
    found = version_of(connection, path)
    if found > VERSION:
        raise ValueError(
            f"{path} was written by a newer version of qon_results (its version is {found}, this program knows "
            f"{VERSION}): update this station."
        )
    if found < VERSION:
        raise ValueError(f"{path} has version {found}: the station brings it up to date at its next start.")


def version_of(connection: apsw.Connection, path: Path) -> int:
    try:
        application, version = connection.pragma("application_id"), connection.pragma("user_version")
    except apsw.NotADBError:
        raise ValueError(f"{path} is no file of results, or it is damaged at its beginning.") from None
    if application != APPLICATION_ID and (application or version or _has_tables(connection)):
        raise ValueError(f"{path} belongs to another program.")
    return int(version)


def migrate(connection: apsw.Connection, path: Path) -> None:
    """Make the tables of a new file, or bring an older one up to date, whole or not at all."""
    version = version_of(connection, path)
    if version > VERSION:
        check_version(connection, path)
    steps = [_SCHEMA] if version == 0 else [_MIGRATIONS[number] for number in range(version + 1, VERSION + 1)]
    if not steps:
        return
    with connection:
        for step in steps:
            connection.execute(step.read_text(encoding="utf-8"))
        connection.pragma("application_id", APPLICATION_ID)
        connection.pragma("user_version", VERSION)


def _has_tables(connection: apsw.Connection) -> bool:
    return bool(connection.execute("SELECT count(*) FROM sqlite_schema").get)


def ask(
    connection: apsw.Connection, query: str, values: Sequence[Any] | dict[str, Any] = ()
) -> Iterator[Row]:
    """The rows of a question, typed as what they are to us: anything."""
    return connection.execute(query, values)
