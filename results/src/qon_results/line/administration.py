"""A line's database is made, or a trial server with one."""

import getpass
import os
import shutil
import socket
import subprocess
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

import psycopg

from .connection import VERSION, LineError, checked, words

SCHEMA = Path(__file__).with_name("schema.sql")
NAME = "line"
START_SECONDS = 30.0


def make(address: str) -> bool:
    """Make the tables, whole or not at all; False when they are there.  Needs the right to create them."""
    try:
        with psycopg.connect(checked(address), connect_timeout=10) as connection:
            there = connection.execute("SELECT to_regclass('qon.about')").fetchone()
            if there and there[0] is not None:
                found = connection.execute("SELECT version FROM qon.about").fetchone()
                if found and found[0] != VERSION:
                    raise LineError(f"The database has version {found[0]}, this program makes {VERSION}.")
                return False
            connection.execute(SCHEMA.read_bytes())
            return True
    except psycopg.Error as error:
        raise LineError(words(error)) from None


def add_months(address: str, ahead: int) -> int:
    """Parts of the measurements for the months to come; returns how many were missing."""
    try:
        with psycopg.connect(checked(address), connect_timeout=10) as connection:
            row = connection.execute("SELECT qon.add_months(%s)", (ahead,)).fetchone()
            return int(row[0]) if row else 0
    except psycopg.Error as error:
        raise LineError(words(error)) from None


@dataclass
class Trial:
    """A PostgreSQL server of one's own in a folder, reached from this machine alone."""

    folder: Path

    @property
    def data(self) -> Path:
        return self.folder / "data"

    @property
    def address(self) -> str:
        port = (self.folder / "port").read_text().strip()
        return f"host={self.folder} port={port} dbname={NAME} user={NAME}"

    def start(self) -> None:
        """Make it if it is not there, start it, make the tables.  LineError says what is missing."""
        programs = _programs()
        if not (self.data / "PG_VERSION").exists():
            self.folder.mkdir(parents=True, exist_ok=True)
            _give(self.folder)
            _run(
                [
                    str(programs / "initdb"),
                    "-D",
                    str(self.data),
                    "-U",
                    NAME,
                    "-A",
                    "peer",
                    "-E",
                    "UTF8",
                    "--locale=C",
                ]
            )
            users = {getpass.getuser(), _user()}
            (self.data / "pg_ident.conf").write_text(
                "".join(f"here {user} {NAME}\n" for user in sorted(users))
            )
            (self.data / "pg_hba.conf").write_text("local all all peer map=here\n")
        if not self.is_running():
            number = self.folder / "port"
            if not number.exists():  # kept, so that the address stays what it was
                number.write_text(str(_free_port()))
            port = number.read_text().strip()
            options = f"-c listen_addresses='' -c unix_socket_directories='{self.folder}' -c port={port}"
            log = ["-l", str(self.folder / "server.log")]
            control = [str(programs / "pg_ctl"), "-D", str(self.data), "-w", "-t", "30"]
            _run([*control, *log, "-o", options, "start"])
        self._database()
        make(self.address)

    def stop(self) -> None:
        if self.is_running():
            _run([str(_programs() / "pg_ctl"), "-D", str(self.data), "-m", "fast", "-w", "stop"])

    def is_running(self) -> bool:
        done = subprocess.run(
            _as_user([str(_programs() / "pg_ctl"), "-D", str(self.data), "status"]),
            capture_output=True,
            check=False,
        )
        return done.returncode == 0

    def _database(self) -> None:
        server = self.address.replace(f"dbname={NAME}", "dbname=postgres")
        until = time.monotonic() + START_SECONDS
        while True:
            try:
                with psycopg.connect(server, autocommit=True) as connection:
                    if not connection.execute(
                        "SELECT 1 FROM pg_database WHERE datname = %s", (NAME,)
                    ).fetchone():
                        connection.execute(f"CREATE DATABASE {NAME}")
                    return
            except psycopg.OperationalError as error:
                if time.monotonic() > until:
                    raise LineError(words(error)) from None
                time.sleep(0.1)


def _programs() -> Path:
    """Where PostgreSQL's own programs are; distributions keep the server's off the path."""
    found = shutil.which("initdb")
    places = sorted(Path("/usr/lib/postgresql").glob("*/bin/initdb"), key=lambda path: float(path.parts[4]))
    if found is None and not places:
        raise LineError("PostgreSQL is not installed here (Debian: apt-get install postgresql).")
    return Path(found).parent if found else places[-1].parent


def _is_root() -> bool:
    return hasattr(os, "getuid") and os.getuid() == 0


def _user() -> str:
    """PostgreSQL refuses to run for root."""
    return "postgres" if _is_root() else getpass.getuser()


def _as_user(command: list[str]) -> list[str]:
    if not _is_root():
        return command
    return ["setpriv", "--reuid", "postgres", "--regid", "postgres", "--clear-groups", *command]


def _give(folder: Path) -> None:
    if _is_root():
        import pwd

        owner = pwd.getpwnam("postgres")
        os.chown(folder, owner.pw_uid, owner.pw_gid)


def _run(command: list[str]) -> None:
    """What it says goes into a file: a server that inherited a pipe would keep its reader waiting."""
    with tempfile.TemporaryFile() as said:
        done = subprocess.run(
            _as_user(command), stdin=subprocess.DEVNULL, stdout=said, stderr=said, cwd="/", check=False
        )
        if done.returncode:
            said.seek(0)
            text = said.read().decode(errors="replace").strip()
            raise LineError(f"{Path(command[0]).name} failed: {text or 'see server.log beside the data'}")


def _free_port() -> int:
    """Part of the socket's name alone; nothing listens on the network."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])
