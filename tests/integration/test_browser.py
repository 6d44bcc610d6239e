"""The page of tavrikweb in a real browser: its views, and what they show of the cell."""

import re

from selenium.webdriver.common.keys import Keys

from .harness.browser import UPDATE_TIME, BrowserTestCase
from .harness.cell import HVA, MZD, wait_until
from .harness.cell_test_case import main
from .harness.web import ORIGIN, LogFile, Viewer, Web

KILOBYTE = 1024
HOUR = 3600  # seconds

# How far from the left each line of pixels of a canvas is drawn first, as a part of its width.
DRAWN = """
const { width, height } = arguments[0];
const { data } = arguments[0].getContext("2d").getImageData(0, 0, width, height);
return Array.from({ length: height }, (_, y) => {
  for (let x = 0; x < width; ++x) {
    if (data[4 * (width * y + x) + 3] > 0) return x / width;
  }
  return null;
});
"""

# A card whose gripper was at 0 until 10 s ago, and since then at 10; drawn on the page.
CARD = """
const done = arguments[arguments.length - 1];
Promise.all([import("/cell.js"), import("/history.js")]).then(([{ CellView }, { History }]) => {
  const history = new History();
  const now = Date.now();
  for (let age = 60; age >= 0; age -= 0.1) {
    history.add(now - 1000 * age, { position: age > 10 ? 0 : 10, state: 8, flags: 0 });
  }
  const model = { cell: { reachable: true, grippers: [{ device: "x", name: "x", copies: 1 }] },
                  values: new Map(), history: () => history, isStale: () => false, age: () => 0 };
  const view = new CellView(model);
  document.getElementById("content").append(view.root);
  for (const position of [0, 10]) { // the ends of the scale
    model.values.set("x", { position, state: 8, flags: 0, age: 0, isCertain: true });
    view.update();
  }
  done(view.root.querySelector("canvas"));
});
"""


