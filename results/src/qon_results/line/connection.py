"""The way to a line's database.  Credentials come from libpq's own places: service file, password file, certificates."""

from typing import Any, TypeAlias

import psycopg
from psycopg import conninfo

from . import queries

Connection: TypeAlias = "psycopg.Connection[tuple[Any, ...]]"

VERSION = 1
_ALWAYS = {
    "connect_timeout": "5",
    "keepalives_idle": "10",
    "keepalives_interval": "5",
    "keepalives_count": "3",
    "tcp_user_timeout": "20000",  # ms until a silent peer counts as gone
}


class LineError(OSError):
    """The line's database cannot be used; the text says why, without credentials."""


def checked(address: str) -> str:
    """The address; ValueError when it is none or has a password in it, which would end in workbooks and logs."""
    try:
        fields = conninfo.conninfo_to_dict(address)
    except psycopg.ProgrammingError as error:
        raise ValueError(f"This is no address of a database: {str(error).strip()}") from None
    if "password" in fields or "sslpassword" in fields:
        raise ValueError(
            "The address of the line's database has a password in it. Put that into the password file (~/.pgpass) "
            "or the service file, and leave it out here."
        )
    return address


def connect(address: str, *, write: bool = False, name: str = "qon-results") -> Connection:
    """A connection in a known state: UTC, answers bounded in time, what was committed is on the server's disk."""
    fields = {**_ALWAYS, **conninfo.conninfo_to_dict(checked(address)), "application_name": name}
    try:
        connection = psycopg.connect(conninfo.make_conninfo("", **fields), autocommit=True)
    except psycopg.Error as error:
        raise LineError(words(error)) from None
    try:
        connection.execute("SET TimeZone = 'UTC'")
        connection.execute("SET statement_timeout = '60s'")
        if write:
            connection.execute("SET synchronous_commit = on")
        else:
            connection.execute("SET default_transaction_read_only = on")
        _check_version(connection, write)
    except psycopg.Error as error:
        connection.close()
        raise LineError(words(error)) from None
    except BaseException:
        connection.close()
        raise
    return connection


def _check_version(connection: Connection, write: bool) -> None:
    try:
        ((found,),) = connection.execute(queries.VERSION).fetchall()
    except psycopg.errors.UndefinedTable:
        raise LineError(
            "This database holds no results yet; `qon-results line make` makes the tables."
        ) from None
    if found > VERSION and write:
        raise LineError(
            f"The line's database has version {found}, this station knows {VERSION}: results wait here until the station "
            "is updated."
        )
    if found != VERSION and not write:
        raise LineError(f"The line's database has version {found}, this program knows {VERSION}.")


def words(error: Exception) -> str:
    """What went wrong in one line."""
    lines = [line.strip() for line in str(error).splitlines() if line.strip()]
    return lines[0] if lines else type(error).__name__
