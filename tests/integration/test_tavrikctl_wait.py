"""tavrikctl: how a motion ended, the part that is held, and the interrupted wait."""

import contextlib
import json
import os
import pathlib
import re
import shlex
import signal
import subprocess
import time

from .harness import ctl
from .harness.cell import wait_until
from .harness.cell_test_case import main
from .harness.ctl import (DID_NOT_MOVE, FAULTY, NOT_AT_REST, NOT_HELD, NO_ANSWER, NO_PROCESS_DATA,
                          USAGE)
from .harness.ctl_test_case import HVA, MZD, TLM, CtlTestCase
from .harness.terminal import TerminalSession

ENABLE = 2  # bit of the first byte of PDOUT


class WaitTestCase(CtlTestCase):
    def reason(self, status, *arguments):
        """The JSON of a command that fails: its result and its reason."""
        result = self.run_json(status, *arguments)
        return result["result"], result["reason"]

    def run_json(self, status, *arguments):
        run = ctl.run(*arguments, "--wait", "--json")
        self.assertEqual(run.returncode, status, run)
        return json.loads(run.stdout)

    def started(self, *arguments):
        process = ctl.Running(*arguments, "--wait")
        self.addCleanup(process.__exit__)
        return process

    def expect_end(self, process, status, text):
        self.assertEqual(process.wait_for_end(), status, process.errors.lines)
        self.assertEqual(process.output.lines, [])
        self.assertIn(text, process.errors.lines[-1])


