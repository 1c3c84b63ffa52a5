"""Small controls of the station's windows: values that are only read, the progress bar, buttons."""

from __future__ import annotations

import time
from collections.abc import Mapping
from typing import Any

import wx

from qon_atsui import palette, sizing
from qon_atsui.texts import displayable

_SOON_SECONDS = 0.1


class Painted(wx.Window):
    """A window that draws itself.  Told a hundred times before it is painted it asks for that once."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent, style=wx.BORDER_NONE | wx.FULL_REPAINT_ON_RESIZE)
        self._asked = 0.0  # to be painted, when; 0 since it was
        self.SetBackgroundStyle(wx.BG_STYLE_PAINT)
        self.SetCanFocus(False)
        self.Bind(wx.EVT_PAINT, self._on_paint_event)

    def Refresh(self, eraseBackground: bool = True, rect: Any = None) -> None:
        """Every call of wx gives the interpreter away, which a busy station pays with a wait for its threads.

        A painting that does not come soon is asked for again: what is shown must never stay behind.
        """
        now = time.monotonic()
        if now - self._asked > _SOON_SECONDS:
            self._asked = now
            super().Refresh()

    def _on_paint_event(self, _event: wx.PaintEvent) -> None:
        self._asked = 0.0
        self.paint()

    def paint(self) -> None:
        """Draw everything."""
        raise NotImplementedError


class ValueLabel(Painted):
    """One line of text in a place of fixed size; to the engine a text field or a label.

    Drawn by itself: a new text neither moves a neighbour nor costs a layout.  What does not fit ends in an
    ellipsis, and the tool tip shows the whole.
    """

    shortened = wx.ELLIPSIZE_END  # where a text that does not fit is shortened

    def __init__(self, parent: wx.Window, text: str = "", align: int = wx.ALIGN_LEFT, hint: str = "") -> None:
        super().__init__(parent)
        self._text = text
        self._align = align | wx.ALIGN_CENTRE_VERTICAL
        self._hint = hint
        self._ground = palette.SURFACE
        self._ink = palette.INK
        if hint:
            self.SetToolTip(hint)

    def SetValue(self, text: str) -> None:
        if text != self._text:
            self._text = text
            self.Refresh()

    def GetValue(self) -> str:
        return self._text

    SetLabel = SetValue
    GetLabel = GetValue

    def paint_as(self, ink: str, ground: str = palette.SURFACE) -> None:
        self._ink, self._ground = ink, ground
        self.Refresh()

    def DoGetBestClientSize(self) -> wx.Size:
        extent = self.GetFullTextExtent(displayable(self._text) or "0")
        return wx.Size(extent[0] + 4, extent[1] + 2)

    def paint(self) -> None:
        dc = wx.AutoBufferedPaintDC(self)
        dc.SetBackground(wx.Brush(self._ground))
        dc.Clear()
        dc.SetFont(self.GetFont())
        dc.SetTextForeground(wx.Colour(self._ink))
        room = self.GetClientRect()
        text = displayable(self._text)
        shown = wx.Control.Ellipsize(text, dc, self.shortened, room.width)
        dc.DrawLabel(shown, room, self._align)
        tip = self._hint if shown == text else text
        if tip != (self.GetToolTipText() or ""):
            self.SetToolTip(tip or None)


class ProgressBar(Painted):
    """A gauge from 0 to 100 that takes fractions; a value out of range is shown as its nearest end."""

    def __init__(self, parent: wx.Window) -> None:
        super().__init__(parent)
        self._value: float = 0
        self.changed: Any = None  # called with the shown percentage

    def SetValue(self, value: float) -> None:
        shown = self.percent
        self._value = value
        if self.percent != shown:
            self.Refresh()
            if self.changed is not None:
                self.changed(self.percent)

    def GetValue(self) -> float:
        return self._value

    def GetRange(self) -> int:
        return 100

    @property
    def percent(self) -> int:
        return round(min(max(self._value, 0), 100))

    def paint(self) -> None:
        dc = wx.AutoBufferedPaintDC(self)
        dc.SetBackground(wx.Brush(palette.SURFACE))
        dc.Clear()
        gc = wx.GraphicsContext.Create(dc)
        if gc is None:
            return
        width, height = self.GetClientSize()
        radius = min(height / 2, 5)
        gc.SetPen(wx.TRANSPARENT_PEN)
        gc.SetBrush(wx.Brush(palette.ACCENT_SOFT))
        gc.DrawRoundedRectangle(0, 0, width, height, radius)
        if self.percent > 0:
            gc.SetBrush(wx.Brush(palette.ACCENT))
            gc.DrawRoundedRectangle(0, 0, max(2 * radius, width * self.percent / 100), height, radius)


class CommandButton(wx.Button):
    """A button of the cell: the first letter of its label is its mnemonic.

    The engine colours its start button like a state; only states may look like states, so the colour told
    is kept and answered, and what the button offers decides how it looks: the expected next step stands out.
    `words` is what the operator reads in the place of the engine's labels, which go on being answered.
    """

    def __init__(
        self,
        parent: wx.Window,
        label: str,
        hint: str,
        stands_out: bool = False,
        words: Mapping[str, str] | None = None,
    ) -> None:
        self._words = words or {}
        super().__init__(parent, label=self._shown(label), style=wx.BU_EXACTFIT)
        self._label = label
        self._colour: Any = None  # as told
        self.changed: Any = None  # called with the new label
        self.SetToolTip(hint)
        if stands_out:
            self.stand_out(True)

    def _shown(self, label: str) -> str:
        label = self._words.get(label, label)
        return label if "&" in label or not label[:1].isascii() else "&" + label

    def stand_out(self, yes: bool) -> None:
        super().SetBackgroundColour(palette.ACCENT if yes else wx.NullColour)
        super().SetForegroundColour("#FFFFFF" if yes else wx.NullColour)

    def SetLabel(self, label: str) -> None:
        if label != self._label:
            self._label = label
            super().SetLabel(self._shown(label))
            if self.changed is not None:
                self.changed(label)

    def GetLabel(self) -> str:
        return self._label

    def SetBackgroundColour(self, colour: Any) -> bool:
        if colour != self._colour:
            palette.as_colour(colour)  # refuses what is no colour
            self._colour = colour
        return True

    def GetBackgroundColour(self) -> wx.Colour:
        return super().GetBackgroundColour() if self._colour is None else palette.as_colour(self._colour)


def caption(parent: wx.Window, text: str, points: float = 10.0) -> wx.StaticText:
    """A muted label beside a field."""
    label = wx.StaticText(parent, label=text)
    label.SetForegroundColour(palette.MUTED)
    label.SetFont(sizing.font(points))
    return label
