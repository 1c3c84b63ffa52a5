"""Shows faults without stopping the station: a window that nobody has to answer."""

import time

import wx
from qon_companions.boxes.text_view import TEXT_POINTS
from qon_companions.fonts import font
from qon_companions.i18n import _

from .faults import Fault, Faults

SIZE = (760, 460)  # DIP
_REFRESH_MS = 300


class FaultWindow(wx.Frame):
    """A list of the kinds of faults with their counts, and the details of the chosen one.

    It opens when a new kind of fault appears; closing it only hides it.
    """

    def __init__(self, parent: wx.Window, faults: Faults) -> None:
        style = wx.DEFAULT_FRAME_STYLE | wx.FRAME_FLOAT_ON_PARENT | wx.FRAME_NO_TASKBAR
        super().__init__(parent, title=_("Faults of the program"), style=style)
        self._faults = faults
        self._shown: list[Fault] = []
        self._is_due = False
        panel = wx.Panel(self)
        note = _("The station goes on. Please tell whoever looks after its programs.")
        self.note = wx.StaticText(panel, label=note)
        self.list = wx.ListCtrl(panel, style=wx.LC_REPORT | wx.LC_SINGLE_SEL)
        for column, (title, width) in enumerate(
            ((_("Count"), 70), (_("Last time"), 90), (_("Where"), 110), (_("What"), 470))
        ):
            self.list.InsertColumn(column, title, width=self.FromDIP(width))
        self.details = wx.TextCtrl(panel, style=wx.TE_MULTILINE | wx.TE_READONLY | wx.TE_DONTWRAP)
        self.details.SetFont(font(TEXT_POINTS - 2, fixed=True))
        panel.SetSizer(self._column(panel))
        self.SetSize(self.FromDIP(wx.Size(*SIZE)))
        self.list.Bind(wx.EVT_LIST_ITEM_SELECTED, lambda event: self._show_details())
        self.Bind(wx.EVT_CLOSE, lambda event: self.Hide())
        self.Bind(wx.EVT_CHAR_HOOK, self._on_key)

    def refresh(self, new: bool) -> None:
        """Show the present state, soon: faults may come faster than they can be shown."""
        if new and not self.IsShown():
            self._show_in_corner()
        if not self._is_due:
            self._is_due = True
            wx.CallLater(_REFRESH_MS, self._fill)

    def _column(self, panel: wx.Panel) -> wx.Sizer:
        gap = self.FromDIP(10)
        column = wx.BoxSizer(wx.VERTICAL)
        column.Add(self.note, 0, wx.EXPAND | wx.ALL, gap)
        column.Add(self.list, 2, wx.EXPAND | wx.LEFT | wx.RIGHT, gap)
        column.Add(self.details, 3, wx.EXPAND | wx.ALL, gap)
        row = wx.BoxSizer()
        for text, tip, action in (
            (_("&Copy all"), _("Copy all faults with their details"), self._copy),
            (_("&Empty the list"), _("Forget these faults; the log file keeps them"), self._forget),
            (_("C&lose"), _("Hide this window until a new kind of fault appears (Esc)"), self.Hide),
        ):
            button = wx.Button(panel, label=text)
            button.SetMinSize(self.FromDIP(wx.Size(-1, 40)))
            button.SetToolTip(tip)
            button.Bind(wx.EVT_BUTTON, lambda event, action=action: action())
            row.Add(button, 0, wx.LEFT, gap)
        column.Add(row, 0, wx.ALIGN_RIGHT | wx.RIGHT | wx.BOTTOM, gap)
        return column

    def _show_in_corner(self) -> None:
        area = wx.Display(max(0, wx.Display.GetFromWindow(self.GetParent()))).GetClientArea()
        self.SetPosition(area.GetBottomRight() - self.GetSize())
        self.ShowWithoutActivating()  # whoever types into a cell goes on typing there

    def _fill(self) -> None:
        if not self:
            return
        self._is_due = False
        self._shown = self._faults.list()
        while self.list.GetItemCount() > len(self._shown):
            self.list.DeleteItem(0)
        for row, fault in enumerate(self._shown):
            when = time.strftime("%H:%M:%S", time.localtime(fault.last))
            texts = (str(fault.count), when, fault.where, " ".join(fault.what.split()))
            if row >= self.list.GetItemCount():
                self.list.InsertItem(row, "")
            for column, text in enumerate(texts):
                if self.list.GetItemText(row, column) != text:
                    self.list.SetItem(row, column, text)
        if self._shown and self.list.GetFirstSelected() < 0:
            self.list.Select(len(self._shown) - 1)
        self._show_details()

    def _show_details(self) -> None:
        row = self.list.GetFirstSelected()
        fault = self._shown[row] if 0 <= row < len(self._shown) else None
        text = f"{fault.what}\n\n{fault.details}" if fault else ""
        if text != self.details.GetValue():
            self.details.SetValue(text)

    def _copy(self) -> None:
        texts = [f"{fault.count} x {fault.where}: {fault.what}\n{fault.details}" for fault in self._shown]
        if wx.TheClipboard.Open():
            wx.TheClipboard.SetData(wx.TextDataObject("\n\n".join(texts)))
            wx.TheClipboard.Flush()
            wx.TheClipboard.Close()

    def _forget(self) -> None:
        self._faults.forget()
        self._fill()
        self.Hide()

    def _on_key(self, event: wx.KeyEvent) -> None:
        if event.GetKeyCode() == wx.WXK_ESCAPE:
            self.Hide()
        else:
            event.Skip()
