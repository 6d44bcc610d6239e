"""The installed packages on a bare Debian: service, rules, restrictions, client and simulator.

scripts/test-package runs this, like test_installation.py.
"""

import json
import pathlib
import re
import socket
import subprocess
import unittest

from .harness.cell import PATIENCE, PORTS, wait_until
from .harness.cell_test_case import main
from .harness.ctl import DONE, NO_DAEMON, NO_GRIPPER
from .harness.machine_test_case import (CELL, DOCTOR, GRIPPER, HANGING, LIST, LOOK, MASTER,
                                        NETWORK, REINSTALL, RESERVED_PORTS, RESET, RESTART, START,
                                        STOP, TAKEN_PORT, TEST_SETTINGS, TRY, TTY_PATH, UNIT,
                                        USB_PATH, MachineTestCase, completions, simulated_device)


ROOT = pathlib.Path(__file__).resolve().parents[2]


class UsbModulesTest(unittest.TestCase):
    """The modules of tests/usb/ are named where they are run."""

    MODULES = {path.stem.removeprefix("test_") for path in ROOT.glob("tests/usb/test_*.py")}
    NOT_FOR_AUTOPKGTEST = {
        "boot": "needs masters at boot",
        "package": "needs the package files and a newer version",
        "pages": "its sessions also show the host, which may differ",
    }

    def test_the_emulated_machines_run_all(self):
        groups = re.findall(r"(?m)^ +run_machine (?:early|cell) (\S+)",
                            (ROOT / "scripts" / "test-usb").read_text())
        self.assertEqual(set(re.split("[:,]", ":".join(groups))), self.MODULES)

    def test_autopkgtest_runs_all_that_it_can(self):
        control = (ROOT / "packaging" / "debian" / "tests" / "control").read_text()
        names = re.search(r"(?m)^Test-Command: python3 -m tests\.usb (.*)$", control)[1].split()
        self.assertEqual({*names, *self.NOT_FOR_AUTOPKGTEST}, self.MODULES)


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

    def test_the_files_are_those_of_the_packages(self):
        self.assertEqual(self.machine.run("dpkg --verify tavrikdaemon tavrikctl pellix-sim"), "")

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
                (("pellix-sim", "--replay", "/etc/hostn"), {"/etc/hostname"}),
                (("tavrikctl", "--tim"), {"--timeout"}),
                (("tavrikctl", "rel"), {"release"}),
                (("tavrikctl", "--port", "44222", "grip", "--with"), {"--within"}),
                (("tavrikctl", "set", "led-s"), {"led-speed"}),
                (("tavrikctl", "set", "led-p"), {"led-preset"}),
                (("tavrikctl", "get", "led-p"), set()),
                (("tavrikctl", "get", "che"), {"checksum"}),
                (("tavrikctl", "set", "che"), set()),
                (("tavrikctl", "set", "reference-direction", ""), {"on", "off"}),
                (("tavrikctl", "call", "GetF"), {"GetForce", "GetFault"}),
                (("tavrikctl", "call", "Holdfast", "hva", ""), {"on", "off"}),
                (("tavrikctl", "d"), {"disable", "doctor"}),
                (("tavrikctl", "doctor", "--b"), {"--bundle"}),
                (("tavrikctl", "list", "--c"), {"--cell"}),
                (("tavrikctl", "settings", "re"), {"restore"}),
                (("tavrikctl", "settings", "restore", "--s"), {"--store"}),
                (("tavrikctl", "cell", "save", "/etc/hostn"), {"/etc/hostname"}),
                (("tavrikctl", "watch", "--c"), {"--csv"}),
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


