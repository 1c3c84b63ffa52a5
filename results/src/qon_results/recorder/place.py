"""Where results may lie: on a disk of this machine, with room, writable."""

import ctypes
import os
import shutil
import sys
from pathlib import Path

# What SQLite's locks and shared memory do not work on.
_SHARES = frozenset(
    [
        "nfs",
        "nfs4",
        "cifs",
        "smb",
        "smb2",
        "smb3",
        "smbfs",
        "ncpfs",
        "afs",
        "9p",
        "ceph",
        "glusterfs",
        "lustre",
        "gfs2",
        "ocfs2",
        "fuse.sshfs",
        "fuse.glusterfs",
        "fuse.s3fs",
        "fuse.rclone",
        "davfs",
        "fuse.davfs2",
        "webdav",
        "vboxsf",
        "vmhgfs",
        "fuse.vmhgfs-fuse",
        "prl_fs",
    ]
)
_DRIVE_REMOTE = 4


def is_on_share(folder: Path) -> str:
    """The kind of the network share that the folder lies on; "" for a disk of this machine, or when it cannot be told."""
    if sys.platform == "win32":
        drive = os.path.splitdrive(folder)[0]
        remote = (
            drive.startswith("\\\\") or ctypes.windll.kernel32.GetDriveTypeW(drive + "\\") == _DRIVE_REMOTE
        )
        return "network drive" if remote else ""
    try:
        lines = Path("/proc/self/mountinfo").read_text(encoding="utf-8", errors="replace").splitlines()
    except OSError:
        return ""
    kind = mounted_as(os.path.realpath(folder), lines)
    return kind if kind in _SHARES else ""


def mounted_as(path: str, mountinfo: list[str]) -> str:
    """The type of the file system that holds a path, by the system's list of mounts; of equal ones the last counts."""
    best, kind = "", ""
    for line in mountinfo:
        before, _, behind = line.partition(" - ")
        fields = before.split()
        if len(fields) < 5 or not behind:
            continue
        point = fields[4].encode("latin-1", "replace").decode("unicode_escape")  # blanks stand as \040
        inside = path == point or path.startswith(point.rstrip("/") + "/")
        if inside and len(point) >= len(best):
            best, kind = point, behind.split()[0]
    return kind


def free_bytes(folder: Path) -> int:
    """OSError when it cannot be told."""
    return shutil.disk_usage(folder).free


def make(folder: Path) -> None:
    """OSError in words of the system when the folder cannot be made or written."""
    folder.mkdir(parents=True, exist_ok=True)
    if not os.access(folder, os.W_OK | os.X_OK):
        raise PermissionError(f"{folder} cannot be written")