class CellViewTest(BrowserTestCase):
    def test_cards_show_name_state_position_flags_and_age(self):
        with self.condition("fault 0 temp-warn on", "fault 0 temp-warn off"):
            self.wait_for_text(".card", "temperature warning")
            text = next(text for text in self.texts(".card") if HVA in text)
            for part in ("10.00", "reference run needed", "live"):
                self.assertIn(part, text)
            self.assertEqual(self.texts(".card .warning"), ["temperature warning"])

    def test_the_header_tells_version_and_ports(self):
        self.wait_for_text("#daemon", "TavrikDaemon 2.2.4")
        self.wait_for_text("#daemon", "ports 44221 and 44222")

    def uptime(self):
        """Seconds, as the header tells."""
        text = re.search("tavrikweb has run for ([^,]*),", self.texts("#daemon")[0])[1]
        return sum(int(count) * {"min": 60, "s": 1}[unit]
                   for count, unit in re.findall(r"(\d+) (\w+)", text))

    def test_the_header_tells_the_uptime(self):
        with Viewer() as viewer:
            before = viewer.wait_for("cell")["uptime"]
        wait_until(lambda: self.uptime() > before)
        shown = self.uptime()
        with Viewer() as viewer:
            self.assertLessEqual(shown, viewer.wait_for("cell")["uptime"])

    def drawn(self, canvas):
        return [place for place in self.driver.execute_script(DRAWN, canvas) if place is not None]

    def test_a_card_draws_its_motion(self):
        self.console = ["Canvas2D: Multiple readback"]  # by this test
        canvas = self.all(".card canvas")[1]
        wait_until(lambda: self.drawn(canvas))
        self.assertLess(len(self.drawn(canvas)), 5)  # a horizontal line
        self.call("Reference", MZD)
        wait_until(lambda: len(self.drawn(canvas)) > 40)

    def test_the_line_of_a_card_shows_30_s(self):
        drawn = self.drawn(self.driver.execute_async_script(CARD))
        self.assertLess(drawn[-1], 0.05)  # at the bottom: at 0, from the left on
        self.assertAlmostEqual(drawn[0], 20 / 30, delta=0.05)  # at the top

    def test_a_gripper_that_is_unplugged_is_greyed_and_comes_back(self):
        with self.condition("unplug 1", "plug 1"):
            wait_until(lambda: len(self.all(".card.stale")) == 1, UPDATE_TIME)
            self.wait_for_text(".card.stale", "not listed by the daemon: unplugged?")
            self.assertIn(MZD, self.texts(".card.stale")[0])
            wait_until(lambda: self.all(".card.stale .fill")[0].rect["width"] == 0)
        self.wait_for_cards(2)
        wait_until(lambda: not self.all(".card.stale"))

    def test_the_doctor_lists_its_findings_with_remedies(self):
        with self.condition("mute 1 on", "mute 1 off"):
            self.press("Check the cell")
            self.wait_for_text(".findings", "its master does not answer")
            self.wait_for_text(".findings .remedy", "check the master's power and cable")

    def test_the_data_of_a_silent_master_is_greyed_and_tells_its_age(self):
        with self.condition("mute 1 on", "mute 1 off"):
            wait_until(lambda: len(self.all(".card.stale")) == 1)
            self.wait_for_text(".card.stale", "its master does not answer")
            self.wait_for_text(".card.stale", "3 s old")
            self.assertIn(MZD, self.texts(".card.stale")[0])
            self.open_gripper(MZD)
            self.wait_for_text("dl", "s old, its master does not answer")
        self.wait_for_text("dl", "live")

    def test_the_first_view_is_small(self):
        self.open("/")
        self.wait_for_cards(2)
        sizes = self.driver.execute_script(
            "return [...performance.getEntriesByType('resource'), "
            "...performance.getEntriesByType('navigation')].map((each) => [each.name, "
            "each.transferSize])")
        self.assertGreater(len(sizes), 8)
        self.assertLess(sum(size for _, size in sizes), 200 * KILOBYTE)
        self.assertFalse([name for name, _ in sizes if not name.startswith(ORIGIN)])

    def expect_streams(self, count):
        with Viewer() as viewer:
            viewer.wait_for("cell", lambda cell: cell["viewers"] == count + 1)

    def test_two_tabs_have_one_stream_and_hidden_tabs_none(self):
        first = self.driver.current_window_handle
        self.driver.switch_to.new_window("window")
        self.open("/")
        self.wait_for_cards(2)
        self.expect_streams(1)
        self.driver.switch_to.new_window("tab")  # hides the second one
        self.driver.switch_to.window(first)
        self.wait_for_cards(2)
        self.expect_streams(1)
        self.driver.get("about:blank")
        self.expect_streams(0)
        for window in self.driver.window_handles:
            if window != first:
                self.driver.switch_to.window(window)
                self.driver.close()
        self.driver.switch_to.window(first)

    def test_a_stream_that_is_silent_is_opened_again(self):
        opened = self.driver.execute_async_script("""
            const done = arguments[arguments.length - 1];
            let opened = 0;
            window.EventSource = class extends EventTarget {
              constructor() { super(); opened += 1; if (opened === 2) done(opened); }
              close() {}
            };
            import("/source.js").then(({ Source }) => new Source(() => {}).open());""")
        self.assertEqual(opened, 2)

    def test_it_is_accessible(self):
        self.expect_accessible()

    def test_it_fits_a_phone_and_a_wall(self):
        for width in (360, 3840):
            self.set_width(width)
            self.assertLessEqual(
                self.driver.execute_script("return document.documentElement.scrollWidth"), width)


