"""The page of tavrikweb in a real browser: cells with one gripper, with eight and with 32."""

from .harness.browser import BrowserTestCase
from .harness.cell import HVA, wait_until
from .harness.cell_test_case import main
from .harness.web import LogFile

# How many points of the strips at the bottom of the position plot have the colour of each line.
STRIPS = """
const plot = document.querySelector(".plot:not(.small)");
const canvas = plot.querySelector("canvas");
if (!canvas) return [];  // the plots are being made again
const pen = canvas.getContext("2d");
const colours = [...document.querySelectorAll(".legend strong")].map((name) =>
  getComputedStyle(name).color.match(/\\d+/g).map(Number).join());
const counts = colours.map(() => 0);
const { data } = pen.getImageData(0, canvas.height - 34, canvas.width, 34);  // below all lines
for (let i = 0; i < data.length; i += 4) {
  const found = colours.indexOf([data[i], data[i + 1], data[i + 2]].join());
  if (found >= 0 && data[i + 3] === 255) counts[found] += 1;
}
return counts;
"""


class EveryViewTestCase(LogFile, BrowserTestCase):
    """A cell with many grippers, with the daemon's log."""

    def expect_log_and_settings(self, name, count):
        self.open_gripper(name)
        self.press("Read settings")
        self.wait_for_text("section[aria-label='Settings'] table", "no-part-limit")
        self.find("a", "Log of this gripper").click()
        self.wait_for_text(".log .owner", name)
        self.assertEqual(len(self.all("#log-filter option")), 1 + count)
        wait_until(lambda: {text.split(",")[0] for text in self.texts(".log .owner")} ==
                   {name, "daemon"})
        self.find("option", "all grippers").click()
        self.wait_for_text(".log .owner", self.call("GetGrippers")[0])
        self.expect_accessible()
        self.set_width(360)
        self.assertLessEqual(
            self.driver.execute_script("return document.documentElement.scrollWidth"), 360)


class OneGripperTest(EveryViewTestCase):
    options = ("--gripper", "TLM")

    def test_the_plots_show_it_alone(self):
        self.open_gripper("TLM SN:100001")
        wait_until(lambda: len(self.all(".plot canvas")) == 6)
        self.assertFalse(self.driver.find_element("css selector", ".others").is_displayed())

    def test_log_and_settings_are_shown(self):
        self.expect_log_and_settings("TLM SN:100001", 1)


class NoLogTest(BrowserTestCase):
    options = ("--gripper", "TLM")
    web_options = ("--log", "/nowhere/daemon.log")

    def test_it_tells_why(self):
        self.find("nav a", "Log").click()
        self.wait_for_text(".note", "No log: failed to read /nowhere/daemon.log")
        self.assertEqual(len(self.all("#log-filter option")), 2)


class EightGrippersTest(EveryViewTestCase):
    options = 4 * ("--gripper", "HVA", "--gripper", "MZD-L")

    def test_log_and_settings_of_the_last_one_are_shown(self):
        self.expect_log_and_settings("MZD-L SN:100008", 8)

    def test_one_is_unplugged_and_plugged_while_another_moves(self):
        self.take_control_of_page()
        self.open_gripper()
        self.press("Reference run")
        with self.condition("unplug 7", "plug 7"):
            self.wait_for_text(".motions output", "reference: started")
            self.wait_for_text("dl", "reference run done")
            self.find("h1 a", "Grippers").click()
            wait_until(lambda: len(self.all(".card.stale")) == 1)
        self.wait_for_cards(8)
        for width in (360, 3840):
            self.set_width(width)
            self.assertLessEqual(
                self.driver.execute_script("return document.documentElement.scrollWidth"), width)


class ManyGrippersTest(EveryViewTestCase):
    options = 32 * ("--gripper", "HVA")

    def test_all_are_shown_live(self):
        self.assertEqual(len(self.all(".card")), 32)
        with self.condition("unplug 31", "plug 31"):
            wait_until(lambda: len(self.all(".card.stale")) == 1)
            self.set_width(3840, 2160)
            self.open_gripper(HVA)
            wait_until(lambda: len(self.all(".plot canvas")) == 6)
            self.assertEqual(len(self.all(".others input")), 31)

    def test_log_and_settings_of_the_last_one_are_shown(self):
        self.expect_log_and_settings("HVA SN:100032", 32)


class MotionsTest(BrowserTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--gripper", "TLM")

    def wait_for_strips(self, *expected):
        """Waits until exactly the lines with True have a strip."""
        def shown():
            counts = self.driver.execute_script(STRIPS)
            return len(counts) == len(expected) and all(
                count > 10 if is_marked else count == 0
                for count, is_marked in zip(counts, expected))
        wait_until(shown)

    def test_motions_of_every_gripper_of_a_plot_are_marked(self):
        self.console = ["Canvas2D: Multiple readback"]  # by this test
        self.open_gripper()
        wait_until(lambda: self.all(".plot canvas"))
        for name in ("MZD-S SN:100002", "TLM SN:100003"):
            self.find(".others label", name).click()
        self.wait_for_strips(False, False, False)
        self.call("Reference", "MZD-S SN:100002")
        self.wait_for_strips(False, True, False)
        self.call("Reference", HVA)
        self.wait_for_strips(True, True, False)
        self.wait_for_text(".legend", "The strips show the motions of each gripper")


if __name__ == "__main__":
    main()
