"""The Debian packages: on a bare Debian the service runs, and nothing is left of it in the end.

scripts/test-package runs this: TAVRIK_PACKAGES is the folder of the packages, TAVRIK_DEBIAN that of
the bare Debian, which has their dependencies.
"""

import contextlib
import hashlib
import os
import pathlib
import re
import socket
import stat
import subprocess
import sys
import tempfile
import unittest

import own_network
from cell import PATIENCE, PORTS, Cell, answers, wait_until
from cell_test_case import problem_count
from machine import Machine

INSTALL = "apt install ./tavrikdaemon_*.deb ./pellix-sim_*.deb"
STOP = "systemctl stop tavrikdaemon"
RESTART = "systemctl restart tavrikdaemon"
RESET = "systemctl reset-failed tavrikdaemon"
TRY = "pellix-sim --gripper HVA -- TavrikDaemon"
LOOK = ("systemctl status tavrikdaemon", "journalctl -b -u tavrikdaemon",
        "cat /proc/sys/net/ipv4/ip_local_reserved_ports")
LIST = "tavrikctl list"
REMOVE = "apt remove tavrikdaemon"
PURGE = "apt purge tavrikdaemon"

# Every command of docs/install.md that is for the machine.
PAGE = (INSTALL, STOP, TRY, RESTART, RESET, *LOOK, REMOVE, PURGE)

UNIT = "tavrikdaemon.service"
NETWORK = "/etc/systemd/system/tavrikdaemon.service.d/network.conf"
TEST_SETTINGS = "/run/systemd/system/tavrikdaemon.service.d/test.conf"
RESERVED_PORTS = "/proc/sys/net/ipv4/ip_local_reserved_ports"

# The simulator's events come through sockets of the family AF_UNIX.
CELL = """[Service]
ExecStart=
ExecStart=/usr/bin/pellix-sim --gripper HVA -- /usr/sbin/TavrikDaemon
RestrictAddressFamilies=AF_UNIX
"""
GRIPPER = "HVA SN:100001"

MASTER = {"idVendor": "0483", "idProduct": "5740", "manufacturer": "Zentrova", "product": "PELLIX"}
USB_PATH = "/devices/pci0000:00/0000:00:14.0/usb1/1-1"
TTY_PATH = f"{USB_PATH}/1-1:1.0/tty/ttyACM0"


def simulated_device(attributes):
    """A USB device with a tty, as umockdev reads it."""
    lines = [f"P: {USB_PATH}", "E: SUBSYSTEM=usb", "E: DEVTYPE=usb_device",
             *(f"A: {name}={value}" for name, value in attributes.items()), "",
             f"P: {USB_PATH}/1-1:1.0", "E: SUBSYSTEM=usb", "E: DEVTYPE=usb_interface", "",
             f"P: {TTY_PATH}", "N: ttyACM0", "E: SUBSYSTEM=tty", "E: DEVNAME=/dev/ttyACM0",
             "E: MAJOR=166", "E: MINOR=0", "A: dev=166:0"]
    return "\n".join(lines) + "\n"


def completions(machine, words):
    """What bash makes of the words of a command line, of which the last is unfinished."""
    quoted = " ".join(f"'{word}'" for word in words)
    return set(machine.run(f"""bash -c '
        source /usr/share/bash-completion/bash_completion
        _completion_loader {words[0]}
        COMP_WORDS=({quoted}) COMP_CWORD={len(words) - 1}
        COMP_LINE="{" ".join(words)}" COMP_POINT=${{#COMP_LINE}}
        "_{words[0].replace("-", "_")}" {words[0]} 2>/dev/null  # it is called by no shell
        printf "%s\\n" "${{COMPREPLY[@]}}"'""").split())


class MachineTestCase(unittest.TestCase):
    """Tests on one machine with the packages installed and `settings` added to the unit."""

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
        cls.machine.run(INSTALL)
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

    def call(self, method, *arguments):
        with Cell.new_client() as client:
            return getattr(client, method)(*arguments)


