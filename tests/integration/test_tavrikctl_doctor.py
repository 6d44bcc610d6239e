"""tavrikctl doctor: every diagnosis, provoked in a simulated cell."""

import contextlib
import json
import os
import pathlib
import pty
import shutil
import socket
import subprocess
import sys
import tarfile
import tempfile

import ctl
from cell import PORTS, wait_until
from cell_test_case import CellTestCase, main

HVA = "HVA SN:100001"
TTY = "/dev/ttyACM0"
SCREEN = 24  # lines
NOBODY = "65534"

# Exit statuses
DONE, NO_DAEMON, NO_ANSWER, NO_GRIPPER, FAILED, NO_PROCESS_DATA = 0, 4, 5, 7, 9, 21


class DoctorTestCase(CellTestCase):
    """A cell, and the doctor in its world: with the devices that pellix-sim shows its command."""

    options = ("--gripper", "HVA")

    @classmethod
    def world(cls):
        """The environment of pellix-sim's command, once that runs."""
        def read():
            with contextlib.suppress(AssertionError, FileNotFoundError):  # it may not run yet
                environ = pathlib.Path(f"/proc/{cls.cell.daemon_pid()}/environ").read_text()
                variables = dict(entry.split("=", 1) for entry in environ.split("\0") if entry)
                return {name: variables[name] for name in ("LD_PRELOAD", "UMOCKDEV_DIR")
                        if "UMOCKDEV_DIR" in variables}
            return None
        return wait_until(read)

    @classmethod
    def folder(cls):
        return pathlib.Path(cls.world()["UMOCKDEV_DIR"])

    @classmethod
    def usb_device(cls):
        return next(cls.folder().glob("sys/devices/**/usb1/1-1"))

    @classmethod
    def pty_of_tty(cls):
        return os.readlink(f"{cls.folder()}{TTY}")

    def run_doctor(self, *arguments, environment=None):
        return ctl.run("doctor", *arguments, environment={**self.world(), **(environment or {})})

    def findings(self, status, *arguments, **options):
        """Examines; `status` is the exit status that has to come."""
        result = self.run_doctor("--json", *arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (status, ""), result.stdout)
        report = json.loads(result.stdout)
        self.assertEqual(report["gripperAnswers"], status == DONE)
        return report["findings"]

    def expect(self, status, mark, what, text, *arguments, **options):
        """Examines; one finding has to be this one, with `text` in it."""
        findings = self.findings(status, *arguments, **options)
        self.assertTrue(any(finding["mark"] == mark and finding["what"] == what
                            and text in finding["finding"] for finding in findings),
                        json.dumps(findings, indent=1))

    @contextlib.contextmanager
    def condition(self, command, end):
        self.cell.command(command)
        try:
            yield
        finally:
            self.cell.command(end)


