"""From columns to figures; no database, no page."""
