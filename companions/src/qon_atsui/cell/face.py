"""Where the widgets of a cell stand, depending on the cell's size.

Places are computed, not negotiated by sizers: a text that changes never moves anything.

- full: head, band, entry and buttons, notebook, counts;
- compact: the notebook gives way (to the details window), the band takes its room;
- small: entry and buttons on two lines, the progress bar below the head.
"""

from __future__ import annotations

from dataclasses import dataclass

import wx

from qon_atsui import sizing
from qon_atsui.cell.band import VerdictBand
from qon_atsui.cell.pages import CellPages
from qon_atsui.cell.parts import Head, Totals
from qon_atsui.cell.serial_entry import SerialEntry
from qon_atsui.fields import CommandButton, ValueLabel
from qon_atsui.sizing import Sizes

SMALLEST = (236, 170)  # DIP
_FULL = (430, 400)  # DIP; smaller cells have no room for the notebook
_NARROW = 430  # DIP; below this the progress bar has a line of its own
_NUMBER = "000000-0000000"  # the entry is at least as wide as this, or has a line of its own
_BAND = 0.32  # of the cell's height, where the notebook is there too
EDGE = 4  # pixels around the card


@dataclass
class Parts:
    """All that is placed."""

    head: Head
    band: VerdictBand
    caption: ValueLabel
    entry: SerialEntry
    start: CommandButton
    abort: CommandButton
    details: CommandButton
    pages: CellPages
    totals: Totals


