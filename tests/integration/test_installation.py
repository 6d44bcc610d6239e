"""apt installs, upgrades and removes the packages.

scripts/test-package runs this: TAVRIK_PACKAGES is the folder of the packages, TAVRIK_DEBIAN that of
the bare Debian. There apt finds what they depend on without a network.
"""

import hashlib
import os
import pathlib
import stat
import subprocess
import unittest

from .harness.booted_debian import container
from .harness.cell import PATIENCE, PORTS, answers, wait_until
from .harness.cell_test_case import main
from .harness.ctl import NO_DAEMON, NO_GRIPPER
from .harness.machine_test_case import (CELL, DOCTOR, FAILURES, GRIPPER, INSTALL, INSTALL_ALL,
                                        INSTALL_CLIENT, INSTALL_FROM_TREE, INSTALL_SIMULATOR, LIST,
                                        NETWORK, PURGE, REMOVE, UNIT, MachineTestCase, Robot,
                                        completions)


class FirstInstallTest(MachineTestCase):
    """scripts/test-package runs this first, when the Debian has none of the dependencies yet."""

    # In the checkout where scripts/package has built the packages.
    install = ("mkdir -p /var/tmp/tree/build && ln -s /packages /var/tmp/tree/build/package && "
               f"cd /var/tmp/tree && {INSTALL_FROM_TREE}")

    def test_one_command_leads_to_a_running_service(self):
        self.assertEqual(self.machine.run(f"systemctl is-active {UNIT}"), "active")
        self.assertRegex(self.machine.run(LIST), "^No grippers found; run 'tavrikctl doctor'")
        self.expect_doctor(NO_GRIPPER, ("ok", "service"), ("ok", f"port {PORTS[0]}"),
                           ("ok", f"port {PORTS[1]}"), ("wrong", "masters"), ("wrong", "grippers"))

    def test_the_simulator_can_be_installed_later(self):
        self.machine.run(INSTALL_SIMULATOR)
        self.assertTrue(self.machine.run("pellix-sim --help"))


class ClientTest(MachineTestCase):
    """tavrikctl on a computer without a daemon."""

    install = INSTALL_CLIENT
    OLD = "2.2.4-1"  # the last version of tavrikdaemon that contained tavrikctl

    @staticmethod
    def wait_until_serving():
        """Nothing serves."""

    def test_it_comes_alone(self):
        self.assertEqual(self.machine.attempt("dpkg --status tavrikdaemon").returncode, 1)
        self.assertEqual(self.machine.attempt(LIST).returncode, NO_DAEMON)
        self.assertEqual(self.machine.run("dpkg --verify tavrikctl"), "")
        self.assertEqual(completions(self.machine, ("tavrikctl", "rel")), {"release"})
        self.machine.run("test -s /usr/share/man/man1/tavrikctl.1.gz")

    def test_it_replaces_the_one_in_the_package_of_the_daemon(self):
        self.machine.run("apt remove tavrikctl")
        self.machine.run(f"apt install {self.old_package()}")
        self.assertIn("tavrikdaemon", self.machine.run("dpkg --search /usr/bin/tavrikctl"))
        self.machine.run(INSTALL)
        self.assertIn("tavrikctl:", self.machine.run("dpkg --search /usr/bin/tavrikctl"))
        self.assertEqual(self.machine.run("dpkg --verify tavrikdaemon tavrikctl"), "")

    def old_package(self):
        """The path of a package of the daemon, as it was when it contained tavrikctl."""
        def change(folder):
            client = pathlib.Path(folder, "usr", "bin", "tavrikctl")
            client.parent.mkdir(exist_ok=True)
            client.write_text("#!/bin/sh\n")

        return self.package_with_version(self.OLD, change)


