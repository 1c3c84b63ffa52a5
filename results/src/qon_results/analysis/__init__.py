"""From columns to figures: pure functions, without a database or a page in them.

Values are NumPy arrays in the order of measuring; NaN stands for "not a number" and is left out of a figure and counted.
A figure that cannot be had from the data is an `Estimate` without a value that tells the reason.
"""
