"""The process that owns the database file."""
