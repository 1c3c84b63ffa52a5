"""In the station's process: takes what units recorded and waits for the disk before green."""
