"""The questions to a line's database.  Every value is bound; what is put together here are constants alone."""

VERSION = "SELECT version FROM qon.about"
STATIONS = "SELECT id, name, created_us FROM qon.station ORDER BY name, id"

_RUN = """
SELECT r.number, r.id, r.cell, r.scanned, r.product, r.operation, r.purpose, r.operator, r.batch, r.serial_number,
       r.utc_offset_s, r.begin_us, r.end_us, r.duration_us, r.outcome, r.reason, r.details,
       (SELECT name FROM qon.item WHERE item.id = r.first_ng), r.measured, r.ng, r.station
"""

_WANTED = """
WHERE r.begin_us >= %(since)s AND r.begin_us < %(until)s
  AND (%(product)s::text IS NULL OR r.product = %(product)s)
  AND (%(operation)s::text IS NULL OR r.operation = %(operation)s)
  AND (%(purpose)s::text IS NULL OR r.purpose = %(purpose)s)
  AND (%(outcome)s::text IS NULL OR r.outcome = %(outcome)s)
  AND (%(station)s::uuid IS NULL OR r.station = %(station)s)
  AND (%(cell)s::integer IS NULL OR r.cell = %(cell)s)
  AND (%(operator)s::text IS NULL OR r.operator = %(operator)s)
  AND (%(batch)s::text IS NULL OR r.batch = %(batch)s)
  AND (%(serial)s::text IS NULL OR r.serial_number LIKE %(serial)s ESCAPE '\\')
  AND (%(failed)s::text IS NULL OR EXISTS (
        SELECT 1 FROM qon.measurement AS f JOIN qon.item AS i ON i.id = f.item
        WHERE f.run = r.id AND f.verdict = 0 AND i.name = %(failed)s))
"""

RUNS = _RUN + "FROM qon.result AS r" + _WANTED + "ORDER BY r.begin_us DESC, r.id DESC LIMIT %(limit)s"
# By serial number alone: a plan that begins with the time would walk through everything.
RUNS_BY_SERIAL = (
    _RUN
    + "FROM (SELECT * FROM qon.result WHERE serial_number LIKE %(serial)s ESCAPE '\\' OFFSET 0) AS r"
    + _WANTED
    + "ORDER BY r.begin_us DESC, r.id DESC LIMIT %(limit)s"
)
RUN_BY_ID = _RUN + "FROM qon.result AS r WHERE r.id BETWEEN %(first)s AND %(last)s LIMIT 2"
OWN_RUN = _RUN + "FROM qon.run AS r WHERE r.id = %(run)s"
ATTEMPTS = (
    _RUN
    + """FROM qon.result AS r
WHERE r.serial_number = %(serial)s AND r.product = %(product)s AND r.operation = %(operation)s
ORDER BY r.begin_us, r.id"""
)

SETUP = """
SELECT s.host, s.script, s.script_sha256, s.limits, s.limits_sha256, s.config, s.config_sha256, s.parameters_sha256,
       s.versions
FROM qon.run AS r JOIN qon.setup AS s ON s.key = r.setup WHERE r.id = %(run)s
"""
MEASUREMENTS = """
SELECT m.seq, i.name, m.kind, m.number, m.text, m.truth, m.verdict, m.time_us, m.elapsed_us, m.attempt, m.note,
       c.lower_kind, c.lower_number, c.lower_text, c.upper_kind, c.upper_number, c.upper_text, c.unit, c.report,
       c.categories
FROM qon.measurement AS m
JOIN qon.item AS i ON i.id = m.item
JOIN qon.criterion AS c ON c.id = m.criterion
WHERE m.run = %(run)s ORDER BY m.seq
"""
INSTRUMENTS = "SELECT name, identity, calibration_due FROM qon.instrument WHERE run = %(run)s ORDER BY name"
ATTACHMENTS = """
SELECT a.number, a.name, a.seq, a.sha256, c.size, a.at_us
FROM qon.attachment AS a JOIN qon.content AS c ON c.sha256 = a.sha256 WHERE a.run = %(run)s ORDER BY a.number
"""
CONTENT = "SELECT data FROM qon.content WHERE sha256 = %s"

_EVENT = "SELECT e.number, e.id, e.run, e.cell, e.at_us, e.kind, e.text, e.data FROM qon.event AS e "
EVENTS_OF_RUN = _EVENT + "WHERE e.run = %(run)s ORDER BY e.number"
EVENTS_BETWEEN = (
    _EVENT
    + "WHERE e.station = %(station)s AND e.number > %(after)s AND e.number <= %(last)s ORDER BY e.number"
)
EVENTS = (
    _EVENT
    + """WHERE (%(cell)s::integer IS NULL OR e.cell = %(cell)s)
  AND (%(station)s::uuid IS NULL OR e.station = %(station)s)
  AND e.at_us >= %(since)s AND e.at_us < %(until)s
ORDER BY e.at_us DESC, e.number DESC LIMIT %(limit)s"""
)
CORRECTIONS = """
SELECT seal, at_us, outcome, reason, details FROM qon.correction WHERE run = %(run)s ORDER BY seal
"""
_SEAL = "SELECT number, run, at_us, events, hash, chain FROM qon.seal "
SEALS_OF_RUN = _SEAL + "WHERE run = %(run)s ORDER BY number"
SEALS_OF_STATION = (
    _SEAL + "WHERE station = %(station)s AND number > %(after)s ORDER BY number LIMIT %(limit)s"
)
SEALS_OF_ALL = _SEAL + "ORDER BY station, number OFFSET %(after)s LIMIT %(limit)s"

