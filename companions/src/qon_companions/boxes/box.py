"""The look and the keys that all boxes share: heading, text, big buttons.

A box may appear while a scanner types.  So no button has the focus at first, typed characters press nothing, and
Enter counts only when it was not typed by the scanner.  Alt with the underlined letter, or Tab and the space
bar, press a button; Escape answers nothing.
"""

from collections.abc import Callable, Sequence

import wx

from qon_companions.fonts import font
from qon_companions.i18n import _

from .keys import ENTER, TypedKeys, character_of
from .mnemonics import letter_of, marked
from .text_view import FAR_WIDTH, TEXT_POINTS, label, show_in, text_view
from .turns import TurnDialog

BUTTON_SIZE = (170, 64)  # DIP, for fingers in gloves
GAP = 20
_HEADING_POINTS, _BUTTON_POINTS, _HINT_POINTS = 20.0, 20.0, 12.0
_NAVIGATION = (wx.WXK_TAB, wx.WXK_LEFT, wx.WXK_RIGHT, wx.WXK_UP, wx.WXK_DOWN)


class Box(TurnDialog):
    """A modal box with a heading, a text and one button per answer."""

    def __init__(self, parent: wx.Window | None, title: str, message: str, icon: str = "") -> None:
        super().__init__(parent, title, wx.CAPTION | wx.CLOSE_BOX)
        self.message = message
        self.buttons: dict[int, wx.Button] = {}
        self.typed = TypedKeys()
        self._stays_in_view: wx.Window | None = None
        self._icon = icon
        self._parent = parent
        # Has the focus while no button is chosen; a dialog itself would pass it on to its first button.
        self._nowhere = wx.Window(self, size=wx.Size(1, 1), style=wx.WANTS_CHARS)
        self._hint = wx.StaticText(self)
        self._hint.SetFont(font(_HINT_POINTS))
        self._row = wx.BoxSizer()
        self.SetEscapeId(wx.ID_NONE)
        self.Bind(wx.EVT_CHAR_HOOK, self.on_key)
        self.Bind(wx.EVT_PAINT, self._on_paint)
        self.Bind(wx.EVT_CLOSE, lambda event: self.EndModal(self.closing_answer()))

    def build(self, answers: Sequence[tuple[int, str]], hint: str = "", copy: bool = False) -> None:
        """Make the buttons and lay everything out; labels may hold their mnemonic."""
        if copy:
            tip = _("Copy the text of this box (Ctrl+C)")
            self._row.Add(self._side_button(_("&Copy text"), tip, self.copy_text))
        self._row.AddStretchSpacer()
        for answer, text in answers:
            self.buttons[answer] = self._button(answer, text)
            self._row.Add(self.buttons[answer], 0, wx.LEFT, self.FromDIP(GAP))
        self._lay_out()
        self.say(hint)

    def offer(self, text: str, tip: str, act: Callable[[], None]) -> None:
        """A small button at the left, apart from the answers; what it does is to end the box."""
        taken = {
            letter_of(button.GetLabel()) for button in self.GetChildren() if isinstance(button, wx.Button)
        }
        button = self._side_button(marked(text, "T", taken), tip, act)
        self._row.Prepend(button, 0, wx.RIGHT, self.FromDIP(GAP))
        self.Fit()

    def belongs_to(self, window: wx.Window, stays_in_view: wx.Window) -> None:
        """The cell that asks, and the part of it that the box does not cover where the screen allows it."""
        self.of_cell = True
        self._parent, self._stays_in_view = window, stays_in_view

    def say(self, hint: str) -> None:
        """A line of small text above the buttons."""
        show_in(self._hint, hint, FAR_WIDTH)
        self._hint.Show(bool(hint))
        self.Fit()

    def closing_answer(self) -> int:
        """The answer when the box is closed without one."""
        return int(wx.ID_CANCEL)

    def entered(self) -> None:
        """Enter was pressed on purpose and no button has the focus."""

    def words(self, text: str) -> None:
        """A text was typed, with Enter behind it."""
        self.say(_("“{text}” was typed here and is lost.").format(text=text))

    def copy_text(self) -> None:
        if wx.TheClipboard.Open():
            wx.TheClipboard.SetData(wx.TextDataObject(f"{self.GetTitle()}\n\n{self.message}"))
            wx.TheClipboard.Flush()
            wx.TheClipboard.Close()

    def about_to_show(self) -> None:
        names = ", ".join(dict.fromkeys(self.others_waiting()))
        if names:
            self.say(_("{names} goes on after this answer.").format(names=names))
        self.Fit()
        self.place()
        self._nowhere.SetFocus()
        self.typed.opened()

    def is_shown(self) -> None:
        """Window managers that draw their frame late move and resize what was just shown: look again."""
        self.Layout()
        self.place()

    def _side_button(self, text: str, tip: str, act: Callable[[], None]) -> wx.Button:
        button = wx.Button(self, label=text)
        button.SetFont(font(TEXT_POINTS))
        width = button.GetBestSize().width + self.FromDIP(GAP)
        button.SetMinSize(wx.Size(width, self.FromDIP(BUTTON_SIZE[1])))
        button.SetToolTip(tip)
        button.Bind(wx.EVT_BUTTON, lambda event: act())
        return button

    def _button(self, answer: int, text: str) -> wx.Button:
        button = wx.Button(self, label=text)
        button.SetId(
            answer
        )  # now, or the desktop would put a label of its own in the place of a well-known one
        button.SetFont(font(_BUTTON_POINTS))
        size = self.FromDIP(wx.Size(*BUTTON_SIZE))
        button.SetMinSize(wx.Size(max(size.width, button.GetBestSize().width + 16), size.height))
        button.SetToolTip(_key_tip(text))
        button.Bind(wx.EVT_BUTTON, lambda event: self.EndModal(answer))
        return button

    def _lay_out(self) -> None:
        gap = self.FromDIP(GAP)
        heading = wx.BoxSizer()
        if self._icon:
            bitmap = wx.ArtProvider.GetBitmap(self._icon, wx.ART_MESSAGE_BOX, self.FromDIP(wx.Size(32, 32)))
            heading.Add(
                wx.StaticBitmap(self, bitmap=bitmap), 0, wx.ALIGN_CENTER_VERTICAL | wx.RIGHT, gap // 2
            )
        title = label(self, self.GetTitle(), _HEADING_POINTS, bold=True, width=FAR_WIDTH)
        heading.Add(title, 1, wx.ALIGN_CENTER_VERTICAL)
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(heading, 0, wx.EXPAND | wx.BOTTOM, gap // 2)
        column.Add(self.content(), 1, wx.EXPAND | wx.BOTTOM, gap)
        column.Add(self._hint, 0, wx.EXPAND | wx.BOTTOM, gap)
        column.Add(self._row, 0, wx.EXPAND)
        border = wx.BoxSizer()
        border.Add(column, 1, wx.EXPAND | wx.ALL, self.FromDIP(20))
        self.SetSizer(border)
        column.SetMinSize(self.FromDIP(wx.Size(400, -1)))
        self.Fit()

    def content(self) -> wx.Window | wx.Sizer:
        """What stands between heading and buttons; for subclasses."""
        return text_view(self, self.message)

    def place(self) -> None:
        """Over the window that asks, below the part of it that is to stay in view; inside the screen."""
        over = self._parent if self._parent and self._parent.IsShownOnScreen() else None
        display = wx.Display(max(0, wx.Display.GetFromWindow(over) if over else 0))
        screen, size = display.GetClientArea(), self.GetSize()
        place = self.GetRect().CentreIn(over.GetScreenRect() if over else screen)
        if self._stays_in_view:
            place.y = self._stays_in_view.GetScreenRect().GetBottom() + self.FromDIP(8)
        x = max(screen.x, min(place.x, screen.x + screen.width - size.width))
        y = max(screen.y, min(place.y, screen.y + screen.height - size.height))
        if self.GetPosition() != wx.Point(x, y):
            self.SetPosition(wx.Point(x, y))

    def _on_paint(self, _event: wx.PaintEvent) -> None:
        """A line around it: without a window manager nothing else tells where it ends."""
        dc = wx.PaintDC(self)
        dc.SetPen(wx.Pen(wx.SystemSettings.GetColour(wx.SYS_COLOUR_HIGHLIGHT), 3))
        dc.SetBrush(wx.TRANSPARENT_BRUSH)
        dc.DrawRectangle(self.GetClientRect().Deflate(1))

    def on_key(self, event: wx.KeyEvent) -> None:
        """Every key that is pressed in the box comes here first."""
        key, character = event.GetKeyCode(), character_of(event)
        if key in ENTER:
            self._on_enter()
        elif key == wx.WXK_ESCAPE:
            self.typed.forget()
        elif key == wx.WXK_SPACE and self.focused_button() and self.typed.deliberate():
            event.Skip()
        elif key == ord("C") and event.GetModifiers() == wx.MOD_CONTROL and not self._selected_text():
            self.copy_text()
        elif character:
            self.typed.add(character)
        else:
            if key in _NAVIGATION:
                self.typed.forget()
            event.Skip()

    def _on_enter(self) -> None:
        deliberate = self.typed.deliberate()
        text = self.typed.take()
        button = self.focused_button()
        if text:
            self.words(text)
        elif deliberate and button:
            event = wx.CommandEvent(wx.EVT_BUTTON.typeId, button.GetId())
            event.SetEventObject(button)
            button.GetEventHandler().ProcessEvent(event)
        elif deliberate:
            self.entered()

    def focused_button(self) -> wx.Button | None:
        focus = wx.Window.FindFocus()
        return focus if isinstance(focus, wx.Button) and focus.GetTopLevelParent() is self else None

    def _selected_text(self) -> str:
        focus = wx.Window.FindFocus()
        return str(focus.GetStringSelection()) if isinstance(focus, wx.TextCtrl) else ""


def _key_tip(label: str) -> str:
    """How to press a button without the mouse; the label holds its mnemonic."""
    return _("Keys: Alt+{letter}, or Tab and the space bar").format(letter=letter_of(label))
