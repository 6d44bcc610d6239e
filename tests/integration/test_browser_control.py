"""The page of tavrikweb in a real browser: control, motions, and attacks by other pages."""

import contextlib
import http.server
import json
import pathlib
import tempfile
import threading
import time

from selenium.webdriver.common.keys import Keys

from .harness.browser import BrowserTestCase
from .harness.cell import HVA, MZD, PATIENCE, wait_until
from .harness.cell_test_case import main
from .harness.web import ORIGIN, PORT, Viewer, Web, post

# What another page may try; each line adds what came of it to `results`.
EVIL = """
const results = {};
const url = "%s";
const disable = JSON.stringify({gripper: "%s", command: "disable"});
const json = {"Content-Type": "application/json", "X-Tavrik-Page": "1"};
const attempt = async (name, options, path = "/api/command") => {
  try {
    const answer = await fetch(url + path, options);
    results[name] = answer.type === "opaque" ? "opaque" : String(answer.status);
  } catch {
    results[name] = "blocked";
  }
};
const element = (name, tag, properties) => new Promise((resolve) => {
  const node = Object.assign(document.createElement(tag), properties);
  node.onload = () => { results[name] = "loaded"; resolve(); };
  node.onerror = () => { results[name] = "blocked"; resolve(); };
  document.body.append(node);
});
(async () => {
  await attempt("json", {method: "POST", headers: json, body: disable});
  await attempt("simple", {method: "POST", mode: "no-cors", body: disable,
                           headers: {"Content-Type": "text/plain"}});
  await attempt("events", {}, "/events");
  await attempt("metrics", {}, "/metrics");
  await element("script", "script", {src: url + "/main.js"});
  await element("image", "img", {src: url + "/icon.svg"});
  const events = new EventSource(url + "/events");
  results.eventSource = await new Promise((resolve) => {
    events.onopen = () => resolve("open");
    events.onerror = () => resolve("blocked");
  });
  events.close();
  const frame = document.body.appendChild(Object.assign(document.createElement("iframe"),
                                                        {src: url + "/", name: "frame"}));
  await new Promise((resolve) => { frame.onload = resolve; });
  let isReadable = false;
  try { isReadable = Boolean(frame.contentDocument?.querySelector("header")); } catch {}
  results.frame = isReadable ? "readable" : "not readable";
  const form = document.body.appendChild(Object.assign(document.createElement("form"),
    {method: "POST", action: url + "/api/command", enctype: "text/plain", target: "frame"}));
  form.append(Object.assign(document.createElement("input"), {name: disable, value: ""}));
  form.submit();
  await new Promise((resolve) => { frame.onload = resolve; });
  document.title = "done";
  window.results = results;
})();
"""


class EvilPage(http.server.BaseHTTPRequestHandler):
    """The page of another origin in the same browser."""

    def do_GET(self):
        script = EVIL % (ORIGIN, HVA)
        body = f"<!doctype html><body><script>{script}</script></body>".encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def evil_server():
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), EvilPage) as server:
        server.daemon_threads = True
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        try:
            yield server.server_port
        finally:
            server.shutdown()
            thread.join()


class AttackTest(BrowserTestCase):
    def test_a_page_of_another_origin_can_neither_read_nor_move_anything(self):
        self.console = [""]  # the browser complains about every attempt
        token = self.take_control()
        self.assertTrue(token)
        mark = self.web.log.mark()
        before = self.requests()
        with evil_server() as port:
            self.driver.get(f"http://127.0.0.1:{port}/")
            wait_until(lambda: self.driver.title == "done")
            results = self.driver.execute_script("return window.results")
        self.assertEqual(results, {
            "json": "blocked", "simple": "blocked", "events": "blocked", "metrics": "blocked",
            "script": "blocked", "image": "blocked", "eventSource": "blocked",
            "frame": "not readable"})
        self.assertEqual(self.requests(), before)
        self.assertEqual(self.web.log.matching("Command from", since=mark), [])
        self.assertGreater(len(self.web.log.matching("refused: unknown origin", since=mark)), 3)

    def test_a_name_that_is_bound_to_this_machine_later_gets_nothing(self):
        self.console = [""]
        self.driver.get(f"http://evil.example:{PORT}/")
        self.wait_for_text("body", "refused: unknown host")


