"""tavrikctl settings: all settings of a gripper in a file, and compared with one."""

import json
import resource
import subprocess

from .harness import ctl
from .harness.cell_test_case import main
from .harness.ctl import FAILED, NOT_POSSIBLE, REFUSED, USAGE
from .harness.ctl_test_case import HVA, MZD, TLM
from .harness.settings_test_case import SettingsTestCase
from .harness.terminal import screen_of


class FileTest(SettingsTestCase):
    def test_the_file_has_every_setting_of_the_model(self):
        content = self.save(MZD)
        self.assertEqual(content["sets"], [
            {"force": 50, "no-part-limit": 2.0, "release-limit": 22.0, "set": number}
            for number in range(8)])
        checksum = bytes(self.cell.show(1)["parameters"]["3/4"])
        self.assertEqual(
            {name: value for name, value in content.items() if name != "sets"},
            {"format": "TavrikDaemon gripper settings", "version": 1, "gripper": MZD,
             "model": "MZD", "checksum": int.from_bytes(checksum, "little", signed=True),
             "leds": [], "override-grip": 100, "override-release": 100,
             "reference-direction": False})
        self.assertEqual(set(self.save_apart(HVA)), set(content) - {"leds"})
        tlm = self.save_apart(TLM)
        self.assertEqual(set(tlm), set(content) - {"leds", "reference-direction"})
        self.assertEqual(tlm["sets"][7], {"no-part-limit": 2.0, "release-limit": 18.0, "set": 7})

    def save_apart(self, device):
        self.file = self.folder / f"{device}.json"
        return self.save(device)

    def test_the_file_is_stable_and_sorted(self):
        self.save(HVA)
        first = self.file.read_text()
        self.save(HVA)
        self.assertEqual(self.file.read_text(), first)
        self.call("SetForce", HVA, 3, 60)
        self.save(HVA)
        self.call("SetForce", HVA, 3, 50)
        changed = [(old, new) for old, new in
                   zip(first.splitlines(), self.file.read_text().splitlines(), strict=True)
                   if old != new]
        self.assertEqual([old.split(":")[0].strip() for old, _ in changed][0], '"checksum"')
        self.assertIn('"force":60', changed[1][1])
        self.assertEqual(len(changed), 2)
        names = [line.split('"')[1] for line in first.splitlines() if line.startswith('  "')]
        self.assertEqual(names, sorted(names))

    def test_the_screen_is_the_file_in_words(self):
        self.call("SetNoPartLimit", TLM, 1, -1.26)
        self.assertEqual(self.ctl("settings", "show", TLM), (
            "GRIPPER           TLM SN:100003\n"
            "model             TLM\n"
            f"checksum          {self.call('GetParameterChecksum', TLM)}\n"
            "override-grip     100\n"
            "override-release  100\n"
            "\n"
            "SET  NO-PART-LIMIT  RELEASE-LIMIT\n"
            "  0           2.00          18.00\n"
            "  1          -1.25          18.00\n"
            + "".join(f"  {number}           2.00          18.00\n" for number in range(2, 8)) +
            "\n"
            "Other sets: 0 or absent.\n"))
        content = self.save(TLM)
        self.assertEqual(self.json("settings", "show", TLM), content)
        self.call("SetNoPartLimit", TLM, 1, 2.0)

    def test_leds_are_shown_up_to_the_last_one_in_use(self):
        self.call("SetLEDColor", MZD, 2, 7)
        text = self.ctl("settings", "show", MZD)
        self.assertTrue(text.endswith("\n"
                                      "LED  LED-ANIMATION  LED-COLOR  LED-SPEED\n"
                                      "  0              0          0          0\n"
                                      "  1              0          0          0\n"
                                      "  2              0          7          0\n"
                                      "\n"
                                      "Other sets and LEDs: 0 or absent.\n"), text)
        self.call("SetLEDColor", MZD, 2, 0)

    def test_reading_changes_nothing_in_the_gripper(self):
        self.save(HVA)
        for arguments in (("show",), ("save", self.file), ("diff", self.file)):
            before = self.parameters(0)
            result, writes = self.writes_during("settings", *arguments, HVA)
            self.assertEqual((result.returncode, writes), (0, []), result)
            self.assertEqual(self.parameters(0), before)

    def test_the_file_of_another_gripper_is_not_replaced_by_mistake(self):
        self.save(HVA)
        old = self.file.read_text()
        self.expect_failure(USAGE, f"{self.file} has the settings of '{HVA}'; to replace the file, "
                            "add --yes", "settings", "save", self.file, TLM)
        self.assertEqual(self.file.read_text(), old)
        self.ctl("settings", "save", self.file, TLM, "--yes")
        self.file.write_text("my diary")
        self.expect_failure(USAGE, "not JSON", "settings", "save", self.file, TLM)
        self.assertEqual(self.file.read_text(), "my diary")

    def test_a_full_disk_leaves_the_old_file(self):
        self.save(HVA)
        old = self.file.read_text()
        result = subprocess.run(
            ctl.arguments_of("settings", "save", self.file, HVA), env=ctl.ENVIRONMENT,
            capture_output=True, text=True, restore_signals=False,  # SIGXFSZ stays ignored
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100)))
        self.assertEqual((result.returncode, result.stderr), (
            FAILED, f"tavrikctl: failed to write {self.file}: File too large\n"))
        self.assertEqual(self.file.read_text(), old)
        self.assertEqual(list(self.folder.iterdir()), [self.file])

    def test_a_folder_is_not_a_file(self):
        for command in ("settings", "cell"):
            self.expect_failure(USAGE, f"FILE: '{self.folder}' is a directory; see tavrikctl "
                                f"{command} save --help\n", command, "save", self.folder)

    def test_the_screen_at_every_width(self):
        self.save(TLM)
        self.edit(release_limit=-1.5)
        shown = screen_of(20, "settings", "show", TLM)
        self.assertEqual(shown[:4], ["GRIPPER", "  TLM SN:100003", "model", "  TLM"])
        first = shown.index("SET 0")
        self.assertEqual(shown[first:first + 4], ["SET 0", "  NO-PART-LIMIT 2.00", "  RELEASE-LIMIT",
                                                  "  18.00"])
        self.assertEqual(screen_of(20, "settings", "diff", self.file, TLM),
                         ["SETTING", "release-limit of set", "1", "  FILE -1.50",
                          "  GRIPPER 18.00"])
        text = self.ctl("settings", "show", TLM)
        self.assertIn("SET  NO-PART-LIMIT  RELEASE-LIMIT\n", text)
        for columns in (40, 80, 200):
            with self.subTest(columns=columns):
                self.assertEqual(screen_of(columns, "settings", "show", TLM), text.splitlines())
                self.assertEqual(screen_of(columns, "settings", "diff", self.file, TLM),
                                 ["SETTING                  FILE  GRIPPER",
                                  "release-limit of set 1  -1.50    18.00"])
        self.save_apart(HVA)
        self.edit(force=60)
        self.assertEqual(screen_of(20, "settings", "diff", self.file, HVA),
                         ["SETTING force of set", "1", "  FILE 60", "  GRIPPER 50"])