class InstalledTest(MachineTestCase):
    @classmethod
    def prepare(cls):
        cls.machine.path(RESERVED_PORTS).write_text("50000")
        super().prepare()
        cls.reserved_ports = cls.machine.path(RESERVED_PORTS).read_text()

    def test_the_service_runs_now_and_after_a_boot(self):
        self.assertEqual(self.machine.run(f"systemctl is-active {UNIT}"), "active")
        self.assertEqual(self.machine.run(f"systemctl is-enabled {UNIT}"), "enabled")
        self.assertEqual(self.machine.run("systemctl is-system-running"), "running")

    def test_the_page_shows_where_to_look(self):
        for command in LOOK:
            with self.subTest(command=command):
                self.assertTrue(self.machine.run(command))

    def test_links_between_the_pages_lead_somewhere(self):
        pages = [page for package in ("tavrikdaemon", "pellix-sim")
                 for page in self.machine.path(f"/usr/share/doc/{package}").glob("*.md")]
        self.assertLessEqual({"install.md", "simulator.md"}, {page.name for page in pages})
        for page in pages:
            for target in re.findall(r"\]\(([\w./-]+)", page.read_text()):
                with self.subTest(page=page.name, target=target):
                    self.assertTrue((page.parent / target).exists())

    def test_it_tells_the_revision_that_it_was_built_from(self):
        version = self.call("GetVersion")
        self.assertRegex(version, r"^2\.2\.4 \([0-9a-f]{7} ")
        self.assertNotIn("(0000000 ", version)

    def test_it_runs_as_its_user_without_capabilities(self):
        status = self.machine.path(f"/proc/{self.unit('MainPID')}/status").read_text()
        user = self.machine.run("id --user tavrik")
        self.assertRegex(status, rf"(?m)^Uid:(\s+{user}){{4}}$")
        self.assertRegex(status, r"(?m)^CapPrm:\s+0+$")
        self.assertRegex(status, r"(?m)^CapBnd:\s+0+$")

    def test_the_unit_is_sound(self):
        self.assertEqual(self.machine.run(f"systemd-analyze verify --man=no {UNIT}"), "")

    def test_both_ports_are_reserved_beside_those_of_others(self):
        self.assertEqual(self.reserved_ports, "44221-44222,50000\n")

    def test_both_ports_are_reserved_after_a_boot(self):
        self.machine.path(RESERVED_PORTS).write_text("50000")
        self.machine.run("systemctl restart systemd-sysctl")
        self.assertEqual(self.machine.path(RESERVED_PORTS).read_text(), "44221-44222\n")

    def test_others_who_reserve_ports_are_not_overruled(self):
        path = "/etc/sysctl.d/50-other.conf"
        self.machine.write(path, "net.ipv4.ip_local_reserved_ports = 44221,44222,50000\n")
        self.addCleanup(self.machine.path(path).unlink)
        self.machine.run("systemctl restart systemd-sysctl")
        self.assertEqual(self.machine.path(RESERVED_PORTS).read_text(), "44221-44222,50000\n")

    def test_options_are_completed(self):
        for words, expected in (
                (("pellix-sim", "ta"), {"tap"}),
                (("pellix-sim", "tap", "/usr/sbin/Tav"), {"/usr/sbin/TavrikDaemon"}),
                (("pellix-sim", "--gri"), {"--gripper"}),
                (("pellix-sim", "--gripper", "MZD"), {"MZD-S", "MZD-L"}),
                (("pellix-sim", "--report-pdout", ""), {"on", "off"}),
                (("pellix-sim", "--gripper", "HVA", "--", "udeva"), {"udevadm"}),
                (("tavrikctl", "--tim"), {"--timeout"}),
                (("tavrikctl", "rel"), {"release"}),
                (("tavrikctl", "--port", "44222", "grip", "--with"), {"--within"}),
                (("tavrikctl", "set", "led-s"), {"led-speed"}),
                (("tavrikctl", "call", "GetF"), {"GetForce", "GetFault"}),
                (("tavrikctl", "holdfast", ""), {"on", "off"})):
            with self.subTest(words=words):
                self.assertEqual(completions(self.machine, words), expected)


