"""A cell and a frame without windows: questions are answered by the test, output is kept."""

import contextlib
import os
import sys
from collections.abc import Callable, Iterator, Mapping
from typing import Any

import qon_ats
from qon_handy import Callback


class UnansweredQuestionError(LookupError):
    """The script asked something that the test has no answer for."""


class FakeFrame:
    """What a script reaches of the main window."""

    def __init__(self, app_config: Any, shared: dict[str, Any]) -> None:
        self.app_config = app_config
        self.cell_start_event = Callback()
        self._shared = shared

    def get_shared_obj(self, name: str) -> Any:
        return self._shared[name]

    def set_shared_obj(self, name: str, obj: Any) -> None:
        self._shared[name] = obj

    def is_in_debug_mode(self) -> bool:
        return False

    def block_ticker(self, timeout: float = -1.0) -> None:
        """There is no ticker to wait for."""

    def unblock_ticker(self) -> None:
        """There is no ticker to let go."""


class FakeCell(qon_ats.CellBase):
    """The engine with the operator replaced; GUI-thread calls run at once in the thread that makes them."""

    def __init__(self, number: int, config: Any, frame: FakeFrame, run: Any, answers: Any) -> None:
        super().__init__(number, config)
        self.main_frame = frame
        self.run = run
        self._answer = _answerer(answers)
        self._serial_number = ""

    def do_start(self, serial_number: str | None) -> None:
        self._serial_number = serial_number or ""
        super().do_start(serial_number)

    def print(self, message: Any, end: str = "\n") -> None:
        self.run.log += ("" if message is None else str(message)) + end

    def call_user_function(self, function: Callable[..., Any], *args: Any, **kwargs: Any) -> Any:
        return function(*args, **kwargs)

    def call_user_function_delay_wait(self, function: Callable[..., Any], *args: Any, **kwargs: Any) -> Any:
        info = qon_ats.CallUserFunctionInfo(function, True, *args, **kwargs)
        info()
        return info

    def call_user_function_no_wait(self, function: Callable[..., Any], *args: Any, **kwargs: Any) -> None:
        function(*args, **kwargs)

    def ask_true_or_false(self, question: str, true: str = "Yes", false: str = "no") -> bool:
        return bool(self._ask(question))

    def input_text(self, prompt: str) -> str | None:
        text = self._ask(prompt)
        return None if text is None else str(text)

    def notice_box(self, message: str) -> None:
        self.run.questions.append(message)

    def _ask(self, question: str) -> Any:
        self.run.questions.append(question)
        return self._answer(question)

    def get_serial_number(self) -> str:
        return self._serial_number

    def set_serial_number(self, value: str | None) -> None:
        self._serial_number = value or ""
        if self.uut is not None:
            self.uut.serial_number = self._serial_number

    def set_prompt(self, message: str, bg_color: Any = None) -> None:
        self.run.prompts.append(message)

    def update_percentage(self, percent: float) -> None:
        self.run.percentage = min(max(percent, 0), 100)

    def increase_percentage(self, increment: float) -> None:
        self.update_percentage(self.run.percentage + increment)

    def block_ticker(self, timeout: float) -> None:
        self.main_frame.block_ticker(timeout)

    def unblock_ticker(self) -> None:
        self.main_frame.unblock_ticker()


def _answerer(answers: Any) -> Callable[[str], Any]:
    if callable(answers):
        function: Callable[[str], Any] = answers
        return function
    if isinstance(answers, Mapping):
        return lambda question: _answer_from(answers, question)
    in_order = iter(answers)
    return lambda question: _next_answer(in_order, question)


def _answer_from(answers: Mapping[str, Any], question: str) -> Any:
    if question not in answers:
        known = ", ".join(repr(each) for each in answers) or "none"
        raise UnansweredQuestionError(f"The script asked {question!r}; the test has answers for: {known}.")
    return answers[question]


def _next_answer(answers: Iterator[Any], question: str) -> Any:
    try:
        return next(answers)
    except StopIteration:
        raise UnansweredQuestionError(
            f"The script asked {question!r}; the test has no answer left."
        ) from None


@contextlib.contextmanager
def script_imported_afresh(script: str) -> Iterator[None]:
    """Scripts are imported by their bare name: another one of that name, or an older state, must not answer."""
    name = os.path.basename(script).split(".")[0]
    path, loaded = list(sys.path), sys.modules.pop(name, None)
    sys.path.insert(0, os.path.dirname(script))
    try:
        yield
    finally:
        sys.path[:] = path
        sys.modules.pop(name, None)
        if loaded is not None:
            sys.modules[name] = loaded
