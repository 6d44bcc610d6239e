"""tavrikctl doctor: every diagnosis, provoked in a simulated cell."""

import contextlib
import json
import os
import pathlib
import signal
import socket
import tarfile
import tempfile
import unittest

from .. import sessions
from .harness import ctl, own_network
from .harness.cell import PORTS, SLOWNESS, Cell, wait_until
from .harness.cell_test_case import main
from .harness.ctl import DONE, FAILED, NO_ANSWER, NO_DAEMON, NO_GRIPPER, NO_PROCESS_DATA
from .harness.doctor_test_case import AS_NOBODY, HVA, TTY, DoctorTestCase, simulator_env_of
from .harness.pages import ROOT
from .harness.terminal import output_on_terminal


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
                         ["service", "port 44221", "port 44222", "browsers", "port range", TTY,
                          "modems", "masters", HVA])
        self.assertEqual({finding["remedy"] for finding in findings[:-1]}, {""})

    def test_the_report_fits_a_screen_and_is_plain_without_a_terminal(self):
        result = self.run_doctor()
        self.assertEqual((result.returncode, result.stderr), (DONE, ""))
        self.expect_fits_screen(result.stdout)
        lines = result.stdout.splitlines()
        self.assertEqual(lines[-1], "A gripper answers.")
        self.assertRegex(lines[0], r"^ +WHAT +FINDING$")
        marks = [line[:lines[0].index("WHAT")].strip() for line in lines[1:-1]]
        self.assertEqual(set(marks[:-1]), {"ok"})
        self.assertEqual(marks[-1], "", result.stdout)  # the remedy for the gripper
        self.assertNotIn("\x1b", result.stdout)
        self.assertIn("answers: state 1, position 10.00, model HVA by name", result.stdout)

    def test_wrong_findings_are_red_on_a_terminal(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.assertIn(b"\x1b[31mwrong", self.output_on_terminal())
            plain = self.output_on_terminal(NO_COLOR="1")
            self.assertIn(b"wrong", plain)
            self.assertNotIn(b"\x1b", plain)

    def output_on_terminal(self, **environment):
        return output_on_terminal("doctor", environment={**self.simulator_env(), **environment})

    def test_what_an_ordinary_user_sees_of_it(self):
        output = self.output_as_nobody()
        self.assertRegex(output, r"(?m)^ok +masters +1 attached, 1 gripper listed$")
        self.assertIn("A gripper answers.", output)

    def test_what_an_ordinary_user_sees_of_a_cell_from_outside(self):
        output = self.output_as_nobody(environment={})
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
            self.expect(DONE, "?", HVA, "no force: a TLM, or a model unknown to TavrikDaemon")

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
        findings = self.findings(DONE, environment=simulator_env_of(other))
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
                          ("ok", "browsers"), ("ok", HVA)])

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
        self.expect_fits_screen(output)

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
                    "two grippers have this name: calls reach the one that was found first")


class CommissioningPageTest(DoctorTestCase):
    """docs/commissioning.md: its session, in a cell whose master is plugged in on the way.

    The page shows the installed service, with which tests/usb runs the session. Here, the users are
    others, and there is no journal.
    """

    options = ("--gripper", "HVA", "--unplugged", "0")
    INSTALLED = {"user tavrik, under systemd": "user root, without systemd",
                 "root:tavrik 0660": "root:root 0600",
                 'ok  /dev/ttyACM0   log: ID "PELLIX", mode 4, operate\n': ""}

    def test_the_session_is_true(self):
        text = (ROOT / "docs" / "commissioning.md").read_text()
        for installed, here in self.INSTALLED.items():
            text = text.replace(installed, here)
        steps = list(sessions.session(text))
        self.assertGreater(len(steps), 15)
        with tempfile.TemporaryDirectory() as folder:
            for command, expected in steps:
                with self.subTest(command=command):
                    if expected is None:
                        self.simulate(command)
                        continue
                    output = ctl.shell(command, self.simulator_env(), cwd=folder)
                    if not sessions.is_shown(output, expected):
                        self.assertEqual(output, expected)

    def simulate(self, command):
        self.cell.command(command)
        if command == "plug 0":
            self.cell.wait_until_operating(1)


if __name__ == "__main__":
    main()
