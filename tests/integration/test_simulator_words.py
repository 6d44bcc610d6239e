"""What pellix-sim says: help, its state in words, and why it refuses something."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from .harness.cell import SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.ctl_test_case import CtlTestCase
from .harness.doctor_test_case import AS_NOBODY

FOLDER = pathlib.Path(__file__).resolve().parents[1] / "data"
CONTROLLER = pathlib.Path("/sys/devices/platform/vhci_hcd.0")
MODULES = pathlib.Path("/lib/modules") / os.uname().release


class CommandsTest(CtlTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    def replies(self, command):
        """The lines that a command is answered with, without the program's name."""
        mark = self.cell.errors.mark()
        self.cell.command(command)
        return [line.removeprefix("pellix-sim: ") for line in self.cell.errors.since(mark)]

    def test_help_says_what_each_command_does(self):
        lines = self.replies("help")
        self.assertIn("  part N WIDTH|none       put a part of WIDTH mm in, or take it out", lines)
        self.assertIn("  show N [--json]         print the state of master and gripper", lines)
        text = "\n".join(lines)
        for command in ("plug", "hangup", "fault", "stall", "param", "wait", "int", "help"):
            self.assertRegex(text, rf"(?m)^  {command}\b[^\n]*(?:\n +| {{2,}})[a-z][a-z]+ ")
        self.assertLessEqual(max(map(len, lines)) + len("pellix-sim: "), 80)

    def test_help_explains_one_command(self):
        self.assertEqual(self.replies("help error"),
                         ["  error N CODE|off [KEY]  refuse requests, or those with KEY",
                          "ok help error"])
        self.cell.process.stdin.write(b"help dance\n")
        self.cell.process.stdin.flush()
        self.cell.errors.wait_for("^pellix-sim: error: unknown command 'dance'; \"help\" lists all")

    def test_show_is_readable(self):
        with self.condition("part 0 12.5", "part 0 none"), \
                self.condition("fault 0 temp-warn on", "fault 0 temp-warn off"):
            lines = self.replies("show 0")
        self.assertRegex("\n".join(lines),
                         r"\A  master    0, ID PELLIX\n"
                         r"  tty       /dev/pts/\d+, raw\n"
                         r"  mode      4, process data 100 times a second\n"
                         r"  gripper   HVA at 10 mm, state 1: needs reference\n"
                         r"  part      12.5 mm\n"
                         r"  flags     temp-warn\n"
                         r"  requests  \d+, the last: .+\n"
                         r"  more      show 0 --json\n"
                         r"ok show 0\Z")

    def test_show_rounds_lengths(self):
        with self.condition("part 0 12.3456789", "part 0 none"):
            self.assertIn("  part      12.346 mm", self.replies("show 0"))
            self.assertEqual(self.cell.show(0)["part"], 12.3456789)

    def test_show_has_all_in_json(self):
        self.assertEqual(self.cell.show(1)["model"], "MZD-S")

    def test_a_part_of_negative_width_is_refused(self):
        mark = self.cell.errors.mark()
        self.cell.process.stdin.write(b"part 0 -3\n")
        self.cell.process.stdin.flush()
        self.cell.errors.wait_for(r"^pellix-sim: usage: part N WIDTH\|none; invalid width '-3': "
                                  "must not be negative$", since=mark)


class RefusalTest(CtlTestCase):
    options = ()

    def expect(self, status, text, *arguments):
        result = subprocess.run([os.environ["TAVRIK_SIMULATOR"], *arguments], text=True,
                                stdin=subprocess.DEVNULL, capture_output=True,
                                timeout=60 * SLOWNESS)
        self.assertEqual((result.returncode, result.stderr), (status, f"pellix-sim: {text}\n"))

    def test_a_forgotten_double_dash_is_recognised(self):
        self.expect(2, "usage: missing -- before COMMAND: pellix-sim --gripper HVA -- TavrikDaemon; "
                    "see pellix-sim --help", "--gripper", "HVA", "TavrikDaemon")
        self.expect(2, "usage: missing -- before COMMAND: pellix-sim --gripper HVA -- sh -c true; "
                    "see pellix-sim --help", "--gripper", "HVA", "sh", "-c", "true")
        self.expect(2, "usage: The following argument was not expected: --loud; "
                    "see pellix-sim --help", "--loud", "--", "true")

    def test_a_file_that_cannot_be_read_is_named_with_the_reason(self):
        for option in ("--script", "--replay"):
            for path, reason in (("/nowhere/a", "No such file or directory"),
                                 ("/tmp", "Is a directory")):
                with self.subTest(option=option, path=path):
                    self.expect(1, f"error: cannot read {path}: {reason}", option, path, "--",
                                "true")

    def test_a_command_that_cannot_be_run_is_named_with_the_reason(self):
        for command, reason in (("/nowhere/daemon", "No such file or directory"),
                                ("/etc/passwd", "Permission denied")):
            with self.subTest(command=command):
                self.expect(127, f"error: cannot run {command}: {reason}", "--", command)

    def expect_no_usb(self, text, *command):
        result = subprocess.run([*command, "--usb", "--gripper", "HVA"], text=True,
                                stdin=subprocess.DEVNULL, capture_output=True,
                                timeout=60 * SLOWNESS)
        self.assertEqual(result.returncode, 1)
        # A program that measures coverage may add that it cannot write its counts.
        self.assertIn(f"pellix-sim: error: {text}", result.stderr.splitlines())

    def test_usb_without_root(self):
        with tempfile.TemporaryDirectory() as folder:  # others may not see the build
            os.chmod(folder, 0o755)
            simulator = shutil.copy(os.environ["TAVRIK_SIMULATOR"], folder)
            self.expect_no_usb('--usb needs root and the kernel module vhci-hcd: run "modprobe '
                               'vhci-hcd" and pellix-sim as root',
                               *(AS_NOBODY if os.geteuid() == 0 else ()), simulator)

    @unittest.skipIf(os.geteuid() != 0, "needs root")
    @unittest.skipIf(CONTROLLER.exists() or any(MODULES.rglob("vhci-hcd.ko*")),
                     "the kernel has vhci-hcd")
    def test_usb_without_the_kernels_module(self):
        self.expect_no_usb("--usb: this kernel has no module vhci-hcd: install the package "
                           "linux-image-amd64 and boot it (containers and cloud kernels have no "
                           "such module), or start the daemon in a cell without --usb: pellix-sim "
                           "--gripper HVA -- TavrikDaemon", os.environ["TAVRIK_SIMULATOR"])


class ReplayTest(CtlTestCase):
    """A passive look at a replay does not deviate from it, another one does."""

    options = ("--replay", str(FOLDER / "fallback.rec"))

    @classmethod
    def prepare(cls):
        cls.cell.wait_until_serving()

    @classmethod
    def stop_cell(cls, cell):
        cell.end_by_force()

    def test_only_a_passive_look_does_not_deviate(self):
        wait_until(lambda: "HVA SN:4711 " in self.ctl("list", "--passive"))
        self.assertEqual(self.cell.errors.matching("deviation"), [])
        self.ctl("list")
        self.cell.errors.wait_for("deviation: .*; answered with ERR 99$")


if __name__ == "__main__":
    main()
