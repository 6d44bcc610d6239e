"""A boot with attached masters: pellix-sim-cell.service is started at the same time as the service."""

import pathlib

from . import machine
from .machine import PATIENCE, MachineTestCase, Service, call, wait_until


class BootTest(MachineTestCase):
    GRIPPERS = {"HVA SN:100001", "MZD-S SN:100002"}

    def test_every_master_is_found(self):
        wait_until(lambda: machine.grippers() == self.GRIPPERS, "all grippers", 2 * PATIENCE)
        uptime = float(pathlib.Path("/proc/uptime").read_text().split()[0])
        machine.figure(f"boot: {len(self.GRIPPERS)} of {len(self.GRIPPERS)} grippers listed "
                       f"{uptime:.1f} s after the kernel's start")
        self.assertEqual(Service.property("NRestarts"), "0")
        self.assertEqual(call("GetGripperInterface", "HVA SN:100001"), 0)
        for node in machine.masters():
            self.assertEqual(pathlib.Path(node).group(), "tavrik")
