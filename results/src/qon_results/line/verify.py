"""Counting again what the line holds: the chain and the records of each station."""

import uuid

from ..records import Event, Instrument
from ..store.base import Fault, Progress, Verification
from ..store.hashing import RecordHash, first_chain, measurement_fields, next_chain
from . import queries
from .postgres import LineStore


def verify(store: LineStore, progress: Progress | None = None) -> Verification:
    """Station by station; the chain that is told is that of the last one."""
    ((runs, seals, _),) = store.ask(queries.COUNTS)
    done, measurements, chain = 0, 0, b""
    for station in store.stations():
        fault = _gap(store, station.id)
        number, events, chain = 0, 0, first_chain(station.id)
        while fault is None:
            rows = store.ask(
                queries.SEALS_OF_STATION, {"station": station.id, "after": number, "limit": 1000}
            )
            if not rows:
                break
            for row in rows:
                fault, count = _check(store, station.id, row, number, events, chain)
                if fault is not None:
                    break
                number, events, chain = row[0], row[3], bytes(row[5])
                done, measurements = done + 1, measurements + count
                if progress and done % 100 == 0:
                    progress(done, seals)
        if fault is not None:
            text = f"{station.name}: {fault.text}"
            return Verification(runs, seals, measurements, chain, Fault(text, fault.run, fault.seal))
    return Verification(runs, seals, measurements, chain, None)


def _gap(store: LineStore, station: uuid.UUID) -> Fault | None:
    for number, step in store.ask(queries.RUN_NUMBERS, (station,)):
        if step != 1:
            return Fault(f"The numbers of the runs have a gap before {number}.", run=number)
    return None


def _check(
    store: LineStore, station: uuid.UUID, row: tuple[object, ...], before: int, events: int, chain: bytes
) -> tuple[Fault | None, int]:
    number, run, _at, last, kept, sealed = row
    assert isinstance(number, int) and isinstance(run, uuid.UUID) and isinstance(kept, bytes)
    if number != before + 1:
        return Fault(f"The seals have a gap before {number}.", seal=number), 0
    record, total = store.record(run), RecordHash()
    correction = next((each for each in record.corrections if each.seal == number), None)
    if correction is None:
        for each in record.measurements:
            total.measurements([measurement_fields(each)])
        total.instruments(
            Instrument(each.name, each.identity, each.calibration_due) for each in record.instruments
        )
        total.attachments(record.attachments)
    found = store.ask(queries.EVENTS_BETWEEN, {"station": station, "after": events, "last": last})
    total.events(Event(*each) for each in found)
    if correction is None:
        total.run(record.own, record.setup)
    else:
        total.correction(run, correction)
    if total.digest() != kept:
        return Fault(
            f"The record of run {record.run.number} is not what was sealed.", record.run.number, number
        ), 0
    if next_chain(chain, kept) != sealed:
        return Fault(f"The chain breaks at seal {number}.", record.run.number, number), 0
    return None, 0 if correction else len(record.measurements)
