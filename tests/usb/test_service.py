"""The packaged service: its restrictions, modem managers, crash, stop."""

import os
import pathlib
import re
import signal
import time

from . import machine
from .machine import (UNIT, Service, UsbTestCase, call, hva, masters, run, wait_until,
                      wait_until_listed)

DROP_IN = pathlib.Path(f"/run/systemd/system/{UNIT}.d/test.conf")
RULE = pathlib.Path("/lib/udev/rules.d/70-tavrikdaemon.rules")


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

    def is_probed(self):
        """Whether the master has received the end of "AT" and a carriage return, perhaps between
        requests of the daemon. It records only lines, so a request ends the present one."""
        call("SetForce", hva(0), 0, 40)
        return any("T\r" in line for line in self.simulator.state(0)["requests"])

    def unplug(self):
        self.simulator.command("unplug 0")
        wait_until_listed()

    def test_it_opens_no_master(self):
        log = self.plug()
        wait_until_listed(0)
        wait_until(lambda: re.search(r"ttyACM\d.* port filtered: device is blocklisted", log()),
                   "ModemManager's refusal, due to the rule")
        self.assertFalse(self.is_probed())
        self.assertNotIn("probing", log())
        self.unplug()

    def test_with_another_rule_it_does(self):
        """Debian's ModemManager probes few ttys on its own, so the rule asks for it."""
        text = RULE.read_text()
        self.addCleanup(run, "udevadm", "control", "--reload")
        self.addCleanup(RULE.write_text, text)
        RULE.write_text(text.replace("ID_MM_DEVICE_IGNORE", "ID_MM_DEVICE_PROCESS"))
        run("udevadm", "control", "--reload")
        self.plug()
        wait_until(self.is_probed, "a probe of ModemManager")
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


class SupervisionTest(UsbTestCase):
    options = ("--gripper", "HVA")

    def test_a_crash(self):
        """The grippers come back, and nothing has moved."""
        wait_until_listed(0)
        wait_until(lambda: call("Reference", hva(0)) == 0, "a reference run")
        wait_until(lambda: call("GetState", hva(0)) == 8, "referenced")
        before = self.simulator.state(0)
        killed = Service.pid()
        begin = time.monotonic()
        os.kill(killed, signal.SIGSEGV)
        wait_until(lambda: Service.pid() not in (0, killed), "a restart")
        wait_until_listed(0)
        machine.figure(f"crash to listed again: {time.monotonic() - begin:.1f} s")
        state = self.simulator.state(0)
        self.assertEqual((state["position"], state["state"]), (before["position"], 8))
        since = state["requests"][before["requestCount"] - state["requestCount"]:]
        self.assertTrue(since)
        self.assertFalse([line for line in since if line.startswith("PDOUT=")])

    def test_a_stop_with_a_hung_device(self):
        """The kernel waits for writes that the device does not take, at most 30 s."""
        wait_until_listed(0)
        self.simulator.command("stall 0 on")
        wait_until(lambda: call("SetForce", hva(0), 0, 40) == 12, "a refused write")
        begin = time.monotonic()
        run("systemctl", "stop", UNIT)
        seconds = time.monotonic() - begin
        machine.figure(f"stop with a hung device: {seconds:.1f} s")
        self.assertLess(seconds, 60)
        self.assertEqual(Service.property("Result"), "success")  # not killed by systemd
        self.simulator.command("stall 0 off")
        Service.control("start")
        wait_until_listed(0)
