"""The packaged service: its restrictions, modem managers, diagnosis, crash, stop, upgrade."""

import json
import os
import pathlib
import re
import signal
import time
import unittest

from . import machine
from .machine import (UNIT, Service, UsbTestCase, call, grippers, hva, masters, run, wait_until,
                      wait_until_listed)

DROP_IN = pathlib.Path(f"/run/systemd/system/{UNIT}.d/test.conf")
RULE = pathlib.Path("/lib/udev/rules.d/70-tavrikdaemon.rules")
PACKAGES = pathlib.Path("/packages")


class ModemManagerTest(UsbTestCase):
    options = ("--gripper", "HVA", "--unplugged", "0")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        run("systemctl", "start", "ModemManager")
        run("mmcli", "--set-logging=DEBUG")

    def plug(self):
        """Returns what ModemManager logs about the tty, and what the master has received."""
        cursor = run("journalctl", "--unit=ModemManager", "--show-cursor", "--lines=0")
        cursor = cursor.split("-- cursor: ")[1].strip()
        self.simulator.command("plug 0")
        wait_until(masters, "a tty")
        return lambda: run("journalctl", "--unit=ModemManager", f"--after-cursor={cursor}")

    def unplug(self):
        self.simulator.command("unplug 0")
        wait_until_listed()

    def test_it_opens_no_master(self):
        log = self.plug()
        wait_until_listed(0)
        wait_until(lambda: re.search(r"ttyACM\d.* port filtered", log()), "ModemManager's refusal")
        requests = self.simulator.state(0)["requests"]
        self.assertFalse([line for line in requests if line.startswith("AT")])
        self.assertNotIn("probing", log())
        self.unplug()

    def test_without_the_rule_it_does(self):
        text = RULE.read_text()
        self.addCleanup(run, "udevadm", "control", "--reload")
        self.addCleanup(RULE.write_text, text)
        RULE.write_text(text.replace('ENV{ID_MM_DEVICE_IGNORE}="1"', 'ENV{OTHER}="1"'))
        run("udevadm", "control", "--reload")
        self.plug()
        wait_until(lambda: any("AT" in line for line in self.simulator.state(0)["requests"]),
                   "a probe of ModemManager")
        self.assertIn("may talk to", run("tavrikctl", "doctor", check=False))
        self.unplug()


class RestrictionsTest(UsbTestCase):
    options = ("--gripper", "HVA")

    def test_only_the_masters_tty_can_be_opened(self):
        wait_until_listed(0)
        # All of these are open to every user, but not to the service.
        other_tty = pathlib.Path("/dev/ttyS3")
        self.addCleanup(other_tty.chmod, other_tty.stat().st_mode)
        other_tty.chmod(0o666)
        folder = pathlib.Path("/srv/probe")
        folder.mkdir()
        folder.chmod(0o777)
        self.addCleanup(folder.rmdir)
        [node] = masters()
        DROP_IN.parent.mkdir(parents=True, exist_ok=True)
        DROP_IN.write_text(f"""[Service]
ExecStartPre=/bin/sh -c 'exec 3<>{node}'
ExecStartPre=-/bin/sh -c 'exec 3<>{other_tty}'
ExecStartPre=-/bin/sh -c 'echo >{folder}/file'
ExecStartPre=-/usr/bin/python3 -c 'import socket; socket.socket(socket.AF_INET6)'
ExecStartPre=-/usr/bin/python3 -c 'import socket; socket.socket(socket.AF_PACKET)'
""")
        self.addCleanup(Service.control, "restart")
        self.addCleanup(run, "systemctl", "daemon-reload")
        self.addCleanup(DROP_IN.unlink)
        run("systemctl", "daemon-reload")
        Service.control("restart")
        wait_until_listed(0)
        log = Service.log()
        self.assertRegex(log, f"{other_tty}: Operation not permitted")
        self.assertRegex(log, f"{folder}/file: Read-only file system")
        self.assertEqual(log.count("OSError: [Errno 97] Address family not supported"), 2)


class DoctorTest(UsbTestCase):
    options = ("--gripper", "HVA")

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

    def test_all_is_well(self):
        wait_until_listed(0)
        [node] = masters()
        wait_until(lambda: {finding[0] for finding in self.findings()} == {"ok"}, "all ok")
        self.expect("ok", "service", "user tavrik, under systemd")
        self.expect("ok", node, "master, serial PX1000, root:tavrik 0660, open")
        self.expect("ok", hva(0), "answers")

    def test_another_program_has_the_tty(self):
        wait_until_listed(0)
        [node] = masters()
        held = os.open(node, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        try:
            self.expect("wrong", node, "has it open too")
        finally:
            os.close(held)


class SupervisionTest(UsbTestCase):
    options = ("--gripper", "HVA")

    def test_a_crash(self):
        """The grippers come back, and nothing has moved."""
        wait_until_listed(0)
        wait_until(lambda: call("Reference", hva(0)) == 0, "a reference run")
        wait_until(lambda: call("GetState", hva(0)) == 8, "referenced")
        position = self.simulator.state(0)["position"]
        killed = Service.pid()
        begin = time.monotonic()
        os.kill(killed, signal.SIGSEGV)
        wait_until(lambda: Service.pid() not in (0, killed), "a restart")
        wait_until_listed(0)
        machine.figure(f"crash to listed again: {time.monotonic() - begin:.1f} s")
        state = self.simulator.state(0)
        self.assertEqual((state["position"], state["state"]), (position, 8))

    def test_a_stop_with_a_hung_device(self):
        """The kernel waits for writes that the device does not take, at most 30 s."""
        wait_until_listed(0)
        self.simulator.command("stall 0 on")
        while call("SetForce", hva(0), 0, 40) != 12:
            pass
        begin = time.monotonic()
        run("systemctl", "stop", UNIT)
        seconds = time.monotonic() - begin
        machine.figure(f"stop with a hung device: {seconds:.1f} s")
        self.assertLess(seconds, 60)
        self.simulator.command("stall 0 off")
        Service.control("start")
        wait_until_listed(0)


@unittest.skipUnless(list(PACKAGES.glob("*.deb")), f"no packages in {PACKAGES}")
class PackageTest(UsbTestCase):
    options = ("--gripper", "HVA")

    def test_upgrade_removal_and_purge_with_a_master(self):
        package = next(PACKAGES.glob("tavrikdaemon_*.deb"))
        wait_until_listed(0)
        before = Service.pid()
        run("dpkg", "--install", str(package))
        self.assertNotEqual(Service.pid(), before)
        wait_until_listed(0)
        run("dpkg", "--remove", "tavrikdaemon")
        self.assertEqual(grippers(), set())
        self.assertEqual(len(masters()), 1)
        run("dpkg", "--purge", "tavrikdaemon")
        self.simulator.command("unplug 0")
        self.simulator.command("plug 0")
        [node] = wait_until(masters, "a tty")
        run("udevadm", "settle")
        self.assertEqual(pathlib.Path(node).group(), "dialout")
        run("dpkg", "--install", str(package))  # gives the attached master to the service
        wait_until_listed(0)
        self.assertEqual(pathlib.Path(node).group(), "tavrik")
