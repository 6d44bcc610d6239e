"""tavrikctl doctor: every diagnosis, provoked in a simulated cell."""

import contextlib
import json
import os
import pathlib
import pty
import shutil
import signal
import socket
import subprocess
import sys
import tarfile
import tempfile
import threading
import unittest
import xmlrpc.server

from .harness import ctl, own_network
from .harness.cell import PATIENCE, PORTS, SLOWNESS, Cell, wait_until
from .harness.cell_test_case import CellTestCase, main

HVA = "HVA SN:100001"
TTY = "/dev/ttyACM0"
SCREEN = 24  # lines
WIDTH = 80  # columns
NOBODY = "65534"
AS_NOBODY = ("setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups")

# Exit statuses
DONE, NO_DAEMON, NO_ANSWER, BAD_ANSWER, NO_GRIPPER, FAILED, NO_PROCESS_DATA = 0, 4, 5, 6, 7, 9, 21


def world_of(cell):
    """The environment of pellix-sim's command, once it runs."""
    def read():
        with contextlib.suppress(AssertionError, FileNotFoundError):  # it may not run yet
            environ = pathlib.Path(f"/proc/{cell.daemon_pid()}/environ").read_text()
            variables = dict(entry.split("=", 1) for entry in environ.split("\0") if entry)
            return {name: variables[name] for name in ("LD_PRELOAD", "UMOCKDEV_DIR")
                    if "UMOCKDEV_DIR" in variables}
        return None
    return wait_until(read)


class DoctorTestCase(CellTestCase):
    """A cell, and the doctor with the devices that pellix-sim simulates."""

    options = ("--gripper", "HVA")

    @classmethod
    def world(cls):
        return world_of(cls.cell)

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

    def output_as_nobody(self, *before, world=None):
        """The doctor's output for an ordinary user; the command `before` starts it."""
        self.folder().chmod(0o755)
        program = shutil.copy(os.environ["TAVRIK_CTL"], self.folder())
        environment = {**ctl.CLEAN, **(self.world() if world is None else world)}
        return subprocess.run([*before, *AS_NOBODY, program, "doctor", "--timeout", "1"],
                              env=environment, capture_output=True, text=True).stdout

    def fake_tool(self, name, text, command="cat"):
        """An environment with a tool `name` that prints `text`, filtered by `command`."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = pathlib.Path(folder.name, name)
        path.write_text(f"#!/bin/sh\n{command} <<'END'\n{text}END\n")
        path.chmod(0o755)
        return {"PATH": f"{folder.name}:{os.environ['PATH']}"}

    def fake_systemctl(self, **properties):
        """An environment in which systemd reports these properties of the service."""
        properties = {"LoadState": "loaded", "Result": "success", "MainPID": "0", **properties}
        return self.fake_tool("systemctl", "".join(f"{name}={value}\n"
                                                   for name, value in properties.items()))

    def fake_journal(self):
        """An environment whose journal has the daemon's log so far, newest line first."""
        grep = ('for word; do case $word in --grep=*) pattern=${word#--grep=} ;; esac; done\n'
                'grep -P -e "$pattern"')
        return self.fake_tool("journalctl", "".join(
            line + "\n" for line in reversed(self.cell.log.since(0))), grep)

    @contextlib.contextmanager
    def reserved_ports(self, text):
        old = own_network.RESERVED_PORTS.read_text()
        own_network.RESERVED_PORTS.write_text(text + "\n")
        try:
            yield
        finally:
            own_network.RESERVED_PORTS.write_text(old)

    @contextlib.contextmanager
    def holder_of_tty(self, *command):
        """A program that has the tty open; its process id."""
        with open(self.pty_of_tty(), "rb", buffering=0) as tty:
            process = subprocess.Popen([*command, "sleep", "infinity"], stdin=tty)
        with process:
            try:
                wait_until(lambda: pathlib.Path(f"/proc/{process.pid}/comm").read_text()
                           == "sleep\n")
                yield process.pid
            finally:
                process.kill()

    def expect_a_screen(self, text):
        lines = text.splitlines()
        self.assertLessEqual(len(lines), SCREEN, text)
        self.assertLessEqual(max(map(len, lines)), WIDTH, text)

    def findings(self, status, *arguments, **options):
        """Runs the doctor and expects exit status `status`."""
        result = self.run_doctor("--json", *arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (status, ""), result.stdout)
        report = json.loads(result.stdout)
        self.assertEqual(report["gripperAnswers"], status == DONE)
        return report["findings"]

    def expect(self, status, mark, what, text, *arguments, **options):
        """Runs the doctor and expects a finding that contains `text`."""
        findings = self.findings(status, *arguments, **options)
        self.assertTrue(any(finding["mark"] == mark and finding["what"] == what
                            and text in finding["finding"] for finding in findings),
                        json.dumps(findings, indent=1))


