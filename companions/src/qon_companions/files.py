"""Write files so that a crash, a full disk or a lock never leaves half of one behind."""

import contextlib
import errno
import os
import re
import stat
import uuid
from collections.abc import Iterator, Mapping
from pathlib import Path


def write_atomically(path: str | os.PathLike[str], data: bytes) -> None:
    """Replace the file by these bytes, or leave it as it was and raise an OSError that names it."""
    write_all_atomically({Path(path): data})


def write_all_atomically(files: Mapping[Path, bytes]) -> None:
    """Replace several files; none is touched before all of them lie on the disk beside their targets.

    A link is followed.  The mode of a file that was there is kept.
    """
    prepared: dict[Path, tuple[Path, Path]] = {}
    try:
        for path, data in files.items():
            with _naming(path):
                target = Path(os.path.realpath(path))
                prepared[path] = (target, _write_beside(target, data))
        for path, (target, beside) in prepared.items():
            with _naming(path):
                os.replace(beside, target)
                _sync_directory(target.parent)
    finally:
        for _, beside in prepared.values():
            with contextlib.suppress(OSError):
                beside.unlink()  # only those that did not get to their place are still there


def _write_beside(target: Path, data: bytes) -> Path:
    old_mode = _mode(target)
    target.parent.mkdir(parents=True, exist_ok=True)
    # A name that no reader of the directory takes for a workbook.
    beside = target.with_name(f".{target.name}.{uuid.uuid4().hex[:8]}.tmp")
    try:
        with open(beside, "xb") as file:
            file.write(data)
            file.flush()
            os.fsync(file.fileno())
        if old_mode is not None:
            os.chmod(beside, old_mode)
    except BaseException:
        beside.unlink(missing_ok=True)
        raise
    return beside


def _mode(target: Path) -> int | None:
    """The mode of the file that is to be replaced, None for a new one."""
    if target.is_dir():
        raise IsADirectoryError(errno.EISDIR, "This is a directory, not a file")
    if not target.exists():
        return None
    if not os.access(target, os.W_OK):
        raise PermissionError(errno.EACCES, "The file is read-only; make it writable or choose another place")
    return stat.S_IMODE(target.stat().st_mode)


def _sync_directory(directory: Path) -> None:
    # A rename is on the disk only when its directory is; Windows has no such call.
    if os.name == "posix":
        handle = os.open(directory, os.O_RDONLY)
        try:
            os.fsync(handle)
        finally:
            os.close(handle)


@contextlib.contextmanager
def _naming(path: Path) -> Iterator[None]:
    """Errors name the file that was to be written, not the one beside it."""
    try:
        yield
    except OSError as error:
        text = error.strerror or str(error)
        raise type(error)(error.errno or errno.EIO, text, os.fspath(path)) from error


# Names that Windows keeps for devices, with whatever suffix.
_RESERVED = re.compile(
    r"(con|prn|aux|nul|conin\$|conout\$|com[0-9\xb9\xb2\xb3]|lpt[0-9\xb9\xb2\xb3])(\..*)?", re.IGNORECASE
)
_LONGEST_NAME = 120  # characters; a suffix and what a file system adds have room behind them


def safe_name(text: str, otherwise: str = "file") -> str:
    """A text as the name of a file on every system: no path, no device, nothing hidden; `otherwise` if none is left."""
    name = (
        re.sub(r'[<>:"/\\|?*\x00-\x1f\x7f-\x9f\ud800-\udfff]', "_", text)
        .strip(" .")[:_LONGEST_NAME]
        .rstrip(" .")
    )
    if not name.strip("_"):
        return otherwise
    return f"_{name}" if _RESERVED.fullmatch(name) else name


def with_suffix(path: Path, suffix: str) -> Path:
    """The chosen file with the suffix that was left out; FileExistsError rather than a file nobody was asked about."""
    if path.suffix.lower() == suffix:
        return path
    whole = path.with_name(path.name + suffix)
    if whole.exists():
        raise FileExistsError(errno.EEXIST, "This file is there already; choose it to replace it", str(whole))
    return whole
