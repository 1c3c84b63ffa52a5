"""In the station: what is measured is handed to the writer, and each run waits for its seal."""
