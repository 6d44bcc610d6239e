"""The sessions of the pages, as a user of the installed packages sees them."""

import pathlib
import subprocess
import tempfile

from .. import sessions
from .machine import PATIENCE, UsbTestCase, call, hva, run, wait_until, wait_until_listed

PAGES = pathlib.Path("/usr/share/doc/tavrikdaemon")
MZD = "MZD-S SN:100002"


class PageTestCase(UsbTestCase):
    def play(self, page):
        steps = list(sessions.session((PAGES / page).read_text()))
        self.assertGreater(len(steps), 10)
        with tempfile.TemporaryDirectory() as folder:
            for command, expected in steps:
                if expected is None:
                    self.simulate(command)
                    continue
                output = self.output(command, folder)
                if not sessions.is_shown(output, expected):
                    self.assertEqual(output, expected, command)

    def simulate(self, command):
        self.simulator.command(command)

    @staticmethod
    def output(command, folder):
        return subprocess.run(["sh", "-c", command], cwd=folder, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=PATIENCE).stdout


class CommissioningTest(PageTestCase):
    options = ("--gripper", "HVA", "--unplugged", "0")

    def test_the_session_is_true(self):
        run("systemctl", "stop", "ModemManager")
        self.play("commissioning.md")

    def simulate(self, command):
        super().simulate(command)
        if command == "plug 0":
            wait_until_listed(0)
            wait_until(lambda: call("GetPDINExcerpt", hva(0)), "process data")


class ClientTest(PageTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--unplugged", "1")

    def test_the_sessions_are_true(self):
        wait_until_listed(0)  # the list is in the order of discovery
        self.simulator.command("plug 1")
        for name in (hva(0), MZD):
            wait_until(lambda name=name: call("GetPDINExcerpt", name), f"process data of {name}")
        self.play("tavrikctl.md")
