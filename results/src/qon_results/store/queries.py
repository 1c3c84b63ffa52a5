"""The questions to a station's file.  Every value is bound; what is put together here are constants alone."""

STATIONS = "SELECT id, name, created_us FROM station"

_RUN = """
SELECT r.number, r.id, r.cell, r.scanned, r.product, r.operation, r.purpose, r.operator, r.batch, r.serial_number,
       r.utc_offset_s, r.begin_us, r.end_us, r.duration_us, r.outcome, r.reason, r.details,
       (SELECT name FROM item WHERE item.id = r.first_ng), r.measured, r.ng, (SELECT id FROM station)
"""

_WANTED = """
WHERE r.begin_us >= :since AND r.begin_us < :until
  AND (:product IS NULL OR r.product = :product)
  AND (:operation IS NULL OR r.operation = :operation)
  AND (:purpose IS NULL OR r.purpose = :purpose)
  AND (:outcome IS NULL OR r.outcome = :outcome)
  AND (:station IS NULL OR (SELECT id FROM station) = :station)
  AND (:cell IS NULL OR r.cell = :cell)
  AND (:operator IS NULL OR r.operator = :operator)
  AND (:batch IS NULL OR r.batch = :batch)
  AND (:serial IS NULL OR r.serial_number GLOB :serial)
  AND (:failed IS NULL OR EXISTS (
        SELECT 1 FROM measurement AS f
        WHERE f.run = r.number AND f.verdict = 0 AND f.item = (SELECT id FROM item WHERE name = :failed))
    OR r.number IN (SELECT value FROM json_each(:failed_archived)))
"""

# The first by the time of begin, the second by serial number (from its fixed beginning on).
RUNS_BY_TIME = _RUN + "FROM result AS r" + _WANTED + "ORDER BY r.begin_us DESC, r.number DESC LIMIT :limit"
RUNS_BY_SERIAL = (
    _RUN
    + "FROM result AS r"
    + _WANTED.replace("r.begin_us", "+r.begin_us")
    + "  AND r.serial_number BETWEEN :serial_from AND :serial_to ORDER BY +r.number DESC LIMIT :limit"
)
RUN_BY_ID = _RUN + "FROM result AS r WHERE r.id >= :first AND r.id <= :last LIMIT 2"
OWN_RUN = _RUN + "FROM run AS r WHERE r.number = :run"
ATTEMPTS = (
    _RUN
    + """FROM result AS r
WHERE r.serial_number = :serial AND r.product = :product AND r.operation = :operation ORDER BY r.number"""
)

SETUP = """
SELECT s.host, s.script, a.sha256, s.limits, b.sha256, s.config, c.sha256, d.sha256, s.versions
FROM run JOIN setup AS s ON s.id = run.setup
LEFT JOIN content AS a ON a.id = s.script_content
LEFT JOIN content AS b ON b.id = s.limits_content
LEFT JOIN content AS c ON c.id = s.config_content
LEFT JOIN content AS d ON d.id = s.parameters_content
WHERE run.number = :run
"""

# In the order of `Measurement`.  The plan's items come first: each is one look into the clustered table.
MEASUREMENTS = """
SELECT m.seq, i.name, m.kind, m.number, m.text, m.truth, m.verdict, m.time_us, m.elapsed_us, m.attempt, n.text,
       s.lower_kind, s.lower, s.lower_text, s.upper_kind, s.upper, s.upper_text, s.unit, s.report, s.categories
FROM plan_item AS p
CROSS JOIN measurement AS m ON m.item = p.item AND m.run = :run
CROSS JOIN item AS i ON i.id = m.item
CROSS JOIN criterion AS s ON s.id = m.criterion
LEFT JOIN note AS n ON n.run = m.run AND n.seq = m.seq
WHERE p.plan = (SELECT plan FROM run WHERE number = :run)
ORDER BY m.seq
"""

INSTRUMENTS = "SELECT name, identity, calibration_due FROM instrument WHERE run = :run ORDER BY name"
ATTACHMENTS = """
SELECT a.number, a.name, a.seq, c.sha256, c.size, a.at_us
FROM attachment AS a JOIN content AS c ON c.id = a.content WHERE a.run = :run ORDER BY a.number
"""
CONTENT = "SELECT data FROM content WHERE sha256 = ?"

_EVENT = """
SELECT e.number, e.id, (SELECT id FROM run WHERE number = e.run), e.cell, e.at_us, e.kind, e.text, e.data FROM event AS e
"""
EVENTS_OF_RUN = _EVENT + "WHERE e.run = :run ORDER BY e.number"
EVENTS_BETWEEN = _EVENT + "WHERE e.number > :after AND e.number <= :last ORDER BY e.number"
EVENTS = (
    _EVENT
    + """WHERE (:cell IS NULL OR e.cell = :cell) AND e.at_us >= :since AND e.at_us < :until
ORDER BY e.number DESC LIMIT :limit"""
)

CORRECTIONS = "SELECT seal, at_us, outcome, reason, details FROM correction WHERE run = :run ORDER BY seal"
_SEAL = "SELECT s.number, (SELECT id FROM run WHERE number = s.run), s.at_us, s.events, s.hash, s.chain FROM seal AS s "
SEALS_OF_RUN = _SEAL + "WHERE s.run = :run ORDER BY s.number"
SEALS = _SEAL + "WHERE s.number > :after ORDER BY s.number LIMIT :limit"

