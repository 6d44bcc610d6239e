"""python3 -m tests.usb [GROUP...]: runs groups of test modules ("faults,service") and prints the
figures that they took. Without groups, it runs those that the kernel's command line names
(tavrik.tests=GROUP:GROUP), one for each boot, and reboots or switches the machine off after each.
"""

import pathlib
import subprocess
import sys
import unittest

from . import machine

BOOTS = pathlib.Path("/var/lib/tavrik-tests/boots")  # one byte for each boot


def run(group):
    names = [f"tests.usb.test_{name}" for name in group.split(",")]
    suite = unittest.defaultTestLoader.loadTestsFromNames(names)
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(suite)
    passed = result.wasSuccessful() and suite.countTestCases() > 0
    for line in machine.figures:
        print(f"figure: {line}")
    machine.figures.clear()
    print("RESULT", "passed" if passed else "failed", group, flush=True)
    return passed


def run_group_of_boot():
    """If it fails, tests.service switches the machine off."""
    groups = machine.boot_option("tavrik.tests").split(":")
    BOOTS.parent.mkdir(exist_ok=True)
    number = BOOTS.stat().st_size if BOOTS.exists() else 0
    with BOOTS.open("a") as file:
        file.write("x")
    if not run(groups[number]):
        sys.exit(1)
    if number + 1 == len(groups):
        subprocess.run(["systemctl", "poweroff", "--force"], check=True)
        return
    if number % 2 == 0:  # every second boot; its BootTest removes the file
        machine.LATE_UDEVD.touch()
    plug_in_again()
    subprocess.run(["systemctl", "reboot"], check=True)


def plug_in_again():
    """The tests may have stopped the masters that were attached at boot."""
    machine.run("systemctl", "start", machine.boot_option("systemd.wants"))
    machine.wait_until(lambda: machine.grippers() == machine.GRIPPERS_OF_BOOT, "all grippers")


if __name__ == "__main__":
    if sys.argv[1:]:
        sys.exit(not all([run(group) for group in sys.argv[1:]]))
    run_group_of_boot()