class CellFace:
    """Arranges the parts of one cell."""

    def __init__(self, cell: wx.Window, parts: Parts) -> None:
        self._cell = cell
        self._parts = parts
        self._sizes: Sizes | None = None
        self._size = wx.Size(0, 0)
        self.has_pages = True

    def arrange(self, again: bool = False) -> bool:
        """Place everything for the cell's present size; whether the notebook's place appeared or went."""
        size = self._cell.GetClientSize()
        if (size == self._size and not again) or size.width < 50 or size.height < 50:
            return False
        self._size = size
        had_pages = self.has_pages
        full = self._cell.FromDIP(wx.Size(*_FULL))
        self.has_pages = size.width >= full.width and size.height >= full.height
        self._use(Sizes.of(*self._cell.ToDIP(size)))
        smallest = self._cell.GetMinSize()  # a smaller cell is cut at its right and lower edge
        self._place(max(size.width, smallest.width), max(size.height, smallest.height))
        return had_pages != self.has_pages

    def _use(self, sizes: Sizes) -> None:
        """Set the fonts; costly, hence only when they change."""
        if sizes == self._sizes:
            return
        self._sizes = sizes
        parts = self._parts
        parts.head.name.SetFont(sizing.font(sizes.header, bold=True))
        parts.head.serial.SetFont(sizing.font(sizes.header))
        for field in (parts.head.elapsed, parts.head.percent, *parts.totals.windows()):
            field.SetFont(sizing.font(sizes.body))
        for count in (parts.totals.ok, parts.totals.ng, parts.totals.share):
            count.value.SetFont(sizing.font(sizes.body, bold=True))
        parts.caption.SetFont(sizing.font(sizes.body))
        parts.entry.SetFont(sizing.font(sizes.entry))
        for button in (parts.start, parts.abort, parts.details):
            button.SetFont(sizing.font(sizes.button, bold=button is parts.start))
        parts.pages.use_points(min(sizes.body, 13.0))

    def _place(self, width: int, height: int) -> None:
        assert self._sizes is not None
        parts, sizes = self._parts, self._sizes
        gap = sizes.gap
        area = wx.Rect(EDGE + gap, EDGE + gap, width - 2 * (EDGE + gap), height - 2 * (EDGE + gap))
        narrow = area.width < self._cell.FromDIP(_NARROW)
        self._head(self._cut_top(area, self._head_height(narrow)), narrow)
        foot = sizing.line_height(sizes.body) + 2
        with_foot = self.has_pages or height >= 9 * foot
        self._foot(self._cut_bottom(area, foot) if with_foot else wx.Rect(0, 0, 0, 0))
        row = sizing.line_height(sizes.entry) + 12
        if self.has_pages:
            parts.band.SetSize(self._cut_top(area, int(height * _BAND)))
            self._controls(self._cut_top(area, row))
            parts.pages.SetSize(area)
        else:
            needed = self._width(_NUMBER, sizes.entry) + 3 * (self._button_width() + gap)
            lines = 2 if area.width < needed else 1
            self._controls(self._cut_bottom(area, lines * row + (lines - 1) * gap // 2))
            parts.band.SetSize(area)
        parts.details.Show(not self.has_pages)

    def _cut_top(self, area: wx.Rect, height: int) -> wx.Rect:
        """Take a strip off the rest of the area."""
        assert self._sizes is not None
        strip = wx.Rect(area.x, area.y, area.width, height)
        area.y += height + self._sizes.gap
        area.height -= height + self._sizes.gap
        return strip

    def _cut_bottom(self, area: wx.Rect, height: int) -> wx.Rect:
        assert self._sizes is not None
        area.height -= height + self._sizes.gap
        return wx.Rect(area.x, area.y + area.height + self._sizes.gap, area.width, height)

    def _head_height(self, narrow: bool) -> int:
        assert self._sizes is not None
        line = sizing.line_height(self._sizes.header, bold=True) + 2
        return line + (self._bar() + 4 if narrow else 0)

    def _bar(self) -> int:
        assert self._sizes is not None
        return max(8, sizing.line_height(self._sizes.body) // 2)

    def _head(self, strip: wx.Rect, narrow: bool) -> None:
        """Name, serial number, time and progress; narrow cells have the progress bar on a line of its own."""
        assert self._sizes is not None
        head, gap = self._parts.head, self._sizes.gap
        line = strip.height - (self._bar() + 4 if narrow else 0)
        name = self._width("Cell 00", self._sizes.header, bold=True)
        elapsed = self._width("000:00:00", self._sizes.body)  # also of a test that takes days
        percent = self._width("100 %", self._sizes.body)
        gauge = strip.width if narrow else strip.width // 4
        right = strip.x + strip.width
        if narrow:
            head.gauge.SetSize(strip.x, strip.y + line + 2, gauge, self._bar())
            right -= elapsed
        else:
            head.percent.SetSize(right - percent, strip.y, percent, line)
            head.gauge.SetSize(
                right - percent - gap - gauge, strip.y + (line - self._bar()) // 2, gauge, self._bar()
            )
            right -= percent + gauge + 3 * gap + elapsed
        head.percent.Show(not narrow)
        head.elapsed.SetSize(right, strip.y, elapsed, line)
        head.name.SetSize(strip.x, strip.y, name, line)
        head.serial.SetSize(strip.x + name + gap, strip.y, max(0, right - strip.x - name - 2 * gap), line)

    def _button_width(self) -> int:
        assert self._sizes is not None
        return self._width("Resume", self._sizes.button, bold=True) + 36

    def _controls(self, strip: wx.Rect) -> None:
        """Entry and buttons; on two lines when the strip is that high."""
        assert self._sizes is not None
        parts, gap = self._parts, self._sizes.gap
        buttons = [parts.start, parts.abort] + ([] if self.has_pages else [parts.details])
        row = sizing.line_height(self._sizes.entry) + 12
        self._caption(strip.height == row)
        if strip.height > row:
            parts.entry.SetSize(strip.x, strip.y, strip.width, row)
            width = (strip.width - gap * (len(buttons) - 1)) // len(buttons)
            for index, button in enumerate(buttons):
                button.SetSize(strip.x + index * (width + gap), strip.y + strip.height - row, width, row)
            return
        width = self._button_width()
        x = strip.x + strip.width
        for button in reversed(buttons):
            x -= width
            button.SetSize(x, strip.y, width, row)
            x -= gap
        left = strip.x + self._width(parts.caption.GetValue(), self._sizes.body) + gap
        if x - left < self._width(_NUMBER, self._sizes.entry):
            self._caption(False)
            left = strip.x
        parts.caption.SetSize(strip.x, strip.y, max(0, left - strip.x - gap), row)
        parts.entry.SetSize(left, strip.y, x - left, row)

    def _caption(self, shown: bool) -> None:
        """What the entry is for is said beside it or, without room, inside it."""
        caption = self._parts.caption
        caption.Show(shown)
        self._parts.entry.SetHint("" if shown else caption.GetValue())

    def _foot(self, strip: wx.Rect) -> None:
        """Three counters share the width."""
        totals = self._parts.totals
        left = strip.x
        for count, share in ((totals.ok, 0.27), (totals.ng, 0.27), (totals.share, 0.46)):
            width = int(strip.width * share)
            for window in count.windows():
                window.Show(strip.height > 0)
            count.caption.SetSize(left, strip.y, int(width * 0.34), strip.height)
            count.value.SetSize(left + int(width * 0.38), strip.y, int(width * 0.62), strip.height)
            left += width

    @staticmethod
    def _width(text: str, points: float, bold: bool = False) -> int:
        dc = wx.MemoryDC(wx.Bitmap(1, 1))
        dc.SetFont(sizing.font(points, bold))
        return int(dc.GetTextExtent(text).width) + 4
