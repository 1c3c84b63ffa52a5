"""The layout of the test data viewer."""