class GripperViewTest(BrowserTestCase):
    def setUp(self):
        super().setUp()
        self.open_gripper()

    def test_it_shows_live_values_process_data_and_plots(self):
        wait_until(lambda: len(self.all(".plot canvas")) == 6)
        self.wait_for_text("section[aria-label='Process data'] tbody", "position, hundredths 1000")
        with self.condition("fault 0 maintenance on", "fault 0 maintenance off"):
            self.wait_for_text("dl", "maintenance")
            self.wait_for_text("tbody tr:last-child", "byte 3, bit 7 maintenance 1")

    def test_plots_pause_and_continue_and_take_others_along(self):
        wait_until(lambda: self.all(".plot canvas"))
        self.press("Pause")
        self.find("button", "Continue")
        self.press("Continue")
        self.find(".others label", MZD).click()
        self.wait_for_text(".legend", f"{HVA} – {MZD}")
        wait_until(lambda: len(self.all(".plot canvas")) == 6)

    def test_a_flag_that_is_set_for_a_moment_is_plotted(self):
        self.assertEqual(self.driver.execute_async_script("""
            const done = arguments[arguments.length - 1];
            import("/history.js").then(({ History }) => {
              const history = new History();
              for (let i = 0; i < 100; ++i) {
                history.add(i, { position: 1, state: 8, flags: i === 50 ? 1 : 0 });
              }
              done(history.flagChanges(0, 99));
            });"""), [0, 49, 50, 51, 99])

    def test_plots_go_on_after_the_clock_was_set_back(self):
        self.assertEqual(self.driver.execute_async_script("""
            const done = arguments[arguments.length - 1];
            import("/history.js").then(({ History }) => {
              const history = new History();
              for (const time of [10, 20, 30, 40, 25, 35]) {
                history.add(time, { position: time, state: 8, flags: 0 });
              }
              done([history.times, history.values.map(({ position }) => position)]);
            });"""), 2 * [[10, 20, 25, 35]])

    def test_plots_are_zoomed_by_buttons(self):
        def labels():
            return self.texts(".plot:not(.small) .dygraph-axis-label-x")
        wait_until(lambda: self.all(".plot canvas"))
        self.press("Zoom in")
        wait_until(self.find("button", "Zoom out").is_enabled)  # it has been drawn then
        shown = wait_until(labels)
        self.press("Earlier")
        wait_until(lambda: labels() and labels() != shown)
        self.press("Later")
        wait_until(lambda: labels() == shown)
        self.press("Zoom out")
        wait_until(lambda: labels() and labels() != shown)
        self.assertFalse(self.find("button", "Zoom out").is_enabled())

    def plotted_time(self):
        """Seconds between the first label of the time axis and the last one."""
        labels = [label for label in self.texts(".plot:not(.small) .dygraph-axis-label-x") if label]
        if len(labels) < 2:
            return 0
        times = [sum(int(part) * unit for part, unit in zip(label.split(":"), (HOUR, 60, 1)))
                 if ":" in label else 0  # midnight has the date
                 for label in (labels[0], labels[-1])]
        return (times[1] - times[0]) % (24 * HOUR)

    def test_plots_show_10_s_to_1_h(self):
        wait_until(lambda: self.all(".plot canvas"))
        self.find("option", "1 h").click()
        wait_until(lambda: HOUR / 2 < self.plotted_time() <= HOUR)
        self.find("option", "10 s").click()
        wait_until(lambda: 5 < self.plotted_time() <= 10)

    def test_settings_are_shown_in_a_table(self):
        self.press("Read settings")
        self.wait_for_text("section[aria-label='Settings'] table", "no-part-limit")
        fields = {field.accessible_name: field.get_attribute("value")
                  for field in self.all("section[aria-label='Settings'] td input")}
        self.assertEqual(fields["force of set 7, 0 to 255"], "50")
        self.assertFalse([field for field in self.all("section[aria-label='Settings'] td input")
                          if field.is_enabled()])
        self.find("label", "Also show sets and LEDs whose values are 0").click()
        wait_until(lambda: len(self.all("section[aria-label='Settings'] .scroll tbody tr")) == 32)

    def test_nothing_can_be_moved_without_control(self):
        for name in ("Grip", "Release", "Reference run", "Drive off"):
            self.assertFalse(self.find("button", name).is_enabled(), name)
        self.wait_for_text(".note", "take control first")
        self.wait_for_text(".motions", "This is not an emergency stop")

    def test_a_gripper_that_is_gone_says_so(self):
        with self.condition("unplug 0", "plug 0"):
            self.wait_for_text("dl", "not listed by the daemon", UPDATE_TIME)
        self.wait_for_text("dl", "live")

    def test_it_is_accessible_and_fits_a_phone(self):
        self.press("Read settings")
        self.wait_for_text("section[aria-label='Settings'] table", "force")
        self.expect_accessible()
        self.set_width(360)
        self.assertLessEqual(
            self.driver.execute_script("return document.documentElement.scrollWidth"), 360)


