"""The page in a real browser: by mouse and by keyboard, on a wall, a laptop and a phone, with hostile texts in it."""

import json
import shutil
import time
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
from qon_results.generator import Recipe
from qon_results.writer.database import Database
from qon_results.writer.messages import CellState
from test_page import HOSTILE, HostileGenerator, serving

CHROMIUM, DRIVER = shutil.which("chromium"), shutil.which("chromedriver")
webdriver = pytest.importorskip("selenium.webdriver", reason="selenium is not installed")
if not CHROMIUM or not DRIVER:
    pytest.skip("no chromium with its driver here: the page is not walked", allow_module_level=True)

from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

SIZES = {"wall": (1920, 1080), "laptop": (1280, 800), "phone": (390, 844)}
CELLS = 40
# The least contrast of a text with what is behind it; by the formula of the web's accessibility guidelines.
CONTRAST = """
const light = (c) => { const v = c.map((x) => (x /= 255) <= 0.04045 ? x / 12.92 : ((x + 0.055) / 1.055) ** 2.4);
  return 0.2126 * v[0] + 0.7152 * v[1] + 0.0722 * v[2]; };
const parts = (text) => text.match(/[\\d.]+/g).map(Number);
let least = [99, ""];
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walker.nextNode()) {
  const element = walker.currentNode.parentElement;
  if (!walker.currentNode.data.trim() || !element.checkVisibility() || element.closest("script, .plot, option")) continue;
  let behind = element, ground = [255, 255, 255];
  while (behind) {
    const found = parts(getComputedStyle(behind).backgroundColor);
    if (found.length < 4 || found[3] > 0) { ground = found.slice(0, 3); break; }
    behind = behind.parentElement;
  }
  const [a, b] = [light(parts(getComputedStyle(element).color).slice(0, 3)), light(ground)].sort((x, y) => y - x);
  const ratio = (a + 0.05) / (b + 0.05);
  if (ratio < least[0]) least = [ratio, element.outerHTML.slice(0, 120)];
}
return least;
"""


@pytest.fixture(scope="module")
def browser() -> Iterator[Any]:
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    driver = webdriver.Chrome(options=options, service=Service(DRIVER))
    driver.set_page_load_timeout(30)
    yield driver
    driver.quit()


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return tmp_path_factory.mktemp("browser")


@pytest.fixture(scope="module")
def database(folder: Path) -> Iterator[Database]:
    path = HostileGenerator(Recipe(units=400, items=12, cells=CELLS, failing=0.2, aborted=0.03)).write(folder)
    database = Database(path, commit_ms=1000, durable="off")
    database.open("generated")
    show(database, {cell: "TESTING" if cell % 2 else "READY" for cell in range(1, CELLS + 1)})
    yield database
    database.close()


def show(database: Database, states: dict[int, str]) -> None:
    now = time.time_ns() // 1000
    database.begin(durable=True)
    database.cells(
        [
            CellState(cell, state, None, HOSTILE[cell % len(HOSTILE)], now, 0, None, now)
            for cell, state in states.items()
        ]
    )
    database.commit()


@pytest.fixture(scope="module")
def base(folder: Path, database: Database) -> Iterator[str]:
    with serving(folder) as port:
        yield f"http://127.0.0.1:{port}"


def resize(browser: Any, size: tuple[int, int]) -> None:
    metrics = {"width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": False}
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)


def in_order(browser: Any, base: str) -> None:
    """Nothing in the console, no other host, no text too pale, nothing wider than the screen."""
    assert browser.get_log("browser") == []
    events = [json.loads(entry["message"])["message"] for entry in browser.get_log("performance")]
    asked = {
        each["params"]["request"]["url"] for each in events if each["method"] == "Network.requestWillBeSent"
    }
    assert all(url.startswith((base, "data:", "blob:" + base)) for url in asked), asked
    ratio, where = browser.execute_script(CONTRAST)
    assert ratio >= 4.5, where
    assert browser.execute_script("return document.documentElement.scrollWidth <= innerWidth")


