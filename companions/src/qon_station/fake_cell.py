"""A cell and a frame without windows: questions are answered by the test, output is kept."""

import contextlib
import os
import sys
import threading
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

    def __init__(
        self, number: int, config: Any, frame: FakeFrame, run: Any, answers: Any, aborts: "Aborts"
    ) -> None:
        super().__init__(number, config)
        self.main_frame = frame
        self.run = run
        self._answer = _answerer(answers)
        self._aborts = aborts
        self._serial_number = ""

    def do_start(self, serial_number: str | None) -> None:
        self._serial_number = serial_number or ""
        super().do_start(serial_number)

    def _do_run_script(self, script: str) -> None:
        with self._aborts.watching(self):
            try:
                super()._do_run_script(script)
            except BaseException as error:  # noqa: BLE001 - sys.exit() and the like, which no thread can tell
                self.run.exception = error

    def append(self, assertion: Any, stop_if_ng: bool | None = None, category: Any = "all") -> None:
        if assertion.get_name() == self._aborts.at:
            self.abort("abort_at")
        super().append(assertion, stop_if_ng, category)
        if assertion.get_name() == self._aborts.after:
            self._aborts.now(self)

    def show_message(self, text: str, answer: int) -> int:
        """In place of a message box; the one for a cleanup that failed comes while its exception is handled."""
        self.run.messages.append(text)
        if text.startswith("Cleanup fail: "):
            self.run.cleanup_exception = sys.exc_info()[1]
        return answer

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


class Aborts:
    """When the operator of a test presses Abort: at or after an item, or after some seconds."""

    def __init__(self, at: str | float | None, after: str | float | None) -> None:
        self.at, self.after = (each if isinstance(each, str) else None for each in (at, after))
        self.seconds = [each for each in (at, after) if isinstance(each, int | float)]

    @contextlib.contextmanager
    def watching(self, cell: FakeCell) -> Iterator[None]:
        """Press Abort when the time has come, while the run lasts."""
        over = threading.Event()

        def press() -> None:
            if not over.wait(min(self.seconds)):
                cell.abort("operator")

        watch = threading.Thread(target=press, name="operator")
        if self.seconds:
            watch.start()
        try:
            yield
        finally:
            over.set()
            if self.seconds:
                watch.join()

    def now(self, cell: FakeCell) -> None:
        """From another thread, as an operator does: it takes effect at the script's next check point."""
        press = threading.Thread(target=cell.abort, args=("operator",))
        press.start()
        press.join()

    def __str__(self) -> str:
        item = self.at or self.after
        return f'item "{item}"' if item else f"{min(self.seconds):g} s" if self.seconds else ""


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
