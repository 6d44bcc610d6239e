"""A bare Debian on which the packages are installed, and a robot program that calls it."""

import contextlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import xmlrpc.client

from .booted_debian import Machine
from .cell import PORTS, Cell, answers, wait_until
from .cell_test_case import problem_count

INSTALL = "apt install ./tavrikdaemon_*.deb ./tavrikctl_*.deb"
INSTALL_FROM_TREE = ("apt install ./build/package/tavrikdaemon_*.deb "
                     "./build/package/tavrikctl_*.deb")
INSTALL_CLIENT = "apt install ./tavrikctl_*.deb"
INSTALL_SIMULATOR = "apt install ./pellix-sim_*.deb"
INSTALL_ALL = "apt install ./tavrikdaemon_*.deb ./tavrikctl_*.deb ./pellix-sim_*.deb"
INSTALL_WEB = "apt install ./tavrikdaemon-web_*.deb"
CODE = "tavrikweb --code"
STOP = "systemctl stop tavrikdaemon"
START = "systemctl start tavrikdaemon"
RESTART = "systemctl restart tavrikdaemon"
RESET = "systemctl reset-failed tavrikdaemon"
TRY = "pellix-sim --gripper HVA -- TavrikDaemon"
LOOK = ("systemctl status tavrikdaemon", "journalctl -b -u tavrikdaemon",
        "cat /proc/sys/net/ipv4/ip_local_reserved_ports")
LIST = "tavrikctl list"
DOCTOR = "tavrikctl doctor"
REMOVE = "apt remove tavrikdaemon"
PURGE = "apt purge tavrikdaemon"

# Every command of the pages that is for the machine.
PAGE = (INSTALL, INSTALL_FROM_TREE, INSTALL_SIMULATOR, INSTALL_ALL, INSTALL_WEB, CODE, LIST, DOCTOR,
        STOP, TRY, START, RESTART, RESET, *LOOK, REMOVE, PURGE)

REINSTALL = "apt reinstall ./tavrikdaemon_*.deb"

UNIT = "tavrikdaemon.service"
TAKEN_PORT = f"port {PORTS[0]}"
NETWORK = "/etc/systemd/system/tavrikdaemon.service.d/network.conf"
TEST_SETTINGS = "/run/systemd/system/tavrikdaemon.service.d/test.conf"
RESERVED_PORTS = "/proc/sys/net/ipv4/ip_local_reserved_ports"

# The simulator's events come through sockets of the family AF_UNIX, its devices are in /tmp.
CELL = """[Service]
ExecStart=
ExecStart=/usr/bin/pellix-sim --gripper HVA -- /usr/sbin/TavrikDaemon
RestrictAddressFamilies=AF_UNIX
PrivateTmp=no
ReadWritePaths=/tmp
"""
GRIPPER = "HVA SN:100001"

# A daemon that does not stop in time, as with a hung tty.
HANGING = """[Service]
ExecStart=
ExecStart=/bin/sh -c 'trap "" INT; exec /usr/sbin/TavrikDaemon'
TimeoutStopSec=1
"""

MASTER = {"idVendor": "0483", "idProduct": "5740", "manufacturer": "Zentrova", "product": "PELLIX"}
USB_PATH = "/devices/pci0000:00/0000:00:14.0/usb1/1-1"
TTY_PATH = f"{USB_PATH}/1-1:1.0/tty/ttyACM0"


def simulated_device(attributes, properties=()):
    """A USB device with a tty, as umockdev reads it; udevd has given both these properties."""
    known = [f"E: {each}" for each in properties]
    lines = [f"P: {USB_PATH}", "E: SUBSYSTEM=usb", "E: DEVTYPE=usb_device", *known,
             *(f"A: {name}={value}" for name, value in attributes.items()), "",
             f"P: {USB_PATH}/1-1:1.0", "E: SUBSYSTEM=usb", "E: DEVTYPE=usb_interface", "",
             f"P: {TTY_PATH}", "N: ttyACM0", "E: SUBSYSTEM=tty", "E: DEVNAME=/dev/ttyACM0",
             "E: MAJOR=166", "E: MINOR=0", *known, "A: dev=166:0"]
    return "\n".join(lines) + "\n"


