"""A real browser that shows the page of tavrikweb."""

import pathlib
import shlex
import tempfile

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.remote.remote_connection import RemoteConnection

from .cell import DIES_WITH_PARENT, HVA, PATIENCE, SLOWNESS, wait_until
from .web import ORIGIN, WebTestCase

OPTIONS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
           "--disable-background-networking", "--disable-component-update", "--no-first-run",
           "--disable-sync", "--window-size=1200,1000",
           "--host-resolver-rules=MAP evil.example 127.0.0.1")

# The contrast of the text of an element with its background, after WCAG 2.
CONTRAST = """
const channels = (colour) => colour.match(/[\\d.]+/g).map(Number);
const luminance = ([r, g, b]) => [r, g, b].map((value) => value / 255)
  .map((value) => value <= 0.03928 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4)
  .reduce((sum, value, i) => sum + value * [0.2126, 0.7152, 0.0722][i], 0);
const background = (node) => {
  for (; node; node = node.parentElement) {
    const colour = channels(getComputedStyle(node).backgroundColor);
    if (colour.length === 3 || colour[3] === 1) return colour;
  }
  return [255, 255, 255];
};
const found = [];
for (const node of document.querySelectorAll("body *")) {
  const isText = [...node.childNodes].some((child) => child.nodeType === 3 && child.data.trim());
  if (!isText || !node.checkVisibility() || node.disabled || node.closest("noscript, .plot")) continue;
  const lights = [channels(getComputedStyle(node).color), background(node)].map(luminance).sort();
  const contrast = (Math.max(...lights) + 0.05) / (Math.min(...lights) + 0.05);
  found.push([node.tagName + " " + node.textContent.slice(0, 40), contrast]);
}
return found;
"""


def dying_with_parent(program, folder):
    """A script that runs `program` so that it ends with the program that starts it."""
    script = pathlib.Path(folder, pathlib.Path(program).name)
    script.write_text(f'#!/bin/sh\nexec {shlex.join(DIES_WITH_PARENT)} {program} "$@"\n')
    script.chmod(0o755)
    return str(script)


def start_browser(folder):
    options = webdriver.ChromeOptions()
    options.binary_location = dying_with_parent("/usr/bin/chromium", folder)
    for option in (*OPTIONS, f"--user-data-dir={folder}/profile"):
        options.add_argument(option)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    RemoteConnection.set_timeout(2 * PATIENCE)  # so that a browser that hangs fails a test
    service = Service(dying_with_parent("/usr/bin/chromedriver", folder))
    driver = webdriver.Chrome(options=options, service=service)
    driver.set_page_load_timeout(PATIENCE)
    driver.set_script_timeout(PATIENCE)
    driver.get("about:blank")
    driver.get_log("browser")  # what the first, empty tab has said
    return driver


class BrowserTestCase(WebTestCase):
    """Tests of the page. Each begins with the view of the cell, and ends with an empty console."""

    @classmethod
    def prepare(cls):
        super().prepare()
        folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        cls.addClassCleanup(folder.cleanup)
        cls.driver = start_browser(folder.name)
        cls.addClassCleanup(cls.driver.quit)

    def setUp(self):
        self.console = []  # patterns of messages that a test expects
        self.open("/")
        self.wait_for_cards(self.options.count("--gripper"))

    def tearDown(self):
        messages = [entry["message"] for entry in self.driver.get_log("browser")]
        self.assertEqual([message for message in messages
                          if not any(text in message for text in self.console)], [])

    def open(self, path):
        self.driver.get("about:blank")  # a change of the part behind "#" alone loads nothing
        self.driver.get(ORIGIN + path)

    def open_gripper(self, name=HVA):
        self.find("a", name).click()
        self.wait_for_text("h2", name)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        """The texts of elements, as a viewer sees them at one moment."""
        texts = self.driver.execute_script(
            "return [...document.querySelectorAll(arguments[0])]"
            ".map((element) => element.checkVisibility() ? element.innerText : '')", selector)
        return [text.replace("\t", " ").strip() for text in texts]  # tabs are between cells

    def find(self, selector, text):
        """The visible element with this text, as soon as it is there."""
        def found():
            try:
                return [element for element in self.all(selector)
                        if element.text == text and element.is_displayed()]
            except StaleElementReferenceException:
                return None
        return wait_until(found)[0]

    def wait_for_text(self, selector, text, timeout=PATIENCE):
        """Waits until an element contains the text."""
        wait_until(lambda: any(text in each for each in self.texts(selector)), timeout)

    def wait_for_cards(self, count):
        wait_until(lambda: len(self.all(".card")) == count and
                   len([text for text in self.texts(".card") if "live" in text]) == count)

    def press(self, text):
        """Presses a button as soon as it can be pressed."""
        wait_until(lambda: self.find("button", text).is_enabled())
        self.find("button", text).click()

    def take_control_of_page(self):
        field = self.driver.find_element(By.ID, "code")
        field.clear()
        field.send_keys(self.web.code())
        self.press("Take control")
        self.wait_for_text("#control", "You have control")

    def set_width(self, width, height=800):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600})
        self.addCleanup(self.driver.execute_cdp_cmd, "Emulation.clearDeviceMetricsOverride", {})

    def set_scheme(self, scheme):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def expect_accessible(self):
        """Every text has enough contrast, and every control a name."""
        for scheme in ("light", "dark"):
            self.set_scheme(scheme)
            contrasts = self.driver.execute_script(CONTRAST)
            self.assertGreater(len(contrasts), 5)
            self.assertEqual([each for each in contrasts if each[1] < 4.5], [], scheme)
        for control in self.all("button, input, select, a"):
            if control.is_displayed():
                self.assertTrue(control.accessible_name, control.get_attribute("outerHTML"))
        levels = [int(each.tag_name[1]) for each in self.all("h1, h2, h3") if each.is_displayed()]
        self.assertEqual(levels[0], 1)


UPDATE_TIME = 2 * SLOWNESS  # seconds in which the page shows what has changed