class EndTest(WaitTestCase):
    """Each end of a motion is named."""

    options = (*CtlTestCase.options, "--speed", "500")

    def setUp(self):
        """All grippers are open; those with a reference run have made one."""
        for name in (HVA, MZD):
            self.call("Disable", name)
            self.call("Reference", name)
        for number, name in enumerate((HVA, MZD, TLM)):
            self.wait_for_state(number, name, "ready" if number < 2 else self.state(2))
            self.call("Release", name, 0)
            self.wait_for_state(number, name, "released")

    def state(self, number):
        return self.cell.show(number)["stateName"]

    def wait_for_state(self, number, name, state):
        wait_until(lambda: self.state(number) == state)
        self.wait_for_process_data(number, name)

    def set_and_later(self, setting, value, later, *place):
        self.ctl("set", setting, value, HVA, *place)
        self.addCleanup(self.ctl, "set", setting, later, HVA, *place)

    def without_reference(self):
        """Takes the reference of the HVA: its power fails."""
        mark = self.cell.log.mark()
        self.cell.command("mode 0 7")
        self.cell.log.wait_for("Setting device mode to 7", since=mark)
        self.cell.command("mode 0 3")
        self.cell.wait_until_operating(1, since=mark)
        self.wait_for_state(0, HVA, "needs reference")

    def test_the_ends_of_a_motion_are_named(self):
        with self.condition("part 0 12.5", "part 0 none"):
            self.assertEqual(self.json("grip", HVA, "--wait"), {
                "gripper": HVA, "status": 0, "state": 6, "position": 12.5, "fault": False,
                "temperatureFault": False, "temperatureWarning": False, "maintenance": False,
                "certain": True, "changed": True, "result": "gripped", "reason": None})
        self.assertEqual(self.ctl("release", HVA, "--wait"),
                         f"{HVA}: released at 28.00 (state 4)\n")
        self.assertEqual(self.ctl("grip", HVA, "--wait"),
                         f"{HVA}: reached the limit without a part at 2.00 (state 7)\n")
        self.assertEqual(self.ctl("home", HVA, "--wait"),
                         f"{HVA}: referenced at 30.00 (state 8)\n")
        self.assertEqual(self.ctl("disable", HVA, "--wait"),
                         f"{HVA}: switched off at 30.00 (state 0)\n")
        self.assertEqual(self.json("disable", HVA, "--wait")["result"], "off")

    def test_the_end_at_every_width(self):
        for columns in (20, 40, 80, 200):
            for command, end in (("grip", "reached the limit without a part at 2.00 (state 7)"),
                                 ("release", "released at 28.00 (state 4)")):
                with self.subTest(columns=columns, command=command):
                    with TerminalSession(command, HVA, "--wait", columns=columns) as process:
                        status, lines = process.wait_for_end()
                    self.assertEqual(status, 0)
                    text = f"{HVA}: {end}"
                    self.assertEqual(lines, [text[start:start + columns].rstrip()
                                             for start in range(0, len(text), columns)])

    def test_without_a_reference_run_nothing_moves(self):
        self.without_reference()
        for command in ("grip", "release"):
            with self.subTest(command=command):
                self.expect_failure(
                    DID_NOT_MOVE, "did not move, at 28.00 (state 1): no reference run yet; do: "
                    f"tavrikctl home --wait '{HVA}'", command, HVA, "--wait")
                self.assertEqual(self.reason(DID_NOT_MOVE, command, HVA),
                                 ("did-not-move", "no-reference"))
        result = ctl.run("grip", HVA, "--wait", "--port", 44222)
        remedy = result.stderr.partition("do: ")[2].strip()
        self.assertEqual(ctl.shell(remedy), f"{HVA}: referenced at 30.00 (state 8)\n")

    def test_an_override_of_zero(self):
        for command, number in (("release", 4), ("grip", 7)):
            other = "grip" if command == "release" else "release"
            self.call("Grip" if other == "grip" else "Release", HVA, 0)
            self.wait_for_state(0, HVA, "no part" if other == "grip" else "released")
            with self.subTest(command=command):
                self.set_and_later(f"override-{command}", 0, 100)
                result = ctl.run(command, HVA, "--wait")
                self.assertEqual(result.returncode, DID_NOT_MOVE, result)
                self.assertRegex(result.stderr, r": its override is 0; do: tavrikctl set override-"
                                 rf"{command} 50 '{HVA}'$")
                ctl.shell(result.stderr.partition("do: ")[2])
                self.wait_for_state(0, HVA, "released" if number == 4 else "no part")

    def test_a_set_that_does_not_exist(self):
        for command in ("grip", "release"):
            self.expect_failure(DID_NOT_MOVE, "did not move, at 28.00 (state 8): no such "
                                "parameter set, both limits read 0", command, HVA, "--wait",
                                "--set", 9)
            self.assertEqual(self.reason(DID_NOT_MOVE, command, "TLM", "--set", 31),
                             ("did-not-move", "no-such-set"))

    def test_a_second_reference_run_needs_another_request_first(self):
        self.ctl("home", HVA, "--wait")
        result = ctl.run("home", HVA, "--wait")
        self.assertEqual(result.returncode, DID_NOT_MOVE, result)
        self.assertIn("did not move, at 30.00 (state 8): the previous reference run is still "
                      "requested; do: tavrikctl disable", result.stderr)
        ctl.shell(result.stderr.partition("do: ")[2])
        self.assertIn("referenced", self.ctl("home", HVA, "--wait"))

    def test_a_reference_run_that_fails(self):
        self.set_and_later("reference-direction", "on", "off")
        with self.condition("part 0 12.5", "part 0 none"):
            self.expect_failure(DID_NOT_MOVE, "stopped on the way at 12.50 (state 1): something "
                                "may be in the way", "home", HVA, "--wait")
            self.assertEqual(self.reason(DID_NOT_MOVE, "home", HVA),
                             ("did-not-move", "needs-change"))

    def test_a_motion_that_was_done_before(self):
        self.expect_failure(DID_NOT_MOVE, "did not move, at 28.00 (state 4): it was already there",
                            "release", HVA, "--wait")
        with self.condition("part 0 12.5", "part 0 none"):
            self.ctl("grip", HVA, "--wait")
            self.expect_failure(DID_NOT_MOVE,
                                "did not move, at 12.50 (state 6): it already held a part",
                                "grip", HVA, "--wait")
        result = self.run_json(DID_NOT_MOVE, "release", MZD)
        self.assertEqual((result["result"], result["reason"], result["changed"]),
                         ("did-not-move", "same-state", False))

    def test_process_data_that_do_not_change(self):
        with self.condition("pdin 0 0", "pdin 0 100"):
            self.expect_failure(DID_NOT_MOVE, "no motion reported, last seen at 28.00 (state 4): "
                                "its process data have not changed and may be frozen",
                                "grip", HVA, "--wait")
            self.assertEqual(self.reason(DID_NOT_MOVE, "grip", HVA), ("not-reported", "same-data"))
            self.expect_failure(DID_NOT_MOVE, "did not report that it is off, last seen at 28.00 "
                                "(state 4): its process data", "disable", HVA, "--wait")

    def test_a_drive_that_stays_on(self):
        with self.condition("part 1 12.5", "part 1 none"):
            self.ctl("grip", MZD, "--wait")
            self.ctl("holdfast", "on", MZD)
            self.addCleanup(self.ctl, "holdfast", "off", MZD)
            self.expect_failure(DID_NOT_MOVE,
                                "did not switch off at 12.50 (state 6): holdfast may be on",
                                "disable", MZD, "--wait")

    def test_a_fault_on_the_way(self):
        with self.condition("fault 2 fault on", "fault 2 fault off"):
            self.wait_for_process_data(2, TLM)
            self.expect_failure(FAULTY, "stopped by a fault at 18.00 (state 15), fault",
                                "grip", TLM, "--wait")
            self.assertEqual(self.reason(FAULTY, "grip", TLM), ("fault", None))

    def test_a_short_limit_ends_without_a_reported_motion(self):
        for limit in (0.1, 0.001):
            self.expect_failure(DID_NOT_MOVE, "no motion reported, last seen at 28.00 (state 4)\n",
                                "release", HVA, "--wait", "--within", limit)
            self.assertEqual(self.reason(DID_NOT_MOVE, "release", HVA, "--within", limit),
                             ("not-reported", None))

    def test_a_part_that_is_held(self):
        with self.condition("part 0 12.5", "part 0 none"):
            start = time.monotonic()
            self.assertRegex(self.ctl("grip", HVA, "--wait", "--hold-for", 1.2),
                             r": gripped a part at 12.50 \(state 6\), held for 1\.2 s\n$")
            self.assertGreaterEqual(time.monotonic() - start, 1.2)
            self.ctl("release", HVA, "--wait")
            answer = self.json("grip", HVA, "--wait", "--hold-for", 0.2)
        self.assertEqual(answer["result"], "gripped")
        self.assertGreaterEqual(answer["held"], 0.2)

    def test_hold_for_fails_without_a_part(self):
        self.expect_failure(NOT_HELD, "reached the limit without a part at 2.00 (state 7)",
                            "grip", HVA, "--wait", "--hold-for", 60)
        self.expect_failure(USAGE, "--hold-for", "release", HVA, "--wait", "--hold-for", 1)

    def holding(self, *options):
        """A grip that has gripped a part and watches it."""
        self.addCleanup(self.cell.command, "part 0 none")
        self.cell.command("part 0 12.5")
        process = self.started("grip", HVA, "--hold-for", "600", *options)
        mark = self.cell.log.mark()
        self.wait_for_state(0, HVA, "holding")
        # The first question whether the master answers: a second after the grip was reported.
        self.cell.log.wait_for(r"New command PARAM\[64\]\[1\]", since=mark)
        return process

    def test_a_part_that_is_lost(self):
        process = self.holding()
        self.cell.command("part 0 none")
        self.expect_end(process, NOT_HELD, "lost the part after ")

    def test_a_fault_while_a_part_is_held(self):
        process = self.holding()
        with self.condition("fault 0 temp-fault on", "fault 0 temp-fault off"):
            self.expect_end(process, FAULTY, "stopped by a fault at 12.50 (state 15), temperature")

    def test_a_silent_master_does_not_hold_a_part(self):
        process = self.holding()
        with self.condition("silent 0 on", "silent 0 off"):
            self.expect_end(process, NO_ANSWER, "its master stopped answering")
        wait_until(lambda: self.call("Disable", HVA) == 0)

    def test_process_data_that_are_lost_do_not_show_a_part(self):
        process = self.holding()
        mark = self.cell.log.mark()
        self.cell.command("mode 0 2")
        self.cell.log.wait_for("STARTUP$", since=mark)
        self.expect_end(process, NO_PROCESS_DATA, "process data were lost while the part was held")
        self.cell.command("mode 0 4")
        self.cell.wait_until_operating(1, since=mark)

    def test_an_interrupted_hold_leaves_the_drive_on(self):
        process = self.holding("--stop-on-interrupt")
        process.process.send_signal(signal.SIGINT)
        self.expect_end(process, -signal.SIGINT, "interrupted while it holds the part, at 12.50")
        self.assertEqual(self.state(0), "holding")