class PluggedInTest(MachineTestCase):
    """Installation where masters are plugged in; no udevd is behind its socket."""

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.machine.path("/run/udev").mkdir()
        control = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        cls.addClassCleanup(control.close)
        control.bind(str(cls.machine.path("/run/udev/control")))

    def test_masters_are_judged_anew(self):
        self.machine.write("/run/device", simulated_device(MASTER, ["ID_VENDOR_ID=0483"]))
        path = "/usr/local/sbin/udevadm"  # found before the real one
        self.machine.write(path, "#!/bin/sh\n[ $1 != trigger ] || "
                           "exec /usr/bin/udevadm $@ --dry-run --verbose\n")
        self.machine.path(path).chmod(0o755)
        self.addCleanup(self.machine.path(path).unlink)
        output = self.machine.run("umockdev-run --device=/run/device -- "
                                  "sh /var/lib/dpkg/info/tavrikdaemon.postinst configure 2.2.4-1")
        self.assertIn(f"/sys{USB_PATH}\n/sys{TTY_PATH}\n", output)

    def test_a_udevd_that_is_away_is_no_reason_to_fail(self):
        self.assertIn("\nPlug the masters in again.", self.machine.run(REINSTALL))
        self.wait_until_serving()


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
        findings = self.expect_doctor(NO_GRIPPER, ("ok", "network"))
        self.assertRegex(findings["network"],
                         r"^systemd denies .*\b0\.0\.0\.0/0\b.*, but allows 127\.0\.0\.1/32$")
        self.machine.write(NETWORK, "[Service]\nIPAddressDeny=192.168.99.99\n")
        self.restart()
        findings = self.expect_doctor(NO_GRIPPER, ("warn", "network"))
        self.assertEqual(findings["network"], "systemd denies 192.168.99.99/32")


