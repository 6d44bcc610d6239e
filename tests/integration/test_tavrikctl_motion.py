"""tavrikctl: motions, and waiting for their end."""

import json

from .harness import ctl
from .harness.cell import wait_until
from .harness.cell_test_case import main
from .harness.ctl import (FAULTY, NOT_AT_REST, NOT_POSSIBLE, NOT_SENT, NO_ANSWER, NO_GRIPPER,
                          NO_PROCESS_DATA, REFUSED, USAGE)
from .harness.ctl_test_case import HVA, MZD, TLM, CtlTestCase


class MotionTest(CtlTestCase):
    """The commands that make one call and return a status."""

    options = (*CtlTestCase.options, "--speed", "500")

    def referenced(self, name):
        self.ctl("home", name, "--wait")

    def test_wait_prints_the_position(self):
        self.referenced("HVA")
        with self.condition("part 0 12.5", "part 0 none"):
            self.assertEqual(self.ctl("grip", "HVA", "--wait"),
                             f"{HVA}: gripped a part at 12.50 (state 6)\n")
        self.assertEqual(self.ctl("release", "HVA", "--wait"),
                         f"{HVA}: released at 28.00 (state 4)\n")

    def test_wait_prints_flags_and_json(self):
        self.referenced("mzd")
        with self.condition("fault 1 temp-warn on", "fault 1 temp-warn off"):
            self.wait_for_process_data(1, MZD)
            self.assertRegex(self.ctl("release", "mzd", "--wait"),
                             r"^MZD-S SN:100002: released at 22.00 \(state 4\), "
                             r"temperature warning\n$")
            answer = self.json("grip", "mzd", "--wait")
        self.assertEqual((answer["gripper"], answer["status"], answer["state"], answer["position"],
                          answer["temperatureWarning"]), (MZD, 0, 7, 2.0, True))

    def test_a_rest_with_a_fault_is_a_failure(self):
        for flag, word, name in (("fault", "fault", "fault"),
                                 ("temp-fault", "temperature fault", "temperatureFault")):
            self.referenced("mzd")
            with self.condition(f"fault 1 {flag} on", f"fault 1 {flag} off"):
                self.wait_for_process_data(1, MZD)
                self.expect_failure(FAULTY, f", {word}", "release", "mzd", "--wait")
                result = ctl.run("release", "mzd", "--wait", "--json")
            self.wait_for_process_data(1, MZD)
            self.assertEqual(result.returncode, FAULTY, result)
            self.assertTrue(json.loads(result.stdout)[name])

    def test_without_wait_the_command_returns_at_once(self):
        for command in ("grip", "release", "disable"):
            self.assertEqual(self.ctl(command, "TLM"), f"{TLM}: {command} started\n")
        self.assertEqual(self.ctl("home", "MZD"), f"{MZD}: home started\n")
        self.assertEqual(self.ctl("store", "TLM"), f"{TLM}: done\n")
        self.assertEqual(self.json("disable", "TLM"), {"gripper": TLM, "status": 0})

    def test_the_parameter_set_is_sent(self):
        self.ctl("grip", "TLM", "--set", 3)
        self.assertEqual(self.cell.show(2)["pdout"], [3, 3])
        self.ctl("release", "TLM", "-s", 31)
        self.assertEqual(self.cell.show(2)["pdout"], [2, 31])
        self.ctl("grip", "TLM")
        self.assertEqual(self.cell.show(2)["pdout"], [3, 0])
        for number in (32, -1, "010", "0x1", "1.0"):
            self.expect_failure(USAGE, "--set", "grip", "TLM", "--set", number)

    def test_holdfast_goes_on_and_off(self):
        self.ctl("holdfast", "on", "MZD")
        self.assertEqual(self.cell.show(1)["pdout"][0] & 0x10, 0x10)
        self.ctl("holdfast", "off", "MZD")
        self.assertEqual(self.cell.show(1)["pdout"][0] & 0x10, 0)
        self.expect_failure(USAGE, "'maybe' is neither on nor off", "holdfast", "maybe", "MZD")

    def test_store_saves_the_settings(self):
        self.assertEqual(self.requests_during(2, "store", "TLM")[-1], "PARAM[2][0]=[e0]")

    def test_an_unsupported_model_is_named_as_the_reason(self):
        for model, command in (("TLM", ("home", "TLM")), ("HVA", ("holdfast", "on", "HVA"))):
            self.expect_failure(NOT_POSSIBLE,
                                f"status 3: not supported by its model ({model} by name), only by ",
                                *command)

    def test_a_master_that_does_not_answer(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.expect_failure(
                NO_ANSWER, f"{HVA}: status 5: the gripper's master did not answer within 1 s",
                "grip", "HVA")

    def test_a_master_that_accepts_no_bytes(self):
        with self.condition("stall 0 on", "stall 0 off"):
            self.expect_failure(NOT_SENT, "status 12: nothing could be sent", "grip", "HVA")
        wait_until(lambda: self.call("Disable", HVA) == 0)

    def test_a_masters_own_error_code(self):
        with self.condition("error 2 44 PDOUT", "error 2 off"):
            self.expect_failure(REFUSED, "status 44: error code of the gripper's master",
                                "release", "TLM")

    def test_a_gripper_must_be_named(self):
        self.expect_failure(NO_GRIPPER, "several grippers found, name one of: "
                            f"'{HVA}', '{MZD}', '{TLM}'", "grip")
        self.expect_failure(NO_GRIPPER, "no gripper matches 'XYZ'; available:", "grip", "XYZ")
        self.expect_failure(NO_GRIPPER, "several grippers match", "grip", " sn:")

    def test_a_short_part_of_a_name_moves_nothing(self):
        requests = [self.cell.show(number)["requestCount"] for number in range(3)]
        for name in ("1", "001", "sn:", "h", "va "):
            for command in (("grip", name), ("home", name), ("disable", name, "--wait"),
                            ("store", name), ("holdfast", "off", name), ("call", "Grip", name, 0)):
                with self.subTest(command=command):
                    self.expect_failure(
                        NO_GRIPPER, f"'{name}' is too short to name a gripper: type its model or at "
                        f"least 4 characters; available: '{HVA}', '{MZD}', '{TLM}'", *command)
        self.assertEqual([self.cell.show(number)["requestCount"] for number in range(3)], requests)

    def test_the_model_the_serial_number_and_a_longer_part_name_a_gripper(self):
        for name in ("tlm", "100003", "0003", "SN:100003", TLM):
            with self.subTest(name=name):
                self.assertEqual(self.ctl("disable", name), f"{TLM}: disable started\n")
        for name in ("mzd", "MZD-S"):
            with self.subTest(name=name):
                self.assertEqual(self.ctl("disable", name), f"{MZD}: disable started\n")

    def test_an_empty_name_never_reaches_the_daemon(self):
        """The daemon would take it for a gripper whose name it does not know yet."""
        mark = self.cell.log.mark()
        calls = json.dumps([{"methodName": "GetVersion", "params": []},
                            {"methodName": "Grip", "params": ["", 0]}])
        for command in (("grip", ""), ("home", ""), ("get", "force", ""), ("set", "force", 9, ""),
                        ("watch", ""), ("grip", "", "--exact"), ("call", "Grip", "", 0),
                        ("call", "Grip", "", 0, "--exact"), ("call", "system.multicall", calls)):
            with self.subTest(command=command):
                self.expect_failure(USAGE, "GRIPPER: must not be empty", *command)
        self.assertEqual(self.cell.log.matching("Device '' not found", since=mark), [])

    def test_a_part_is_rejected_with_exact(self):
        for command in (("grip", "MZD"), ("get", "force", "MZD"), ("set", "force", 9, "MZD"),
                        ("watch", "MZD")):
            self.expect_failure(NO_GRIPPER, "no gripper matches 'MZD'", *command, "--exact")
        self.assertIn(MZD, self.ctl("get", "force", MZD, "--exact"))
        self.expect_failure(USAGE, "--exact requires GRIPPER", "grip", "--exact")


class SlowMotionTest(CtlTestCase):
    options = ("--gripper", "TLM", "--speed", "2")

    def moving(self, *arguments):
        """Starts a command; returns it once its call has ended and the gripper moves."""
        mark = self.cell.log.mark()
        process = ctl.Running(*arguments)
        self.addCleanup(process.__exit__)
        self.cell.log.wait_for(r"Pending command PDOUT deleted \(Status: 0\)", since=mark)
        return process

    def expect_end(self, process, status, text):
        self.assertEqual(process.wait_for_end(), status, process.errors.lines)
        self.assertEqual(process.output.lines, [])
        process.errors.wait_for(text)

    def setUp(self):
        self.assertEqual(self.call("Grip", "TLM SN:100001", 0), 0)
        wait_until(lambda: self.cell.show(0)["stateName"] in ("no part", "gripping"))

    def test_a_single_gripper_needs_no_name_and_wait_has_a_limit(self):
        self.expect_failure(NOT_AT_REST, "TLM SN:100001: still moving, at ",
                            "release", "--wait", "--within", 0.3)
        for option in (("--within", 0.3), ("--stop-on-interrupt",)):
            self.expect_failure(USAGE, f"{option[0]} requires --wait", "release", *option)
        self.expect_failure(USAGE, "--hold-for requires --wait", "grip", "--hold-for", 0.3)

    def test_a_master_that_falls_silent_is_not_rest(self):
        process = self.moving("release", "--wait")
        with self.condition("silent 0 on", "silent 0 off"):
            self.expect_end(process, NO_ANSWER, "its master stopped answering; last position")
        wait_until(lambda: self.call("Disable", "TLM SN:100001") == 0)

    def test_lost_process_data_is_not_rest(self):
        process = self.moving("release", "--wait")
        mark = self.cell.log.mark()
        self.cell.command("mode 0 2")
        self.cell.log.wait_for("PDIN length mismatch: 0$", since=mark)  # it has looked
        self.cell.log.wait_for("STARTUP$", since=mark)
        self.cell.command("mode 0 4")
        self.cell.wait_until_operating(1, since=mark)
        self.expect_end(process, NO_PROCESS_DATA,
                        "process data were lost during the wait; at rest at")
        wait_until(lambda: self.call("Disable", "TLM SN:100001") == 0)

    def test_an_unplugged_master_is_not_rest(self):
        process = self.moving("release", "--wait")
        with self.condition("unplug 0", "plug 0"):
            self.expect_end(process, NO_GRIPPER, "no longer known to the daemon")
            self.assertEqual(self.ctl("list"),
                             "No grippers found; run 'tavrikctl doctor' to find out why.\n")
            self.assertEqual(self.json("list"), [])
            self.expect_failure(NO_GRIPPER, "no grippers found", "grip")
            mark = self.cell.log.mark()
        self.cell.wait_until_operating(1, since=mark)
        wait_until(lambda: self.call("Disable", "TLM SN:100001") == 0)


if __name__ == "__main__":
    main()