class RefusedValueTest(SettingsTestCase):
    """A gripper of which the master has not sent a value yet."""

    options = ("--gripper", "HVA")

    def test_zeros_that_may_be_failures_are_named(self):
        start = self.cell.log.mark()
        with self.condition("error 0 3 PARAM[99][3]", "error 0 off"):
            result = ctl.run("settings", "save", self.file, HVA)
        self.assertEqual((result.returncode, result.stderr), (0, (
            "tavrikctl: warning: force of set 3: read as 0, which is also the answer if the master "
            "refuses to send a value; tavrikctl log shows refused readings\n")))
        requests = self.cell.log.matching(r"New command PARAM\[99\]\[3\]", since=start)
        self.assertEqual(len(requests), 2)
        self.assertEqual(json.loads(self.file.read_text())["sets"][3]["force"], 0)
        for command in (("diff",), ("restore", "--yes")):
            result = ctl.run("settings", *command, self.file, HVA)
            self.assertIn(f"tavrikctl: warning: force of set 3: 0 in {self.file}, but not in the "
                          "gripper; the master may have refused to send it for the file\n",
                          result.stderr)
        self.call("SetForce", HVA, 3, 50)


class DiffTest(SettingsTestCase):
    def test_a_file_with_fewer_sets_is_noticed(self):
        content = self.save(HVA)
        self.file.write_text(json.dumps({**content, "sets": content["sets"][:3]}))
        for command in (("diff",), ("restore", "--yes")):
            result = ctl.run("settings", *command, self.file, HVA)
            self.assertEqual(result.stderr, (
                f"tavrikctl: warning: {self.file} has 3 parameter sets with values, the gripper 8: "
                "the others are 0 in the file\n"))
        self.file.write_text(json.dumps(content))
        self.ctl("settings", "restore", "--yes", self.file, HVA)

    def test_differences_are_listed_and_an_exit_status(self):
        self.save(HVA)
        self.assertEqual(self.ctl("settings", "diff", self.file, HVA),
                         f"{HVA}: same as {self.file}\n")
        self.edit(force=60, override_grip=80)
        result = ctl.run("settings", "diff", self.file, HVA)
        self.assertEqual((result.returncode, result.stdout, result.stderr),
                         (REFUSED, "SETTING         FILE  GRIPPER\n"
                                   "override-grip     80      100\n"
                                   "force of set 1    60       50\n", ""))
        result = ctl.run("settings", "diff", self.file, HVA, "--json")
        self.assertEqual((result.returncode, json.loads(result.stdout)), (REFUSED, {
            "gripper": HVA, "sameChecksum": True,
            "differences": [{"setting": "override-grip", "file": "80", "gripper": "100"},
                            {"setting": "force of set 1", "file": "60", "gripper": "50"}]}))

    def test_what_cannot_be_read_differs_by_its_checksum(self):
        self.save(HVA)
        self.edit(checksum=1)
        self.assertEqual(self.ctl("settings", "diff", self.file, HVA),
                         f"{HVA}: same as {self.file}, except for the checksum\n")


