"""Every unit on record: durable results of test stations, from one station to a line."""
