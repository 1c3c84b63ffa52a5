"""The station window with its commands and totals."""
