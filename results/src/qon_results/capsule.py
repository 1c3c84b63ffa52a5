"""One run as one HTML file: everything kept about it, readable in any browser, and the record as JSON inside."""

import base64
import html
import json
from collections.abc import Iterable, Sequence

import msgspec

from .records import Record, Verdict
from .store.base import Store, moment

STYLE = """
body { font: 15px/1.45 system-ui, "Noto Sans CJK SC", sans-serif; margin: 2rem auto; max-width: 70rem; padding: 0 1rem; color: #1c1f23 }
h1 { font-size: 1.5rem } h2 { font-size: 1.1rem; margin-top: 2rem }
table { border-collapse: collapse; width: 100% } th, td { text-align: left; padding: .25rem .6rem; border-bottom: 1px solid #d5d9de; vertical-align: top }
th { background: #eef0f3 } td.n, th.n { text-align: right; font-variant-numeric: tabular-nums }
.word { display: inline-block; padding: .1rem .7rem; border-radius: .3rem; font-weight: 700 }
.OK { background: #1a7f37; color: #fff } .NG { background: #c62828; color: #fff } .TBD { background: #fff; outline: 1px solid }
.ABORTED, .EXCEPTION, .INTERRUPTED { background: #00838f; color: #fff }
tr.NG { background: #fdecea; color: inherit; font-weight: 600 }
pre { background: #f6f7f9; padding: .8rem; overflow-x: auto; white-space: pre-wrap; overflow-wrap: anywhere }
td { overflow-wrap: anywhere }
@media print { body { margin: 0 } pre { white-space: pre-wrap } }
"""
POLICY = "default-src 'none'; style-src 'unsafe-inline'; img-src data:"
SHOWN_TEXT = 1 << 20  # of a script; the whole is in its link all the same


def capsule_of(store: Store, record: Record) -> str:
    """The page.  It loads nothing and runs nothing: opened from anywhere it shows what was recorded, no more."""
    run = record.run
    title = f"{run.serial_number or 'no serial number'} - {run.outcome}"
    parts = [
        f"<h1>{_text(run.serial_number or 'no serial number')} <span class='word {run.outcome}'>{run.outcome}</span></h1>",
        _facts(record),
        "<h2>Measurements</h2>",
        _measurements(record),
    ]
    if run.details:
        parts += ["<h2>What happened</h2>", f"<pre>{_text(run.details)}</pre>"]
    if record.events:
        rows = [(told(each.at_us, run.utc_offset_s), each.kind, each.text) for each in record.events]
        parts += ["<h2>Events</h2>", _table(("time", "what", "text"), rows)]
    parts += _contents(store, record)
    whole = json.dumps(json.loads(msgspec.json.encode(record)), ensure_ascii=False, indent=1)
    # A script element of no executable type holds text; only its own end could leave it.
    parts += [
        "<h2>The record as JSON</h2>",
        f"<p>In this file's source, element <code>record</code>; its hash in the chain: <code>{_chain(record)}</code></p>",
        f'<script type="application/json" id="record">{whole.replace("<", chr(92) + "u003c")}</script>',
    ]
    return (
        "<!doctype html>\n<html lang='en'><head><meta charset='utf-8'>"
        f'<meta http-equiv="Content-Security-Policy" content="{POLICY}">'
        f"<title>{_text(title)}</title><style>{STYLE}</style></head>\n<body>\n"
        + "\n".join(parts)
        + "\n</body></html>\n"
    )


def _facts(record: Record) -> str:
    run, setup = record.run, record.setup
    versions = ", ".join(f"{name} {version}" for name, version in sorted(setup.versions.items()))
    rows = [
        ("why", run.reason or run.first_ng),
        ("run", f"{run.id}, number {run.number} of station {run.station}"),
        ("scanned as", run.scanned if run.scanned != run.serial_number else ""),
        ("begin", told(run.begin_us, run.utc_offset_s)),
        ("end", told(run.end_us, run.utc_offset_s)),
        ("lasted", "" if run.duration_us is None else f"{run.duration_us / 1e6:.3f} s"),
        ("place", f"cell {run.cell} at {setup.host}"),
        ("product, operation, purpose", f"{run.product}, {run.operation}, {run.purpose}"),
        ("operator", run.operator),
        ("batch", run.batch),
        ("script", _named(setup.script, setup.script_sha256)),
        ("limits", _named(setup.limits, setup.limits_sha256)),
        ("configuration", _named(setup.config, setup.config_sha256)),
        ("versions", versions),
        *(("corrected", f"{told(each.at_us, run.utc_offset_s)}: {each.outcome}, {each.reason}") for each in record.corrections),
        *(("instrument", f"{each.name}: {each.identity}, calibration due {each.calibration_due or 'not told'}") for each in record.instruments),
    ]  # fmt: skip
    return _table(("", ""), [row for row in rows if row[1]])


