"""pellix-sim beside the installed service, as a person uses it: one gripper, a recording, COMMAND,
the cell of a training bench."""

import pathlib
import re
import subprocess
import tempfile

from .machine import (PATIENCE, UsbTestCase, call, hva, masters, run, wait_until,
                      wait_until_listed)

HVA = ("--gripper", "HVA")
CELL = "pellix-sim-cell.service"
NO_MODULE = pathlib.Path("/run/modprobe.d/no-vhci-hcd.conf")


class UseTest(UsbTestCase):
    def test_another_terminal_lists_the_gripper(self):
        self.new_simulator(*HVA)
        wait_until(lambda: hva(0) in run("tavrikctl", "list", check=False), "the gripper")
        self.assertRegex(run("tavrikctl", "list"), rf"(?m)^{hva(0)} .*\bHVA\b")

    def test_a_command_finds_the_masters_of_the_host(self):
        script = f"until tavrikctl list | grep '{hva(0)}'; do sleep 0.2; done; exit 7"
        result = subprocess.run(["pellix-sim", "--usb", *HVA, "--", "sh", "-c", script],
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=PATIENCE,
                                check=False)
        self.assertEqual(result.returncode, 7)
        self.assertIn(hva(0).encode(), result.stdout)
        wait_until(lambda: not masters(), "no tty")
        wait_until_listed()

    def test_a_recording_is_replayed(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        first, second = (pathlib.Path(folder.name, name) for name in ("first", "second"))
        self.record(first, *HVA, "--pdin-hz", "0")
        self.assertIn("> PARAM[96][3]=[28]", first.read_text())
        said = self.record(second, "--replay", str(first))
        self.assertRegex(said, r"replay 0: (\d+) of \1 requests played, deviations: 0")
        self.assertEqual(self.requests(first), self.requests(second))

    def record(self, path, *options):
        """Makes a call, and returns what the simulator has said."""
        simulator = self.new_simulator(*options, "--record", str(path))
        wait_until_listed(0)
        # The last request of the daemon's own.
        wait_until(lambda: "FIN PDOUT" in path.read_text(), "all is set up")
        self.assertEqual(call("SetForce", hva(0), 0, 40), 0)
        said = simulator.end()
        self.assertEqual(simulator.process.returncode, 0)
        wait_until_listed()
        return said

    @staticmethod
    def requests(path):
        return re.findall(r" > (.*)", path.read_text())


class CellTest(UsbTestCase):
    """The service that plugs in a cell at every boot."""

    def test_it_is_off_after_the_installation(self):
        self.assertEqual(run("systemctl", "is-enabled", CELL, check=False).strip(), "disabled")

    def test_it_gives_up_without_the_kernels_module(self):
        NO_MODULE.parent.mkdir(exist_ok=True)
        self.addCleanup(NO_MODULE.unlink)
        NO_MODULE.write_text("install vhci-hcd /bin/false\n")
        run("modprobe", "--remove", "vhci-hcd")
        self.addCleanup(run, "systemctl", "reset-failed", CELL)
        run("systemctl", "start", "--no-block", CELL)
        wait_until(lambda: self.property("ActiveState") == "failed", "the unit gives up", pause=1)
        self.assertEqual(self.property("NRestarts"), "5")
        self.assertIn("this kernel has no module vhci-hcd: install the package linux-image-amd64",
                      run("journalctl", "--boot", f"--unit={CELL}", "--output=cat"))

    @staticmethod
    def property(name):
        return run("systemctl", "show", "--value", f"--property={name}", CELL).strip()
