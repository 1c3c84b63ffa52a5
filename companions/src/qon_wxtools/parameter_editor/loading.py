"""Loads the directory for the editor, or says why there is nothing to edit."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING

from qon_companions.i18n import _
from qon_companions.parameters import ParameterError

if TYPE_CHECKING:
    from qon_paratree import Node, ParameterDirectory


class CannotLoad(Exception):
    """With a text for the operator."""


def load(path: str | os.PathLike[str] | None) -> ParameterDirectory:
    """The directory's tree; CannotLoad names the directory or the file, and what to do."""
    import qon_paratree

    if not path:
        raise CannotLoad(_("The application names no directory of parameters."))
    full = os.path.abspath(path)
    try:
        directory = qon_paratree.ParameterDirectory.load(path)
    except ParameterError as error:
        text = _("The parameters in {path} cannot be used. Correct this in a spreadsheet program:")
        raise CannotLoad(f"{text.format(path=full)}\n\n{error}") from error
    except FileNotFoundError as error:
        text = _("The directory {path} does not exist. Create it, or start the application where it is.")
        raise CannotLoad(text.format(path=error.filename or full)) from error
    except OSError as error:
        text = _("{path} cannot be read: {reason}.")
        raise CannotLoad(text.format(path=error.filename or full, reason=error.strerror or error)) from error
    if not hasattr(directory, "root"):
        text = _("The module {file} has no tree that this editor can show.")
        raise CannotLoad(text.format(file=qon_paratree.__file__))
    return directory


def locked(node: Node) -> str:
    """Why a value below this node cannot be changed and saved; "" when it can."""
    reason = node.locked
    above: Node | None = node
    while above is not None and not reason:
        file = getattr(above, "file", None)
        if file is not None and not os.access(file, os.W_OK):
            reason = _("{file} is read-only; its values can be looked at only.").format(file=file)
        elif file is not None and not os.access(file.parent, os.W_OK):
            reason = _("{file} is read-only; its values can be looked at only.").format(file=file.parent)
        above = above.parent
    return reason