@pytest.mark.parametrize("size", SIZES)
def test_each_page_by_mouse(size: str, browser: Any, base: str, database: Database) -> None:
    resize(browser, SIZES[size])
    browser.get(base + "/?lang=en")
    assert len(browser.find_elements(By.CSS_SELECTOR, ".cell")) == CELLS
    if size == "wall":  # all cells without scrolling, and no text cut off below
        assert browser.execute_script("return document.documentElement.scrollHeight <= innerHeight")
        cut = "return [...document.querySelectorAll('.cell')].filter((c) => c.scrollHeight > c.clientHeight + 1).length"
        assert browser.execute_script(cut) == 0
    in_order(browser, base)
    browser.find_element(By.LINK_TEXT, "Units").click()
    serial = browser.find_element(By.NAME, "serial")
    serial.send_keys("<script>*")
    browser.find_element(By.CSS_SELECTOR, "select[name=period] option[value=all]").click()
    browser.find_element(By.CSS_SELECTOR, "form button").click()
    in_order(browser, base)
    first = browser.find_element(By.CSS_SELECTOR, "td a")
    assert first.text.startswith("<script>alert(1)</script>")
    first.click()
    assert browser.find_element(By.TAG_NAME, "h1").text.startswith("<script>")
    in_order(browser, base)
    browser.get(base + "/yield?period=all")
    WebDriverWait(browser, 20).until(
        lambda it: len(it.find_elements(By.CSS_SELECTOR, ".chart.drawn svg.main-svg")) >= 3
    )
    browser.find_element(By.CSS_SELECTOR, ".chart summary").click()
    assert browser.find_element(By.CSS_SELECTOR, ".chart table").is_displayed()
    in_order(browser, base)
    browser.get(base + "/gauge")
    in_order(browser, base)
    browser.get(base + "/limits?period=all&item=ITEM_000&upper=1.01")
    browser.find_element(By.PARTIAL_LINK_TEXT, "Part average limits").click()
    WebDriverWait(browser, 20).until(lambda it: it.find_elements(By.CSS_SELECTOR, ".chart.drawn"))
    assert "lower=" in browser.current_url
    in_order(browser, base)


def test_by_keyboard_alone_and_in_chinese(browser: Any, base: str) -> None:
    resize(browser, SIZES["laptop"])
    browser.get(base + "/?lang=zh_CN")

    def press(*keys: str) -> None:
        browser.switch_to.active_element.send_keys(*keys)

    def tab_to(wanted: str) -> None:
        for _ in range(60):
            press(Keys.TAB)
            focused = browser.switch_to.active_element
            if wanted in (focused.get_attribute("name"), focused.get_attribute("href"), focused.text):
                assert (
                    browser.execute_script("return getComputedStyle(document.activeElement).outlineStyle")
                    != "none"
                )
                return
        raise AssertionError(f"{wanted} is not reached by Tab")

    tab_to(base + "/units")
    press(Keys.ENTER)
    assert browser.find_element(By.TAG_NAME, "h1").text == "产品"
    tab_to("serial")
    press("产品*")
    tab_to("period")
    press(Keys.END, Keys.ENTER)
    tab_to("查询")
    press(Keys.ENTER)
    WebDriverWait(browser, 10).until(lambda it: "serial=" in it.current_url)
    assert "period=all" in browser.current_url
    name = browser.find_element(By.CSS_SELECTOR, "td a").text
    tab_to(name)
    press(Keys.ENTER)
    WebDriverWait(browser, 10).until(lambda it: "/unit/" in it.current_url)
    in_order(browser, base)
    browser.get(base + "/yield?period=all")
    tab_to("图中数据")
    press(Keys.ENTER)
    assert browser.find_element(By.CSS_SELECTOR, ".chart table").is_displayed()
    browser.get(base + "/?lang=en")


def test_a_state_appears_without_reloading(browser: Any, base: str, database: Database) -> None:
    resize(browser, SIZES["laptop"])
    browser.get(base + "/?lang=en")
    browser.execute_script("window.mark = 'the same page'")
    began = time.monotonic()
    show(database, {3: "PAUSED"})
    wait = WebDriverWait(browser, 5, poll_frequency=0.05)
    band = "return document.querySelector(\"[id$='-3'].cell .band\").textContent"
    wait.until(lambda it: "PAUSED" in it.execute_script(band))
    assert time.monotonic() - began < 2.5  # 1 s where nothing else runs
    assert browser.execute_script("return window.mark") == "the same page"
    in_order(browser, base)