class CellTest(MachineTestCase):
    """The service in a simulated cell."""

    settings = CELL

    def test_it_moves_a_gripper(self):
        wait_until(lambda: self.call("GetGrippers") == [GRIPPER])
        wait_until(lambda: self.call("Reference", GRIPPER) == 0)
        wait_until(lambda: self.call("GetState", GRIPPER) == 8)
        self.assertEqual(self.call("GetPos", GRIPPER), 30.0)

    def test_the_client_shows_the_gripper(self):
        wait_until(lambda: GRIPPER in self.machine.output(LIST))
        findings = self.expect_doctor(DONE, ("warn", "service"), ("ok", GRIPPER),
                                      *(("ok", f"port {port}") for port in PORTS))
        self.assertRegex(findings["service"], ", in pellix-sim: its masters are simulated or tapped$")
        self.assertNotIn("masters", findings)

    def test_the_gripper_is_completed_where_one_is_named(self):
        wait_until(lambda: GRIPPER in self.machine.output(LIST))
        serial = {"100001"}
        names = {"HVA\\ SN:100001", "HVA", "100001"}
        for words, expected in (
                ("grip 10", serial),
                ("grip SN:10", serial),
                ("release --port=44222 --wait --within 3 ", names),
                ("release hva ", set()),
                ("holdfast on ", names),
                ("get force ", names),
                ("set force ", set()),
                ("set force 60 --set ", set()),
                ("set force -s 1 60 ", names),
                ("set no-part-limit ", set()),
                ("set no-part-limit -2.5 ", names),
                ("set reference-direction on ", names),
                ("call SetForce ", names),
                ("call SetForce 100001 ", set()),
                ("call SetForce 100001 0 ", set()),
                ("call GetGrippers ", set())):
            with self.subTest(words=words):
                self.assertEqual(
                    completions(self.machine, ("tavrikctl", *words.split(" "))), expected)

    def test_the_doctor_reads_the_journal(self):
        """With the simulated devices that the daemon sees."""
        environ = "/proc/$(pidof TavrikDaemon)/environ"
        prefix = f"env $(tr '\\0' '\\n' <{environ} | grep -E '^(LD_PRELOAD|UMOCKDEV_DIR)=')"

        def findings():
            report = json.loads(self.machine.output(f"{prefix} {DOCTOR} --json"))
            return {(finding["mark"], finding["what"], finding["finding"])
                    for finding in report["findings"]}

        by_the_log = ("ok", "/dev/ttyACM0", 'log: ID "PELLIX", mode 4, operate')
        wait_until(lambda: by_the_log in findings())

    def test_the_journal_is_shown_by_gripper_and_call(self):
        """As journald has it: with dates and milliseconds, from the service."""
        wait_until(lambda: self.call("GetGrippers") == [GRIPPER])
        wait_until(lambda: self.call("Grip", GRIPPER, 1) == 0)
        self.call("Holdfast", GRIPPER, True)

        def calls(options):
            output = self.machine.output(f"tavrikctl log --json {options}")
            rows = [json.loads(line) for line in output.splitlines()]
            return [(row["method"], row["request"], row["status"], row["gripper"], row["exact"])
                    for row in rows if row["kind"] == "call"]
        for options in ("", "--since 10min", GRIPPER.partition(":")[2]):
            with self.subTest(options=options):
                wait_until(lambda options=options: (
                    ("Grip", "PDOUT=[3,1]", 0, GRIPPER, True) in calls(options) and
                    (None, "DEVINFO", 3, GRIPPER, True) in calls(options)))

    def test_the_journal_is_followed(self):
        wait_until(lambda: self.call("GetGrippers") == [GRIPPER])
        with subprocess.Popen(self.machine.command("exec tavrikctl log -f --json"), text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE) as follower:
            json.loads(follower.stdout.readline())  # of what was logged before
            wait_until(lambda: self.call("Release", GRIPPER, 2) == 0)
            for line in follower.stdout:
                row = json.loads(line)
                if row.get("method") == "Release" and row["request"] == "PDOUT=[2,2]":
                    break
            self.machine.run("kill -INT $(pidof tavrikctl)")
            rest = [json.loads(line) for line in follower.stdout]
        self.assertEqual((follower.returncode, rest[-1]["kind"]), (0, "summary"))
        self.assertEqual([each["gripper"] for each in rest[-1]["grippers"]], [GRIPPER])

    def test_a_cell_can_be_tried_by_hand(self):
        self.machine.run(STOP)
        command = subprocess.Popen(self.machine.command(TRY), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.wait_until_serving()
        self.assertEqual(self.call("GetGrippers"), [GRIPPER])
        self.machine.run("kill -INT $(pidof pellix-sim)")
        self.assertEqual(command.wait(PATIENCE), 0)
        self.machine.run(START)
        self.wait_until_serving()

    def test_it_stops_in_order(self):
        self.machine.run(STOP)
        self.assertEqual((self.unit("Result"), self.unit("ExecMainStatus")), ("success", "0"))
        log = self.machine.run(f"journalctl --output=cat --unit={UNIT}")
        for line in ("TavrikDaemon stopped$", "GripperManager stopped$",
                     "^TavrikDaemon::shutdown$"):
            self.assertRegex(log, f"(?m){line}")
        findings = self.expect_doctor(NO_DAEMON, ("wrong", "service"),
                                      *(("wrong", f"port {port}") for port in PORTS))
        self.assertEqual(findings["service"],
                         "TavrikDaemon is not running; systemd: inactive (dead), success")
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
            self.machine.run(f"{RESTART} --no-block")  # the daemon may end before the start is done
            wait_until(lambda: self.unit("ActiveState") == "failed")
            findings = self.expect_doctor(NO_DAEMON, ("wrong", "service"), ("wrong", TAKEN_PORT))
        self.assertRegex(findings["service"],
                         r"^TavrikDaemon is not running; systemd: failed \(failed\), "
                         r"(signal|core-dump)$")
        self.assertRegex(findings[TAKEN_PORT], "^a program of user root holds the port: ")
        self.assertEqual(self.unit("NRestarts"), "20")
        self.assertNotEqual(self.machine.attempt(RESTART).returncode, 0)
        self.machine.run(RESET)
        self.machine.run(RESTART)
        self.wait_until_serving()

    def test_a_daemon_beside_the_service(self):
        self.machine.run(STOP)
        with subprocess.Popen(self.machine.command("exec TavrikDaemon"), stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as daemon:
            self.wait_until_serving()
            findings = self.expect_doctor(NO_GRIPPER, ("warn", "service"))
            self.assertRegex(findings["service"],
                             ", not started by the service, which is inactive$")
            self.machine.run("kill -INT $(pidof TavrikDaemon)")
            self.assertEqual(daemon.wait(PATIENCE), 0)
        self.restart()

    def test_a_service_that_is_masked_stays_away(self):
        self.machine.run(f"{STOP} && systemctl mask tavrikdaemon")
        findings = self.expect_doctor(NO_DAEMON, ("wrong", "service"))
        self.assertEqual(findings["service"], "TavrikDaemon is not running; its service is masked")
        self.machine.run("systemctl unmask tavrikdaemon && systemctl enable --now tavrikdaemon")
        self.wait_until_serving()

    def test_an_upgrade_gets_over_one_that_hangs(self):
        self.machine.write(TEST_SETTINGS, HANGING)
        self.addCleanup(self.restart)
        self.addCleanup(self.machine.write, TEST_SETTINGS, self.settings)
        self.restart()
        hanging = self.unit("MainPID")
        self.machine.run(REINSTALL)
        self.assertNotIn(self.unit("MainPID"), ("0", hanging))
        self.wait_until_serving()
        self.machine.run(STOP)  # within the timeout that still holds


if __name__ == "__main__":
    main()