class LogViewTest(LogFile, BrowserTestCase):
    def test_it_is_live_and_shows_one_gripper_or_all(self):
        self.find("nav a", "Log").click()
        self.wait_for_text(".log li", "Grip  PDOUT")
        owners = self.texts(".log .owner")
        self.assertTrue({f"{HVA}, ttyACM0", f"{MZD}, ttyACM1", "daemon"} <= set(owners), owners)
        self.append("12:00:00 4242 Starting TavrikDaemon (2-port)")
        self.wait_for_text(".log li:last-child", "Starting TavrikDaemon (2-port)")
        self.find("option", MZD).click()
        self.wait_for_text(".log li", MZD)
        wait_until(lambda: not [text for text in self.texts(".log .owner") if HVA in text])
        self.expect_accessible()

    def test_it_is_reached_from_the_gripper_and_fits_a_phone(self):
        self.set_width(360)
        self.open_gripper()
        self.find("a", "Log of this gripper").click()
        self.wait_for_text(".log li", HVA)
        self.assertFalse([text for text in self.texts(".log .owner") if MZD in text])
        self.assertLessEqual(
            self.driver.execute_script("return document.documentElement.scrollWidth"), 360)

    def test_rows_are_text(self):
        self.append("12:00:00 4242 PELLIX removed: <img src=x onerror=alert(1)>")
        self.find("nav a", "Log").click()
        self.wait_for_text(".log li", "<img src=x onerror=alert(1)>")
        self.assertEqual(self.all("main img"), [])


class KeyboardTest(BrowserTestCase):
    def tab_to(self, text):
        for _ in range(60):
            active = self.driver.switch_to.active_element
            if text in (active.text, active.accessible_name):
                return active
            active.send_keys(Keys.TAB)
        raise AssertionError(f"the tab key does not reach {text!r}")

    def test_a_gripper_can_be_moved_with_the_keyboard_alone(self):
        self.tab_to("Code").send_keys(self.web.code(), Keys.ENTER)
        self.wait_for_text("#control", "You have control")
        self.tab_to(HVA).send_keys(Keys.ENTER)
        self.wait_for_text("main h2", HVA)
        self.wait_for_text(".motions .note", "a reference run is needed first")
        self.tab_to("Reference run").send_keys(Keys.ENTER)
        self.wait_for_text(".motions output", "reference: started")
        self.wait_for_text("dl", "reference run done")


class NamesTest(BrowserTestCase):
    options = ("--gripper", "HVA,product=<img src=x onerror=alert(1)>", "--gripper",
               "HVA,product=Ä&amp;\"'/..?#%41", "--gripper", "HVA,serial=7", "--gripper",
               "HVA,serial=7")

    def setUp(self):
        self.console = []
        self.open("/")
        self.wait_for_cards(3)

    def test_names_are_text_and_lead_to_their_grippers(self):
        self.assertEqual(self.all("main img"), [])
        for name in self.call("GetGrippers")[:2]:
            self.open("/")
            self.wait_for_cards(3)
            self.open_gripper(name)
            self.wait_for_text("dl", "10.00")
            wait_until(lambda: self.all(".plot canvas"))
            self.assertEqual(self.all("main img"), [])

    def test_two_grippers_with_one_name_are_told(self):
        self.wait_for_text(".card .note", "2 grippers have this name")


class RestartTest(BrowserTestCase):
    def test_a_daemon_that_restarts_is_shown_and_comes_back(self):
        self.cell.stop()
        self.wait_for_text("#banner", "The daemon cannot be reached", UPDATE_TIME)
        wait_until(lambda: len(self.all(".card.stale")) == 2)
        self.assertFalse([note.text for note in self.all(".card .note") if note.is_displayed()])
        self.start_cell_again()
        self.wait_for_cards(2)
        wait_until(lambda: not self.all("#banner")[0].is_displayed())

    def test_tavrikweb_that_restarts_is_shown_and_comes_back(self):
        self.console = ["ERR_CONNECTION_REFUSED", "ERR_INCOMPLETE_CHUNKED_ENCODING", "ERR_EMPTY"]
        self.web.stop()
        self.wait_for_text("#banner", "No data:", UPDATE_TIME)
        type(self).web = Web(*self.web_options)
        self.addClassCleanup(self.web.stop)
        self.wait_for_cards(2)
        wait_until(lambda: not self.all("#banner")[0].is_displayed())


if __name__ == "__main__":
    main()
