"""A boot with attached masters: those of masters-at-boot.service, or of pellix-sim-cell.service,
which starts at the same time as the service."""

import pathlib

from . import machine
from .machine import (GRIPPERS_OF_BOOT, LATE_UDEVD, PATIENCE, MachineTestCase, Service, call,
                      wait_until)


class BootTest(MachineTestCase):
    @classmethod
    def tearDownClass(cls):
        LATE_UDEVD.unlink(missing_ok=True)

    def test_every_master_is_found(self):
        wait_until(lambda: machine.grippers() == GRIPPERS_OF_BOOT, "all grippers", 2 * PATIENCE)
        uptime = float(pathlib.Path("/proc/uptime").read_text().split()[0])
        attached = "before udevd runs" if self.are_attached_first() else "while the service starts"
        late = ", which udevd gives to the service late" if LATE_UDEVD.exists() else ""
        count = len(GRIPPERS_OF_BOOT)
        machine.figure(f"boot with masters attached {attached}{late}: {count} of {count} grippers "
                       f"listed {uptime:.1f} s after the kernel's start")
        self.assertEqual(Service.property("NRestarts"), "0")
        self.assertEqual(call("GetGripperInterface", "HVA SN:100001"), 0)
        for node in machine.masters():
            self.assertEqual(pathlib.Path(node).group(), "tavrik")
        if self.are_attached_first() and LATE_UDEVD.exists():
            self.assertIn("Open call failed", Service.log())

    @staticmethod
    def are_attached_first():
        return "masters-at-boot" in machine.boot_option("systemd.wants")
