"""The signs beside the state words, drawn as strokes so that no font has to have them."""

from __future__ import annotations

import math

import wx

# Polylines in a unit square, y downwards.
_STROKES: dict[str, tuple[tuple[tuple[float, float], ...], ...]] = {
    "tick": (((0.10, 0.55), (0.38, 0.84), (0.90, 0.18)),),
    "cross": (((0.16, 0.16), (0.84, 0.84)), ((0.84, 0.16), (0.16, 0.84))),
    "pause": (((0.30, 0.14), (0.30, 0.86)), ((0.70, 0.14), (0.70, 0.86))),
}
_WEIGHT = 0.17  # of the square's side


def draw(gc: wx.GraphicsContext, glyph: str, box: wx.Rect2D, ink: wx.Colour, share: float = 0.0) -> None:
    """Draw one glyph into a square; `share` (0 to 1) is how far the progress ring is closed."""
    side = box.width
    painter = _PAINTERS.get(glyph)
    if painter is not None:
        painter(gc, box, ink, share)
        return
    gc.SetPen(_pen(gc, ink, side * _WEIGHT))
    gc.SetBrush(wx.TRANSPARENT_BRUSH)
    for stroke in _STROKES.get(glyph, ()):
        path = gc.CreatePath()
        path.MoveToPoint(box.x + stroke[0][0] * side, box.y + stroke[0][1] * side)
        for x, y in stroke[1:]:
            path.AddLineToPoint(box.x + x * side, box.y + y * side)
        gc.StrokePath(path)


def _pen(gc: wx.GraphicsContext, ink: wx.Colour, width: float) -> wx.GraphicsPen:
    return gc.CreatePen(wx.GraphicsPenInfo(ink).Width(max(1.5, width)).Cap(wx.CAP_ROUND).Join(wx.JOIN_ROUND))


def _progress(gc: wx.GraphicsContext, box: wx.Rect2D, ink: wx.Colour, share: float) -> None:
    """A ring: the part done in full ink, the rest faint."""
    side, radius = box.width, box.width * 0.38
    centre_x, centre_y = box.x + side / 2, box.y + side / 2
    faint = wx.Colour(ink.Red(), ink.Green(), ink.Blue(), 80)
    gc.SetBrush(wx.TRANSPARENT_BRUSH)
    for colour, part in ((faint, 1.0), (ink, min(max(share, 0.0), 1.0))):
        if part <= 0.0:
            continue
        path = gc.CreatePath()
        path.AddArc(centre_x, centre_y, radius, -math.pi / 2, -math.pi / 2 + 2 * math.pi * part, True)
        gc.SetPen(_pen(gc, colour, side * _WEIGHT))
        gc.StrokePath(path)


def _warning(gc: wx.GraphicsContext, box: wx.Rect2D, ink: wx.Colour, _share: float) -> None:
    """A triangle with an exclamation mark."""
    side = box.width
    gc.SetPen(_pen(gc, ink, side * 0.09))
    gc.SetBrush(wx.TRANSPARENT_BRUSH)
    path = gc.CreatePath()
    path.MoveToPoint(box.x + 0.50 * side, box.y + 0.08 * side)
    path.AddLineToPoint(box.x + 0.96 * side, box.y + 0.90 * side)
    path.AddLineToPoint(box.x + 0.04 * side, box.y + 0.90 * side)
    path.CloseSubpath()
    gc.StrokePath(path)
    gc.SetPen(_pen(gc, ink, side * 0.11))
    gc.StrokeLine(box.x + 0.5 * side, box.y + 0.36 * side, box.x + 0.5 * side, box.y + 0.60 * side)
    gc.StrokeLine(box.x + 0.5 * side, box.y + 0.765 * side, box.x + 0.5 * side, box.y + 0.77 * side)


def _question(gc: wx.GraphicsContext, box: wx.Rect2D, ink: wx.Colour, _share: float) -> None:
    """A hook and a dot."""
    side = box.width
    gc.SetPen(_pen(gc, ink, side * 0.15))
    gc.SetBrush(wx.TRANSPARENT_BRUSH)
    path = gc.CreatePath()
    path.AddArc(box.x + 0.5 * side, box.y + 0.33 * side, 0.23 * side, math.pi, math.pi * 0.35, True)
    path.AddLineToPoint(box.x + 0.5 * side, box.y + 0.68 * side)
    gc.StrokePath(path)
    gc.StrokeLine(box.x + 0.5 * side, box.y + 0.90 * side, box.x + 0.5 * side, box.y + 0.905 * side)


def _dot(gc: wx.GraphicsContext, box: wx.Rect2D, ink: wx.Colour, _share: float) -> None:
    """An open circle: an empty place for the next unit."""
    side = box.width
    gc.SetPen(_pen(gc, ink, side * 0.12))
    gc.SetBrush(wx.TRANSPARENT_BRUSH)
    gc.DrawEllipse(box.x + 0.2 * side, box.y + 0.2 * side, 0.6 * side, 0.6 * side)


def _stop(gc: wx.GraphicsContext, box: wx.Rect2D, ink: wx.Colour, _share: float) -> None:
    """A filled disk with a bar left out: no entry."""
    side = box.width
    path = gc.CreatePath()
    path.AddCircle(box.x + 0.5 * side, box.y + 0.5 * side, 0.44 * side)
    path.AddRectangle(box.x + 0.24 * side, box.y + 0.42 * side, 0.52 * side, 0.16 * side)
    gc.SetBrush(wx.Brush(ink))
    gc.FillPath(path, wx.ODDEVEN_RULE)


def _abort(gc: wx.GraphicsContext, box: wx.Rect2D, ink: wx.Colour, _share: float) -> None:
    """The filled square of the abort tool: ended by hand."""
    side = box.width
    gc.SetPen(wx.TRANSPARENT_PEN)
    gc.SetBrush(wx.Brush(ink))
    gc.DrawRoundedRectangle(box.x + 0.12 * side, box.y + 0.12 * side, 0.76 * side, 0.76 * side, 0.08 * side)


def _hourglass(gc: wx.GraphicsContext, box: wx.Rect2D, ink: wx.Colour, _share: float) -> None:
    """Its lower half is filled."""
    side = box.width
    gc.SetPen(_pen(gc, ink, side * 0.10))
    path = gc.CreatePath()
    points = ((0.18, 0.10), (0.82, 0.10), (0.18, 0.90), (0.82, 0.90))
    path.MoveToPoint(box.x + points[0][0] * side, box.y + points[0][1] * side)
    for x, y in points[1:]:
        path.AddLineToPoint(box.x + x * side, box.y + y * side)
    path.CloseSubpath()
    gc.StrokePath(path)
    sand = gc.CreatePath()
    sand.MoveToPoint(box.x + 0.50 * side, box.y + 0.56 * side)
    sand.AddLineToPoint(box.x + 0.20 * side, box.y + 0.90 * side)
    sand.AddLineToPoint(box.x + 0.80 * side, box.y + 0.90 * side)
    sand.CloseSubpath()
    gc.SetBrush(wx.Brush(ink))
    gc.FillPath(sand)


_PAINTERS = {
    "progress": _progress,
    "warning": _warning,
    "question": _question,
    "dot": _dot,
    "stop": _stop,
    "abort": _abort,
    "hourglass": _hourglass,
}
