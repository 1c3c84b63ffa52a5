"""Where the chain of a file ends."""

import uuid

import apsw

from ..store import queries
from ..store.file import ask
from ..store.hashing import first_chain


class ChainEnd:
    """The newest seal: `number`, the last event that it covers, its `chain`."""

    def __init__(self, connection: apsw.Connection) -> None:
        station = uuid.UUID(bytes=next(ask(connection, queries.STATIONS))[0])
        self.number, self.events, self.chain = 0, 0, first_chain(station)
        for number, events, chain in ask(connection, queries.LAST_SEAL):
            self.number, self.events, self.chain = number, events, chain
