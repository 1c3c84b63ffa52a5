"""Milliseconds from building the frame of an 8-cell station to its start-up hook, windows shown."""

import tempfile
import time
from pathlib import Path

import wx
from sides import report, setting, side_of_this_process, write_book, write_script

CELLS = 8


def main() -> None:
    side, module = side_of_this_process()
    app = wx.App(False)
    ready: list[float] = []

    class Station(module.ATSFrame):  # type: ignore[name-defined]
        def startup_initializer(self) -> None:
            ready.append(time.perf_counter())
            wx.CallAfter(app.ExitMainLoop)

    with tempfile.TemporaryDirectory() as folder:
        main_sheet = [setting("cell_count", CELLS), setting("column_count", 4)]
        cell_sheet = [setting("script", write_script(Path(folder), side))]
        config = write_book(Path(folder) / "config.xlsx", {"main": main_sheet, "cell1": cell_sheet})
        begin = time.perf_counter()
        frame = Station(None, config_file=config)
        frame.Show()
        app.MainLoop()
    assert len(frame.cells) == CELLS
    report({"start": (ready[0] - begin) * 1e3})


if __name__ == "__main__":
    main()
