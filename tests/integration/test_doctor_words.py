"""What tavrikctl doctor tells people to do: names to copy, commands that can be typed."""

import contextlib
import http.client
import os
import re
import shutil
import signal
import subprocess
import tempfile

from .harness import ctl
from .harness.cell import PORTS, wait_until
from .harness.cell_test_case import main
from .harness.ctl import DONE, NO_DAEMON, NO_GRIPPER
from .harness.doctor_test_case import HVA, DoctorTestCase, NoDaemonTestCase
from .harness.terminal import screen_of


class WordsTestCase(DoctorTestCase):
    def finding(self, status, what, *arguments, environment=None):
        """The only finding about `what`."""
        findings = self.findings(status, *arguments, environment=environment)
        found = [finding for finding in findings if finding["what"] == what]
        self.assertEqual(len(found), 1, findings)
        return found[0]

    def type(self, remedy):
        """Runs the command at the end of a remedy as it stands."""
        command = remedy.rpartition(": ")[2]
        result = ctl.shell(command + "; echo status $?")
        self.assertTrue(result.endswith("status 0\n"), f"{command}: {result}")
        return result


class RemedyTest(WordsTestCase):
    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(1)
        wait_until(lambda: cls.cell.call_apart("GetPDINExcerpt", HVA))

    def test_a_missing_reference_run_is_hinted_at(self):
        finding = self.finding(DONE, HVA)
        self.assertEqual(finding["mark"], "ok")
        self.assertIn("if not referenced, clear its path: ", finding["remedy"])
        self.type(finding["remedy"])
        wait_until(lambda: self.finding(DONE, HVA)["remedy"] == "")

    def test_a_remedy_names_the_host(self):
        with self.condition("param 0 96 3 0", "param 0 96 3 32"):  # its model is doubtful
            remedy = self.finding(DONE, HVA, "--host", "localhost")["remedy"]
        self.assertEqual(remedy, "if it is an HVA or MZD, its force may be 0; set it: tavrikctl set "
                         f"force 30 '{HVA}' --host localhost")
        self.type(remedy)

    def test_the_report_at_every_width(self):
        for columns in (20, 40, 80, 200):
            with self.subTest(columns=columns):
                lines = screen_of(columns, "doctor", "--host", "localhost")
                found = lines.index("ok port 44221" if columns < 80 else next(
                    line for line in lines if re.match("ok +port 44221 +TavrikDaemon ", line)))
                if columns == 20:
                    self.assertEqual(lines[found + 1], "  TavrikDaemon")
                if columns < 80:
                    self.assertTrue(lines[found + 1].startswith("  TavrikDaemon"), lines)
                self.assertLessEqual(max(map(len, lines)), min(columns, 80))

    def test_a_stopped_daemon_is_continued_by_its_remedy(self):
        os.kill(self.cell.daemon_pid(), signal.SIGSTOP)
        try:
            self.type(self.finding(NO_DAEMON, "service", "--timeout", "0.2")["remedy"])
        finally:
            os.kill(self.cell.daemon_pid(), signal.SIGCONT)
        self.finding(DONE, HVA)

    def test_a_program_that_has_the_tty_open_is_ended_by_the_remedy(self):
        with self.holder_of_tty() as pid:
            findings = self.findings(DONE)
            remedy = next(each["remedy"] for each in findings if "has it open too" in
                          each["finding"])
            self.assertEqual(remedy.rpartition(": ")[2], f"kill {pid}")

    def test_the_page_that_a_browser_shows_is_explained(self):
        self.assertIn("get error 404", self.finding(DONE, "browsers")["finding"])
        for port in PORTS:
            connection = http.client.HTTPConnection("127.0.0.1", port)
            with contextlib.closing(connection):
                connection.request("GET", "/")
                response = connection.getresponse()
                self.assertEqual(response.status, 404)
                self.assertIn(b"Error 404", response.read())


class NamesTest(WordsTestCase):
    options = ("--gripper", "HVA,product=left  one,serial=1",
               "--gripper", "TLM,serial=7", "--gripper", "TLM,serial=7")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(3)
        wait_until(lambda: cls.cell.call_apart("GetPDINExcerpt", "left  one SN:1"))

    def test_a_name_with_two_blanks_is_quoted_in_the_report(self):
        output = self.run_doctor().stdout
        row = re.search(r"(?m)^\S+ +('left  one SN:1')  ", output)
        self.assertTrue(row, output)
        self.assertEqual(ctl.shell(f"tavrikctl call GetGripperInterface --exact {row[1]}"), "0\n")

    def test_a_name_with_two_blanks_is_quoted_for_a_log_file(self):
        self.call("SetForce", "left  one SN:1", 0, 40)
        with tempfile.NamedTemporaryFile("w", suffix=".log") as file:
            file.write("".join(line + "\n" for line in self.cell.log.since(0)))
            file.flush()
            output = self.run_doctor("--log", file.name).stdout
        row = re.search(r"(?m)^\S+ +('left  one SN:1') +log: \d+ calls, ", output)
        self.assertTrue(row, output)

    def test_two_grippers_of_the_same_name_are_told_apart(self):
        findings = [each for each in self.findings(DONE) if each["what"] == "TLM SN:7"]
        self.assertIn("two grippers have this name: calls reach the one that was found first",
                      findings[-1]["finding"])
        lines = self.run_doctor().stdout.splitlines()
        self.assertTrue(any("tavrikctl watch 'TLM SN:7';" in line for line in lines), lines)
        self.assertIn("to tell them apart, unplug one master and run: tavrikctl watch 'TLM SN:7'; "
                      "to use both, connect one to another host", findings[-1]["remedy"])
        with self.condition("unplug 1", "plug 1"):
            wait_until(lambda: self.cell.call_apart("GetGrippers").count("TLM SN:7") == 1)
            with ctl.Running("watch", "TLM SN:7", "--csv") as watch:
                watch.output.wait_for("fresh$")


class NoGripperTest(WordsTestCase):
    options = ()

    def test_without_problems_above_the_remedy_does_not_name_them(self):
        """Without the simulator's environment, masters are not counted."""
        report = ctl.run("doctor")
        self.assertEqual(report.returncode, NO_GRIPPER)
        self.assertNotIn("wrong", report.stdout.partition("grippers")[0].rpartition("\n")[0])
        self.assertNotIn("problems above", report.stdout)
        self.assertIn("check the masters' USB plugs and power", report.stdout)
        self.assertIn("fix the problems above", self.run_doctor().stdout)


class ElsewhereTest(NoDaemonTestCase, WordsTestCase):
    """No daemon in this network, but in another."""

    options = ()

    def test_a_daemon_in_another_network_namespace_is_named(self):
        with tempfile.TemporaryDirectory() as folder:
            program = shutil.copy("/bin/sleep", os.path.join(folder, "TavrikDaemon"))
            with subprocess.Popen(["unshare", "-n", program, "infinity"]) as process:
                try:
                    wait_until(lambda: os.readlink(f"/proc/{process.pid}/ns/net") !=
                               os.readlink("/proc/self/ns/net"))
                    found = wait_until(self.elsewhere)
                finally:
                    process.kill()
        # Tests of other modules may run a daemon in a network of their own, too.
        pid = re.match(r"TavrikDaemon \(process (\d+)\)", found[0]["finding"])[1]
        self.assertTrue(found[0]["remedy"].endswith(f": nsenter -t {pid} -n tavrikctl doctor"))

    def elsewhere(self):
        return [each for each in self.findings(NO_DAEMON)
                if "runs in another network namespace" in each["finding"]]


if __name__ == "__main__":
    main()
