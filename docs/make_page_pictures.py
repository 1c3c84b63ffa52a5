"""Makes the pictures of the page in the browser, of a line whose results come from the generator:

.venv/bin/python docs/make_page_pictures.py

Needs chromium and its driver (tools/system-packages page) and what requirements/test.txt names.
"""

import os
import shutil
import sys
import tempfile
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import qon_results
from qon_results.generator import Generator, Recipe
from qon_results.page.server import bound, server
from qon_results.page.settings import Settings
from qon_results.store.base import Filter
from qon_results.writer.database import Database
from qon_results.writer.messages import CellState
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

IMAGES = Path(__file__).resolve().parent / "img"
CELLS, UNITS, SECONDS = 12, 4000, 25.0
SIZES = {"wall": (1920, 1080), "laptop": (1280, 800), "phone": (390, 844)}


class Yesterday(Generator):
    """The recipe's runs, so that the last one ended just now."""

    def runs(self) -> Iterator[Any]:
        import qon_results.generator as module

        end = time.time_ns() // 1000
        module._BEGIN_US = end - round(UNITS * SECONDS * 1e6)
        return super().runs()


def main() -> int:
    driver, browser = shutil.which("chromedriver"), shutil.which("chromium")
    if not driver or not browser:
        print("chromium and chromedriver are needed (tools/system-packages page)", file=sys.stderr)
        return 1
    with tempfile.TemporaryDirectory() as folder:
        path = Yesterday(Recipe(units=UNITS, items=40, cells=CELLS, seconds=SECONDS, failing=0.1)).write(
            Path(folder)
        )
        database = Database(path, commit_ms=1000, durable="off")
        database.open("line 3")
        states(database, path)
        settings = Settings(folder, port=0)
        listening, running = bound(settings), server(settings)
        thread = threading.Thread(target=running.run, args=([listening],))
        thread.start()
        try:
            shoot(f"http://127.0.0.1:{listening.getsockname()[1]}", path, browser, driver)
        finally:
            running.should_exit = True
            thread.join()
            database.close()
    return 0


def states(database: Database, path: Path) -> None:
    """Every third cell tests, one is paused, one has not reported for an hour; the others show their last verdict."""
    now = time.time_ns() // 1000
    found = []
    with qon_results.open(path) as store:
        for cell in range(1, CELLS + 1):
            [last] = store.runs(Filter(cell=cell), 1)
            state = {0: "TESTING", 1: "READY", 2: "READY"}[cell % 3] if cell != 8 else "PAUSED"
            run = last.id.bytes if state == "READY" else os.urandom(16)
            serial = last.serial_number if state == "READY" else f"SN{UNITS + cell:08d}"
            since, heard = now, now - (3_600_000_000 if cell == 11 else 0)
            found.append(CellState(cell, state, run, serial, since, 20, None, heard))
    database.begin(durable=True)
    database.cells(found)
    database.commit()


def shoot(base: str, path: Path, browser: str, driver: str) -> None:
    options = webdriver.ChromeOptions()
    options.binary_location = browser
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars"):
        options.add_argument(argument)
    with qon_results.open(path) as store:
        failed = next(run for run in store.runs(limit=500) if run.first_ng and len(store.attempts(run)) > 1)
    window = webdriver.Chrome(options=options, service=Service(driver))
    try:
        for name, size, address in (
            ("page-line", "wall", "/?lang=en"),
            ("page-phone", "phone", "/"),
            ("page-line-zh", "laptop", "/?lang=zh_CN"),
            ("page-units", "laptop", "/units?lang=en&outcome=NG"),
            ("page-unit", "laptop", f"/unit/{failed.id}"),
            ("page-yield", "laptop", "/yield?period=7d"),
        ):
            width, height = SIZES[size]
            metrics = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
            window.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)
            window.get(base + address)
            drawn = "return [...document.querySelectorAll('.plot')].every((p) => p.closest('.drawn'))"
            WebDriverWait(window, 30).until(lambda it, drawn=drawn: it.execute_script(drawn))
            window.save_screenshot(str(IMAGES / f"{name}.png"))
            print(IMAGES / f"{name}.png")
    finally:
        window.quit()


if __name__ == "__main__":
    sys.exit(main())
