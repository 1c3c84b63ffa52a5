"""Rows into a Parquet file, by way of JSON lines: duckdb does the rest."""

import json
from collections.abc import Iterable, Mapping
from pathlib import Path
from typing import Any

import duckdb


def write_lines(rows: Iterable[Mapping[str, Any]], path: Path) -> int:
    """One JSON object a line; returns their number."""
    count = 0
    with path.open("w", encoding="utf-8") as file:
        for row in rows:
            file.write(json.dumps(row, ensure_ascii=False, allow_nan=False) + "\n")
            count += 1
    return count


def write_parquet(
    rows: Iterable[Mapping[str, Any]], path: Path, types: Mapping[str, str], order: tuple[str, ...] = ()
) -> int:
    """Columns of these types (duckdb's), sorted by `order`; returns the number of rows."""
    lines = path.with_name(path.name + ".lines")
    try:
        count = write_lines(rows, lines)
        columns = ", ".join(f"'{name}': '{kind}'" for name, kind in types.items())
        sort = f" ORDER BY {', '.join(order)}" if order else ""
        with duckdb.connect() as database:
            database.execute(
                f"COPY (SELECT * FROM read_json(?, format='newline_delimited', columns={{{columns}}}){sort})"
                " TO (?) (FORMAT parquet, COMPRESSION zstd, ROW_GROUP_SIZE 100000)",
                [str(lines), str(path)],
            )
    finally:
        lines.unlink(missing_ok=True)
    return count
