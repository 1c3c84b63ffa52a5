"""Schema and queries of one station's file."""
