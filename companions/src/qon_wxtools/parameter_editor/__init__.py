"""The editor of the test parameters: a directory of workbooks as a tree, its values in a table."""

from .dialog import ParameterTreeDialog

__all__ = ["ParameterTreeDialog"]