class ControlTest(BrowserTestCase):
    def setUp(self):
        super().setUp()
        self.take_control_of_page()
        self.open_gripper()

    def tearDown(self):
        self.driver.get("about:blank")
        super().tearDown()

    def test_motions_are_asked_for_and_their_results_shown(self):
        self.press("Drive off")
        self.wait_for_text(".motions output", "disable: done")
        self.press("Reference run")
        self.wait_for_text(".motions output", "reference: started")
        self.wait_for_text("dl", "reference run done")
        self.press("Grip")
        self.wait_for_text(".motions output", "grip, set 0: started")
        self.wait_for_text("dl", "gripped without a part")
        self.press("Holdfast on")
        self.wait_for_text(".motions output", "not supported by its model")

    def test_a_silent_master_is_told_in_words(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.press("Drive off")
            self.wait_for_text(".motions output", "did not answer within 1 s")

    def test_a_fault_leaves_only_the_drive_off(self):
        with self.condition("fault 0 fault on", "fault 0 fault off"):
            self.wait_for_text(".note", "the gripper reports a fault")
            self.assertFalse(self.find("button", "Grip").is_enabled())
            self.assertTrue(self.find("button", "Drive off").is_enabled())
            self.wait_for_text("dl .fault", "fault")

    def test_settings_are_changed_and_refused_values_put_back(self):
        self.console = ["400"]  # of the refused value
        self.press("Read settings")
        self.wait_for_text("section[aria-label='Settings'] table", "force")
        field, = (field for field in self.all("section[aria-label='Settings'] input")
                  if field.accessible_name.startswith("force of set 2,"))
        for value, text, shown in (("77", "force of set 2 = 77: done", "77"),
                                   ("300", "must be 0 to 255", "77")):
            field.send_keys(Keys.CONTROL + "a" + Keys.NULL, value, Keys.TAB)
            self.wait_for_text("section[aria-label='Settings'] output", text)
            wait_until(lambda shown=shown: field.get_attribute("value") == shown)
        self.assertEqual(self.call("GetForce", HVA, 2), 77)
        self.press("Store permanently")
        self.wait_for_text("section[aria-label='Settings'] output", "store: done")

    def test_settings_are_saved_compared_and_restored(self):
        self.console = ["400"]  # of the wrong file
        section = "section[aria-label='Settings']"
        self.assertEqual(self.call("SetForce", HVA, 4, 41), 0)
        self.assertEqual(self.call("SetNoPartLimit", HVA, 1, 3.25), 0)
        with tempfile.TemporaryDirectory() as folder:
            self.driver.execute_cdp_cmd("Browser.setDownloadBehavior", {
                "behavior": "allow", "downloadPath": folder})
            self.press("Read settings")
            self.press("Save to a file")
            file = pathlib.Path(folder) / "HVA_SN_100001.json"
            wait_until(file.exists)
            self.assertEqual(json.loads(file.read_text())["sets"][4]["force"], 41)
            self.assertEqual(json.loads(file.read_text())["model"], "HVA")
            self.assertEqual(self.call("SetForce", HVA, 4, 42), 0)
            self.assertEqual(self.call("SetNoPartLimit", HVA, 1, 3.5), 0)
            self.driver.find_element("id", "settings-file").send_keys(str(file))
            self.wait_for_text(f"{section} li", "force of set 4 is 42, in the file 41")
            self.assertIn("no-part-limit of set 1 is 3.50, in the file 3.25",
                          self.texts(f"{section} li"))
            self.press("Restore from the file")
            self.wait_for_text(f"{section} output", "all settings are as in HVA_SN_100001.json")
            self.assertEqual(self.call("GetForce", HVA, 4), 41)
            self.assertEqual(self.call("GetNoPartLimit", HVA, 1), 3.25)
            wrong = pathlib.Path(folder) / "wrong.json"
            wrong.write_text('{"format": "x"}')
            self.driver.find_element("id", "settings-file").send_keys(str(wrong))
            self.wait_for_text(f"{section} output", "wrong.json: 'format' is not")

    def test_control_is_lost_to_another_and_shown(self):
        self.take_control()
        self.wait_for_text("#control", "A browser at 127.0.0.1 has control")
        self.wait_for_text("#control", "another browser has taken control")
        wait_until(lambda: not self.find("button", "Drive off").is_enabled())

    def test_control_expires_after_a_minute_without_contact(self):
        self.console = ["ERR_BLOCKED_BY_CLIENT"]  # of the requests that keep control
        self.driver.execute_cdp_cmd("Network.enable", {})
        self.addCleanup(self.driver.execute_cdp_cmd, "Network.disable", {})
        self.driver.execute_cdp_cmd("Network.setBlockedURLs", {"urls": ["*/api/control/keep"]})
        with Viewer() as viewer:
            start = time.monotonic()
            self.assertTrue(viewer.wait_for("cell")["control"]["held"])
            wait_until(lambda: not viewer.wait_for("cell")["control"]["held"], timeout=90)
            self.assertGreater(time.monotonic() - start, 40)  # the last contact was up to 15 s before
        self.wait_for_text("#control", "Nobody has control; control has expired after a minute "
                                       "without contact")
        wait_until(lambda: not self.find("button", "Drive off").is_enabled())

    def test_control_is_given_back_by_the_button_and_by_leaving(self):
        self.press("Give control back")
        self.wait_for_text("#control", "Nobody has control")
        self.take_control_of_page()
        mark = self.web.log.mark()
        self.driver.get("about:blank")
        self.web.log.wait_for("Control from 127.0.0.1: given back", since=mark)

    def test_a_wrong_code_is_told(self):
        self.press("Give control back")
        self.driver.find_element("id", "code").send_keys("1")
        self.console = ["403"]
        self.press("Take control")
        self.wait_for_text("#control", "wrong code; to show it: tavrikweb --code")

    def test_it_is_accessible(self):
        self.expect_accessible()

    def test_a_command_of_the_page_is_logged_with_the_address(self):
        mark = self.web.log.mark()
        self.press("Drive off")
        self.web.log.wait_for(f"Command from 127.0.0.1 to '{HVA}': disable: done", since=mark)


class RestartTest(BrowserTestCase):
    def test_control_is_lost_to_another_while_tavrikweb_restarts(self):
        self.console = ["ERR_", "403"]  # of the restart, and of the next request that keeps control
        self.take_control_of_page()
        self.driver.set_network_conditions(offline=True, latency=0, throughput=0)
        self.web.stop()
        type(self).web = Web(*self.web_options)
        self.addClassCleanup(self.web.stop)
        self.take_control()  # before the page is connected again
        self.driver.delete_network_conditions()
        self.wait_for_text("#control", "A browser at 127.0.0.1 has control", 2 * PATIENCE)


class SessionTest(BrowserTestCase):
    def numbers(self):
        """Motions, commands, refusals, timeouts and the slowest answer."""
        return self.texts("section[aria-label='This session'] dd")

    def test_its_numbers_are_those_of_each_gripper(self):
        self.take_control_of_page()
        self.open_gripper()
        wait_until(lambda: self.numbers() == ["0", "0", "0", "0", "–"])
        self.press("Reference run")
        wait_until(lambda: self.numbers()[1:4] == ["1", "0", "0"])
        wait_until(lambda: self.numbers()[0] == "1")
        self.wait_for_text("dl", "reference run done")
        self.press("Holdfast on")
        self.wait_for_text(".motions output", "not supported by its model")
        wait_until(lambda: self.numbers()[1:4] == ["2", "1", "0"])
        with self.condition("mute 0 on", "mute 0 off"):
            self.press("Drive off")
            wait_until(lambda: self.numbers()[1:4] == ["3", "1", "1"])
        self.assertGreaterEqual(float(self.numbers()[4].removesuffix(" s")), 1)
        self.find("h1 a", "Grippers").click()
        self.open_gripper(MZD)
        wait_until(lambda: self.numbers() == ["0", "0", "0", "0", "–"])


class ViewOnlyTest(BrowserTestCase):
    web_options = ()

    def test_it_says_that_nothing_can_be_moved(self):
        self.wait_for_text("#control", "View only")
        self.assertFalse(self.driver.find_element("id", "code").is_displayed())
        self.assertEqual(post("/api/control/take", {"code": ""}).status, 403)


if __name__ == "__main__":
    main()