class NoDaemonTest(DoctorTestCase):
    """The world of a cell in which something else than the daemon runs."""

    @classmethod
    def start_cell(cls, *options, **settings):
        return super().start_cell(*options, command=["sleep", "infinity"], **settings)

    @classmethod
    def prepare(cls):
        cls.world()

    @classmethod
    def stop_cell(cls, cell):
        cell.process.terminate()
        cell.wait_for_end()

    def fake_systemctl(self, **properties):
        """An environment in which systemd says this of the service."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = pathlib.Path(folder.name, "systemctl")
        lines = "".join(f"{name}={value}\n" for name, value in properties.items())
        path.write_text(f"#!/bin/sh\ncat <<END\n{lines}END\n")
        path.chmod(0o755)
        return {"PATH": f"{folder.name}:{os.environ['PATH']}"}

    def test_nothing_runs(self):
        self.expect(NO_DAEMON, "wrong", "service", "no TavrikDaemon runs")
        for port in PORTS:
            self.expect(NO_DAEMON, "wrong", f"port {port}", "nobody listens")

    def test_a_service_that_was_not_started(self):
        environment = self.fake_systemctl(LoadState="loaded", ActiveState="inactive",
                                          SubState="dead", Result="success", User="root")
        self.expect(NO_DAEMON, "wrong", "service", "systemd: inactive (dead)",
                    environment=environment)
        self.expect(NO_DAEMON, "ok", TTY, "master", environment=environment)

    def test_a_service_that_was_given_up(self):
        environment = self.fake_systemctl(LoadState="loaded", ActiveState="failed",
                                          SubState="failed", Result="start-limit-hit", User="root")
        self.expect(NO_DAEMON, "wrong", "service", "result start-limit-hit",
                    environment=environment)

    def test_a_user_that_is_not_there(self):
        environment = self.fake_systemctl(LoadState="loaded", ActiveState="inactive",
                                          User="no-such-user")
        self.expect(NO_DAEMON, "?", TTY, "the user for the service is not there yet",
                    environment=environment)

    def test_a_user_without_permission(self):
        environment = self.fake_systemctl(LoadState="loaded", ActiveState="inactive",
                                          User="nobody")
        self.expect(NO_DAEMON, "wrong", TTY, "user nobody may not open it: root:",
                    environment=environment)

    def test_a_foreign_server_on_a_port(self):
        with socket.create_server(("127.0.0.1", PORTS[0])):
            self.expect(NO_DAEMON, "wrong", f"port {PORTS[0]}",
                        f"(process {os.getpid()}) has it: ", "--timeout", "0.2")

    def test_a_foreign_connection_on_a_port(self):
        with socket.create_server(("127.0.0.1", 0)) as server, socket.socket() as client:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            # Reset at its end, so that nothing of it stays on the port.
            client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
            client.bind(("127.0.0.1", PORTS[1]))
            client.connect(server.getsockname())
            self.expect(NO_DAEMON, "wrong", f"port {PORTS[1]}",
                        f"(process {os.getpid()}) has it for a connection of its own")

    def test_a_connection_that_has_ended_on_a_port(self):
        code = ("import os, socket, subprocess, sys, own_network\n"
                "own_network.raise_loopback()\n"
                "server = socket.create_server(('127.0.0.1', 0))\n"
                "client = socket.socket()\n"
                f"client.bind(('127.0.0.1', {PORTS[0]}))\n"
                "client.connect(server.getsockname())\n"
                "peer, _ = server.accept()\n"
                "client.close()\n"
                "peer.recv(1)\n"
                "peer.close()\n"
                "os.execv(sys.argv[1], sys.argv[1:])\n")
        result = subprocess.run(["unshare", "-n", sys.executable, "-c", code,
                                 *ctl.arguments_of("doctor")],
                                env={**ctl.CLEAN, "PYTHONPATH": os.path.dirname(__file__)},
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, NO_DAEMON, result)
        self.assertIn(f"port {PORTS[0]}  held by a connection that has ended", result.stdout)

    def test_each_value_that_makes_a_master(self):
        for name, word, value in (("idVendor", "vendor", "0484"),
                                  ("idProduct", "product id", "5741"),
                                  ("manufacturer", "manufacturer", "zentrova"),
                                  ("product", "product", "PELLIX 2")):
            with self.subTest(name=name), self.attribute(name, value):
                self.expect(NO_DAEMON, "?", TTY, f'no master: {word} is "{value}", not "')
                self.expect(NO_DAEMON, "wrong", "masters", "no master is attached")

    def test_values_that_are_missing(self):
        with self.attribute("manufacturer", None), self.attribute("product", None):
            self.expect(NO_DAEMON, "?", TTY,
                        'no master: manufacturer is missing, not "Zentrova"; '
                        'product is missing, not "PELLIX" or "MARROK-7"')

    @contextlib.contextmanager
    def attribute(self, name, value):
        """An attribute of the USB device with another value, or without any."""
        path = self.usb_device() / name
        text = path.read_text()
        path.unlink()
        if value is not None:
            path.write_text(value + "\n")
        try:
            yield
        finally:
            path.write_text(text)

    def test_another_make_of_master(self):
        with self.attribute("product", "MARROK-7"):
            self.expect(NO_DAEMON, "ok", "masters", "1 attached")

    def test_a_node_that_is_missing(self):
        node = pathlib.Path(f"{self.folder()}{TTY}")
        target = os.readlink(node)
        node.unlink()
        try:
            self.expect(NO_DAEMON, "wrong", TTY, "the node cannot be reached")
        finally:
            node.symlink_to(target)

    def test_texts_of_a_device_do_not_steer_the_terminal(self):
        with self.attribute("product", "\x1b[2J"):
            self.assertNotIn("\x1b", self.run_doctor().stdout)

    @contextlib.contextmanager
    def modem_manager(self):
        with tempfile.TemporaryDirectory() as folder:
            program = shutil.copy("/bin/sleep", os.path.join(folder, "ModemManager"))
            with subprocess.Popen([program, "infinity"]) as process:
                try:
                    yield process.pid
                finally:
                    process.kill()

    def test_a_modem_manager_that_is_not_kept_off(self):
        with self.modem_manager() as pid:
            self.expect(NO_DAEMON, "wrong", "modems",
                        f"ModemManager (process {pid}) may talk to the master at {TTY}")

    def test_a_modem_manager_that_is_kept_off(self):
        uevent = next(self.usb_device().glob("**/ttyACM0/uevent"))
        text = uevent.read_text()
        uevent.write_text(text + "ID_MM_DEVICE_IGNORE=1\n")
        try:
            with self.modem_manager():
                self.expect(NO_DAEMON, "ok", "modems", "keeps off the masters")
        finally:
            uevent.write_text(text)


class OneGripperTest(DoctorTestCase):
    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(1)
        cls.await_process_data()

    @classmethod
    def await_process_data(cls):
        wait_until(lambda: cls.cell.call_apart("GetPDINExcerpt", HVA))

    def tearDown(self):
        # A connection that stays idle would be closed by the daemon in the middle of a later test.
        self.cell.close_clients()

    def replug(self):
        """Plugs the master in again and waits until its gripper is as at the start."""
        mark = self.cell.log.mark()
        if self.cell.show(0)["plugged"]:
            self.cell.command("unplug 0")
        self.cell.log.wait_for(f"Removing {TTY}$", since=mark)
        self.cell.command("plug 0")
        self.cell.log.wait_for(r"Pending command PDOUT deleted \(Status: 0\)", since=mark)
        self.await_process_data()

    def test_all_is_well(self):
        findings = self.findings(DONE)
        self.assertEqual({finding["mark"] for finding in findings}, {"ok"}, findings)
        self.assertEqual([finding["what"] for finding in findings],
                         ["service", "port 44221", "port 44222", TTY, "modems", "masters", HVA])
        self.assertEqual({finding["remedy"] for finding in findings}, {""})

    def test_the_report_fits_a_screen_and_is_plain_without_a_terminal(self):
        result = self.run_doctor()
        self.assertEqual((result.returncode, result.stderr), (DONE, ""))
        lines = result.stdout.splitlines()
        self.assertLessEqual(len(lines), SCREEN)
        self.assertEqual(lines[-1], "A gripper answers.")
        self.assertRegex(lines[0], r"^ +WHAT +FINDING$")
        self.assertEqual({line[:lines[0].index("WHAT")].strip() for line in lines[1:-1]}, {"ok"})
        self.assertNotIn("\x1b", result.stdout)
        self.assertIn("answers: state 1, position 10.00, model HVA or MZD", result.stdout)

    def test_on_a_terminal_what_is_wrong_is_red(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.assertIn("\x1b[31mwrong", self.output_on_terminal())
            self.assertNotIn("\x1b", self.output_on_terminal(NO_COLOR="1"))

    def output_on_terminal(self, **environment):
        ours, theirs = pty.openpty()
        with open(ours, "rb", buffering=0) as terminal:
            process = subprocess.Popen(
                ctl.arguments_of("doctor"),
                env={**ctl.CLEAN, **self.world(), "TERM": "xterm", **environment},
                stdin=subprocess.DEVNULL, stdout=theirs)
            os.close(theirs)
            output = b""
            with contextlib.suppress(OSError):  # EIO at the end
                while data := terminal.read(4096):
                    output += data
            process.wait()
        return output.decode()

    def test_a_silent_master(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.expect(NO_ANSWER, "wrong", HVA, "its master does not answer")

    def test_a_gripper_without_process_data(self):
        self.cell.command("mode 0 2")
        wait_until(lambda: self.cell.call_apart("GetPDINExcerpt", HVA) == 0)
        self.expect(NO_PROCESS_DATA, "wrong", HVA, "has no process data")
        self.cell.command("mode 0 4")
        self.await_process_data()

    def test_a_gripper_without_a_name(self):
        self.cell.command("mode 0 7")
        wait_until(lambda: self.cell.call_apart("GetGrippers") == [])
        self.expect(NO_GRIPPER, "wrong", "masters", "0 grippers listed: a gripper has no name")
        self.expect(NO_GRIPPER, "wrong", "grippers", "TavrikDaemon lists none")
        self.replug()

    def test_a_master_that_did_not_answer_when_it_was_found(self):
        mark = self.cell.log.mark()
        self.cell.command("unplug 0")
        self.cell.log.wait_for(f"Removing {TTY}$", since=mark)
        with self.condition("mute 0 on", "mute 0 off"):
            self.cell.command("plug 0")
            self.cell.log.wait_for("Failed to add device", since=mark)
            self.expect(NO_GRIPPER, "wrong", TTY, "TavrikDaemon has not opened it")
        self.replug()

    def test_no_master(self):
        mark = self.cell.log.mark()
        self.cell.command("unplug 0")
        self.cell.log.wait_for(f"Removing {TTY}$", since=mark)
        try:
            self.expect(NO_GRIPPER, "wrong", "masters", "no master is attached")
        finally:
            mark = self.cell.log.mark()
            self.cell.command("plug 0")
            self.cell.log.wait_for(r"Pending command PDOUT deleted \(Status: 0\)", since=mark)
            self.await_process_data()

    def test_a_flag_of_the_gripper(self):
        with self.condition("fault 0 maintenance on", "fault 0 maintenance off"):
            wait_until(lambda: self.cell.call_apart("GetMaintenance", HVA))
            self.expect(DONE, "wrong", HVA, "position 10.00, maintenance")
        wait_until(lambda: not self.cell.call_apart("GetMaintenance", HVA))

    def test_a_model_that_is_not_known(self):
        with self.condition("devinfo 0 0,0,0,32,16,0,0,9,20",
                            "devinfo 0 1,3,17,32,16,20,0,31249,20"):
            self.expect(DONE, "?", HVA, "no force: a TLM, or an unknown model")

    def test_another_program_has_the_tty_open(self):
        with open(self.pty_of_tty(), "rb", buffering=0) as tty, \
                subprocess.Popen(["sleep", "infinity"], stdin=tty) as process:
            try:
                self.expect(DONE, "wrong", TTY, f"sleep (process {process.pid}) has it open too")
            finally:
                process.kill()

    def test_another_machine(self):
        # 127.0.0.1 in a form that does not look like this machine.
        findings = self.findings(DONE, "--host", "2130706433")
        self.assertEqual([(finding["mark"], finding["what"]) for finding in findings],
                         [("?", "service"), ("ok", "port 44221"), ("ok", "port 44222"),
                          ("ok", HVA)])

    def test_the_bundle(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "bundle.tar.gz")
            self.findings(DONE, "--bundle", path)
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)
            with tarfile.open(path, "r:gz") as bundle:
                texts = {name: bundle.extractfile(name).read().decode()
                         for name in bundle.getnames()}
        self.assertEqual(set(texts), {"tavrik-doctor/" + name for name in
                                      ("report.txt", "report.json", "versions.txt", "service.txt",
                                       "log.txt")})
        self.assertIn("A gripper answers.", texts["tavrik-doctor/report.txt"])
        self.assertTrue(json.loads(texts["tavrik-doctor/report.json"])["gripperAnswers"])
        self.assertRegex(texts["tavrik-doctor/versions.txt"],
                         r"(?s)^tavrikctl 2\.2\.4\nTavrikDaemon 2\.2\.4 \(.*\)\nLinux .*ID=debian")
        for text in texts.values():
            self.assertNotIn("UMOCKDEV_DIR", text)

    def test_a_person_is_told_what_the_bundle_has(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "bundle.tar.gz")
            self.assertIn(f"{path} has this, versions,", self.run_doctor("--bundle", path).stdout)

    def test_a_bundle_that_cannot_be_written(self):
        result = self.run_doctor("--bundle", "/no/such/folder/bundle.tar.gz")
        self.assertEqual(result.returncode, FAILED)
        self.assertRegex(result.stderr, r"\Atavrikctl: /no/such/folder/bundle.tar.gz cannot be "
                                        r"written: [^\n]+\n\Z")


class OtherUserTest(DoctorTestCase):
    """The daemon runs as a user who may not open the tty."""

    @classmethod
    def start_cell(cls, *options, **settings):
        # From a copy, because the user may not get at the daemon's folder.
        script = ('chmod 755 "$UMOCKDEV_DIR"; install -m 755 "$0" "$UMOCKDEV_DIR/TavrikDaemon"; '
                  f"exec setpriv --reuid={NOBODY} --regid={NOBODY} --clear-groups "
                  '"$UMOCKDEV_DIR/TavrikDaemon"')
        return super().start_cell(
            *options, command=["sh", "-c", script, os.environ["TAVRIK_DAEMON"]], **settings)

    def test_a_node_that_the_daemon_may_not_open(self):
        self.expect(NO_GRIPPER, "wrong", TTY, "user nobody may not open it: root:")

    def test_what_only_root_can_see(self):
        program = shutil.copy(os.environ["TAVRIK_CTL"], self.folder())
        result = subprocess.run(["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}",
                                 "--clear-groups", program, "doctor"],
                                env={**ctl.CLEAN, **self.world()}, capture_output=True, text=True)
        self.assertEqual(result.returncode, NO_GRIPPER, result)
        self.assertRegex(result.stdout,
                         rf"(?m)^\? +{TTY} +master; who has it open, only root can see$")

    def test_the_user_is_told(self):
        self.expect(NO_GRIPPER, "ok", "service", ", user nobody")


if __name__ == "__main__":
    main()