SEALED = """
SELECT s.station, s.number, r.number, r.id, r.cell, r.product, r.operation, r.purpose, r.operator, r.batch,
       r.serial_number, r.begin_us, r.end_us, r.duration_us, r.outcome,
       (SELECT name FROM qon.item WHERE item.id = r.first_ng),
       coalesce(r.serial_number, '') = '' OR NOT EXISTS (
           SELECT 1 FROM qon.result AS e
           WHERE e.serial_number = r.serial_number AND e.product = r.product AND e.operation = r.operation
             AND (e.begin_us, e.id) < (r.begin_us, r.id) AND e.purpose = r.purpose
             AND e.outcome IN ('OK', 'NG', 'TBD')),
       EXISTS (SELECT 1 FROM qon.correction AS c WHERE c.station = s.station AND c.seal = s.number)
FROM unnest(%(stations)s::uuid[], %(after)s::bigint[]) AS known (station, seal)
CROSS JOIN LATERAL (
    SELECT * FROM qon.seal WHERE seal.station = known.station AND seal.number > known.seal
    ORDER BY seal.number LIMIT %(limit)s) AS s
JOIN qon.result AS r ON r.id = s.run
ORDER BY s.station, s.number
"""
NEWEST_SEALS = """
SELECT station.id, coalesce((SELECT max(number) FROM qon.seal WHERE seal.station = station.id), 0) FROM qon.station
"""

NOW = """
SELECT cell, state, run, serial_number, since_us, measured, progress, heartbeat_us FROM qon.now
ORDER BY (SELECT name FROM qon.station WHERE station.id = now.station), station, cell
"""
NOW_OF_STATIONS = """
SELECT station, cell, state, run, serial_number, since_us, measured, progress, heartbeat_us FROM qon.now
ORDER BY (SELECT name FROM qon.station WHERE station.id = now.station), station, cell
"""

ITEMS = (
    """
SELECT i.name, c.count, c.runs, c.ng
FROM (SELECT m.item, count(*) AS count, count(DISTINCT m.run) AS runs, count(*) FILTER (WHERE m.verdict = 0) AS ng
      FROM qon.result AS r JOIN qon.measurement AS m ON m.run = r.id
"""
    + _WANTED
    + "GROUP BY m.item) AS c JOIN qon.item AS i ON i.id = c.item ORDER BY i.name"
)
ITEM_NAMES = "SELECT name FROM qon.item ORDER BY name"
ITEM_ID = "SELECT id FROM qon.item WHERE name = %s"
ITEM_VALUES = (
    """
SELECT r.number, r.station, m.seq, r.cell, m.attempt, m.kind, m.number, m.truth, m.verdict,
       c.lower_number, c.upper_number, r.begin_us + coalesce(m.time_us, 0), c.unit
FROM qon.measurement AS m
JOIN qon.result AS r ON r.id = m.run
JOIN qon.criterion AS c ON c.id = m.criterion
"""
    + _WANTED
    + " AND m.item = %(item)s ORDER BY r.begin_us, r.id, m.seq"
)

# First attempts: no earlier one of the same unit, operation and purpose that came to a verdict, at any station.
YIELDS = (
    """
SELECT r.product, r.operation, r.serial_number, r.outcome, r.begin_us,
       coalesce(r.serial_number, '') = '' OR NOT EXISTS (
           SELECT 1 FROM qon.result AS e
           WHERE e.serial_number = r.serial_number AND e.product = r.product AND e.operation = r.operation
             AND (e.begin_us, e.id) < (r.begin_us, r.id) AND e.purpose = r.purpose
             AND e.outcome IN ('OK', 'NG', 'TBD'))
FROM qon.result AS r
"""
    + _WANTED
    + "ORDER BY r.begin_us, r.id"
)
PARETO = (
    "WITH failed AS (SELECT r.id, r.first_ng FROM qon.result AS r "
    + _WANTED
    + """ AND r.outcome = 'NG'),
counted AS (
    SELECT first_ng AS item, count(*) AS first, 0 AS every FROM failed WHERE first_ng IS NOT NULL GROUP BY first_ng
    UNION ALL
    SELECT m.item, 0, count(DISTINCT m.run) FROM failed
    JOIN qon.measurement AS m ON m.run = failed.id AND m.verdict = 0 GROUP BY m.item)
SELECT i.name, sum(counted.first)::bigint, sum(counted.every)::bigint
FROM counted JOIN qon.item AS i ON i.id = counted.item
GROUP BY i.name ORDER BY 2 DESC, 3 DESC, 1
"""
)
RUN_NUMBERS = """
SELECT number, number - lag(number, 1, 0::bigint) OVER (ORDER BY number) FROM qon.run WHERE station = %s ORDER BY number
"""
COUNTS = "SELECT (SELECT count(*) FROM qon.run), (SELECT count(*) FROM qon.seal), (SELECT sum(measured) FROM qon.run)"
POSITION = "SELECT number, chain FROM qon.seal WHERE station = %s ORDER BY number DESC LIMIT 1"