class InterruptionTest(WaitTestCase):
    """A gripper whose slow release is interrupted."""

    options = ("--gripper", "TLM,serial=7'")
    NAME = "TLM SN:7'"

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.command("param 0 64 2 2")  # override of releasing: 1.6 mm/s

    def setUp(self):
        """It is closed."""
        self.call("Grip", self.NAME, 0)
        wait_until(lambda: self.cell.show(0)["stateName"] == "no part")
        self.wait_for_process_data(0, self.NAME)

    def moving(self, *options):
        """A release that has polled the state of the gripper that moves."""
        process = self.started("release", *options)
        wait_until(lambda: self.call("GetState", self.NAME) == 3)
        waits = self.waits(process)
        wait_until(lambda: self.waits(process) > waits + 20)
        return process

    @classmethod
    def waits(cls, process):
        """How often the process has waited for something: several times for each poll."""
        return int(cls.status(process, "voluntary_ctxt_switches"))

    @staticmethod
    def status(process, key):
        text = pathlib.Path(f"/proc/{process.process.pid}/status").read_text()
        return re.search(rf"^{key}:\t(.*)$", text, re.MULTILINE)[1]

    def position(self):
        return self.cell.show(0)["position"]

    def enabled(self):
        return bool(self.cell.show(0)["pdout"][0] & ENABLE)

    def test_ctrl_c_says_how_to_stop_the_gripper(self):
        process = self.moving()
        process.process.send_signal(signal.SIGINT)
        self.expect_end(process, -signal.SIGINT,
                        "TLM SN:7': interrupted, it may still be moving, at ")
        self.assertIn("(state 3); to stop it: tavrikctl disable 'TLM SN:7'\\'''",
                      process.errors.lines[0])
        before = self.position()
        wait_until(lambda: self.position() > before)
        ctl.shell(process.errors.lines[0].partition("to stop it: ")[2])
        self.assertFalse(self.enabled())

    def test_the_command_that_stops_it_names_the_daemon(self):
        process = self.moving("--port", 44222, "--host", "localhost")
        process.process.send_signal(signal.SIGINT)
        self.expect_end(process, -signal.SIGINT, " --host localhost --port 44222")
        ctl.shell(process.errors.lines[0].partition("to stop it: ")[2])
        self.assertFalse(self.enabled())

    def test_stop_on_interrupt_switches_the_drive_off(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number):
                self.setUp()
                process = self.moving("--stop-on-interrupt")
                process.process.send_signal(number)
                self.expect_end(process, -number, "TLM SN:7': interrupted, switched off at ")
                self.assertFalse(self.enabled())

    def test_json_tells_whether_the_drive_is_off(self):
        process = self.moving("--stop-on-interrupt", "--json")
        process.process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait_for_end(), -signal.SIGINT)
        result = json.loads("\n".join(process.output.lines))
        self.assertEqual((result["result"], result["switchedOff"], result["state"]),
                         ("interrupted", True, 0))
        self.setUp()
        process = self.moving("--stop-on-interrupt", "--json")
        with self.condition("error 0 44 PDOUT", "error 0 off"):
            process.process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait_for_end(), -signal.SIGINT)
        self.assertIs(json.loads("\n".join(process.output.lines))["switchedOff"], False)

    def test_a_gripper_that_cannot_be_stopped(self):
        process = self.moving("--stop-on-interrupt")
        with self.condition("error 0 44 PDOUT", "error 0 off"):
            process.process.send_signal(signal.SIGINT)
            self.expect_end(process, -signal.SIGINT, "interrupted, failed to stop it: TLM SN:7': "
                            "status 44: error code of the gripper's master, see its manual; it may "
                            "still be moving; to stop it: tavrikctl disable 'TLM SN:7'\\'''")
        self.assertTrue(self.enabled())
        ctl.shell(process.errors.lines[-1].rpartition("to stop it: ")[2])
        self.assertFalse(self.enabled())

    @contextlib.contextmanager
    def stopped_daemon(self):
        os.kill(self.cell.daemon_pid(), signal.SIGSTOP)
        try:
            yield
        finally:
            os.kill(self.cell.daemon_pid(), signal.SIGCONT)

    def test_ctrl_c_ends_a_call_that_hangs(self):
        process = self.moving("--timeout", 600)
        with self.stopped_daemon():
            process.process.send_signal(signal.SIGINT)
            self.expect_end(process, -signal.SIGINT, "interrupted, it may still be moving, at ")

    def test_a_second_ctrl_c_ends_the_attempt_to_stop_it(self):
        process = self.moving("--timeout", 600, "--stop-on-interrupt")
        with self.stopped_daemon():
            process.process.send_signal(signal.SIGINT)
            wait_until(lambda: not self.is_pending(process, signal.SIGINT))
            process.process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait_for_end(), -signal.SIGINT)
        self.assertEqual(process.errors.lines, [])

    def is_pending(self, process, number):
        """Whether the process has not yet taken a signal."""
        return int(self.status(process, "ShdPnd"), 16) >> (number - 1) & 1

    def test_an_ignored_signal_stays_ignored(self):
        process = subprocess.Popen(
            ["sh", "-c", f"trap '' INT; exec {shlex.join(ctl.arguments_of('release', '--wait'))}"
             " --within 1"], stderr=subprocess.PIPE, text=True)
        with process:
            wait_until(lambda: self.cell.show(0)["stateName"] == "releasing")
            process.send_signal(signal.SIGINT)
            self.assertIn("still moving", process.stderr.read())
        self.assertEqual(process.returncode, NOT_AT_REST)

    def test_another_client_that_switches_the_drive_off(self):
        process = self.moving()
        self.call("Disable", self.NAME)
        self.expect_end(process, DID_NOT_MOVE, "(state 0): another request came between")

    def test_another_client_that_undoes_the_motion(self):
        process = self.moving()
        self.call("Grip", self.NAME, 0)
        self.expect_end(process, DID_NOT_MOVE, "stopped on the way at 2.00 (state 7): another "
                        "request came between")

    def test_a_motion_that_pauses_is_waited_for(self):
        process = self.moving()
        mark = self.cell.log.mark()
        with self.condition("pdin 0 0", "pdin 0 100"):
            # It has been at rest for half a second: is the reason its override?
            self.cell.log.wait_for(r"New command PARAM\[64\]\[2\]", since=mark)
        with self.condition("param 0 64 2 64", "param 0 64 2 2"):
            process.output.wait_for("TLM SN:7': released at 18.00 ")

    def test_json_of_a_motion_that_goes_on(self):
        result = self.run_json(NOT_AT_REST, "release", "--within", 0.3)
        self.assertEqual((result["result"], result["state"]), ("moving", 3))


class SlowMotionTest(WaitTestCase):
    """A gripper so slow that its position does not change visibly within the time limit."""

    options = ("--gripper", "TLM", "--speed", "0.01")

    def test_a_moving_state_is_reported_as_still_moving(self):
        self.expect_failure(NOT_AT_REST, "TLM SN:100001: still moving, at 10.00 (state 5)\n",
                            "grip", "--wait", "--within", 0.3)

    def test_an_override_of_zero_does_not_move(self):
        with self.condition("param 0 64 2 0", "param 0 64 2 64"):
            self.assertEqual(self.reason(DID_NOT_MOVE, "release", "--within", 0.3),
                             ("did-not-move", "override-zero"))

    def test_force_that_builds_up_is_not_rest(self):
        """For more than half a second, the state is that of a motion and the position is still."""
        self.ctl("disable", "--wait")
        part = self.cell.show(0)["position"] - 0.012
        with self.condition(f"part 0 {part:.3f}", "part 0 none"):
            self.assertIn(": gripped a part at ", self.ctl("grip", "--wait"))


if __name__ == "__main__":
    main()
