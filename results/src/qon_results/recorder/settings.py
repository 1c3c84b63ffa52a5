"""How a station records: given by the application, or in the sheet "main" of its configuration workbook."""

import os
import platform
import socket
from collections.abc import Mapping
from dataclasses import dataclass, fields, replace
from pathlib import Path
from typing import Any, Self

from ..station.policy import POLICIES, REFUSE

PRODUCTION = "production"
_PLAIN = (
    "product",
    "operation",
    "purpose",
    "require_operation",
    "require_operation_offline",
    "operator_pseudonym",
)
_YES_OR_NO = ("required", "operator_pseudonym")


@dataclass(frozen=True)
class Settings:
    """`folder` is the one beside which nothing else writes; each field is a key `results_<field>` of the configuration.

    required: whether a test must not start, and a unit is not OK, when nothing can be recorded.
    commit_ms: what was measured longer ago survives a power cut.  min_free_mb: with less no test starts.
    history_hours: units of so long ago are listed again when the station starts, and its totals go on; 0: neither.
    line: address of the line's database, as libpq takes it and without a password; "" for none.
    product, operation, purpose, require_operation: for cells whose sheet does not say (keys of the same names).
    require_operation: a unit is started only when its newest run of this operation was OK.
    require_operation_offline: while the line's database is away "refuse", "allow", or go by the "local" file alone.
    operator_pseudonym: whether operators are kept under a pseudonym (their names nowhere).
    """

    folder: Path
    station: str = ""
    required: bool = True
    commit_ms: int = 1000
    min_free_mb: int = 500
    attachment_mb: int = 64
    history_hours: int = 12
    line: str = ""
    product: str = ""
    operation: str = ""
    purpose: str = PRODUCTION
    require_operation: str = ""
    require_operation_offline: str = REFUSE
    operator_pseudonym: bool = True

    def __post_init__(self) -> None:
        object.__setattr__(self, "folder", Path(os.path.abspath(self.folder)))
        object.__setattr__(self, "station", self.station or socket.gethostname())
        for name, lowest in (
            ("commit_ms", 100),
            ("min_free_mb", 1),
            ("attachment_mb", 1),
            ("history_hours", 0),
        ):
            value = getattr(self, name)
            if isinstance(value, bool) or not isinstance(value, int) or value < lowest:
                raise ValueError(f"results_{name} is {value!r}; a whole number from {lowest} on is allowed.")

        if self.require_operation_offline not in POLICIES:
            raise ValueError(
                f"require_operation_offline is {self.require_operation_offline!r}; "
                f"{', '.join(POLICIES)} are allowed."
            )

    @classmethod
    def of(
        cls, folder: str | Path | None, configuration: Mapping[str, Any], given: Mapping[str, Any]
    ) -> Self:
        """What the application gives wins over the configuration."""
        names = [field.name for field in fields(cls) if field.name != "folder"]
        if unknown := sorted(set(given) - set(names)):
            raise TypeError(
                f"record() has no argument {unknown[0]!r}; it has folder, config, {', '.join(names)}."
            )
        found = {
            name: configuration[f"results_{name}"] for name in names if f"results_{name}" in configuration
        }
        found |= {name: configuration[name] for name in _PLAIN if name in configuration}
        place = folder or configuration.get("results_folder") or "results"
        settings = cls(Path(place), **{name: _typed(name, value) for name, value in found.items()})
        return replace(settings, **given)


def _typed(name: str, value: Any) -> Any:
    """As a workbook may have it: yes and no as text, whole numbers as floats."""
    if name in _YES_OR_NO:
        if isinstance(value, bool):
            return value
        text = str(value).strip().lower()
        if text not in ("yes", "no", "true", "false", "1", "0"):
            key = name if name in _PLAIN else f"results_{name}"
            raise ValueError(f'{key} is {value!r}; "yes" and "no" are allowed.')
        return text in ("yes", "true", "1")
    if name in ("commit_ms", "min_free_mb", "attachment_mb", "history_hours"):
        return int(value) if isinstance(value, float) and value.is_integer() else value
    return str(value)


def versions() -> dict[str, str]:
    """Of what took part in a run."""
    from importlib.metadata import PackageNotFoundError, version

    found = {"python": platform.python_version()}
    for name in ("qon-ats", "qon-ats-companions", "qon-results"):
        try:
            found[name] = version(name)
        except PackageNotFoundError:
            found[name] = "not installed"
    return found


def main_sheet(config: str | os.PathLike[str] | None) -> dict[str, Any]:
    """The sheet "main" of a configuration workbook as a dictionary; the station complains about a bad one itself."""
    if config is None or not os.path.exists(config):
        return {}
    from qon_testparameters import BookParameters

    sheet = BookParameters(config).load_sheet("main")
    return {name: sheet.get(name) for name in sheet}
