"""A disk that keeps what was synced and forgets, at any moment, a part of what was not."""

import random
from collections import defaultdict
from pathlib import Path
from typing import Any

import apsw

NAME = "power cut"


class Disk(apsw.VFS):
    """Notes every write, sync, truncation and deletion of the files below it, in their order."""

    def __init__(self) -> None:
        self.log: list[tuple[str, ...] | tuple[Any, ...]] = []
        super().__init__(NAME, "")

    def xOpen(self, name: Any, flags: Any) -> "_File":
        return _File(self.log, name, flags)

    def xDelete(self, name: str, sync: bool) -> None:
        self.log.append(("delete", Path(name).name))
        super().xDelete(name, sync)

    def cut(self, moment: int, folder: Path, chance: random.Random) -> None:
        """The files as they may be found when the power went after so many steps."""
        kept: dict[str, bytearray] = defaultdict(bytearray)
        open_writes: dict[str, list[tuple[Any, ...]]] = defaultdict(list)
        for kind, name, *rest in self.log[:moment]:
            if kind == "delete":
                kept.pop(name, None)
                open_writes.pop(name, None)
            elif kind == "sync":
                for write in open_writes.pop(name, ()):
                    _apply(kept[name], write)
            else:
                open_writes[name].append((kind, *rest))
        for name, writes in open_writes.items():
            share = chance.random()
            for write in writes:
                if chance.random() < share:
                    _apply(kept[name], write)
        for name, data in kept.items():
            (folder / name).write_bytes(data)


class _File(apsw.VFSFile):
    def __init__(self, log: list[Any], name: Any, flags: Any) -> None:
        self._log, self._name = log, Path(name.filename() if hasattr(name, "filename") else str(name)).name
        super().__init__("", name, flags)

    def xWrite(self, data: bytes, offset: int) -> None:
        self._log.append(("write", self._name, offset, bytes(data)))
        super().xWrite(data, offset)

    def xTruncate(self, size: int) -> None:
        self._log.append(("truncate", self._name, size))
        super().xTruncate(size)

    def xSync(self, flags: int) -> None:
        self._log.append(("sync", self._name))


def _apply(data: bytearray, write: tuple[Any, ...]) -> None:
    kind, place, *rest = write
    if kind == "truncate":
        del data[place:]
        return
    if len(data) < place:
        data.extend(bytes(place - len(data)))
    data[place : place + len(rest[0])] = rest[0]
