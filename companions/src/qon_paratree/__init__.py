"""The editable test parameters of a station: a tree of directories and .xlsx workbooks."""

from .access import Branch, ParameterDirectory
from .nodes import DirectoryNode, Node, ParameterNode, SheetNode, WorkbookNode

__all__ = [
    "Branch",
    "DirectoryNode",
    "Node",
    "ParameterDirectory",
    "ParameterNode",
    "SheetNode",
    "WorkbookNode",
]
