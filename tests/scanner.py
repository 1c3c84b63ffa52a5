"""A barcode scanner: key events of the display's own test extension, which paces them whatever else runs."""

import ctypes
from functools import cache

_X = ctypes.CDLL("libX11.so.6")
_XTEST = ctypes.CDLL("libXtst.so.6")
_X.XOpenDisplay.restype = ctypes.c_void_p
_X.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
_X.XFlush.argtypes = [ctypes.c_void_p]
_XTEST.XTestFakeKeyEvent.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.c_int, ctypes.c_ulong]
_SHIFT, _NAMES = 0xFFE1, {"\n": 0xFF0D, "\t": 0xFF09}


@cache
def _display() -> int:
    return int(_X.XOpenDisplay(None))


def burst(text: str, ms: int = 10, hold: int = 0) -> None:
    """Characters, Enter and Tab, each so long after the one before and held down so long; they come later."""
    for character in text:
        keys = [_NAMES.get(character, ord(character))]
        if character.isupper():
            keys.insert(0, _SHIFT)
        codes = [_X.XKeysymToKeycode(_display(), key) for key in keys]
        for down, order in ((1, codes), (0, codes[::-1])):
            for index, code in enumerate(order):
                _XTEST.XTestFakeKeyEvent(_display(), code, down, 0 if index else ms if down else hold)
    _X.XFlush(_display())
