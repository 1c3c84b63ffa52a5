-- The results of one station, version 1 (PRAGMA user_version).  docs/results.md tells what stands where.
-- Times are UTC in microseconds since 1970 (`..._us`), flags 0 or 1, hashes SHA-256, ids of runs and of the station UUIDs.

-- One row: whose results these are.
CREATE TABLE station (
    id BLOB NOT NULL PRIMARY KEY,
    name TEXT NOT NULL,
    created_us INTEGER NOT NULL
) WITHOUT ROWID;

-- What is kept once however often it is used: scripts, workbooks, attachments.
CREATE TABLE content (
    id INTEGER PRIMARY KEY,
    sha256 BLOB NOT NULL UNIQUE,
    size INTEGER NOT NULL,
    data BLOB NOT NULL
);

-- With what a run was made: the same for thousands of runs.  `key` is the hash over the other columns.
CREATE TABLE setup (
    id INTEGER PRIMARY KEY,
    key BLOB NOT NULL UNIQUE,
    host TEXT NOT NULL,
    script TEXT NOT NULL,
    script_content INTEGER REFERENCES content,
    limits TEXT NOT NULL,
    limits_content INTEGER REFERENCES content,
    config TEXT NOT NULL,
    config_content INTEGER REFERENCES content,
    parameters_content INTEGER REFERENCES content,
    versions TEXT NOT NULL
);

CREATE TABLE item (
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL UNIQUE
);

-- What an item was judged by: limits, unit, report flag, categories (a JSON list).  `key` as above.
-- A limit is a number or a text, told apart by its kind as values are.
CREATE TABLE criterion (
    id INTEGER PRIMARY KEY,
    key BLOB NOT NULL UNIQUE,
    lower_kind INTEGER NOT NULL,
    lower REAL,
    lower_text TEXT,
    upper_kind INTEGER NOT NULL,
    upper REAL,
    upper_text TEXT,
    unit TEXT,
    report INTEGER NOT NULL,
    categories TEXT NOT NULL
);

-- Which items a product's operation has had so far: the way from a run to its measurements.
CREATE TABLE plan (
    id INTEGER PRIMARY KEY,
    product TEXT NOT NULL,
    operation TEXT NOT NULL,
    script TEXT NOT NULL,
    UNIQUE (product, operation, script)
);
CREATE TABLE plan_item (
    plan INTEGER NOT NULL REFERENCES plan,
    item INTEGER NOT NULL REFERENCES item,
    PRIMARY KEY (plan, item)
) WITHOUT ROWID;

