"""The line's database: outbox and sender."""
