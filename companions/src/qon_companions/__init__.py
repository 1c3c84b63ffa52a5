"""Support code that the default companion modules share."""
