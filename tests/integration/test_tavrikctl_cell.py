"""tavrikctl cell: the grippers that there should be, for list and doctor."""

import json
import pathlib
import tempfile
import unittest

from .harness import ctl
from .harness.cell import wait_until
from .harness.cell_test_case import main
from .harness.ctl import NOT_AS_EXPECTED, NO_ANSWER, NO_DAEMON, NO_GRIPPER, USAGE
from .harness.ctl_test_case import HVA, MZD, TLM, CtlTestCase
from .harness.terminal import TerminalSession

NEW_HVA = "HVA SN:100004"


class CellFileTestCase(CtlTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--gripper", "TLM",
               "--gripper", "HVA,serial=100004", "--unplugged", "3")

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.file = self.folder / "cell.json"
        self.save()

    def save(self, *options):
        return self.ctl("cell", "save", self.file, *options)

    def unplug(self, number):
        mark = self.cell.log.mark()
        self.cell.command(f"unplug {number}")
        self.cell.log.wait_for("PELLIX removed", since=mark)
        self.addCleanup(self.plug, number)

    def plug(self, number):
        mark = self.cell.log.mark()
        before = self.call("GetGrippers")
        self.cell.command(f"plug {number}")
        self.cell.wait_until_operating(1, since=mark)
        device, = set(self.call("GetGrippers")) - set(before)
        wait_until(lambda: self.call("GetPDINExcerpt", device))

    def exchange(self):
        """The HVA for the other one, until the end of the test."""
        self.unplug(0)
        self.plug(3)
        self.addCleanup(self.unplug_for_good, 3)

    def unplug_for_good(self, number):
        mark = self.cell.log.mark()
        self.cell.command(f"unplug {number}")
        self.cell.log.wait_for("PELLIX removed", since=mark)

    def type(self, remedy):
        """Runs the command at the end of a remedy as it stands."""
        result = ctl.shell(remedy.rpartition(": ")[2] + "; echo status $?")
        self.assertTrue(result.endswith("status 0\n"), result)

    def listed(self, status):
        """The rows of the list and the texts of its JSON, by gripper."""
        result = ctl.run("list", "--cell", self.file)
        self.assertEqual((result.returncode, result.stderr), (status, ""), result)
        as_json = ctl.run("list", "--cell", self.file, "--json", "--passive")
        self.assertEqual(as_json.returncode, status)
        return (result.stdout.splitlines()[1:],
                {row["gripper"]: row["cell"] for row in json.loads(as_json.stdout)})

    def findings(self, status, *options):
        result = ctl.run("doctor", "--cell", self.file, "--json", *options)
        self.assertEqual((result.returncode, result.stderr), (status, ""), result.stdout)
        return [finding for finding in json.loads(result.stdout)["findings"]
                if finding["what"] == "cell"]


class SaveTest(CellFileTestCase):
    def test_the_file_has_the_names_sorted(self):
        self.assertEqual(self.save(), f"{self.file}: 3 grippers saved\n")
        self.assertEqual(self.file.read_text(), "{\n"
                                                '  "format": "TavrikDaemon cell",\n'
                                                '  "grippers": [\n'
                                                f'    "{HVA}",\n'
                                                f'    "{MZD}",\n'
                                                f'    "{TLM}"\n'
                                                "  ],\n"
                                                '  "version": 1\n'
                                                "}\n")

    def test_a_gripper_is_not_lost_by_mistake(self):
        self.unplug(2)
        self.expect_failure(USAGE, f"{self.file} has '{TLM}', which is missing now; to replace the "
                            "file, add --yes", "cell", "save", self.file)
        self.assertIn(TLM, self.file.read_text())
        self.assertEqual(self.save("--yes"), f"{self.file}: 2 grippers saved\n")
        self.assertNotIn(TLM, self.file.read_text())

    def test_an_empty_cell_is_not_saved_by_mistake(self):
        file = self.folder / "empty.json"
        for number in range(3):
            self.unplug(number)
        self.expect_failure(NO_GRIPPER, "no grippers found; run 'tavrikctl doctor' to find out why; "
                            "to save an empty cell, add --yes\n", "cell", "save", file)
        self.assertFalse(file.exists())
        self.assertEqual(self.ctl("cell", "save", "--yes", file), f"{file}: 0 grippers saved\n")

    def test_another_file_is_not_replaced_by_mistake(self):
        for text in ("", "{}", "my diary"):
            self.file.write_text(text)
            self.expect_failure(USAGE, "; to replace the file, add --yes",
                                "cell", "save", self.file)
            self.assertEqual(self.file.read_text(), text)

    def test_wrong_files_are_refused(self):
        for text, reason in (("", "not JSON, or truncated, at byte 1"),
                             (self.file.read_text()[:-10], "not JSON, or truncated"),
                             (self.file.read_text().replace(": 1", ": 2"), "version 2"),
                             ("{}", "'format' is not 'TavrikDaemon cell'")):
            self.file.write_text(text)
            for command in ("list", "doctor"):
                self.expect_failure(USAGE, f"{self.file}: ", command, "--cell", self.file)
                self.expect_failure(USAGE, reason, command, "--cell", self.file)