SEALED = """
SELECT (SELECT id FROM station), s.number, r.number, r.id, r.cell, r.product, r.operation, r.purpose, r.operator,
       r.batch, r.serial_number, r.begin_us, r.end_us, r.duration_us, r.outcome,
       (SELECT name FROM item WHERE item.id = r.first_ng),
       coalesce(r.serial_number, '') = '' OR NOT EXISTS (
           SELECT 1 FROM result AS e
           WHERE e.serial_number = r.serial_number AND e.product = r.product AND e.operation = r.operation
             AND e.number < r.number AND e.purpose = r.purpose AND e.outcome IN ('OK', 'NG', 'TBD')),
       EXISTS (SELECT 1 FROM correction WHERE correction.seal = s.number)
FROM seal AS s CROSS JOIN result AS r ON r.number = s.run
WHERE s.number > :after ORDER BY s.number LIMIT :limit
"""
NEWEST_SEAL = "SELECT coalesce(max(number), 0) FROM seal"

NOW = """
SELECT cell, state, run, serial_number, since_us, measured, progress, heartbeat_us FROM now ORDER BY cell
"""

ITEMS = """
SELECT i.name, count(*), count(DISTINCT m.run), sum(m.verdict = 0)
FROM item AS i JOIN measurement AS m ON m.item = i.id GROUP BY i.id ORDER BY i.name
"""
ITEMS_WANTED = (
    """
SELECT i.name, count(*), count(DISTINCT m.run), sum(m.verdict = 0)
FROM result AS r
CROSS JOIN plan_item AS p ON p.plan = r.plan
CROSS JOIN measurement AS m ON m.item = p.item AND m.run = r.number
CROSS JOIN item AS i ON i.id = m.item
"""
    + _WANTED
    + "GROUP BY i.id ORDER BY i.name"
)

ITEM_NAMES = "SELECT name FROM item ORDER BY name"
ITEM_ID = "SELECT id FROM item WHERE name = ?"
# Few numbers a row: value (infinity where there is none), then verdict, kind, attempt and criterion in one.
ITEM_VALUES = """
SELECT run, seq, coalesce(number, truth, 9e999), verdict | (kind << 2) | (min(attempt, 1023) << 6) | (criterion << 16),
       coalesce(time_us, 0)
FROM measurement WHERE item = ? AND run BETWEEN ? AND ? ORDER BY run, seq
"""
CRITERIA = "SELECT id, lower, upper, unit FROM criterion WHERE id IN (SELECT value FROM json_each(?))"
RUN_COLUMNS = "SELECT r.number, r.cell, r.begin_us FROM result AS r" + _WANTED

# First attempts: no earlier one of the same unit, operation and purpose that came to a verdict.
YIELDS = (
    """
SELECT r.product, r.operation, r.serial_number, r.outcome, r.number,
       r.serial_number IS NULL OR r.serial_number = '' OR NOT EXISTS (
           SELECT 1 FROM result AS e
           WHERE e.serial_number = r.serial_number AND e.product = r.product AND e.operation = r.operation
             AND e.number < r.number AND e.purpose = r.purpose AND e.outcome IN ('OK', 'NG', 'TBD'))
FROM result AS r
"""
    + _WANTED
)
PARETO = (
    """
WITH failed AS (SELECT r.number, r.first_ng FROM result AS r """
    + _WANTED
    + """ AND r.outcome = 'NG')
SELECT i.name, sum(first), sum(every) FROM (
    SELECT first_ng AS item, count(*) AS first, 0 AS every FROM failed WHERE first_ng IS NOT NULL GROUP BY first_ng
    UNION ALL
    SELECT m.item, 0, count(DISTINCT m.run) FROM failed
    CROSS JOIN measurement AS m ON m.run = failed.number AND m.verdict = 0 GROUP BY m.item)
JOIN item AS i ON i.id = item GROUP BY i.id ORDER BY sum(first) DESC, sum(every) DESC, i.name
"""
)

RUN_NUMBERS = (
    "SELECT number, number - lag(number, 1, :before) OVER (ORDER BY number) FROM run ORDER BY number"
)
COUNTS = "SELECT (SELECT count(*) FROM run), (SELECT count(*) FROM seal), (SELECT sum(measured) FROM run)"
LAST_SEAL = "SELECT number, events, chain FROM seal ORDER BY number DESC LIMIT 1"
ARCHIVES = "SELECT month, path, sha256, runs, measurements, at_us FROM archive ORDER BY month"

# Interrupted units that the operator was not told of, unless they have been tested again since.
UNTOLD = """
SELECT s.number, r.cell, r.serial_number, r.begin_us, r.utc_offset_s, r.measured
FROM seal AS s JOIN result AS r ON r.number = s.run
WHERE s.number > coalesce((SELECT CAST(value AS INTEGER) FROM memory WHERE key = 'told'), 0)
  AND r.outcome = 'INTERRUPTED'
  AND NOT EXISTS (SELECT 1 FROM run AS later WHERE later.serial_number = r.serial_number AND r.serial_number <> ''
                  AND later.product = r.product AND later.operation = r.operation AND later.number > r.number)
ORDER BY s.number
"""

# For the totals that a station goes on with: the last event of a kind, and how runs ended since then.
LAST_EVENTS = "SELECT cell, max(at_us) FROM event WHERE kind = :kind GROUP BY cell"
OUTCOMES = """
SELECT cell, outcome, count(*) FROM result
WHERE begin_us >= :since - 86400000000 AND begin_us < :until AND end_us >= :since
GROUP BY cell, outcome
"""
