-- The results of a line of stations, version 1.  The columns are those of a station's file, with the station in the keys.
-- Times are UTC in microseconds since 1970, hashes SHA-256.

CREATE SCHEMA qon;
SET search_path = qon;

-- What a program has to know before it writes.
CREATE TABLE about (version integer NOT NULL);
INSERT INTO about VALUES (1);

CREATE TABLE station (
    id uuid PRIMARY KEY,
    name text NOT NULL,
    created_us bigint NOT NULL
);

CREATE TABLE content (
    sha256 bytea PRIMARY KEY,
    size bigint NOT NULL,
    data bytea NOT NULL
);

CREATE TABLE setup (
    key bytea PRIMARY KEY,
    host text NOT NULL,
    script text NOT NULL,
    script_sha256 bytea,
    limits text NOT NULL,
    limits_sha256 bytea,
    config text NOT NULL,
    config_sha256 bytea,
    parameters_sha256 bytea,
    versions text NOT NULL
);

CREATE TABLE item (
    id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    name text NOT NULL UNIQUE
);

-- What an item was judged by: limits, unit, report flag, categories (a JSON list).
CREATE TABLE criterion (
    id integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    key bytea NOT NULL UNIQUE,
    lower_kind smallint NOT NULL,
    lower_number double precision,
    lower_text text,
    upper_kind smallint NOT NULL,
    upper_number double precision,
    upper_text text,
    unit text,
    report boolean NOT NULL,
    categories text NOT NULL
);

CREATE TABLE run (
    id uuid PRIMARY KEY,
    station uuid NOT NULL,
    number bigint NOT NULL,
    setup bytea NOT NULL,
    cell integer NOT NULL,
    scanned text,
    product text NOT NULL,
    operation text NOT NULL,
    purpose text NOT NULL,
    operator text NOT NULL,
    batch text NOT NULL,
    serial_number text,
    utc_offset_s integer NOT NULL,
    begin_us bigint NOT NULL,
    end_us bigint,
    duration_us bigint,
    outcome text NOT NULL,
    reason text NOT NULL,
    details text NOT NULL,
    first_ng integer,
    measured integer NOT NULL,
    ng integer NOT NULL,
    UNIQUE (station, number)
);
CREATE INDEX run_unit ON run (serial_number text_pattern_ops, product, operation, begin_us);
CREATE INDEX run_begin ON run (begin_us) INCLUDE (purpose, product, operation, outcome);

-- By month of the run's begin, which stands in front of its id; the next months' parts are made by add_months().
CREATE TABLE measurement (
    run uuid NOT NULL,
    seq integer NOT NULL,
    item integer NOT NULL,
    kind smallint NOT NULL,
    number double precision,
    text text,
    truth boolean,
    criterion integer NOT NULL,
    verdict smallint NOT NULL,
    time_us bigint,
    elapsed_us bigint,
    attempt integer NOT NULL,
    note text,
    PRIMARY KEY (run, seq)
) PARTITION BY RANGE (run);
CREATE TABLE measurement_other PARTITION OF measurement DEFAULT;
CREATE INDEX measurement_item ON measurement (item, run);
CREATE INDEX measurement_ng ON measurement (run) WHERE verdict = 0;

CREATE TABLE attachment (
    run uuid NOT NULL,
    number integer NOT NULL,
    name text NOT NULL,
    seq integer,
    sha256 bytea NOT NULL,
    at_us bigint NOT NULL,
    PRIMARY KEY (run, number)
);

CREATE TABLE instrument (
    run uuid NOT NULL,
    name text NOT NULL,
    identity text NOT NULL,
    calibration_due text,
    PRIMARY KEY (run, name)
);

CREATE TABLE event (
    station uuid NOT NULL,
    number bigint NOT NULL,
    id uuid NOT NULL,
    run uuid,
    cell integer,
    at_us bigint NOT NULL,
    kind text NOT NULL,
    text text NOT NULL,
    data text NOT NULL,
    PRIMARY KEY (station, number)
);
CREATE INDEX event_run ON event (run) WHERE run IS NOT NULL;
CREATE INDEX event_time ON event (at_us);

