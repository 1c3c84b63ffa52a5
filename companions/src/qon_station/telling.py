"""What a script tells and asks stands in the log, not only on the screen, and on record."""

from typing import Any

import qon_ats

from .hooks import Happening, happened


class Telling(qon_ats.Cell):
    """A cell that logs prints, questions and what the operator answered, and knows how far its script is."""

    progress: float | None = None  # from 0 to 1; None until the script tells it

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
        self._tell_answer(question, answer, true if answer else false)
        return answer

    def input_text(self, prompt: str) -> str | None:
        aborted = self._abort_flag
        text = super().input_text(prompt)
        self._end_if_aborted(aborted, prompt)
        self.logger.info("Question: %s | answer: %s", prompt, "cancelled" if text is None else repr(text))
        self._tell_answer(prompt, text, text)
        return text

    def notice_box(self, message: str) -> None:
        aborted = self._abort_flag
        super().notice_box(message)
        self._end_if_aborted(aborted, message)
        self.logger.info("Notice: %s | closed by the operator", message)
        happened(Happening("notice", str(message), self.station_unit, self.cell_number))

    def _end_if_aborted(self, before: bool, question: str) -> None:
        """An abort closes the box: that is no answer, and the script must not take it for one."""
        if self._abort_flag and not before and self.is_in_cell_test_thread():
            self.logger.info("Question: %s | not answered, the test is aborted", question)
            self.check_abort()

    def update_percentage(self, percent: float) -> None:
        super().update_percentage(percent)
        self.progress = min(max(percent / 100, 0.0), 1.0)

    def increase_percentage(self, increment: float) -> None:
        super().increase_percentage(increment)
        self.progress = min(max((self.progress or 0.0) + increment / 100, 0.0), 1.0)

    def clear_last_test_data(self) -> None:
        super().clear_last_test_data()
        self.progress = None

    def clear_statistics(self) -> None:
        super().clear_statistics()
        happened(Happening("totals cleared", cell=self.cell_number))

    def _tell_answer(self, question: Any, answer: Any, words: str | None) -> None:
        data = {"answer": answer, "words": words}
        happened(Happening("question", str(question), self.station_unit, self.cell_number, data))