def _named(name: str, sha256: bytes | None) -> str:
    return f"{name} (SHA-256 {sha256.hex()})" if sha256 else name


def _measurements(record: Record) -> str:
    head = "".join(
        f"<th{' class=n' if name in NUMERIC else ''}>{name}</th>" for name in ("#", "item", "value", "lower", "upper", "unit", "verdict", "attempt", "note")
    )  # fmt: skip
    lines = []
    for each in record.measurements:
        verdict = Verdict(each.verdict).name
        cells = (
            each.seq + 1,
            each.item,
            each.value,
            each.lower,
            each.upper,
            each.unit,
            verdict,
            each.attempt,
            each.note,
        )
        tags = "".join(
            f"<td class=n>{_text(value)}</td>" if index in (0, 2, 3, 4, 7) else f"<td>{_text(value)}</td>"
            for index, value in enumerate(cells)
        )
        lines.append(f"<tr class={verdict}>{tags}</tr>" if verdict == "NG" else f"<tr>{tags}</tr>")
    return f"<table><tr>{head}</tr>{''.join(lines)}</table>"


NUMERIC = {"#", "value", "lower", "upper", "attempt"}


def _contents(store: Store, record: Record) -> list[str]:
    """Script, limits and attachments: each as a link that holds it; texts are shown, too."""
    setup = record.setup
    kept = [
        ("script", setup.script, setup.script_sha256), ("limits", setup.limits, setup.limits_sha256),
        ("configuration", setup.config, setup.config_sha256), ("parameters", "parameters", setup.parameters_sha256),
        *(("attachment", each.name, each.sha256) for each in record.attachments),
    ]  # fmt: skip
    parts = []
    for what, name, sha256 in kept:
        if sha256 is None:
            continue
        try:
            data = store.content(sha256)
        except KeyError:
            parts.append(f"<h2>{what}: {_text(name)}</h2><p>Not kept here; SHA-256 {sha256.hex()}.</p>")
            continue
        base = _text(name.replace("\\", "/").rpartition("/")[2] or what)
        link = f"data:application/octet-stream;base64,{base64.b64encode(data).decode()}"
        parts.append(
            f'<h2>{what}: {_text(name)}</h2><p><a download="{base}" href="{link}">{base}</a>, {len(data)} bytes</p>'
        )
        text = _shown(data)
        if text:
            parts.append(f"<pre>{_text(text)}</pre>")
    return parts


def _shown(data: bytes) -> str:
    if len(data) > SHOWN_TEXT or b"\0" in data:
        return ""
    try:
        return data.decode("utf-8")
    except UnicodeDecodeError:
        return ""


def _chain(record: Record) -> str:
    return record.seals[-1].chain.hex() if record.seals else "not sealed yet"


def _table(head: Sequence[str], rows: Iterable[Sequence[object]]) -> str:
    top = "".join(f"<th>{_text(name)}</th>" for name in head) if any(head) else ""
    lines = ["<tr>" + "".join(f"<td>{_text(value)}</td>" for value in row) + "</tr>" for row in rows]
    return f"<table>{f'<tr>{top}</tr>' if top else ''}{''.join(lines)}</table>"


def _text(value: object) -> str:
    """Escaped; marks that turn the direction of writing are shown as what they are."""
    if value is None:
        return ""
    turned = "".join(f"\\u{ord(each):04x}" if each in _TURNING else each for each in str(value))
    return html.escape(turned)


_TURNING = set("\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069\u200e\u200f")


def told(us: int | None, offset_s: int) -> str:
    return "" if us is None else moment(us, offset_s).isoformat(sep=" ", timespec="milliseconds")