CREATE TABLE correction (
    station uuid NOT NULL,
    seal bigint NOT NULL,
    run uuid NOT NULL,
    at_us bigint NOT NULL,
    outcome text NOT NULL,
    reason text NOT NULL,
    details text NOT NULL,
    PRIMARY KEY (station, seal)
);
CREATE INDEX correction_run ON correction (run, seal);

-- Written last in each transaction: the newest seal of a station tells how far the line has its records.
CREATE TABLE seal (
    station uuid NOT NULL,
    number bigint NOT NULL,
    run uuid NOT NULL,
    at_us bigint NOT NULL,
    events bigint NOT NULL,
    hash bytea NOT NULL,
    chain bytea NOT NULL,
    PRIMARY KEY (station, number)
);
CREATE INDEX seal_run ON seal (run);

-- What stands at each cell now; the one table that stations overwrite.
CREATE TABLE now (
    station uuid NOT NULL,
    cell integer NOT NULL,
    state text NOT NULL,
    run uuid,
    serial_number text,
    since_us bigint NOT NULL,
    measured integer NOT NULL,
    progress double precision,
    heartbeat_us bigint NOT NULL,
    PRIMARY KEY (station, cell)
);

-- The outcome that holds.
CREATE VIEW result AS
SELECT r.id, r.station, r.number, r.setup, r.cell, r.scanned, r.product, r.operation, r.purpose, r.operator, r.batch,
       r.serial_number, r.utc_offset_s, r.begin_us, r.end_us, r.duration_us,
       coalesce(c.outcome, r.outcome) AS outcome, coalesce(c.reason, r.reason) AS reason,
       r.details, r.first_ng, r.measured, r.ng
FROM run AS r
LEFT JOIN LATERAL (
    SELECT outcome, reason FROM correction WHERE run = r.id ORDER BY seal DESC LIMIT 1
) AS c ON true;

-- Months ahead get a part of their own; what comes for other times goes into measurement_other.
CREATE FUNCTION add_months(ahead integer) RETURNS integer LANGUAGE plpgsql AS $$
DECLARE
    first date := date_trunc('month', now() AT TIME ZONE 'UTC');
    made integer := 0;
    part text;
    low uuid;
    high uuid;
BEGIN
    FOR month IN 0..ahead LOOP
        part := 'measurement_' || to_char(first + make_interval(months => month), 'YYYY_MM');
        IF to_regclass('qon.' || part) IS NULL THEN
            low := lpad(to_hex((extract(epoch FROM first + make_interval(months => month)) * 1000)::bigint), 12, '0')
                || repeat('0', 20);
            high := lpad(to_hex((extract(epoch FROM first + make_interval(months => month + 1)) * 1000)::bigint), 12, '0')
                || repeat('0', 20);
            EXECUTE format('CREATE TABLE qon.%I PARTITION OF qon.measurement FOR VALUES FROM (%L) TO (%L)', part, low, high);
            made := made + 1;
        END IF;
    END LOOP;
    RETURN made;
END $$;
SELECT add_months(12);

-- Stations add and read; they change nothing but what stands at their cells now.  People read.
DO $$
BEGIN
    IF NOT EXISTS (SELECT 1 FROM pg_roles WHERE rolname = 'qon_station') THEN CREATE ROLE qon_station NOLOGIN; END IF;
    IF NOT EXISTS (SELECT 1 FROM pg_roles WHERE rolname = 'qon_reader') THEN CREATE ROLE qon_reader NOLOGIN; END IF;
END $$;
GRANT USAGE ON SCHEMA qon TO qon_station, qon_reader;
GRANT SELECT ON ALL TABLES IN SCHEMA qon TO qon_station, qon_reader;
GRANT INSERT ON station, content, setup, item, criterion, run, measurement, attachment, instrument, event, correction,
    seal, now TO qon_station;
GRANT UPDATE, DELETE ON now TO qon_station;
