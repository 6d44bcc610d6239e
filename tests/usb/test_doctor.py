"""What tavrikctl doctor finds out from systemd, udevd, the journal and the nodes of real ttys."""

import json
import os
import pathlib
import signal
import struct
import subprocess

from .machine import (UNIT, Service, UsbTestCase, call, hva, masters, run, wait_until,
                      wait_until_listed)

CONFIGURATION = pathlib.Path(f"/run/systemd/system/{UNIT}.d/test.conf")


ACCESS_LIST = "system.posix_acl_access"


def access_list_for(user):
    """The kernel's form of "user::rw-,user:USER:rw-,group::rw-,mask::rw-,other::---"."""
    nobody = 0xffffffff
    entries = ((0x01, 6, nobody), (0x02, 6, user), (0x04, 6, nobody), (0x10, 6, nobody),
               (0x20, 0, nobody))
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


class DoctorTest(UsbTestCase):
    options = ("--gripper", "HVA")

    def setUp(self):
        wait_until_listed(0)
        [self.node] = masters()

    @staticmethod
    def findings():
        """Mark, subject and text of each."""
        report = json.loads(run("tavrikctl", "doctor", "--json", check=False))
        return [(finding["mark"], finding["what"], finding["finding"])
                for finding in report["findings"]]

    def expect(self, mark, what, text):
        findings = self.findings()
        self.assertTrue(any(finding[:2] == (mark, what) and text in finding[2]
                            for finding in findings), findings)

    def configure(self, text):
        """Adds this to the unit until the end of the test."""
        CONFIGURATION.parent.mkdir(parents=True, exist_ok=True)
        CONFIGURATION.write_text(text)
        self.addCleanup(Service.control, "restart")
        self.addCleanup(run, "systemctl", "daemon-reload")
        self.addCleanup(CONFIGURATION.unlink)
        run("systemctl", "daemon-reload")
        Service.control("restart")

    def test_all_is_well(self):
        run("systemctl", "start", "ModemManager")
        self.assertEqual(call("SetForce", hva(0), 0, 40), 0)
        wait_until(lambda: {finding[0] for finding in self.findings()} == {"ok"}, "all ok")
        self.expect("ok", "service", "user tavrik, under systemd")
        self.expect("ok", self.node, "master, serial PX1000, root:tavrik 0660, open")
        self.expect("ok", self.node, 'log: ID "PELLIX", mode 4, operate')
        self.expect("ok", hva(0), "answers")
        self.expect("ok", "masters", "1 attached, 1 opened, 1 gripper listed")
        self.expect("ok", "modems", "is running and ignores the masters")

    def test_no_master(self):
        self.simulator.command("unplug 0")
        self.addCleanup(self.simulator.command, "plug 0")
        wait_until_listed()
        self.expect("wrong", "masters", "no master is attached, according to udev")

    def test_another_program_has_the_tty(self):
        held = os.open(self.node, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        try:
            self.expect("wrong", self.node, "has it open too")
        finally:
            os.close(held)

    def test_the_service_may_not_open_the_tty(self):
        """As if another rule had given the tty to other users, or a seat's user."""
        self.addCleanup(Service.control, "start")
        Service.control("stop")
        self.addCleanup(os.chown, self.node, 0, pathlib.Path(self.node).stat().st_gid)
        os.chown(self.node, 0, 0)
        self.expect("wrong", self.node, "but user tavrik may not open it: root:root 0660")
        self.addCleanup(os.removexattr, self.node, ACCESS_LIST)
        os.setxattr(self.node, ACCESS_LIST, access_list_for(65534))
        self.expect("?", self.node, "its access list must allow user tavrik")

    def test_a_master_that_never_answers(self):
        self.simulator.command("unplug 0")
        wait_until_listed()
        self.simulator.command("silent 0 on")
        message = "Failed to initialize new device: 5"  # follows the close of the tty
        before = Service.log().count(message)
        self.simulator.command("plug 0")
        for command in ("plug 0", "silent 0 off", "unplug 0"):  # the last one comes first
            self.addCleanup(self.simulator.command, command)
        [self.node] = wait_until(masters, "a tty")
        wait_until(lambda: Service.log().count(message) > before, "the daemon gives up", pause=1)
        self.expect("wrong", self.node, "TavrikDaemon has not opened it or has given up on it")

    def test_denied_addresses(self):
        self.configure("[Service]\nIPAddressDeny=any\nIPAddressAllow=localhost\n")
        self.expect("ok", "network", "systemd denies")

    def test_a_service_that_is_stopped_disabled_or_fails(self):
        self.addCleanup(Service.control, "restart")
        Service.control("stop")
        self.expect("wrong", "service", "systemd: inactive (dead), success")
        run("systemctl", "mask", "--runtime", UNIT)
        self.expect("wrong", "service", "its service is masked")
        run("systemctl", "unmask", "--runtime", UNIT)
        self.configure("[Service]\nRestart=no\n")
        os.kill(Service.pid(), signal.SIGKILL)
        wait_until(lambda: Service.property("ActiveState") == "failed", "a failed service")
        self.expect("wrong", "service", "systemd: failed (failed), signal")

    def test_a_daemon_that_is_paused_or_started_by_hand(self):
        os.kill(Service.pid(), signal.SIGSTOP)
        try:
            self.expect("wrong", "service", "is stopped by a signal")
        finally:
            os.kill(Service.pid(), signal.SIGCONT)
        self.addCleanup(Service.control, "restart")
        Service.control("stop")
        daemon = subprocess.Popen(["TavrikDaemon"], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        try:
            wait_until(Service.is_serving, "the daemon answers")
            self.expect("warn", "service", "not started by the service, which is inactive")
        finally:
            daemon.send_signal(signal.SIGINT)
            daemon.wait()

    def test_a_stop_that_waits_for_a_hung_master(self):
        self.simulator.command("stall 0 on")
        self.addCleanup(Service.control, "restart")
        self.addCleanup(self.simulator.command, "stall 0 off")
        wait_until(lambda: call("SetForce", hva(0), 0, 40) == 12, "a refused write")
        run("systemctl", "stop", "--no-block", UNIT)
        wait_until(lambda: Service.property("ActiveState") == "deactivating", "a stop")
        self.expect("wrong", "service", "is being stopped")
