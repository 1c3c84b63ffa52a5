"""The record of one step for scripts that organise a test as a list of items."""

from typing import Any

import pytest
import qon_ats
from qon_ats import Assertion


def step() -> None:
    """Stands for the function of a step."""


def test_fields_are_stored_as_they_are() -> None:
    assertion = Assertion("x")
    short = qon_ats.TestItem("x", assertion, step)
    assert short.name == "x"
    full = qon_ats.TestItem("y", assertion, step, step, after_test=None, retry_count=3, retry_interval=1)
    assert full.name == "y"
    with pytest.raises(AttributeError):
        full.name = "z"


WRONG = [{"name": 5}, {"retry_count": "3"}, {"retry_count": 1.5}, {"retry_interval": "1"}]


@pytest.mark.parametrize("arguments", WRONG)
def test_arguments_of_a_wrong_type_are_refused(arguments: dict[str, Any]) -> None:
    with pytest.raises(TypeError):
        qon_ats.TestItem(**{"name": "x", "assertion": Assertion("x"), "test_func": step} | arguments)
