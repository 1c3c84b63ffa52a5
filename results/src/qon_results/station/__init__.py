"""What the station's people meet of the results: the list goes on, the totals too, operators, process steps."""
