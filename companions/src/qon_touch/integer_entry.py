"""Asks for a whole number, with a keypad for fingers; the keyboard's keys work too."""

import logging

import wx
from qon_companions import gui_thread
from qon_companions.boxes import Box, station_window
from qon_companions.boxes.keys import ENTER
from qon_companions.fonts import font
from qon_companions.i18n import _

KEY_SIZE = (84, 68)  # DIP, for a finger in a glove
KEY_GAP = 6
MINUS, BACK = "\N{MINUS SIGN}", "\N{ERASE TO THE LEFT}"
_ROWS = ("789", "456", "123")
_NUMPAD = {wx.WXK_NUMPAD0 + digit: str(digit) for digit in range(10)}
# Longer than any 64-bit number.
MAX_DIGITS = 20

log = logging.getLogger(__name__)


def input_integer(
    minimum: int | None = None, maximum: int | None = None, message: str = "", value: int | None = None
) -> int | None:
    """Ask for a whole number between the limits (both included); None when the operator cancels.

    May be called from any thread; when the program ends meanwhile the answer is None too.
    """
    if minimum is not None and maximum is not None and minimum > maximum:
        raise ValueError(f"The minimum {minimum} is above the maximum {maximum}.")
    try:
        return gui_thread.call(_ask, minimum, maximum, message, value)
    except RuntimeError as error:
        log.warning("%s (not asked: %s)", message, error)
        return None


def _ask(minimum: int | None, maximum: int | None, message: str, value: int | None) -> int | None:
    box = IntegerEntry(minimum, maximum, message, value)
    try:
        return box.number() if box.ShowModal() == wx.ID_OK else None
    finally:
        box.Destroy()


class IntegerEntry(Box):
    """The number, its limits, the keypad, OK and Cancel.  OK works only while the number is within the limits."""

    def __init__(
        self, minimum: int | None, maximum: int | None, message: str, value: int | None = None
    ) -> None:
        super().__init__(station_window(), message or _("Enter a number"), "")
        self._minimum, self._maximum = minimum, maximum
        self._fresh = value is not None  # the first key replaces a number that was proposed
        self.entry = wx.TextCtrl(
            self, style=wx.TE_READONLY | wx.TE_RIGHT, value="" if value is None else str(value)
        )
        self.entry.SetFont(font(24.0, bold=True))
        self.entry.SetMinSize(wx.Size(-1, self.entry.GetCharHeight() + self.FromDIP(16)))
        self.keys: dict[str, wx.Button] = {}
        self.build([(wx.ID_OK, _("&OK")), (wx.ID_CANCEL, _("&Cancel"))], self._range())
        self._check()

    def number(self) -> int | None:
        """The number as far as it was entered; None while it is none."""
        text = self.entry.GetValue().replace(MINUS, "-")
        return int(text) if text.strip("-") else None

    def content(self) -> wx.Sizer:
        column = wx.BoxSizer(wx.VERTICAL)
        gap = self.FromDIP(KEY_GAP)
        column.Add(self.entry, 0, wx.EXPAND | wx.BOTTOM, 2 * gap)
        grid = wx.GridSizer(3, gap, gap)
        sign = MINUS if self._minimum is None or self._minimum < 0 else ""
        for face in (*"".join(_ROWS), sign, "0", BACK):
            grid.Add(self._key(face) if face else wx.Size(0, 0), 0, wx.EXPAND)
        column.Add(grid, 1, wx.EXPAND)
        return column

    def entered(self) -> None:
        self._confirm()

    def press(self, face: str) -> None:
        """One key of the keypad or the keyboard."""
        text = "" if self._fresh and face != BACK else self.entry.GetValue()
        self._fresh = False
        if face == BACK:
            text = text[:-1]
        elif face == MINUS:
            text = text.removeprefix(MINUS) if text.startswith(MINUS) else MINUS + text
        elif len(text) < MAX_DIGITS:
            text += face
        self.entry.SetValue(text)
        self._check()

    def _key(self, face: str) -> wx.Button:
        key = wx.Button(self, label=face)
        key.SetFont(font(18.0))
        key.SetMinSize(self.FromDIP(wx.Size(*KEY_SIZE)))
        key.SetCanFocus(False)
        tips = {BACK: _("Delete the last digit (Backspace)"), MINUS: _("Change the sign (-)")}
        key.SetToolTip(tips.get(face) or _("Digit {digit}; the keyboard works too").format(digit=face))
        key.Bind(wx.EVT_BUTTON, lambda event: self.press(face))
        self.keys[face] = key
        return key

    def _check(self) -> None:
        number = self.number()
        low = self._minimum is not None and number is not None and number < self._minimum
        high = self._maximum is not None and number is not None and number > self._maximum
        self.buttons[wx.ID_OK].Enable(number is not None and not low and not high)
        if low:
            self.say(_("{number} is too small: {limits}").format(number=number, limits=self._range()))
        elif high:
            self.say(_("{number} is too large: {limits}").format(number=number, limits=self._range()))
        else:
            self.say(self._range())

    def _range(self) -> str:
        if self._minimum is not None and self._maximum is not None:
            return _("{minimum} to {maximum}").format(minimum=self._minimum, maximum=self._maximum)
        if self._minimum is not None:
            return _("{minimum} or more").format(minimum=self._minimum)
        if self._maximum is not None:
            return _("{maximum} or less").format(maximum=self._maximum)
        return _("a whole number")

    def _confirm(self) -> None:
        if self.buttons[wx.ID_OK].IsEnabled():
            self.EndModal(wx.ID_OK)

    def on_key(self, event: wx.KeyEvent) -> None:
        """A number is what is asked for here, so digits and the Enter behind them count, typed or scanned."""
        key = event.GetKeyCode()
        face = _NUMPAD.get(key) or (chr(key) if ord("0") <= key <= ord("9") else "")
        if key in (ord("-"), wx.WXK_NUMPAD_SUBTRACT) and MINUS in self.keys:
            face = MINUS
        if key in (wx.WXK_BACK, wx.WXK_DELETE):
            face = BACK
        if not self.typed.guarded() and not event.HasModifiers() and face:
            self.press(face)
        elif key in ENTER and not self.typed.guarded() and not self.focused_button():
            self._confirm()
        else:
            super().on_key(event)
