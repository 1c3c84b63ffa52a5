"""Windows that fit their content and the screen."""

import wx


def window_fit_layout(window: wx.Window, maximize: bool = False) -> None:
    """Fit a window to its sizer, but never larger than the screen; maximize it on request."""
    window.Layout()
    if not isinstance(window, wx.TopLevelWindow):
        window.Fit()
        return
    area = wx.Display(max(0, wx.Display.GetFromWindow(window))).GetClientArea()
    best = window.GetBestSize() if window.GetSizer() else window.GetSize()
    best.DecTo(area.GetSize())
    window.SetMinSize(best)
    if maximize:
        # Without a window manager nothing maximizes: the size itself is the screen's then.
        window.SetSize(area)
        window.Maximize()
    else:
        window.SetSize(best)
        window.CentreOnParent() if window.GetParent() else window.CentreOnScreen()