-- `number` has no gaps.  What follows `begin_us` is written when the run ends; from its seal on nothing changes.
CREATE TABLE run (
    number INTEGER PRIMARY KEY,
    id BLOB NOT NULL UNIQUE,
    setup INTEGER NOT NULL REFERENCES setup,
    plan INTEGER NOT NULL REFERENCES plan,
    cell INTEGER NOT NULL,
    scanned TEXT,
    product TEXT NOT NULL,
    operation TEXT NOT NULL,
    purpose TEXT NOT NULL,
    operator TEXT NOT NULL,
    batch TEXT NOT NULL,
    serial_number TEXT,
    utc_offset_s INTEGER NOT NULL,
    begin_us INTEGER NOT NULL,
    end_us INTEGER,
    duration_us INTEGER,
    outcome TEXT NOT NULL DEFAULT 'RUNNING'
        CHECK (outcome IN ('RUNNING', 'OK', 'NG', 'TBD', 'ABORTED', 'EXCEPTION', 'INTERRUPTED')),
    reason TEXT NOT NULL DEFAULT '',
    details TEXT NOT NULL DEFAULT '',
    first_ng INTEGER REFERENCES item,
    measured INTEGER NOT NULL DEFAULT 0,
    ng INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX run_unit ON run (serial_number, product, operation, number);
CREATE INDEX run_begin ON run (begin_us, purpose, product, operation, serial_number, outcome, cell, first_ng,
                               operator, batch);
CREATE INDEX run_open ON run (number) WHERE outcome = 'RUNNING';

-- Clustered by item and run: one item over all units is one range.  A value stands in the column of its kind:
-- 0 nothing, 1 number, 2 integer (`number`, and `text` where a number cannot hold it), 3 text, 4 bool (`truth`),
-- 5 not a number, 6 infinity, 7 minus infinity, 8 anything else (`text` is its repr), 9 array (an attachment).
CREATE TABLE measurement (
    item INTEGER NOT NULL REFERENCES item,
    run INTEGER NOT NULL REFERENCES run,
    seq INTEGER NOT NULL,
    kind INTEGER NOT NULL,
    number REAL,
    text TEXT,
    truth INTEGER,
    criterion INTEGER NOT NULL REFERENCES criterion,
    verdict INTEGER NOT NULL,  -- 0 NG, 1 OK, 2 TBD
    time_us INTEGER,           -- from the run's begin
    elapsed_us INTEGER,
    attempt INTEGER NOT NULL,  -- within a retry, from 1
    PRIMARY KEY (item, run, seq)
) WITHOUT ROWID;
CREATE INDEX measurement_ng ON measurement (run, seq) WHERE verdict = 0;

-- What else is to be said of a measurement.
CREATE TABLE note (
    run INTEGER NOT NULL REFERENCES run,
    seq INTEGER NOT NULL,
    text TEXT NOT NULL,
    PRIMARY KEY (run, seq)
) WITHOUT ROWID;

CREATE TABLE attachment (
    run INTEGER NOT NULL REFERENCES run,
    number INTEGER NOT NULL,
    name TEXT NOT NULL,
    seq INTEGER,               -- of the measurement whose value it is
    content INTEGER NOT NULL REFERENCES content,
    at_us INTEGER NOT NULL,
    PRIMARY KEY (run, number),
    UNIQUE (run, name)
) WITHOUT ROWID;

CREATE TABLE instrument (
    run INTEGER NOT NULL REFERENCES run,
    name TEXT NOT NULL,
    identity TEXT NOT NULL,
    calibration_due TEXT,      -- a date, YYYY-MM-DD
    PRIMARY KEY (run, name)
) WITHOUT ROWID;

CREATE TABLE event (
    number INTEGER PRIMARY KEY,
    id BLOB NOT NULL UNIQUE,
    run INTEGER REFERENCES run,
    cell INTEGER,
    at_us INTEGER NOT NULL,
    kind TEXT NOT NULL,
    text TEXT NOT NULL,
    data TEXT NOT NULL         -- JSON
);
CREATE INDEX event_run ON event (run) WHERE run IS NOT NULL;

-- A sealed run that turned out otherwise: its own row stays, this one says what holds.
CREATE TABLE correction (
    seal INTEGER PRIMARY KEY,
    run INTEGER NOT NULL REFERENCES run,
    at_us INTEGER NOT NULL,
    outcome TEXT NOT NULL,
    reason TEXT NOT NULL,
    details TEXT NOT NULL
);
CREATE INDEX correction_run ON correction (run, seal);

-- The chain, in the order of sealing and without gaps: one seal a run, one a correction.
-- `hash` is that of the record, with all events up to number `events`; `chain` = SHA-256(chain before + hash).
CREATE TABLE seal (
    number INTEGER PRIMARY KEY,
    run INTEGER NOT NULL REFERENCES run,
    at_us INTEGER NOT NULL,
    events INTEGER NOT NULL,
    hash BLOB NOT NULL,
    chain BLOB NOT NULL
);
CREATE INDEX seal_run ON seal (run);

-- What stands at each cell now; overwritten, outside the chain.
CREATE TABLE now (
    cell INTEGER PRIMARY KEY,
    state TEXT NOT NULL,
    run BLOB,
    serial_number TEXT,
    since_us INTEGER NOT NULL,
    measured INTEGER NOT NULL,
    progress REAL,
    heartbeat_us INTEGER NOT NULL
);

-- Months whose measurements were moved into a file (Parquet, path beside this one); everything else of their runs stays.
CREATE TABLE archive (
    month TEXT PRIMARY KEY,    -- of the runs' begin, UTC, like 2026-01
    path TEXT NOT NULL,
    sha256 BLOB NOT NULL,
    runs INTEGER NOT NULL,
    measurements INTEGER NOT NULL,
    at_us INTEGER NOT NULL
) WITHOUT ROWID;

-- What the station has to remember: 'told' is the seal up to which interrupted units were shown to the operator.
CREATE TABLE memory (
    key TEXT NOT NULL PRIMARY KEY,
    value TEXT NOT NULL
) WITHOUT ROWID;

-- The outcome that holds.
CREATE VIEW result AS
SELECT run.number, run.id, run.setup, run.plan, run.cell, run.scanned, run.product, run.operation, run.purpose,
       run.operator, run.batch, run.serial_number, run.utc_offset_s, run.begin_us, run.end_us, run.duration_us,
       coalesce((SELECT outcome FROM correction WHERE run = run.number ORDER BY seal DESC LIMIT 1), run.outcome)
           AS outcome,
       coalesce((SELECT reason FROM correction WHERE run = run.number ORDER BY seal DESC LIMIT 1), run.reason)
           AS reason,
       run.details, run.first_ng, run.measured, run.ng
FROM run;

CREATE TRIGGER run_sealed BEFORE UPDATE ON run WHEN EXISTS (SELECT 1 FROM seal WHERE run = OLD.number)
BEGIN SELECT raise(ABORT, 'a sealed run does not change; a correction is a new row'); END;
CREATE TRIGGER event_kept BEFORE UPDATE ON event
BEGIN SELECT raise(ABORT, 'events do not change'); END;
CREATE TRIGGER seal_kept BEFORE UPDATE ON seal
BEGIN SELECT raise(ABORT, 'seals do not change'); END;
CREATE TRIGGER correction_kept BEFORE UPDATE ON correction
BEGIN SELECT raise(ABORT, 'corrections do not change'); END;
CREATE TRIGGER run_kept BEFORE DELETE ON run
BEGIN SELECT raise(ABORT, 'runs are not deleted'); END;
