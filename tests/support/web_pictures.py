"""Takes the pictures of docs/web in a simulated cell, and measures how long the page takes to show
the cell. scripts/web-pictures runs it."""

import base64
import pathlib
import time
import unittest

from ..integration.harness.browser import BrowserTestCase
from ..integration.harness.cell import wait_until

FOLDER = pathlib.Path(__file__).resolve().parents[2] / "docs" / "web"
WIDTH = 1000
VIEWS = 5
CARDS_SHOWN = "new MutationObserver(() => { if (document.querySelector('.card')) " \
              "window.shownAt ??= performance.now(); })" \
              ".observe(document, { childList: true, subtree: true });"


class Pictures(BrowserTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--gripper", "MZD-L", "--gripper", "TLM")

    def move(self, *methods):
        """Each motion of all grippers, one after the other."""
        for method, arguments in methods:
            for device in self.call("GetGrippers"):
                self.call(method, device, *arguments)
            time.sleep(2)

    def take(self, name, height):
        self.set_width(WIDTH, height)
        picture = self.driver.execute_cdp_cmd("Page.captureScreenshot", {"format": "png"})
        FOLDER.mkdir(exist_ok=True)
        (FOLDER / f"{name}.png").write_bytes(base64.b64decode(picture["data"]))

    def test_pictures(self):
        self.set_width(WIDTH)
        self.take_control_of_page()
        self.cell.command("part 0 12.5")
        self.move(("Reference", ()), ("Grip", (0,)), ("Release", (0,)), ("Grip", (0,)))
        self.cell.command("fault 2 temp-warn on")
        self.wait_for_text(".card", "temperature warning")
        self.take("cell", 600)
        self.open_gripper()
        wait_until(lambda: self.all(".plot canvas"))
        self.move(("Release", (0,)), ("Grip", (0,)))
        self.take("gripper", 1340)

    def test_first_view(self):
        self.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument",
                                    {"source": CARDS_SHOWN})
        times = []
        for _ in range(VIEWS):
            self.open("/")
            self.wait_for_cards(4)
            times.append(self.driver.execute_script("return window.shownAt"))
        print("milliseconds until the cards are shown:", *(f"{time:.0f}" for time in times))


if __name__ == "__main__":
    unittest.main()
