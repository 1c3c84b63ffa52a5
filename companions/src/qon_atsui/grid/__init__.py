"""The grid that shows records, and what it is made of."""
