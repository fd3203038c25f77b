"""The console in a real browser: chromium without a screen, against nqeweb and engines of the end-to-end tests.

QDT_BIN names the directory of the binaries (default: build/bin). QDT_SCREENSHOTS names a directory in which screenshots are
kept to be looked at.
"""

import base64
import contextlib
import importlib.util
import json
import os
import pathlib
import subprocess
import time

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "tools" / "nqeweb" / "page"


def end_to_end():
    """The processes of tests/e2e/conftest.py, which has this file's own name."""
    spec = importlib.util.spec_from_file_location("processes", ROOT / "tests" / "e2e" / "conftest.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


processes = end_to_end()
BIN = processes.BIN
PATIENCE = 60  # seconds: a browser beside other tests takes its time


class Console:
    """One nqeweb."""

    def __init__(self, *words, listen="127.0.0.1:0"):
        self.process = subprocess.Popen([BIN / "nqeweb", *map(str, words), "--listen", listen],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        line = self.process.stdout.readline().decode()
        assert line.startswith("nqeweb: ready at http://127.0.0.1:"), line
        self.url = line.split()[-1]

    def end(self):
        self.process.terminate()
        try:
            assert self.process.wait(PATIENCE) == 0
        finally:
            self.process.kill()
            self.process.wait()
            self.process.stdout.close()


@contextlib.contextmanager
def console(*words, **options):
    web = Console(*words, **options)
    try:
        yield web
    finally:
        web.end()


class Browser:
    """A tab, with what it has asked for and complained of."""

    def __init__(self):
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        for word in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--lang=en",
                     "--disable-background-networking", "--disable-component-update", "--no-first-run"):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        self.driver.set_script_timeout(PATIENCE)
        self.driver.set_page_load_timeout(PATIENCE)
        self.size(1280, 900)
        self.web = None

    def size(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def colours(self, theme):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": theme}]})

    def open(self, web, place=""):
        """A view by its address, in a page that is loaded anew; waits until it is drawn."""
        self.web = web
        self.driver.get("about:blank")
        self.driver.get(f"{web.url}#/{place}")
        self.settle()

    def settle(self):
        self.until("document.getElementById('view')?.hasAttribute('aria-busy') === false", "the view to be drawn")

    def run(self, script, *words):
        return self.driver.execute_script(script, *words)

    def until(self, condition, what):
        """Waits until an expression of the page is true, and returns its value."""
        deadline = time.monotonic() + PATIENCE
        while True:
            value = self.run(f"return {condition}")
            if value:
                return value
            assert time.monotonic() < deadline, f"waited {PATIENCE} s for {what}; the page says: {self.text()[:800]}"
            time.sleep(0.05)

    def text(self):
        return self.run("return document.body.innerText")

    def view(self):
        return self.run("return document.getElementById('view').innerText")

    def says(self, text):
        """Waits for a text in the view."""
        self.until(f"document.getElementById('view').innerText.includes({json.dumps(text)})", text)

    def leave(self):
        """Before a console ends: a page would go on asking it."""
        self.driver.get("about:blank")

    def keys(self, *keys):
        action = webdriver.ActionChains(self.driver)
        for key in keys:
            action.send_keys(key)
        action.perform()

    def chord(self, held, key):
        webdriver.ActionChains(self.driver).key_down(held).send_keys(key).key_up(held).perform()

    def click(self, selector):
        self.until(f"document.querySelector({json.dumps(selector)})", selector)
        self.driver.find_element("css selector", selector).click()

    def type(self, selector, text):
        self.until(f"document.querySelector({json.dumps(selector)})", selector)
        self.driver.find_element("css selector", selector).send_keys(text)

    def complaints(self):
        """What the console of the browser has said since it was asked last."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] in ("SEVERE", "WARNING")]

    def requested(self):
        """Addresses that were asked for since this was called last."""
        entries = (json.loads(entry["message"])["message"] for entry in self.driver.get_log("performance"))
        return [entry["params"]["request"]["url"] for entry in entries if entry["method"] == "Network.requestWillBeSent"]

    def picture(self):
        """The page as it is seen, as a PNG file's bytes."""
        return self.driver.get_screenshot_as_png()

    def picture_of_view(self):
        """What is seen of the view alone, without the frame around it."""
        clip = self.run("const {x, y, width, height} = document.getElementById('view').getBoundingClientRect();"
                        "return {x, y, width, height: Math.min(height, innerHeight - y), scale: 1}")
        return base64.b64decode(self.driver.execute_cdp_cmd("Page.captureScreenshot", {"format": "png", "clip": clip})["data"])


@pytest.fixture(scope="session")
def chromium():
    one = Browser()
    yield one
    one.driver.quit()


@pytest.fixture
def browser(chromium):
    """The browser; what it complained of and whom it asked is looked at when the test ends."""
    chromium.complaints()
    chromium.requested()
    chromium.expected = ()
    chromium.size(1280, 900)
    chromium.colours("light")
    yield chromium
    said = [line for line in chromium.complaints() if not any(word in line for word in chromium.expected)]
    asked = chromium.requested()
    chromium.driver.get("about:blank")
    chromium.driver.get_log("browser")
    assert said == []
    # Nothing leaves the machine, and nothing but this console is asked.
    own = ("about:", "data:", "blob:", chromium.web.url)
    assert [url for url in asked if not url.startswith(own)] == []


@pytest.fixture(scope="session")
def campus():
    """An engine with traffic, whose tasks and points are measured; and what it was before, as a snapshot."""
    with processes.short_directory() as directory, processes.engine_place() as place:
        place.scenario.unlink()
        place.scenario = ROOT / "examples" / "campus.yaml"
        place.start("--traffic", "2000")
        place.cli("snapshot", directory / "before").answered("")
        place.snapshot = directory / "before"
        assert place.cli("perf", "task", "set", "time").code == 0
        assert place.cli("pmc", "3").code == 0
        yield place
        # Lines of the packet trace go to standard error as well.
        assert place.end()[0] == 0


@pytest.fixture
def place():
    with processes.engine_place() as fresh:
        yield fresh


@pytest.fixture(scope="session")
def web(campus):
    with console("--arena", campus.arena, "--snapshot", campus.snapshot) as one:
        yield one


def pytest_configure():
    os.environ.setdefault("SE_OFFLINE", "true")
