"""Upgrade, removal and purge of the package while a master is attached."""

import pathlib
import unittest

from .machine import (Service, UsbTestCase, call, grippers, hva, masters, run, wait_until,
                      wait_until_listed)

PACKAGES = pathlib.Path("/packages")


@unittest.skipUnless(PACKAGES.exists(), f"no packages in {PACKAGES}")
class PackageTest(UsbTestCase):
    options = ("--gripper", "HVA")

    @staticmethod
    def version():
        return run("dpkg-query", "--show", "--showformat=${Version}", "tavrikdaemon")

    def group(self):
        [node] = wait_until(masters, "a tty")
        return pathlib.Path(node).group()

    def test_upgrade_removal_and_purge_with_a_master(self):
        wait_until_listed(0)
        wait_until(lambda: call("Reference", hva(0)) == 0, "a reference run")
        wait_until(lambda: call("GetState", hva(0)) == 8, "referenced")
        position = self.simulator.state(0)["position"]
        self.upgrade()
        self.assertEqual(self.simulator.state(0)["position"], position)
        run("dpkg", "--remove", "tavrikdaemon")
        self.assertEqual(grippers(), set())
        self.assertEqual(len(masters()), 1)
        run("dpkg", "--purge", "tavrikdaemon")
        self.simulator.command("unplug 0")
        self.simulator.command("plug 0")
        wait_until(lambda: self.group() == "dialout", "the group of every tty")
        self.install_with_an_attached_master()

    def upgrade(self):
        """The new version serves the grippers at once."""
        old = self.version()
        pid = Service.pid()
        run("dpkg", "--install", str(PACKAGES / "newer" / "tavrikdaemon.deb"))
        self.assertEqual(self.version(), f"{old}+1")
        self.assertNotIn(Service.pid(), (0, pid))
        wait_until_listed(0)

    def install_with_an_attached_master(self):
        run("dpkg", "--install", str(next(PACKAGES.glob("tavrikdaemon_*.deb"))))
        wait_until_listed(0)
        self.assertEqual(self.group(), "tavrik")
