"""The layout of one test cell: all its widgets, and its handlers bound by name.

Mixed with the engine's class, which owns the plain names; everything private here begins with `_ui_`.
"""

from __future__ import annotations

import wx
from qon_companions import notices, scans
from qon_companions.i18n import _

from qon_atsui import notice_board, palette
from qon_atsui.cell import questions
from qon_atsui.cell.band import VerdictBand
from qon_atsui.cell.details import DetailsWindow
from qon_atsui.cell.face import EDGE, SMALLEST, CellFace, Parts
from qon_atsui.cell.pages import CellPages
from qon_atsui.cell.parts import Head, Nowhere, Totals, abort_button, details_button, start_button
from qon_atsui.cell.serial_entry import SerialEntry, choose, settle_focus
from qon_atsui.cell.signs import PAUSE, Signs
from qon_atsui.cell.starts import Starts
from qon_atsui.cell.waiting import what_it_waits_for
from qon_atsui.fields import ValueLabel
from qon_atsui.handlers import bind, descendants, is_offered, relay
from qon_atsui.keys import NumberRules, SessionRules, scan_gap
from qon_atsui.texts import displayable
from qon_atsui.timers import OneShotTimer


class Cell(wx.Panel):
    """Creates the `ui_*` widgets of a cell; behaviour is the business of the class mixed with it."""

    def __init__(self, parent: wx.Window) -> None:
        wx.Panel.__init__(self, parent, style=wx.TAB_TRAVERSAL | wx.CLIP_CHILDREN | wx.BORDER_NONE)
        self.SetBackgroundStyle(wx.BG_STYLE_PAINT)
        self.SetMinSize(self.FromDIP(wx.Size(*SMALLEST)))
        self._ui_signs = Signs(self._ui_signs_changed)
        self._ui_details: DetailsWindow | None = None
        sheet = getattr(self, "cell_config", None)
        self._ui_starts = Starts(self, NumberRules.of(sheet))
        desk = getattr(wx.GetTopLevelParent(self), "_ui_desk", None)
        if desk is not None:
            desk.set_gap(scan_gap(sheet))
            desk.shift.use(SessionRules.beside(sheet))
        self._ui_can_abort = False
        self._ui_aborted_here = False  # by the operator
        self._ui_create()
        self._ui_bind()
        questions.watch(self)
        notice_board.watch(self)

    def _ui_create(self) -> None:
        """Widgets in the order of the Tab key."""
        self._ui_head = Head(self)
        self.ui_cell_name = self._ui_head.name
        self.ui_elapse_time = self._ui_head.elapsed
        self.ui_gauge = self._ui_head.gauge
        self.ui_prompt = VerdictBand(self, self._ui_signs)
        serial_caption = self._ui_caption = ValueLabel(self, _("Serial number"))
        self.ui_serial_number = SerialEntry(self)
        self.ui_serial_number.SetToolTip(_("Serial number of the next unit; Enter starts its test"))
        self._ui_nowhere = Nowhere(self)
        self.ui_start = start_button(self)
        self.ui_abort = abort_button(self)
        self._ui_details_button = details_button(self)
        self._ui_pages = CellPages(self)
        self._ui_pages.browse.Show(is_offered(self, "on_browse_script"))
        self.ui_view_notebook = self._ui_pages
        self.ui_assertions = self._ui_pages.items
        self.ui_history_grid = self._ui_pages.history
        self.ui_test_logger = self._ui_pages.log
        self._ui_totals = Totals(self)
        self.ui_ok_count = self._ui_totals.ok.value
        self.ui_ng_count = self._ui_totals.ng.value
        self.ui_ok_percent = self._ui_totals.share.value
        self.ui_refresh_timer = OneShotTimer(self, "on_refresh_timer_event", behind_posted_calls="has_done")
        self.ui_blink_timer = OneShotTimer(self, "on_blink_timer_event")
        parts = Parts(
            self._ui_head,
            self.ui_prompt,
            serial_caption,
            self.ui_serial_number,
            self.ui_start,
            self.ui_abort,
            self._ui_details_button,
            self._ui_pages,
            self._ui_totals,
        )
        self._ui_face = CellFace(self, parts)

    def _ui_bind(self) -> None:
        self._ui_start = relay(self, "on_start_cell_test")
        self.ui_start.Bind(wx.EVT_BUTTON, self._ui_on_start)
        self.ui_serial_number.Bind(wx.EVT_TEXT_ENTER, self._ui_on_enter)
        bind(self, self.ui_abort, wx.EVT_BUTTON, "on_abort_cell_test")
        self.ui_abort.Bind(wx.EVT_BUTTON, self._ui_on_abort)
        bind(self, self._ui_pages.browse, wx.EVT_BUTTON, "on_browse_script")
        self.ui_refresh_timer.before = self._ui_look_for_abort
        self.ui_start.changed = self._ui_start_changed
        self.Bind(wx.EVT_CHAR_HOOK, self._ui_on_mnemonic)
        self.ui_serial_number.after_typing = self.ui_start
        self.ui_serial_number.changed = self._ui_serial_changed
        self.ui_serial_number.switched = self._ui_entry_switched
        self.ui_serial_number.mark_changed = self._ui_mark_changed
        self.ui_gauge.changed = self._ui_progress
        self.ui_test_logger.changed = self._ui_look_for_fault
        self._ui_details_button.Bind(wx.EVT_BUTTON, self._ui_open_details)
        for window in (self, self.ui_prompt, *self._ui_head.windows()):
            window.Bind(wx.EVT_LEFT_UP, self._ui_open_details)
        from qon_ats import EVT_STATISTICS_UPDATE_EVENT  # late: qon_ats itself imports this module

        self.Bind(EVT_STATISTICS_UPDATE_EVENT, self._ui_on_counted)
        self.Bind(wx.EVT_SIZE, self._ui_on_size)
        self.Bind(wx.EVT_PAINT, self._ui_on_paint)
        self.Bind(wx.EVT_CHILD_FOCUS, self._ui_on_child_focus)
        for window in (self, *descendants(self)):
            window.Bind(wx.EVT_LEFT_DOWN, self._ui_on_click)
        self._ui_mark_changed()

    # What the engine tells, passed on to the band.

    def _ui_signs_changed(self) -> None:
        self.ui_prompt.Refresh()
        busy = self._ui_signs.told.busy
        if busy != self._ui_can_abort:
            self._ui_can_abort = busy
            self.ui_abort.Enable(busy)

    def _ui_on_mnemonic(self, event: wx.KeyEvent) -> None:
        """Alt and a letter press the button of the cell that has the keyboard; GTK would only walk from cell to cell."""
        key = chr(event.GetUnicodeKey() or 0).upper()
        for button in (self.ui_start, self.ui_abort, self._ui_details_button):
            shown = wx.Control.GetLabel(button).upper()
            if event.AltDown() and f"&{key}" in shown and button.IsEnabled() and button.IsShown():
                press = wx.CommandEvent(wx.EVT_BUTTON.typeId, button.GetId())
                press.SetEventObject(button)
                wx.PostEvent(button, press)
                return
        event.Skip()

    def _ui_start_changed(self, label: str) -> None:
        """Only the test itself can pause: what is called Pause does nothing."""
        self._ui_signs.start_label(label)
        offers = label != PAUSE
        had_focus = wx.Window.FindFocus() in (self.ui_start, self._ui_nowhere)
        self.ui_start.Enable(offers)
        self.ui_start.stand_out(offers)
        if had_focus:
            (self.ui_start if offers else self._ui_nowhere).SetFocus()

    def _ui_entry_switched(self, enabled: bool) -> None:
        failed = self._ui_pages.failed_items() if enabled else ""
        self._ui_signs.entry_enabled(enabled, self._ui_pages.last_result(), failed)
        self._ui_look_for_fault()
        self._ui_starts.ng_was_seen = self.ui_prompt.face.state != "ng"
        if enabled:
            self._ui_pages.give_reason(self._ui_reason(failed))
        else:
            self._ui_aborted_here = False
            self._ui_head.serial.SetValue(self.ui_serial_number.GetValue())

    def _ui_on_abort(self, event: wx.Event) -> None:
        """Seen at once; the test may take a while to its next check point."""
        event.Skip()
        self._ui_aborted_here = True
        self._ui_aborting()
        questions.end(self)

    def _ui_abort(self) -> None:
        """As if its button were pressed."""
        self.ui_abort.Command(wx.CommandEvent(wx.wxEVT_BUTTON, self.ui_abort.GetId()))

    def _ui_look_for_abort(self) -> None:
        """A program may have asked for it; and what the test waits for may be another thing now."""
        if self._ui_signs.told.aborting or getattr(self, "_abort_flag", False):
            self._ui_aborting()

    def _ui_aborting(self) -> None:
        thread, script = getattr(self, "_test_thread", None), getattr(self, "script", "")
        self._ui_signs.abort_asked(what_it_waits_for(thread, script))

    def _ui_look_for_fault(self) -> None:
        """The traceback of a run may reach the log after its verdict."""
        if self._ui_signs.wants_fault:
            fault = self.ui_test_logger.last_exception()
            self._ui_signs.fault(fault)
            self._ui_pages.give_reason(fault)

    def _ui_reason(self, failed: str) -> str:
        """The unit of a station knows it; else what the cell was told says it."""
        outcome = getattr(getattr(self, "uut", None), "outcome", None)
        told, state = self._ui_signs.told, self.ui_prompt.face.state
        if state == "aborted":
            failed = _("Aborted by the operator") if self._ui_aborted_here else ""
        return displayable(getattr(outcome, "reason", "") or (told.fault if state == "exception" else failed))

    def _ui_serial_changed(self, text: str) -> None:
        if not self.ui_serial_number.IsThisEnabled():
            self._ui_head.serial.SetValue(text)

    def _ui_progress(self, percent: int) -> None:
        self._ui_head.percent.SetValue(f"{percent} %")
        self.ui_prompt.show_progress(percent / 100)

    def _ui_on_counted(self, event: wx.Event) -> None:
        """The cell has counted a unit; the event goes on to the window that sums up the cells."""
        event.Skip()
        show = getattr(self, "_show_statistics", None)
        if show is not None:
            show()

    def _ui_title(self) -> str:
        return self.ui_cell_name.GetValue()

    def _ui_questions(self, texts: list[str]) -> None:
        self._ui_signs.questions(texts)
        self.ui_prompt.Update()

    def _ui_notices(self) -> None:
        found = notices.of_cell(getattr(self, "cell_number", None))
        self._ui_signs.notices([notice.text for notice in found], any(notice.stop for notice in found))

    # Size and looks.

    def _ui_on_size(self, event: wx.SizeEvent) -> None:
        event.Skip()
        if self._ui_face.arrange() and self._ui_face.has_pages:
            self._ui_close_details()
        self._ui_pages.Show(self._ui_face.has_pages or self._ui_details is not None)
        self.Refresh()

    def _ui_on_paint(self, _event: wx.PaintEvent) -> None:
        """A card; its frame tells which cell takes the next scan."""
        dc = wx.AutoBufferedPaintDC(self)
        dc.SetBackground(wx.Brush(palette.CANVAS))
        dc.Clear()
        dc.SetBrush(wx.Brush(palette.SURFACE))
        marked = self.ui_serial_number.marked
        dc.SetPen(wx.Pen(palette.ACCENT if marked else palette.LINE, EDGE if marked else 1))
        width, height = self.GetClientSize()
        dc.DrawRoundedRectangle(EDGE // 2, EDGE // 2, width - EDGE, height - EDGE, 5)

    # Which cell the next scan is for, and starts by hand.

    def _ui_mark_changed(self) -> None:
        marked = self.ui_serial_number.marked
        self._ui_signs.mark(marked)
        self._ui_caption.paint_as(palette.ACCENT if marked else palette.MUTED)
        self.ui_serial_number.SetBackgroundColour(palette.ACCENT_SOFT if marked else wx.NullColour)
        self.ui_serial_number.Refresh()
        self.Refresh()
        questions.mark_moved()

    def _ui_on_click(self, event: wx.MouseEvent) -> None:
        """What is only read gives the keyboard to the entry."""
        event.Skip()
        self._ui_choose()
        if not event.GetEventObject().AcceptsFocus():
            self.ui_serial_number.SetFocus()

    def _ui_choose(self) -> None:
        choose(self.ui_serial_number)
        questions.mark_moved(by_hand=True)

    def _ui_on_child_focus(self, event: wx.ChildFocusEvent) -> None:
        """By Tab, or by a click on what was put into the cell later."""
        event.Skip()
        if scans.tab_was_pressed() or wx.GetMouseState().LeftIsDown():
            self._ui_choose()

    def _ui_on_enter(self, event: wx.CommandEvent) -> None:
        if not self.ui_serial_number.is_echo():
            self._ui_on_start(event)

    def _ui_on_start(self, event: wx.CommandEvent) -> None:
        """The same button resumes a paused test: then there is no number to look at."""
        entry = self.ui_serial_number
        if entry.IsThisEnabled():
            if self._ui_is_asking():
                return
            if not self._ui_starts.may_start(entry.GetValue(), scanned=False):
                if self and entry.IsThisEnabled():
                    entry.SelectAll()
                return
        self._ui_start(event)

    def _ui_take_scan(self, number: str) -> None:
        """As if it had been typed into the entry, with Enter.  What was half typed there is gone."""
        entry = self.ui_serial_number
        if not self._ui_starts.may_start(number, scanned=True):
            return
        entry.SetValue(number)
        event = wx.CommandEvent(wx.wxEVT_TEXT_ENTER, entry.GetId())
        event.SetEventObject(entry)
        self._ui_start(event)

    def _ui_is_asking(self) -> bool:
        """Whether a start waits for an answer, of the operator or of somebody else."""
        ready = getattr(self, "is_ready", None)
        return self._ui_starts.asking or (ready is not None and not ready())

    def refuse_number(self, number: str) -> str:
        """Words that refuse a start with this number, whoever starts it; "" lets it pass.

        A start without a number is refused to the operator's hand only: a fixture, or a command for all cells, may
        know what it starts.
        """
        number = number.strip()
        return (self._ui_starts.refusal(number) if number else "") or self._ui_starts.unseen_ng()

    def _ui_tested_number(self) -> str:
        """The number of the unit that is in test, "" without one."""
        return "" if self.ui_serial_number.IsThisEnabled() else self._ui_unit_number()

    def _ui_unit_number(self) -> str:
        """The number of the unit that is or was tested last."""
        return str(getattr(getattr(self, "uut", None), "serial_number", None) or "").strip()

    def _ui_tell(self, words: str) -> None:
        """In red, where a start is refused."""
        desk = getattr(wx.GetTopLevelParent(self), "_ui_desk", None)
        if desk is not None:
            desk.tell(words, self)

    # Details, where the notebook has no room.

    def _ui_open_details(self, event: wx.Event) -> None:
        event.Skip()
        if self._ui_face.has_pages:
            return
        if self._ui_details is None:
            self._ui_details = DetailsWindow(self, self._ui_pages, self._ui_title())
        else:
            self._ui_details.Raise()

    def _ui_close_details(self) -> None:
        details, self._ui_details = self._ui_details, None
        if details is not None:
            details.give_back()
            self._ui_pages.Show(self._ui_face.has_pages)
            self._ui_face.arrange(again=True)
            wx.CallAfter(settle_focus, self)
