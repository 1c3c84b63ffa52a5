"""The fixture of the tests that work on whole stations: `pytest_plugins = ["stationplugin"]`."""

from collections.abc import Iterator
from pathlib import Path

import pytest
import wx
from qon_ats import TestDataViewerFrame, TestDataViewerPanel
from station import Station
from support import pump


@pytest.fixture
def station(
    app: wx.App, tmp_path: Path, import_state: None, monkeypatch: pytest.MonkeyPatch
) -> Iterator[Station]:
    """Makes stations in a folder that is the working directory; no thread or window outlives the test."""
    monkeypatch.chdir(tmp_path)
    maker = Station(tmp_path)
    yield maker
    maker.close()


@pytest.fixture
def panel(station: Station) -> TestDataViewerPanel:
    """A test data viewer in a window of its own."""
    frame = TestDataViewerFrame(None)
    frame.Show()
    pump(frame.IsShownOnScreen)
    return frame.test_data_viewer_panel