class WrongFileTest(SettingsTestCase):
    def expect_no_request(self, status, text, *arguments):
        for command in (("diff",), ("restore", "--yes")):
            before = self.cell.show(0)["requestCount"]
            self.expect_failure(status, text, "settings", *command, self.file, HVA, *arguments)
            self.assertEqual(self.cell.show(0)["requestCount"], before)

    def test_invalid_files_are_refused_before_anything_is_sent(self):
        self.save(HVA)
        good = self.file.read_text()
        for text, reason in (
                ("", "not JSON, or truncated, at byte 1"),
                (good[:-20], "not JSON, or truncated, at byte"),
                ("\0" * 1000, "not JSON, or truncated, at byte 1"),
                ("[" * 500000, "not JSON, or truncated, at byte 500001"),
                (" " * 2000000, "too large"),
                ("[]", "not a JSON object"),
                ("{}", "'format' is not 'TavrikDaemon gripper settings'"),
                (good.replace('"version": 1', '"version": 2'), "version 2 of its format"),
                (good.replace('"force":50', '"force":256', 1), "'force' must be 0 to 255"),
                (good.replace('"force":50', '"force":"50"', 1), "'force' must be 0 to 255"),
                (good.replace('"force":50', '"force":50,"force":60', 1), "duplicate name 'force'"),
                (good.replace('"force":50', '"power":50', 1), "sets[0]: 'force' is missing"),
                (good.replace("2.0", "400.0", 1), "'no-part-limit' must be -327.68 to 327.67"),
                (good.replace("2.0", "1e999", 1), "has a number that is too large"),
                (good.replace("{\n", '{\n  "leds": [],\n', 1), "'leds' is unknown for model HVA"),
                (good.replace(HVA, "\\u001b[2J"), None)):
            with self.subTest(text=text[:100]):
                self.file.write_text(text)
                if reason:
                    self.expect_no_request(USAGE, f"{self.file}: ")
                    self.expect_no_request(USAGE, reason)
                else:
                    self.expect_failure(NOT_POSSIBLE, "has the settings of a '?[2J'",
                                        "settings", "diff", self.file, HVA)

    def test_a_file_that_is_not_there(self):
        self.expect_no_request(USAGE, f"{self.file}: cannot be read: No such file or directory")

    def test_the_file_of_another_model_is_refused(self):
        self.save(MZD)
        for command in (("diff",), ("restore", "--yes")):
            self.expect_failure(NOT_POSSIBLE, f"{self.file} has the settings of a 'MZD-S', model "
                                "MZD, but this gripper is a 'HVA', model HVA",
                                "settings", *command, self.file, HVA)
        self.assertEqual(self.call("GetForce", HVA, 1), 50)


if __name__ == "__main__":
    main()