class MasterRuleTest(MachineTestCase):
    """What udevd makes of a USB device with a tty."""

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.group = cls.machine.run("getent group tavrik").split(":")[2]

    def verdict(self, path, **changes):
        self.machine.write("/run/device", simulated_device({**MASTER, **changes}))
        return self.machine.run(f"umockdev-run --device=/run/device -- "
                                f"udevadm test --action=add /sys{path}")

    def test_the_tty_of_a_master_is_for_the_service(self):
        for product in ("PELLIX", "MARROK-7"):
            verdict = self.verdict(TTY_PATH, product=product)
            with self.subTest(product=product):
                self.assertEqual(re.findall(r"rules:\d+ GROUP (\d+)", verdict)[-1], self.group)
                self.assertEqual(re.findall(r"rules:\d+ MODE (\d+)", verdict)[-1], "0660")

    def test_modem_managers_keep_off(self):
        for path in (USB_PATH, TTY_PATH):
            with self.subTest(path=path):
                self.assertIn("\nID_MM_DEVICE_IGNORE=1\n", self.verdict(path))

    def test_other_devices_are_left_alone(self):
        for changes in ({"idVendor": "0484"}, {"idProduct": "5741"}, {"manufacturer": "zentrova"},
                        {"manufacturer": "Zentrova GmbH"}, {"product": "PELLIX-2"},
                        {"product": "STM32 Virtual ComPort"}):
            for path in (USB_PATH, TTY_PATH):
                with self.subTest(path=path, **changes):
                    verdict = self.verdict(path, **changes)
                    self.assertNotIn("ID_MM_DEVICE_IGNORE", verdict)
                    self.assertNotIn(f" GROUP {self.group}\n", verdict)


class RestrictionsTest(MachineTestCase):
    """The unit's device list and the drop-in for the network; no driver has a device for a node."""

    def test_of_all_devices_only_masters_can_be_opened(self):
        self.machine.run("mknod --mode=666 /dev/ttyACM0 c 166 0")
        self.machine.run("mknod --mode=666 /dev/ttyUSB0 c 188 0")
        self.machine.write(TEST_SETTINGS, "[Service]\n"
                           "ExecStartPre=-sh -c 'echo probe <>/dev/ttyACM0'\n"
                           "ExecStartPre=-sh -c 'echo probe <>/dev/ttyUSB0'\n")
        self.restart()
        log = self.machine.run(f"journalctl --output=cat --unit={UNIT}")
        self.assertRegex(log, "/dev/ttyACM0: No such device")
        self.assertRegex(log, "/dev/ttyUSB0: Operation not permitted")

    def test_the_network_can_be_restricted(self):
        text = self.machine.path(NETWORK).read_text()
        text, count = re.subn(r"(?m)^#(?=\S)", "", text)
        self.assertEqual(count, 3)
        self.machine.write(NETWORK, text.replace("localhost 192.168.10.5", "127.0.0.1"))
        self.restart()
        for port in PORTS:
            with self.assertRaises(TimeoutError):
                socket.create_connection(("127.0.0.1", port), 0.5, ("127.0.0.2", 0))


