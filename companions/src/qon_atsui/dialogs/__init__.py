"""The dialogs of the station window."""
