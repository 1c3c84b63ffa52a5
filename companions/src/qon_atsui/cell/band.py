"""The verdict band: the one thing of a cell that is read from two metres.

To the engine it is the prompt (a label with a background colour).  It shows the state concluded from all
that the cell's widgets were told: a glyph, the state's word and the prompt's text, as large as they fit.
"""

from __future__ import annotations

from typing import Any

import wx

from qon_atsui import palette, sizing
from qon_atsui.cell import glyphs
from qon_atsui.cell.signs import Face, Signs, read
from qon_atsui.cell.textfit import LINE, Fitted, fit, width_per_point
from qon_atsui.fields import Painted
from qon_atsui.texts import displayable

_LARGEST = 400.0  # points; a 4K screen with one cell
_SIDE = 0.035  # margin at the left and right, of the width
_CAPITAL = 0.74  # height of a capital letter in em
_TALL = 0.55  # height to width from which on the glyph stands above the word
_GLYPH_GAP = 0.35  # between glyph and word, of the glyph's side


class VerdictBand(Painted):
    """Custom-drawn control.  GUI thread only; texts and colours are kept exactly as told."""

    def __init__(self, parent: wx.Window, signs: Signs) -> None:
        super().__init__(parent)
        self._signs = signs
        self._label = ""
        self._colour: wx.Colour = palette.as_colour("white")
        self._share = 0.0
        self._fitted: dict[tuple[Any, ...], Fitted] = {}
        self._fonts: dict[tuple[float, str], wx.GraphicsFont] = {}

    # What the engine calls.

    def SetLabel(self, label: str) -> None:
        self._label = label
        self._signs.prompt_text(displayable(label))

    def GetLabel(self) -> str:
        return self._label

    def SetBackgroundColour(self, colour: Any) -> bool:
        self._colour = palette.as_colour(colour)
        self._signs.prompt_colour(palette.colour_name(colour))
        return True

    def GetBackgroundColour(self) -> wx.Colour:
        return self._colour

    def show_stuck(self, line: str) -> None:
        """The cell cannot be used any more: the station's own words, and nothing blinks over them."""
        self._signs.stuck(displayable(line))

    # What the layout calls.

    @property
    def face(self) -> Face:
        return read(self._signs.told)

    def show_progress(self, share: float) -> None:
        """How far the test is, 0 to 1; shown while testing."""
        if round(share * 100) != round(self._share * 100):
            self._share = share
            if self.face.glyph == "progress":
                self.Refresh()

    # Drawing.

    def paint(self) -> None:
        dc = wx.AutoBufferedPaintDC(self)
        width, height = self.GetClientSize()
        face = self.face
        dc.SetBackground(wx.Brush(face.shade.ground))
        dc.Clear()
        gc = wx.GraphicsContext.Create(dc)
        if gc is None or width < 20 or height < 12:
            return
        left, room = width * _SIDE, width * (1 - 2 * _SIDE)
        upper, lower = self._split(face, height)
        text = self._fit(face.text, room, lower) if face.text else None
        self._draw_word(gc, face, left, room, upper)
        if text is not None:
            self._draw_text(gc, face, text, left, room, height - lower, lower)
        self._tool_tip(face, text)

    @staticmethod
    def _split(face: Face, height: float) -> tuple[float, float]:
        """Heights of the word's part and the text's part."""
        if not face.text:
            return height, 0.0
        share = 0.62 if face.lead == "word" else max(0.24, min(0.4, 20.0 / height))
        return height * share, height * (1 - share)

    def _fit(self, text: str, width: float, height: float) -> Fitted:
        key = (text, width, height)
        found = self._fitted.get(key)
        if found is None:
            if len(self._fitted) > 16:
                self._fitted.clear()
            found = fit(text, width * 0.97, height * 0.90, _LARGEST, sizing.SMALLEST_POINTS)
            self._fitted[key] = found
        return found

    def _draw_word(self, gc: wx.GraphicsContext, face: Face, left: float, room: float, height: float) -> None:
        """The word as large as its part allows, its glyph beside it or, in a tall part, above it."""
        ink = wx.Colour(face.shade.ink)
        tall = _CAPITAL if face.word.isascii() and face.word.isupper() else 1.0  # ink height in em
        width, line = width_per_point(face.word)
        side = line / LINE * tall  # of the glyph, pixels per point
        fill, middle = self._share_of_word(face)
        beside = min(fill * height / side, room / (width + side * (1.0 + _GLYPH_GAP)))
        above = min(fill * height / (side * (2.0 + _GLYPH_GAP)), room / width)
        stacked = height > _TALL * room
        points = max(sizing.SMALLEST_POINTS, above if stacked else beside)
        gc.SetFont(self._font(gc, points, face.shade.ink))
        text_width, text_height, descent, _leading = gc.GetFullTextExtent(face.word)
        side *= points
        x, y = left + (room - text_width) / 2, height * middle
        glyph = wx.Rect2D(left + (room - side) / 2, y - side * (1.0 + _GLYPH_GAP / 2), side, side)
        if stacked:
            y += side * (1.0 + _GLYPH_GAP) / 2
        else:
            x += side * (1.0 + _GLYPH_GAP) / 2
            glyph = wx.Rect2D(x - side * (1.0 + _GLYPH_GAP), y - side / 2, side, side)
        glyphs.draw(gc, face.glyph, glyph, ink, self._share)
        gc.DrawText(face.word, x, y - (text_height - descent - side / 2 if tall < 1.0 else text_height / 2))

    @staticmethod
    def _share_of_word(face: Face) -> tuple[float, float]:
        """How much of its part's height the word fills, and where its middle is."""
        if not face.text:
            return 0.70, 0.5
        return (0.80, 0.52) if face.lead == "word" else (0.60, 0.58)

    def _font(self, gc: wx.GraphicsContext, points: float, ink: str) -> wx.GraphicsFont:
        """Making one takes as long as all other drawing of a small band."""
        key = (round(points * 2) / 2, ink)
        found = self._fonts.get(key)
        if found is None:
            if len(self._fonts) > 16:
                self._fonts.clear()
            found = self._fonts[key] = gc.CreateFont(sizing.font(points, bold=True), wx.Colour(ink))
        return found

    def _draw_text(
        self,
        gc: wx.GraphicsContext,
        face: Face,
        text: Fitted,
        left: float,
        room: float,
        top: float,
        height: float,
    ) -> None:
        gc.SetFont(self._font(gc, text.points, face.shade.ink))
        line = gc.GetTextExtent("Mg")[1]
        y = top + max(0.0, (height * 0.92 - line * len(text.lines)) / 2)
        for content in text.lines:
            width, tall = gc.GetTextExtent(content)  # Chinese fonts keep more air above their characters
            gc.DrawText(content, left + (room - width) / 2, y - (tall - line) / 2)
            y += line

    def _tool_tip(self, face: Face, text: Fitted | None) -> None:
        whole = face.text if text is not None and text.cut else ""
        if whole != (self.GetToolTipText() or ""):
            self.SetToolTip(whole or None)