class CellTest(MachineTestCase):
    """The service in a simulated cell."""

    settings = CELL

    def test_it_moves_a_gripper(self):
        wait_until(lambda: self.call("GetGrippers") == [GRIPPER])
        wait_until(lambda: self.call("Reference", GRIPPER) == 0)
        wait_until(lambda: self.call("GetState", GRIPPER) == 8)
        self.assertEqual(self.call("GetPos", GRIPPER), 30.0)

    def test_the_client_shows_and_completes_the_gripper(self):
        wait_until(lambda: GRIPPER in self.machine.output(LIST))
        self.assertEqual(completions(self.machine, ("tavrikctl", "grip", "10")), {"100001"})

    def test_a_cell_can_be_tried_by_hand(self):
        self.machine.run(STOP)
        command = subprocess.Popen(self.machine.command(TRY), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.wait_until_serving()
        self.assertEqual(self.call("GetGrippers"), [GRIPPER])
        self.machine.run("kill -INT $(pidof pellix-sim)")
        self.assertEqual(command.wait(PATIENCE), 0)
        self.restart()

    def test_it_stops_in_order(self):
        self.machine.run(STOP)
        self.assertEqual((self.unit("Result"), self.unit("ExecMainStatus")), ("success", "0"))
        log = self.machine.run(f"journalctl --output=cat --unit={UNIT}")
        for line in ("TavrikDaemon stopped$", "GripperManager stopped$",
                     "^TavrikDaemon::shutdown$"):
            self.assertRegex(log, f"(?m){line}")
        self.restart()


class SupervisionTest(MachineTestCase):
    settings = "[Service]\nRestartSec=10ms\n"

    def test_it_comes_back_when_it_was_killed(self):
        killed = self.unit("MainPID")
        self.machine.run(f"systemctl kill --kill-whom=main --signal=KILL {UNIT}")
        wait_until(lambda: self.unit("MainPID") not in ("0", killed))
        self.wait_until_serving()

    def test_a_port_that_stays_taken_is_given_up(self):
        self.machine.run(STOP)
        with socket.create_server(("0.0.0.0", PORTS[0])):
            self.machine.run(RESET)
            self.machine.run(RESTART)
            wait_until(lambda: self.unit("ActiveState") == "failed")
        self.assertEqual(self.unit("NRestarts"), "20")
        self.assertNotEqual(self.machine.attempt(RESTART).returncode, 0)
        self.machine.run(RESET)
        self.machine.run(RESTART)
        self.wait_until_serving()


class LifeCycleTest(MachineTestCase):
    # What changes by itself, and where dpkg and apt keep what they did; the latter is asked instead.
    OTHERS = {"/dev", "/packages", "/proc", "/run", "/sys", "/tmp", "/var/cache", "/var/lib/apt",
              "/var/lib/dpkg", "/var/log", "/var/tmp"}
    # Debian keeps the users of a package, because files of theirs may be left somewhere.
    USERS = {"/etc/group", "/etc/group-", "/etc/gshadow", "/etc/gshadow-", "/etc/passwd",
             "/etc/passwd-", "/etc/shadow", "/etc/shadow-"}

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
        self.purge()

    def upgrade(self):
        own_text = "[Service]\nIPAddressDeny=192.168.99.99\n"
        self.machine.write(NETWORK, own_text)
        before = self.unit("MainPID")
        show_version = "dpkg-query --show --showformat='${Version}' tavrikdaemon"
        version = self.machine.run(show_version)
        self.machine.run(f"apt install {self.package_after(version)}")
        self.assertEqual(self.machine.run(show_version), f"{version}+next")
        self.assertEqual(self.machine.path(NETWORK).read_text(), own_text)
        self.assertNotEqual(self.unit("MainPID"), before)
        self.wait_until_serving()

    def package_after(self, version):
        """The path of a package with a higher version, and nothing else changed."""
        path = "/var/tmp/tavrikdaemon.deb"
        [package] = pathlib.Path(os.environ["TAVRIK_PACKAGES"]).glob("tavrikdaemon_*.deb")
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["dpkg-deb", "--raw-extract", package, folder], check=True)
            control = pathlib.Path(folder, "DEBIAN", "control")
            control.write_text(control.read_text().replace(version, f"{version}+next"))
            subprocess.run(["dpkg-deb", "--build", folder, self.machine.path(path)], check=True,
                           stdout=subprocess.DEVNULL)
        return path

    def remove(self):
        self.machine.run(REMOVE)
        for port in PORTS:
            self.assertFalse(answers(port))
        self.assertEqual(self.machine.output("pidof TavrikDaemon"), "")
        self.assertTrue(self.machine.path(NETWORK).exists())
        self.assertEqual(self.machine.run("systemctl is-system-running"), "running")

    def purge(self):
        self.machine.run(f"{PURGE} pellix-sim")
        left = self.machine.run("ls /var/lib/dpkg/info && dpkg-query --show")
        self.assertNotRegex(left, "tavrik|pellix")
        now = self.contents()
        self.assertEqual({path for path in {*self.bare, *now}
                          if self.bare.get(path) != now.get(path)}, self.USERS)


if __name__ == "__main__":
    own_network.enter()
    unittest.main(verbosity=2)
