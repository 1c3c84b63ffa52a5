"""Figures over the archives of many stations, lines and plants, computed by Dask; `qon-results fleet`."""