def leave_nothing(connection):
    """Makes close() reset the connection, so that it does not stay on the port."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")


class ForeignServer(xmlrpc.server.SimpleXMLRPCServer):
    def get_request(self):
        connection, address = super().get_request()
        leave_nothing(connection)
        return connection, address

    def shutdown_request(self, request):
        """Skips the orderly shutdown, which would leave the connection on the port."""
        self.close_request(request)


class NoDaemonTest(DoctorTestCase):
    """A cell that runs another program instead of the daemon."""

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

    def test_nothing_runs(self):
        self.expect(NO_DAEMON, "wrong", "service", "TavrikDaemon is not running")
        for port in PORTS:
            self.expect(NO_DAEMON, "wrong", f"port {port}", "no program listens")

    def test_a_daemon_behind_a_tap(self):
        with tempfile.TemporaryDirectory() as folder:
            tap = subprocess.Popen(
                [os.environ["TAVRIK_SIMULATOR"], "tap", self.pty_of_tty(), f"{folder}/rec", "--",
                 os.environ["TAVRIK_DAEMON"]], stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                wait_until(lambda: self.run_doctor().returncode == DONE, pause=0.2)
                self.expect(DONE, "warn", "service", "in pellix-sim: its masters are simulated or")
                self.expect(DONE, "ok", TTY, f"tapped by pellix-sim (process {tap.pid}) for")
            finally:
                tap.send_signal(signal.SIGINT)
                self.assertEqual(tap.wait(PATIENCE), 0)

    def test_a_daemon_that_does_not_listen_yet(self):
        with self.program("TavrikDaemon") as pid:
            self.expect(NO_DAEMON, "ok", "service", f"TavrikDaemon (process {pid}), user root")
            for port in PORTS:
                self.expect(NO_DAEMON, "wrong", f"port {port}",
                            "no program listens; TavrikDaemon is starting or stopping")

    def test_a_service_that_was_not_started(self):
        environment = self.fake_systemctl(ActiveState="inactive", SubState="dead", User="root")
        self.expect(NO_DAEMON, "wrong", "service", "systemd: inactive (dead), success",
                    environment=environment)
        self.expect(NO_DAEMON, "ok", TTY, "master", environment=environment)

    def test_a_service_that_was_given_up(self):
        environment = self.fake_systemctl(ActiveState="failed", SubState="failed",
                                          Result="start-limit-hit", User="root")
        self.expect(NO_DAEMON, "wrong", "service", "start-limit-hit",
                    environment=environment)

    def test_a_service_that_is_masked(self):
        self.expect(NO_DAEMON, "wrong", "service", "its service is masked",
                    environment=self.fake_systemctl(LoadState="masked", ActiveState="inactive"))

    def test_no_systemd(self):
        with tempfile.TemporaryDirectory() as folder:
            self.expect(NO_DAEMON, "wrong", "service", "systemd does not answer",
                        environment={"PATH": folder})

    def test_a_service_that_is_not_installed(self):
        self.expect(NO_DAEMON, "wrong", "service", "systemd has no service for it",
                    environment=self.fake_systemctl(LoadState="not-found", ActiveState="inactive"))

    @unittest.skipIf(SLOWNESS > 1, "sanitizers need /proc")
    def test_no_proc(self):
        result = subprocess.run(["unshare", "-m", "sh", "-c", 'mount -t tmpfs proc /proc && exec "$@"',
                                 "sh", *ctl.arguments_of("doctor")], env=ctl.CLEAN,
                                capture_output=True, text=True)
        self.assertEqual((result.returncode, result.stderr), (NO_DAEMON, ""))
        self.assertRegex(result.stdout, r"(?m)^\? +service +only root can see whether TavrikDaemon")
        self.assertIn("cannot be reached: Connection refused", result.stdout)

    def test_an_unknown_user(self):
        environment = self.fake_systemctl(ActiveState="inactive", User="no-such-user")
        self.expect(NO_DAEMON, "?", TTY, "the user of the service does not exist yet",
                    environment=environment)

    def test_a_user_without_permission(self):
        environment = self.fake_systemctl(ActiveState="inactive", User="nobody")
        self.expect(NO_DAEMON, "wrong", TTY, "user nobody may not open it: root:",
                    environment=environment)

    def test_a_foreign_server_on_a_port(self):
        with socket.create_server(("127.0.0.1", PORTS[0])):
            self.expect(NO_DAEMON, "wrong", f"port {PORTS[0]}",
                        f"(process {os.getpid()}) holds the port: did not answer within 0.2 s",
                        "--timeout", "0.2")
            self.assertRegex(self.output_as_nobody(), rf"port {PORTS[0]} +a program of user root "
                                                      "holds the port: ")

    def test_a_foreign_server_that_answers(self):
        with self.foreign_server(GetVersion=lambda: "1.0 (other)"):
            self.expect(BAD_ANSWER, "warn", f"port {PORTS[0]}",
                        f"(process {os.getpid()}) listens, version 1.0, not ")
            self.expect(BAD_ANSWER, "wrong", "grippers", "GetGrippers: fault 1, ")
        with self.foreign_server(GetVersion=lambda: 5000 * "1"):
            longest = max(len(each["finding"]) for each in self.findings(BAD_ANSWER))
            self.assertEqual(longest, 1000)
        with self.foreign_server(GetVersion=lambda: 5):
            self.expect(NO_DAEMON, "wrong", f"port {PORTS[0]}", "GetVersion: the reply has an")

    def test_a_gripper_that_fails_while_it_is_asked(self):
        with self.foreign_server(GetVersion=lambda: "2.2.4 (other)", GetGrippers=lambda: [HVA]):
            self.expect(BAD_ANSWER, "wrong", HVA, ": fault 1, ")

    @contextlib.contextmanager
    def foreign_server(self, **methods):
        server = ForeignServer(("127.0.0.1", PORTS[0]), logRequests=False)
        for name, method in methods.items():
            server.register_function(method, name)
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        try:
            yield
        finally:
            server.shutdown()
            thread.join()
            server.server_close()

    def test_a_foreign_connection_on_a_port(self):
        with self.foreign_connection():
            self.expect(NO_DAEMON, "wrong", f"port {PORTS[1]}",
                        f"(process {os.getpid()}) holds the port for a connection of its own")

    @contextlib.contextmanager
    def foreign_connection(self):
        with socket.create_server(("127.0.0.1", 0)) as server, socket.socket() as client:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            leave_nothing(client)
            client.bind(("127.0.0.1", PORTS[1]))
            client.connect(server.getsockname())
            yield

    def test_a_connection_that_has_ended_on_a_port(self):
        code = ("import os, socket, sys\n"
                "from tests.integration.harness import own_network\n"
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
                                cwd=pathlib.Path(__file__).resolve().parents[2], env=ctl.CLEAN,
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, NO_DAEMON, result)
        self.assertIn(f"port {PORTS[0]}  held by a closed connection", result.stdout)

    def test_each_value_that_identifies_a_master(self):
        for name, word, value in (("idVendor", "vendor", "0484"),
                                  ("idProduct", "product id", "5741"),
                                  ("manufacturer", "manufacturer", "zentrova"),
                                  ("product", "product", "PELLIX 2")):
            with self.subTest(name=name), self.attribute(name, value):
                self.expect(NO_DAEMON, "?", TTY, f'not a master: {word} is "{value}", not "')
                self.expect(NO_DAEMON, "wrong", "masters", "no master is attached")

    def test_values_that_are_missing(self):
        with self.attribute("manufacturer", None), self.attribute("product", None):
            self.expect(NO_DAEMON, "?", TTY,
                        'not a master: manufacturer is missing, not "Zentrova"; '
                        'product is missing, not "PELLIX" or "MARROK-7"')

    @contextlib.contextmanager
    def attribute(self, name, value):
        """Gives an attribute of the USB device another value, or removes it."""
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
            self.expect(NO_DAEMON, "wrong", TTY, "the node is not accessible")
        finally:
            node.symlink_to(target)

    def test_device_texts_do_not_control_the_terminal(self):
        environment = self.fake_systemctl(ActiveState="inactive", User="root")
        for name in ("manufacturer", "product", "serial"):
            with self.subTest(name=name), self.attribute(name, "a\x1b[2J"):
                result = self.run_doctor(environment=environment)
                self.assertIn("a?[2J", result.stdout)
                self.assertNotIn("\x1b", result.stdout)

    def test_device_texts_do_not_fill_the_screen(self):
        long = "p" * 126  # USB has no longer ones
        with self.attribute("manufacturer", long), self.attribute("product", long):
            self.expect_a_screen(self.run_doctor().stdout)

    @contextlib.contextmanager
    def program(self, name):
        """Runs an idle process of this name; yields its process id."""
        with tempfile.TemporaryDirectory() as folder:
            program = shutil.copy("/bin/sleep", os.path.join(folder, name))
            with subprocess.Popen([program, "infinity"]) as process:
                try:
                    yield process.pid
                finally:
                    process.kill()

    def test_a_modem_manager_that_is_not_told_to_ignore_the_master(self):
        with self.program("ModemManager") as pid:
            self.expect(NO_DAEMON, "wrong", "modems",
                        f"ModemManager (process {pid}) may talk to {TTY}")

    def test_a_modem_manager_and_no_master(self):
        with self.attribute("product", "PELLIX 2"), self.program("ModemManager"):
            self.expect(NO_DAEMON, "?", "modems", " is running; attach a master")

    def test_a_modem_manager_that_ignores_the_master(self):
        uevent = next(self.usb_device().glob("**/ttyACM0/uevent"))
        text = uevent.read_text()
        uevent.write_text(text + "ID_MM_DEVICE_IGNORE=1\n")
        try:
            with self.program("ModemManager"):
                self.expect(NO_DAEMON, "ok", "modems", "ignores the masters")
        finally:
            uevent.write_text(text)

    def test_processes_that_are_hidden(self):
        hide = ("unshare", "-m", "sh", "-c",
                'mount -t proc -o hidepid=2 proc /proc && exec "$@"', "sh")
        output = self.output_as_nobody(*hide)
        for what in ("service +only root can see whether TavrikDaemon runs",
                     "modems +only root can see whether ModemManager runs",
                     f"{TTY} +master, root:root 0600; only root can see who has it open"):
            self.assertRegex(output, rf"(?m)^\? +{what}")

    @unittest.skipUnless(own_network.is_own(), "would change this host")
    def test_ports_that_are_not_reserved(self):
        with self.reserved_ports("44222-44230,50000"):
            findings = self.findings(NO_DAEMON)
        finding = next(finding for finding in findings if finding["what"] == "port range")
        self.assertEqual(finding["mark"], "warn")
        self.assertIn("ip_local_reserved_ports=44222-44230,50000,44221,44222 ", finding["remedy"])

    @unittest.skipUnless(own_network.is_own(), "would change this host")
    def test_ports_that_are_reserved(self):
        with self.reserved_ports("44221,44222"):
            self.expect(NO_DAEMON, "ok", "port range", "no outgoing connection")

    @unittest.skipUnless(own_network.is_own(), "would change this host")
    def test_all_at_once_fits_a_screen(self):
        environment = self.fake_systemctl(ActiveState="failed", SubState="failed",
                                          Result="start-limit-hit", User="nobody")
        with self.program("ModemManager"), self.foreign_connection(), self.holder_of_tty(), \
                self.foreign_server(GetVersion=lambda: 5), self.reserved_ports("40000,50000"):
            result = self.run_doctor(environment=environment)
        self.assertEqual(result.stdout.count("wrong"), 6, result.stdout)
        self.assertEqual(result.stdout.count("warn"), 1, result.stdout)
        self.expect_a_screen(result.stdout)


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
        """Replugs the master and waits until its gripper is in its initial state."""
        mark = self.cell.log.mark()
        if self.cell.show(0)["plugged"]:
            self.cell.command("unplug 0")
        self.cell.log.wait_for(f"Removing {TTY}$", since=mark)
        self.cell.command("plug 0")
        self.cell.wait_until_operating(1, since=mark)
        self.await_process_data()

    @unittest.skipUnless(own_network.is_own(), "this host may reserve no ports")
    def test_everything_is_ok(self):
        findings = self.findings(DONE)
        self.assertEqual({finding["mark"] for finding in findings}, {"ok"}, findings)
        self.assertEqual([finding["what"] for finding in findings],
                         ["service", "port 44221", "port 44222", "port range", TTY, "modems",
                          "masters", HVA])
        self.assertEqual({finding["remedy"] for finding in findings}, {""})

    def test_the_report_fits_a_screen_and_is_plain_without_a_terminal(self):
        result = self.run_doctor()
        self.assertEqual((result.returncode, result.stderr), (DONE, ""))
        self.expect_a_screen(result.stdout)
        lines = result.stdout.splitlines()
        self.assertEqual(lines[-1], "A gripper answers.")
        self.assertRegex(lines[0], r"^ +WHAT +FINDING$")
        self.assertEqual({line[:lines[0].index("WHAT")].strip() for line in lines[1:-1]}, {"ok"})
        self.assertNotIn("\x1b", result.stdout)
        self.assertIn("answers: state 1, position 10.00, model HVA by name", result.stdout)

    def test_wrong_findings_are_red_on_a_terminal(self):
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

    def test_what_an_ordinary_user_sees_of_it(self):
        output = self.output_as_nobody()
        self.assertRegex(output, r"(?m)^ok +masters +1 attached, 1 gripper listed$")
        self.assertIn("A gripper answers.", output)

    def test_what_an_ordinary_user_sees_of_a_cell_from_outside(self):
        output = self.output_as_nobody(world={})
        self.assertRegex(output, r"(?m)^\? +masters +none is attached according to udev, but ")
        self.assertIn("A gripper answers.", output)

    def test_a_silent_master(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.expect(NO_ANSWER, "wrong", HVA, "its master does not answer")

    def test_a_tty_that_has_hung_up(self):
        """Without a tty the daemon answers at once, from old data."""
        self.addCleanup(self.replug)
        self.addCleanup(self.cell.command, "plug 0")
        mark = self.cell.log.mark()
        self.cell.command("hangup 0")
        self.cell.log.wait_for("SerialConnection: Closed device", since=mark)
        self.expect(NO_ANSWER, "wrong", HVA, "are stale: no tty is open")
        self.expect(NO_ANSWER, "wrong", "masters", "the data of a gripper are stale")

    def test_a_gripper_without_process_data(self):
        self.cell.command("mode 0 2")
        wait_until(lambda: self.cell.call_apart("GetPDINExcerpt", HVA) == 0)
        self.expect(NO_PROCESS_DATA, "?", HVA, "or has no process data")
        self.cell.command("mode 0 4")
        self.await_process_data()

    def test_a_gripper_without_a_name(self):
        self.cell.command("mode 0 7")
        wait_until(lambda: self.cell.call_apart("GetGrippers") == [])
        self.expect(NO_GRIPPER, "wrong", "masters", "0 grippers listed: a device string is empty")
        self.expect(NO_GRIPPER, "wrong", "grippers", "TavrikDaemon lists none")
        self.assertRegex(self.output_as_nobody(),
                         r"(?m)^\? +masters +1 attached, 0 grippers listed; only root can see which ")
        self.replug()

    def test_a_master_that_did_not_answer_when_it_was_found(self):
        mark = self.cell.log.mark()
        self.cell.command("unplug 0")
        self.cell.log.wait_for(f"Removing {TTY}$", since=mark)
        with self.condition("mute 0 on", "mute 0 off"):
            self.cell.command("plug 0")
            self.cell.log.wait_for("Failed to add device", since=mark)
            self.expect(NO_GRIPPER, "wrong", TTY, "TavrikDaemon has not opened it")
            self.expect(NO_GRIPPER, "wrong", TTY, "log: Failed to initialize new device: 5",
                        environment=self.fake_journal())
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
        with self.holder_of_tty() as pid:
            self.expect(DONE, "wrong", TTY, f"sleep (process {pid}) has it open too")

    def test_a_program_in_a_container_has_the_tty_open(self):
        with self.holder_of_tty("unshare", "-n") as pid:
            self.expect(DONE, "wrong", TTY, f"sleep (process {pid}) has it open too")

    def test_a_daemon_that_is_stopped_by_a_signal(self):
        pid = self.cell.daemon_pid()
        os.kill(pid, signal.SIGSTOP)
        try:
            findings = self.findings(NO_DAEMON, "--timeout", "0.2")
        finally:
            os.kill(pid, signal.SIGCONT)
        self.assertEqual([finding["what"] for finding in findings if finding["mark"] == "wrong"],
                         ["service", "port 44221", "port 44222"])
        self.assertEqual(findings[0]["remedy"], f"kill -CONT {pid}")

    def test_a_daemon_in_another_simulated_cell(self):
        other = Cell("--gripper", "TLM", command=["sleep", "infinity"])
        self.addCleanup(other.end_by_force)
        findings = self.findings(DONE, environment=world_of(other))
        found = {(each["what"], each["mark"]): each["finding"] for each in findings}
        self.assertIn("in pellix-sim: its masters are simulated or tapped", found["service", "warn"])
        self.assertIn("TavrikDaemon has not opened it", found[TTY, "wrong"])
        self.assertIn((HVA, "ok"), found)
        self.assertNotIn("masters", {each["what"] for each in findings})

    def test_a_port_with_too_many_clients(self):
        with contextlib.ExitStack() as clients:
            for _ in range(16):
                clients.enter_context(socket.create_connection(("127.0.0.1", PORTS[0])))
            findings = self.findings(DONE, "--timeout", str(0.5 * SLOWNESS))
        self.assertEqual([finding["mark"] for finding in findings[1:3]], ["wrong", "ok"], findings)
        self.assertRegex(findings[1]["finding"],
                         "^TavrikDaemon .* holds the port: did not answer within")
        self.assertIn("close idle clients", findings[1]["remedy"])

    def test_systemd_state_of_a_running_daemon(self):
        groups = pathlib.Path(f"/proc/{self.cell.daemon_pid()}/cgroup").read_text()
        ours = groups.splitlines()[0].split(":", 2)[2]
        for state, group, mark, text in (
                ("active", ours, "ok", ", under systemd"),
                ("active", f"{ours}/other", "warn", "not started by the service, which is active"),
                ("inactive", "", "warn", "not started by the service, which is inactive"),
                ("deactivating", ours, "wrong", "is being stopped"),
                ("failed", ours, "wrong", "is being stopped")):
            with self.subTest(state=state, group=group):
                self.expect(DONE, mark, "service", text,
                            environment=self.fake_systemctl(ActiveState=state, ControlGroup=group))

    def test_id_and_mode_of_a_master_from_the_log(self):
        self.expect(DONE, "ok", TTY, 'log: ID "PELLIX", mode 4, operate',
                    environment=self.fake_journal())
        for mode, word in ((2, "startup"), (5, "fallback"), (7, "power fault")):
            with self.subTest(mode=mode):
                mark = self.cell.log.mark()
                self.cell.command(f"mode 0 {mode}")
                self.cell.log.wait_for(f"Setting device mode to {mode}$", since=mark)
                findings = self.findings_by_log()
                self.assertIn({"mark": "wrong", "what": TTY,
                               "finding": f'log: ID "PELLIX", mode {mode}, {word}'}, findings)
        self.replug()

    def findings_by_log(self):
        findings = json.loads(self.run_doctor("--json", environment=self.fake_journal()).stdout)
        return [{name: value for name, value in finding.items() if name != "remedy"}
                for finding in findings["findings"]]

    def test_a_log_that_cannot_be_read(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.expect(NO_ANSWER, "?", "log", "the journal does not have")

    def test_no_machine(self):
        for host in ("192.0.2.1", "no-such-machine.invalid"):  # one for documentation, and none
            with self.subTest(host=host):
                findings = self.findings(NO_DAEMON, "--host", host, "--timeout", "1")
                self.assertEqual([(finding["mark"], finding["what"]) for finding in findings],
                                 [("?", "service"), ("wrong", "port 44221"), ("wrong", "port 44222")])

    def test_this_machine_by_other_names(self):
        for host in ("localhost", "127.0.0.2", "2130706433"):
            with self.subTest(host=host):
                self.expect(DONE, "ok", "masters", "1 attached, 1 opened", "--host", host)

    def test_another_machine(self):
        # 127.0.0.1 in a form that only the client of HTTP understands.
        findings = self.findings(DONE, "--host", "[::ffff:127.0.0.1]")
        self.assertEqual([(finding["mark"], finding["what"]) for finding in findings],
                         [("?", "service"), ("ok", "port 44221"), ("ok", "port 44222"),
                          ("ok", HVA)])

    def test_the_bundle(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "bundle.tar.gz")
            with open(path, "w", encoding="utf-8") as older:
                os.fchmod(older.fileno(), 0o644)
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

    def test_the_bundle_is_announced(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "bundle.tar.gz")
            self.assertIn(f"{path} contains this report and more",
                          self.run_doctor("--bundle", path).stdout)

    def test_the_bundle_of_another_machine_has_nothing_of_this_one(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "bundle.tar.gz")
            self.findings(DONE, "--bundle", path, "--host", "[::ffff:127.0.0.1]")
            with tarfile.open(path, "r:gz") as bundle:
                names = {os.path.basename(name) for name in bundle.getnames()}
        self.assertEqual(names, {"report.txt", "report.json", "versions.txt"})

    def test_a_bundle_that_cannot_be_written(self):
        for path in ("/no/such/folder/bundle.tar.gz", "/dev/full", "/tmp"):
            with self.subTest(path=path):
                result = self.run_doctor("--bundle", path)
                self.assertEqual(result.returncode, FAILED)
                self.assertRegex(result.stderr,
                                 rf"\Atavrikctl: failed to write {path}: [^\n]+\n\Z")


class OtherUserTest(DoctorTestCase):
    """The daemon runs as a user who may not open the tty."""

    @classmethod
    def start_cell(cls, *options, **settings):
        # From a copy, because the user may not get at the daemon's folder.
        script = ('chmod 755 "$UMOCKDEV_DIR"; install -m 755 "$0" "$UMOCKDEV_DIR/TavrikDaemon"; '
                  f'exec {" ".join(AS_NOBODY)} "$UMOCKDEV_DIR/TavrikDaemon"')
        return super().start_cell(
            *options, command=["sh", "-c", script, os.environ["TAVRIK_DAEMON"]], **settings)

    def test_a_node_that_the_daemon_may_not_open(self):
        self.expect(NO_GRIPPER, "wrong", TTY, "user nobody may not open it: root:")

    def test_what_only_root_can_see(self):
        output = self.output_as_nobody()
        self.assertRegex(output, rf"(?m)^\? +{TTY} +master, root:root 0600; only root can see who has it open$")
        self.expect_a_screen(output)

    def test_the_user_is_shown(self):
        self.expect(NO_GRIPPER, "ok", "service", ", user nobody")


class AnotherModelTest(DoctorTestCase):
    options = ("--gripper", "TLM")

    def test_a_tlm_is_known_by_its_name(self):
        wait_until(lambda: self.run_doctor().returncode == DONE, pause=0.1)
        self.expect(DONE, "ok", "TLM SN:100001", "model TLM by name")


class OddMastersTest(DoctorTestCase):
    """Masters with unexpected IDs or names."""

    options = ("--gripper", "HVA,id=PELLOX", "--gripper", "HVA,serial=1\\x1b[2J",
               "--gripper", "HVA,serial=1\\x1b[2J")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(3)
        wait_until(lambda: len(cls.cell.call_apart("GetGrippers")) == 2)

    def test_odd_masters(self):
        journal = self.fake_journal()
        self.expect(DONE, "wrong", "masters", "3 attached, 3 opened, 2 grippers listed: ")
        self.expect(DONE, "wrong", TTY, 'log: ID "PELLOX", not "PELLIX" or "MARROK-7"',
                    environment=journal)
        self.expect(DONE, "ok", "/dev/ttyACM2", 'log: ID "PELLIX", mode 4, operate',
                    environment=journal)
        self.expect(DONE, "wrong", "HVA SN:1?[2J",
                    "two grippers have this name: calls reach the first")


if __name__ == "__main__":
    main()
