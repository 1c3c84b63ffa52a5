"""`python screenshot.py FILE.png [X Y WIDTH HEIGHT]`: the screen, or a part of it, as a PNG file.

A process of its own for each picture: wx.ScreenDC on GTK 3 shows a program the same picture again and again.
"""

import subprocess
import sys
from collections.abc import Sequence
from pathlib import Path

import wx


def take(path: Path, rectangle: wx.Rect | None = None) -> "subprocess.Popen[bytes]":
    """Start taking a picture; it is there when the process has ended."""
    path.parent.mkdir(parents=True, exist_ok=True)
    area = [str(number) for number in rectangle] if rectangle else []
    return subprocess.Popen([sys.executable, __file__, str(path), *area])


def main(arguments: Sequence[str]) -> int:
    application = wx.App()
    area = wx.Rect(*map(int, arguments[1:5])) if len(arguments) > 1 else wx.Rect(wx.GetDisplaySize())
    bitmap = wx.Bitmap(area.width, area.height)
    target = wx.MemoryDC(bitmap)
    target.Blit(0, 0, area.width, area.height, wx.ScreenDC(), area.x, area.y)
    target.SelectObject(wx.NullBitmap)
    saved = bitmap.SaveFile(arguments[0], wx.BITMAP_TYPE_PNG)
    application.Destroy()
    return 0 if saved else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
