"""What a script tells and asks stands in the log, not only on the screen."""

from typing import Any

import qon_ats


class Telling(qon_ats.Cell):
    """A cell that logs prints, questions and what the operator answered."""

    def print(self, message: Any, end: str = "\n") -> None:
        super().print(message, end)
        text = str(message or "").rstrip()
        if text:
            self.logger.info("%s", text)

    def ask_true_or_false(self, question: str, true: str = "Yes", false: str = "no") -> bool:
        aborted = self._abort_flag
        answer = super().ask_true_or_false(question, true, false)
        self._end_if_aborted(aborted, question)
        self.logger.info("Question: %s | answer: %s", question, true if answer else false)
        return answer

    def input_text(self, prompt: str) -> str | None:
        aborted = self._abort_flag
        text = super().input_text(prompt)
        self._end_if_aborted(aborted, prompt)
        self.logger.info("Question: %s | answer: %s", prompt, "cancelled" if text is None else repr(text))
        return text

    def notice_box(self, message: str) -> None:
        aborted = self._abort_flag
        super().notice_box(message)
        self._end_if_aborted(aborted, message)
        self.logger.info("Notice: %s | closed by the operator", message)

    def _end_if_aborted(self, before: bool, question: str) -> None:
        """An abort closes the box: that is no answer, and the script must not take it for one."""
        if self._abort_flag and not before and self.is_in_cell_test_thread():
            self.logger.info("Question: %s | not answered, the test is aborted", question)
            self.check_abort()
