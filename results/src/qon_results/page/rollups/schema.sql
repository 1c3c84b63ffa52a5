-- Beside a station's file or in the page's folder.  All but the acknowledgements can be made again from the results.
CREATE TABLE about (source TEXT NOT NULL, zone TEXT NOT NULL);
CREATE TABLE stream (
    id INTEGER PRIMARY KEY,
    station BLOB NOT NULL,
    cell INTEGER NOT NULL,
    product TEXT NOT NULL,
    operation TEXT NOT NULL,
    purpose TEXT NOT NULL,
    UNIQUE (station, cell, product, operation, purpose)
);
CREATE TABLE item (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, unit TEXT NOT NULL DEFAULT '');

-- As analysis.parts.PART, one for an item, a stream and a local day.
CREATE TABLE part (
    item INTEGER NOT NULL, stream INTEGER NOT NULL, day INTEGER NOT NULL,
    n INTEGER NOT NULL, mean REAL, m2 REAL, low REAL, high REAL,
    missing INTEGER NOT NULL, switches INTEGER NOT NULL, others INTEGER NOT NULL,
    judged INTEGER NOT NULL, ng INTEGER NOT NULL, near INTEGER NOT NULL,
    steps INTEGER NOT NULL, step_sum REAL, first REAL, last REAL,
    time REAL, m_tt REAL, m_tx REAL, within REAL, streams INTEGER NOT NULL,
    lower REAL, upper REAL, newest_us INTEGER NOT NULL, limits INTEGER NOT NULL,
    PRIMARY KEY (item, stream, day)
) WITHOUT ROWID;

-- Values outside their limits, with the unit they belong to.
CREATE TABLE outside (
    item INTEGER NOT NULL, stream INTEGER NOT NULL, day INTEGER NOT NULL,
    unit TEXT NOT NULL, value REAL NOT NULL, lower REAL, upper REAL
);
CREATE INDEX outside_item ON outside (item, stream, day);

-- Up to which seal of each station each task has taken in everything ('parts', 'alarms'), and which runs (a correction seals a run
-- again); first: no earlier run of its unit came to a verdict.
CREATE TABLE position (task TEXT NOT NULL, station BLOB NOT NULL, seal INTEGER NOT NULL, PRIMARY KEY (task, station)) WITHOUT ROWID;
CREATE TABLE seen (station BLOB NOT NULL, run INTEGER NOT NULL, first INTEGER NOT NULL,
                   watched INTEGER NOT NULL DEFAULT 0, PRIMARY KEY (station, run)) WITHOUT ROWID;
CREATE TABLE progress (task TEXT NOT NULL PRIMARY KEY, done REAL NOT NULL, at_us INTEGER NOT NULL) WITHOUT ROWID;

CREATE TABLE watch (kind TEXT NOT NULL, item INTEGER NOT NULL, stream INTEGER NOT NULL, state BLOB NOT NULL,
                    PRIMARY KEY (kind, item, stream)) WITHOUT ROWID;
CREATE TABLE alarm (
    kind TEXT NOT NULL,          -- item, yield, time
    item TEXT NOT NULL,
    stream INTEGER NOT NULL,
    slow INTEGER NOT NULL,       -- 1: a drift, found in means of blocks
    since_us INTEGER NOT NULL,
    at_us INTEGER NOT NULL,
    up INTEGER NOT NULL, before REAL NOT NULL, after REAL NOT NULL, apart REAL, false_days REAL NOT NULL,
    PRIMARY KEY (at_us, kind, item, stream, slow)
) WITHOUT ROWID;

-- By what the alarm is, so that it outlives the alarms' being made again.
CREATE TABLE acknowledgement (
    kind TEXT NOT NULL, item TEXT NOT NULL, station BLOB NOT NULL, cell INTEGER NOT NULL, slow INTEGER NOT NULL,
    since_us INTEGER NOT NULL, at_us INTEGER NOT NULL,
    name TEXT NOT NULL, words TEXT NOT NULL, told_us INTEGER NOT NULL
);
