"""The keys of the configuration workbook that the recorder reads, for the station's check."""

from qon_station.keys import CELL, MAIN, Key

KEYS = (
    Key(MAIN, "results_folder", "str", "results", "where the file of results lies, on a disk of the station"),
    Key(MAIN, "results_required", "bool", "yes", "whether nothing is tested when nothing can be recorded"),
    Key(MAIN, "results_commit_ms", "int", "1000", "what was measured longer ago survives a power cut", 100),
    Key(MAIN, "results_min_free_mb", "int", "500", "with less free space no test starts", 1),
    Key(MAIN, "results_attachment_mb", "int", "64", "largest attachment of a unit", 1),
    Key(MAIN, "results_station", "str", "the computer's name", "the station's name in the results"),
    Key(
        MAIN,
        "results_history_hours",
        "int",
        "12",
        "units of so many hours are listed again after a restart; 0: none",
        0,
    ),
    Key(
        MAIN,
        "results_line",
        "str",
        "none",
        "address of the line's database, without a password",
        may_be_empty=True,
    ),
    Key(
        MAIN,
        "operator_pseudonym",
        "bool",
        "yes",
        "whether operators are kept under a pseudonym, their names nowhere",
    ),
    Key(
        MAIN,
        "require_operation_offline",
        "str",
        "refuse",
        "while the line's database is away: refuse, allow or local",
    ),
    Key(
        CELL,
        "require_operation",
        "str",
        "none",
        "operation that must have been OK before a unit is started",
        may_be_empty=True,
    ),
    Key(CELL, "product", "str", "none", "what is tested; yields are counted by product and operation"),
    Key(CELL, "operation", "str", "none", "the step of the process"),
    Key(CELL, "purpose", "str", "production", "production, engineering, reference unit or gauge study"),
)
