"""The page of tavrikweb in a real browser: restoring settings from files."""

import json
import pathlib
import tempfile

from .harness.browser import BrowserTestCase
from .harness.cell import HVA, PATIENCE, wait_until
from .harness.cell_test_case import main
from .harness.web import post

SECTION = "section[aria-label='Settings']"
TLM = "TLM SN:100002"
LONGEST = 4 * PATIENCE  # seconds for a restore whose every request the master delays

# A step can be over before a test that waits for it looks at the page.
RECORD_PROGRESS = """
    window.told = [];
    const note = document.querySelector(arguments[0]);
    const record = () => window.told.push(note.textContent);
    new MutationObserver(record).observe(note, {childList: true, characterData: true, subtree: true});
"""


class RestoreTest(BrowserTestCase):
    options = ("--gripper", "HVA", "--gripper", "TLM")

    def setUp(self):
        super().setUp()
        self.take_control_of_page()
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def tearDown(self):
        self.driver.get("about:blank")
        super().tearDown()

    def choose_file(self, device, change):
        """Compares the gripper with a file of its own settings that `change` has altered."""
        settings = json.loads(post("/api/settings", {"gripper": device}).json()["file"])
        change(settings)
        path = pathlib.Path(self.folder.name, "wanted.json")
        path.write_text(json.dumps(settings))
        self.open_gripper(device)
        self.driver.find_element("id", "settings-file").send_keys(str(path))
        self.wait_for_text(f"{SECTION} output", "from wanted.json")
        wait_until(lambda: self.progress() == "")  # otherwise, that of the comparison

    def progress(self):
        """What the page tells of the transfer."""
        bar, = self.all(f"{SECTION} progress")
        return self.texts(f"{SECTION} progress + .note")[0] if bar.is_displayed() else ""

    def test_a_restore_shows_its_progress(self):
        def change(settings):
            for number, each in enumerate(settings["sets"]):
                each |= {"force": 31 + number, "no-part-limit": 2.5, "release-limit": 3.5}
        self.choose_file(HVA, change)
        with self.condition("delay 0 20", "delay 0 0"):
            self.driver.execute_script(RECORD_PROGRESS, f"{SECTION} progress + .note")
            self.press("Restore from the file")
            self.wait_for_text(f"{SECTION} output", "all settings are as in wanted.json", LONGEST)
        wait_until(lambda: self.progress() == "")
        told = [text.split(", ") for text in self.driver.execute_script("return window.told")
                if text]
        self.assertEqual(list(dict.fromkeys(step for step, _ in told)),
                         ["reading", "writing", "reading back"])
        self.assertGreater(len({percent for step, percent in told if step == "reading"}), 2)
        self.assertEqual(self.call("GetForce", HVA, 7), 38)

    def test_a_restore_is_interrupted_by_a_motion(self):
        def change(settings):
            settings["sets"][3]["force"] = 17
        self.choose_file(HVA, change)
        with self.condition("delay 0 20", "delay 0 0"):
            self.press("Restore from the file")
            wait_until(lambda: self.progress().startswith("reading back, "), LONGEST)
            self.call("Reference", HVA)
            self.wait_for_text(f"{SECTION} output", f"{HVA}: is moving, now at")
            self.wait_for_text(f"{SECTION} output", "1 of 1 settings were written")
        wait_until(lambda: self.call("GetState", HVA) == 8)

    def test_a_restore_is_interrupted_by_the_loss_of_control(self):
        def change(settings):
            settings["sets"][3]["force"] = 18
        self.choose_file(HVA, change)
        force = self.call("GetForce", HVA, 3)
        with self.condition("delay 0 20", "delay 0 0"):
            mark = self.cell.log.mark()
            self.press("Restore from the file")
            # The page may show it when much has been read already.
            self.cell.log.wait_for(r"New command PARAM\[", since=mark)
            self.take_control()
            # seen when all settings are read
            self.wait_for_text(f"{SECTION} output", "you no longer have control", LONGEST)
        self.assertEqual(self.call("GetForce", HVA, 3), force)
        self.assertFalse(self.find("button", "Restore from the file").is_enabled())

    def test_a_refused_value_is_shown_with_its_status(self):
        def change(settings):
            settings["override-grip"] = 80  # a TLM has none
            settings["sets"][1]["no-part-limit"] = 3.5
        self.choose_file(TLM, change)
        self.press("Restore from the file")
        self.wait_for_text(f"{SECTION} output", "Restored, but 1 setting differs from wanted.json")
        self.wait_for_text(f"{SECTION} li", "in the file 80: refused: status 3")
        self.assertEqual(self.call("GetNoPartLimit", TLM, 1), 3.5)


if __name__ == "__main__":
    main()
