"""tavrikctl doctor where TavrikDaemon does not run, or something else has its ports."""

import contextlib
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest
import xmlrpc.server

from .harness import ctl, own_network
from .harness.cell import PATIENCE, PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.ctl import BAD_ANSWER, DONE, NO_DAEMON
from .harness.doctor_test_case import HVA, TTY, NoDaemonTestCase


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


class NoDaemonTest(NoDaemonTestCase):
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
                                 "sh", *ctl.arguments_of("doctor")], env=ctl.ENVIRONMENT,
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
                                cwd=pathlib.Path(__file__).resolve().parents[2],
                                env=ctl.ENVIRONMENT, capture_output=True, text=True)
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
            self.expect_fits_screen(self.run_doctor().stdout)

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
        self.expect_fits_screen(result.stdout)


if __name__ == "__main__":
    main()
