"""A simulated cell and the doctor that examines it."""

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile

from . import ctl, own_network
from .cell import wait_until
from .cell_test_case import CellTestCase
from .ctl import DONE

HVA = "HVA SN:100001"
TTY = "/dev/ttyACM0"
SCREEN = 24  # lines
WIDTH = 80  # columns
NOBODY = "65534"
AS_NOBODY = ("setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups")


def simulator_env_of(cell):
    """The environment with which pellix-sim runs its command: with it, programs see its devices."""
    def read():
        with contextlib.suppress(AssertionError, FileNotFoundError):  # it may not run yet
            environ = pathlib.Path(f"/proc/{cell.daemon_pid()}/environ").read_text()
            variables = dict(entry.split("=", 1) for entry in environ.split("\0") if entry)
            return {name: variables[name] for name in ("LD_PRELOAD", "UMOCKDEV_DIR")
                    if "UMOCKDEV_DIR" in variables}
        return None
    return wait_until(read)


class DoctorTestCase(CellTestCase):
    """A cell, and the doctor with the devices that pellix-sim simulates."""

    options = ("--gripper", "HVA")

    @classmethod
    def simulator_env(cls):
        return simulator_env_of(cls.cell)

    @classmethod
    def folder(cls):
        return pathlib.Path(cls.simulator_env()["UMOCKDEV_DIR"])

    @classmethod
    def usb_device(cls):
        return next(cls.folder().glob("sys/devices/**/usb1/1-1"))

    @classmethod
    def pty_of_tty(cls):
        return os.readlink(f"{cls.folder()}{TTY}")

    def run_doctor(self, *arguments, environment=None):
        return ctl.run("doctor", *arguments,
                       environment={**self.simulator_env(), **(environment or {})})

    def output_as_nobody(self, *before, environment=None):
        """The doctor's output for an ordinary user; the command `before` starts it."""
        self.folder().chmod(0o755)
        program = shutil.copy(os.environ["TAVRIK_CTL"], self.folder())
        environment = self.simulator_env() if environment is None else environment
        return subprocess.run([*before, *AS_NOBODY, program, "doctor", "--timeout", "1"],
                              env={**ctl.ENVIRONMENT, **environment}, capture_output=True,
                              text=True).stdout

    def fake_tool(self, name, text, command="cat"):
        """An environment with a tool `name` that prints `text`, filtered by `command`."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = pathlib.Path(folder.name, name)
        path.write_text(f"#!/bin/sh\n{command} <<'END'\n{text}END\n")
        path.chmod(0o755)
        return {"PATH": f"{folder.name}:{os.environ['PATH']}"}

    def fake_systemctl(self, **properties):
        """An environment in which systemd reports these properties of the service."""
        properties = {"LoadState": "loaded", "Result": "success", "MainPID": "0", **properties}
        return self.fake_tool("systemctl", "".join(f"{name}={value}\n"
                                                   for name, value in properties.items()))

    def fake_journal(self):
        """An environment whose journal has the daemon's log so far, newest line first."""
        grep = ('for word; do case $word in --grep=*) pattern=${word#--grep=} ;; esac; done\n'
                'grep -P -e "$pattern"')
        return self.fake_tool("journalctl", "".join(
            line + "\n" for line in reversed(self.cell.log.since(0))), grep)

    @contextlib.contextmanager
    def reserved_ports(self, text):
        old = own_network.RESERVED_PORTS.read_text()
        own_network.RESERVED_PORTS.write_text(text + "\n")
        try:
            yield
        finally:
            own_network.RESERVED_PORTS.write_text(old)

    @contextlib.contextmanager
    def holder_of_tty(self, *command):
        """A program that has the tty open; its process id."""
        with open(self.pty_of_tty(), "rb", buffering=0) as tty:
            process = subprocess.Popen([*command, "sleep", "infinity"], stdin=tty)
        with process:
            try:
                wait_until(lambda: pathlib.Path(f"/proc/{process.pid}/comm").read_text()
                           == "sleep\n")
                yield process.pid
            finally:
                process.kill()

    def expect_fits_screen(self, text):
        lines = text.splitlines()
        self.assertLessEqual(len(lines), SCREEN, text)
        self.assertLessEqual(max(map(len, lines)), WIDTH, text)

    def findings(self, status, *arguments, **options):
        """Runs the doctor and expects exit status `status`."""
        result = self.run_doctor("--json", *arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (status, ""), result.stdout)
        report = json.loads(result.stdout)
        self.assertEqual(report["gripperAnswers"], status == DONE)
        return report["findings"]

    def expect(self, status, mark, what, text, *arguments, **options):
        """Runs the doctor and expects a finding that contains `text`."""
        findings = self.findings(status, *arguments, **options)
        self.assertTrue(any(finding["mark"] == mark and finding["what"] == what
                            and text in finding["finding"] for finding in findings),
                        json.dumps(findings, indent=1))


class NoDaemonTestCase(DoctorTestCase):
    """A cell that runs another program instead of the daemon."""

    @classmethod
    def start_cell(cls, *options, **settings):
        return super().start_cell(*options, command=["sleep", "infinity"], **settings)

    @classmethod
    def prepare(cls):
        cls.simulator_env()

    @classmethod
    def stop_cell(cls, cell):
        cell.process.terminate()
        cell.wait_for_end()
