"""The question that a test script asks the operator."""

import wx
from qon_companions.boxes import Box
from qon_companions.boxes.mnemonics import marked
from qon_companions.i18n import _

# A scanner without a keyboard at hand answers with barcodes of these words, or of the labels themselves.
_WORDS = {"yes": wx.ID_OK, "no": wx.ID_CANCEL}


class TrueOrFalseDialog(Box):
    """A modal question with two answers: wx.ID_OK for the true one, wx.ID_CANCEL for the other one.

    A dialog that is closed without an answer counts as negative.  Enter alone never answers.
    """

    def __init__(
        self, parent: wx.Window | None, title: str, question: str, true: str = "Yes", false: str = "No"
    ) -> None:
        super().__init__(parent, str(title), str(question), wx.ART_QUESTION)
        labels = {wx.ID_OK: str(true), wx.ID_CANCEL: str(false)}
        self._words = _WORDS | {text.strip().casefold(): answer for answer, text in labels.items()}
        self.build(_with_mnemonics(labels), self._keys())

    def words(self, text: str) -> None:
        answer = self._words.get(text.casefold())
        if answer is not None:
            self.EndModal(answer)
        else:
            self.say(_("“{text}” is no answer; please press a button.").format(text=text))

    def scanned(self, text: str) -> bool:
        """A barcode that is exactly the word of an answer is meant as one; every other scan is not for this box."""
        answer = self._words.get(text.casefold())
        if answer is not None:
            self.EndModal(answer)
        return answer is not None

    def _keys(self) -> str:
        return _("Keys: Alt and the underlined letter, or Tab and the space bar.")


def _with_mnemonics(labels: dict[int, str]) -> list[tuple[int, str]]:
    """Underline the first letter that is still free; a Chinese label gets a letter behind it."""
    taken: set[str] = set()
    result: list[tuple[int, str]] = []
    for answer, text in labels.items():
        spare = "Y" if answer == wx.ID_OK else "N"
        result.append((answer, marked(text, spare, taken)))
    return result