def completions(machine, words):
    """What bash makes of the words of a command line, of which the last is unfinished."""
    quoted = " ".join(f"'{word}'" for word in words)
    return set(filter(None, machine.run(f"""bash -c '
        source /usr/share/bash-completion/bash_completion
        _completion_loader {words[0]}
        COMP_WORDS=({quoted}) COMP_CWORD={len(words) - 1}
        COMP_LINE="{" ".join(words)}" COMP_POINT=${{#COMP_LINE}}
        "_{words[0].replace("-", "_")}" {words[0]} 2>/dev/null  # it is called by no shell
        printf "%s\\n" "${{COMPREPLY[@]}}"'""").splitlines()))


class MachineTestCase(unittest.TestCase):
    """Tests on one machine with the packages installed and `settings` added to the unit."""

    install = INSTALL_ALL
    settings = None

    @classmethod
    def setUpClass(cls):
        cls.machine = Machine(os.environ["TAVRIK_DEBIAN"], os.environ["TAVRIK_PACKAGES"])
        cls.addClassCleanup(cls.machine.end)
        with cls.journal_on_failure():
            cls.machine.wait_until_booted()
            cls.prepare()

    @classmethod
    @contextlib.contextmanager
    def journal_on_failure(cls):
        try:
            yield
        except BaseException:
            cls.print_journal()
            raise

    @classmethod
    def print_journal(cls):
        print(cls.machine.output("journalctl --boot --lines=100"), file=sys.stderr)

    def run(self, result=None):
        problems = problem_count(result)
        super().run(result)
        if problem_count(result) > problems:
            self.print_journal()
        return result

    @classmethod
    def prepare(cls):
        if cls.settings:
            cls.machine.write(TEST_SETTINGS, cls.settings)
        cls.machine.run(cls.install)
        cls.wait_until_serving()

    @staticmethod
    def wait_until_serving():
        for port in PORTS:
            wait_until(lambda port=port: answers(port))

    def restart(self):
        self.machine.run(f"systemctl daemon-reload && {RESTART}")
        self.wait_until_serving()

    def unit(self, name):
        """A property of the unit."""
        return self.machine.run(f"systemctl show --value --property={name} {UNIT}")

    @staticmethod
    def call(method, *arguments):
        with Cell.new_client() as client:
            return getattr(client, method)(*arguments)

    def package_with_version(self, version, change):
        """The path of a package of the daemon with this version, whose files `change` changes."""
        path = "/var/tmp/tavrikdaemon.deb"
        [package] = pathlib.Path(os.environ["TAVRIK_PACKAGES"]).glob("tavrikdaemon_*.deb")
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["dpkg-deb", "--raw-extract", package, folder], check=True)
            control = pathlib.Path(folder, "DEBIAN", "control")
            control.write_text(re.sub("(?m)^Version: .*", f"Version: {version}",
                                      control.read_text()))
            change(folder)
            subprocess.run(["dpkg-deb", "--build", folder, self.machine.path(path)], check=True,
                           stdout=subprocess.DEVNULL)
        return path

    def expect_doctor(self, status, *expected):
        """What the doctor finds, each with its mark, and the status that it ends with."""
        self.assertEqual(self.machine.attempt(DOCTOR).returncode, status)
        report = json.loads(self.machine.output(f"{DOCTOR} --json"))
        found = {(finding["mark"], finding["what"]) for finding in report["findings"]}
        self.assertLessEqual(set(expected), found)
        return {finding["what"]: finding["finding"] for finding in report["findings"]}


# Exceptions of calls while a daemon stops; ProtocolError is "408 Request Timeout".
FAILURES = (ConnectionError, xmlrpc.client.ProtocolError)


class Robot:
    """Calls a gripper without pause; notes begin, end and answer of each call."""

    def __init__(self):
        self.calls = []
        self.stopped = threading.Event()
        self.thread = threading.Thread(target=self._run)
        self.thread.start()

    def _run(self):
        client = Cell.new_client()
        while not self.stopped.is_set():
            begin = time.monotonic()
            try:
                answer = client.GetPos(GRIPPER)
            except FAILURES as error:
                answer = error
                client("close")()
                time.sleep(0.01)
            self.calls.append((begin, time.monotonic(), answer))
        client("close")()

    def stop(self):
        self.stopped.set()
        self.thread.join()