class WithoutSystemdTest(unittest.TestCase):
    """In a tree that is not booted, as when a disk image is made."""

    def test_the_packages_come_and_go(self):
        script = (f"cd /packages; {INSTALL_ALL}; systemctl is-enabled {UNIT}; "
                  f"getent passwd tavrik; {PURGE} tavrikctl pellix-sim; "
                  f"find /etc /lib /usr /var/lib -name '*tavrik*'")
        result = subprocess.run(
            container(os.environ["TAVRIK_DEBIAN"], os.environ["TAVRIK_PACKAGES"], "--pipe",
                      "sh", "-ec", script.replace("apt ", "apt-get -qq ")),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertRegex(result.stdout, r"(?m)^enabled$")
        self.assertRegex(result.stdout, r"(?m)^tavrik:")
        self.assertNotRegex(result.stdout, r"(?m)^/")


class LifeCycleTest(MachineTestCase):
    settings = CELL

    # What changes by itself, and where dpkg and apt keep what they did; the latter is asked instead.
    OTHERS = {"/dev", "/packages", "/proc", "/run", "/sys", "/tmp", "/var/cache", "/var/lib/apt",
              "/var/lib/dpkg", "/var/log", "/var/tmp"}
    # Debian keeps the users of a package, because files of theirs may be left somewhere.
    USERS = {"/etc/group", "/etc/group-", "/etc/gshadow", "/etc/gshadow-", "/etc/passwd",
             "/etc/passwd-", "/etc/shadow", "/etc/shadow-"}

    # The administrator's own files stay; his changes of the packages' files go.
    OWN_FILE = "/etc/systemd/system/tavrikdaemon.service.d/own.conf"
    OWN_FILES = {OWN_FILE, str(pathlib.Path(OWN_FILE).parent)}
    OWN_TEXT = "[Service]\nIPAddressDeny=192.168.99.99\n"

    @classmethod
    def prepare(cls):
        cls.bare = cls.contents()
        super().prepare()

    @classmethod
    def contents(cls):
        """What stands for each file: owner, permissions and contents, by its path."""
        root = str(cls.machine.path(""))
        contents = {}
        for folder, folders, files in os.walk(root):
            inside = folder.removeprefix(root)
            folders[:] = [name for name in folders if f"{inside}/{name}" not in cls.OTHERS]
            for name in folders + files:
                contents[f"{inside}/{name}"] = cls.description(pathlib.Path(folder, name))
        return contents

    @staticmethod
    def description(path):
        status = path.lstat()
        data = ""
        if stat.S_ISLNK(status.st_mode):
            data = os.readlink(path)
        elif stat.S_ISREG(status.st_mode):
            data = hashlib.sha256(path.read_bytes()).digest()
        return status.st_mode, status.st_uid, status.st_gid, data

    def test_upgrade_removal_and_purge(self):
        """One story: each chapter begins where the one before has ended."""
        self.upgrade()
        self.remove()
        self.come_back()
        self.purge()

    def upgrade(self):
        self.machine.write(NETWORK, self.OWN_TEXT)
        self.machine.write(self.OWN_FILE, "[Service]\nNice=5\n")
        wait_until(lambda: self.call("GetGrippers") == [GRIPPER])
        robot = Robot()
        self.addCleanup(robot.stop)
        wait_until(lambda: robot.calls)
        show_version = "dpkg-query --show --showformat='${Version}' tavrikdaemon"
        version = self.machine.run(show_version)
        self.machine.run(f"apt install {self.package_after(version)}")
        self.assertEqual(self.machine.run(show_version), f"{version}+next")
        self.assertEqual(self.machine.path(NETWORK).read_text(), self.OWN_TEXT)
        self.assertEqual(self.unit("RestartUSec"), "6s")
        wait_until(lambda: robot.calls[-1][-1] == 10.0)
        robot.stop()
        self.expect_one_restart(robot.calls)

    def expect_one_restart(self, calls):
        """One gap in the answers, of calls that fail at once, or soon."""
        def starts():
            log = self.machine.run(f"journalctl --output=cat --unit={UNIT}")
            return log.count(" TavrikDaemon started\n")
        wait_until(lambda: starts() >= 2)  # a call may be answered before the line is written
        self.assertEqual(starts(), 2)
        failed = [number for number, (_, _, answer) in enumerate(calls) if answer != 10.0]
        self.assertTrue(failed)
        gap = calls[failed[0]:failed[-1] + 1]
        for _, _, answer in gap:
            self.assertTrue(isinstance(answer, FAILURES) or answer in (0.0, 10.0), answer)
        self.assertLess(gap[-1][1] - gap[0][0], PATIENCE)

    def package_after(self, version):
        """The path of a package with a higher version and another unit."""
        def change(folder):
            unit = pathlib.Path(folder, "lib", "systemd", "system", UNIT)
            unit.write_text(unit.read_text().replace("RestartSec=5\n", "RestartSec=6\n"))

        return self.package_with_version(f"{version}+next", change)

    def remove(self):
        self.machine.run(REMOVE)
        report = self.machine.output(DOCTOR)
        self.assertIn(" TavrikDaemon is not running; systemd has no service for it\n", report)
        for port in PORTS:
            self.assertFalse(answers(port))
        self.assertEqual(self.machine.output("pidof TavrikDaemon"), "")
        self.assertTrue(self.machine.path(NETWORK).exists())
        self.assertEqual(self.machine.run("systemctl is-system-running"), "running")

    def come_back(self):
        self.machine.run(INSTALL)
        self.wait_until_serving()
        self.assertEqual(self.machine.path(NETWORK).read_text(), self.OWN_TEXT)
        self.assertEqual(self.machine.run(f"systemctl is-enabled {UNIT}"), "enabled")

    def purge(self):
        self.machine.run(f"{PURGE} tavrikctl pellix-sim")
        left = self.machine.run("ls /var/lib/dpkg/info && dpkg-query --show")
        self.assertNotRegex(left, "tavrik|pellix")
        now = self.contents()
        self.assertEqual({path for path in {*self.bare, *now}
                          if self.bare.get(path) != now.get(path)}, self.USERS | self.OWN_FILES)


if __name__ == "__main__":
    main()
