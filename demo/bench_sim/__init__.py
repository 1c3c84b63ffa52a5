"""Simulation of the instruments, fixtures and boards of the demonstration station.

Nothing here is imported by the test scripts: they reach the bench through VISA resource names alone, as they
would reach real instruments.
"""