class CompareTest(CellFileTestCase):
    def test_all_expected_grippers_are_there(self):
        rows, texts = self.listed(0)
        self.assertEqual(rows, self.ctl("list").splitlines()[1:])
        self.assertEqual(set(texts.values()), {"expected"})
        self.assertEqual([(each["mark"], each["finding"]) for each in self.findings(0)],
                         [("ok", "all expected grippers: 3")])

    def test_a_missing_gripper(self):
        self.unplug(2)
        rows, texts = self.listed(NOT_AS_EXPECTED)
        self.assertEqual(rows[-1].split("  ")[0], TLM)
        self.assertTrue(rows[-1].endswith("  is missing"), rows)
        self.assertEqual(texts, {HVA: "expected", MZD: "expected", TLM: "missing"})
        finding, = self.findings(NOT_AS_EXPECTED)
        self.assertEqual((finding["mark"], finding["finding"]), ("wrong", f"'{TLM}' is missing"))

    def test_a_new_gripper(self):
        self.plug(3)
        self.addCleanup(self.unplug_for_good, 3)
        rows, texts = self.listed(NOT_AS_EXPECTED)
        self.assertTrue(rows[-1].startswith(NEW_HVA) and rows[-1].endswith("  is new"), rows)
        self.assertEqual([each for each, text in texts.items() if text == "new"], [NEW_HVA])
        finding, = self.findings(NOT_AS_EXPECTED)
        self.assertEqual((finding["mark"], finding["finding"], finding["remedy"]),
                         ("wrong", f"'{NEW_HVA}' is new",
                          f"if it belongs here, accept it: tavrikctl cell save {self.file}"))
        self.type(finding["remedy"])
        self.assertEqual(self.findings(0)[0]["mark"], "ok")

    def test_a_missing_gripper_is_not_dropped_by_the_remedy_for_a_new_one(self):
        self.unplug(1)
        self.plug(3)
        self.addCleanup(self.unplug_for_good, 3)
        new = [each for each in self.findings(NOT_AS_EXPECTED) if "is new" in each["finding"]]
        self.assertEqual(new[0]["remedy"], "if it belongs here, after the missing ones are plugged "
                         f"in, accept it: tavrikctl cell save {self.file}")

    def test_an_exchanged_gripper(self):
        self.exchange()
        rows, texts = self.listed(NOT_AS_EXPECTED)
        self.assertEqual(len(rows), 3)
        self.assertTrue(rows[-1].endswith(f"  is in the place of '{HVA}'"), rows)
        self.assertEqual(texts[NEW_HVA], "exchanged")
        finding, = self.findings(NOT_AS_EXPECTED)
        self.assertEqual((finding["finding"], finding["remedy"]),
                         (f"'{NEW_HVA}' is in the place of '{HVA}'",
                          "give it the settings of the old one: tavrikctl settings restore --help; "
                          f"then accept it: tavrikctl cell save --yes {self.file}"))
        for command in finding["remedy"].split("; "):
            self.type(command)
        self.assertEqual(self.findings(0)[0]["mark"], "ok")

    def test_no_gripper_at_all(self):
        for number in range(3):
            self.unplug(number)
        rows, texts = self.listed(NOT_AS_EXPECTED)
        self.assertEqual(len(rows), 3)
        self.assertEqual(set(texts.values()), {"missing"})
        self.assertEqual(len(self.findings(NO_GRIPPER)), 3)

    def test_the_list_on_terminals_of_every_width(self):
        self.unplug(2)
        for columns in (20, 40, 80, 200):
            with self.subTest(columns=columns):
                with TerminalSession("list", "--cell", self.file, columns=columns) as process:
                    status, lines = process.wait_for_end()
                self.assertEqual(status, NOT_AS_EXPECTED)
                text = "".join(line.ljust(columns) for line in lines)
                self.assertIn("is missing", text)
                if columns >= 80:
                    self.assertRegex(lines[-1], f"^{TLM} +is missing$")


class StrictTest(CellFileTestCase):
    def doctor(self, *options):
        return ctl.run("doctor", *options).returncode

    def test_a_cell_without_faults_passes(self):
        self.assertEqual((self.doctor(), self.doctor("--strict")), (0, 0))

    def test_a_silent_gripper_fails(self):
        with self.condition("silent 1 on", "silent 1 off"):
            self.assertEqual((self.doctor(), self.doctor("--strict")), (0, NOT_AS_EXPECTED))

    def test_a_faulted_gripper_fails(self):
        with self.condition("fault 1 fault on", "fault 1 fault off"):
            self.wait_for_process_data(1, MZD)
            self.assertEqual((self.doctor(), self.doctor("--strict")), (0, NOT_AS_EXPECTED))
        self.wait_for_process_data(1, MZD)

    def test_a_worse_status_is_kept(self):
        for number in range(3):
            self.unplug(number)
        self.assertEqual((self.doctor(), self.doctor("--strict")), (NO_GRIPPER, NO_GRIPPER))

    def test_the_status_of_a_silent_gripper_is_kept(self):
        self.unplug(1)
        self.unplug(2)
        with self.condition("silent 0 on", "silent 0 off"):
            self.assertEqual(self.doctor("--strict", "--cell", self.file), NO_ANSWER)
        wait_until(lambda: self.doctor() == 0)


class WithoutDaemonTest(unittest.TestCase):
    def test_what_cannot_be_compared_is_not_as_expected(self):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            file.write('{"format": "TavrikDaemon cell", "version": 1, "grippers": []}')
            file.flush()
            report = ctl.run("doctor", "--cell", file.name, "--json")
            listed = ctl.run("list", "--cell", file.name)
        self.assertEqual((report.returncode, listed.returncode), (NO_DAEMON, NO_DAEMON))
        finding, = (each for each in json.loads(report.stdout)["findings"]
                    if each["what"] == "cell")
        self.assertEqual((finding["mark"], finding["finding"]),
                         ("?", "the grippers cannot be compared: the list was not read"))


if __name__ == "__main__":
    main()
