"""tavrikctl against the real daemon in a simulated cell: every command, every status text."""

import json
import os
import pathlib
import pty
import re
import socket
import subprocess
import threading
import time

from .harness import ctl
from .harness.cell import PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.ctl_test_case import (BAD_ANSWER, FAILED, FAULTY, HVA, MZD, NO_ANSWER, NO_DAEMON,
                                    NO_GRIPPER, NO_PROCESS_DATA, NOT_AT_REST, NOT_POSSIBLE,
                                    NOT_SENT, REFUSED, TLM, USAGE, CtlTestCase, http_server,
                                    raw_server, xml_answer)
from .harness.methods import METHODS


GRIPPER = "<array><data><value>X</value></data></array>"  # what a server calls its only one


class ListTest(CtlTestCase):
    def test_every_gripper_has_a_row_and_columns_are_aligned(self):
        self.assertEqual(self.ctl("list"),
                         "GRIPPER          MODEL        STATE  POSITION  FLAGS\n"
                         "HVA SN:100001    HVA by name      1     10.00  none\n"
                         "MZD-S SN:100002  MZD by name      1     10.00  none\n"
                         "TLM SN:100003    TLM by name      0     10.00  none\n")

    def test_an_led_setting_identifies_an_mzd(self):
        self.call("SetLEDSpeed", MZD, 0, 40)
        self.assertEqual([(row["model"], row["modelFrom"]) for row in self.json("list")],
                         [("HVA", "name"), ("MZD", "answers"), ("TLM", "name")])
        self.call("SetLEDSpeed", MZD, 0, 0)

    def test_json_has_the_same_content(self):
        self.assertEqual(self.json("list")[0],
                         {"gripper": HVA, "model": "HVA", "modelFrom": "name", "state": 1,
                          "position": 10.0, "fault": False, "temperatureFault": False,
                          "temperatureWarning": False, "maintenance": False,
                          "certain": True, "answers": True})

    def test_flags_are_named(self):
        for flag, word, name in (("fault", "fault", "fault"),
                                 ("temp-fault", "temperature fault", "temperatureFault"),
                                 ("temp-warn", "temperature warning", "temperatureWarning"),
                                 ("maintenance", "maintenance", "maintenance")):
            with self.subTest(flag=flag):
                with self.condition(f"fault 2 {flag} on", f"fault 2 {flag} off"):
                    self.wait_for_process_data(2, TLM)
                    self.assertTrue(self.json("list")[2][name])
                    self.assertTrue(self.ctl("list").splitlines()[3].endswith("  " + word))
                self.wait_for_process_data(2, TLM)

    def test_passive_sends_nothing_to_the_grippers(self):
        self.assertEqual(self.requests_during(0, "list", "--passive"), [])
        self.assertIsNone(self.json("list", "--passive")[0]["answers"])
        self.assertIs(self.json("list")[0]["answers"], True)
        self.assertNotEqual(self.requests_during(0, "list"), [])

    def test_list_changes_nothing_in_the_gripper(self):
        before = [self.cell.show(number) for number in range(3)]
        self.ctl("list")
        for number, state in enumerate(before):
            after = self.cell.show(number)
            for what in ("pdout", "parameters", "state", "position"):
                self.assertEqual(after[what], state[what])
            self.assertFalse([line for line in after["requests"] if "PARAM" in line and
                              not line.endswith("?")])

    def test_the_values_of_a_silent_master_are_marked_as_old(self):
        with self.condition("silent 0 on", "silent 0 off"):
            row = self.ctl("list").splitlines()[1]
            self.assertIn("master does not answer, values may be old", row)
            self.assertIn("10.00", row)
            row = self.json("list")[0]
            self.assertEqual((row["answers"], row["position"]), (False, 10.0))
        wait_until(lambda: self.json("list")[0]["answers"])

    def test_without_process_data_no_model_is_asked_for(self):
        mark = self.cell.log.mark()
        self.cell.command("mode 0 2")
        self.cell.log.wait_for("STARTUP$", since=mark)
        wait_until(lambda: not self.call("GetPDINExcerpt", HVA))
        self.assertNotIn("DEVINFO?", self.requests_during(0, "list")[1:])
        self.assertFalse(self.json("list")[0]["certain"])
        self.assertIn("zero or no process data", self.ctl("list"))
        self.expect_failure(NO_PROCESS_DATA, "status 21: no process data", "grip", HVA)
        self.cell.command("mode 0 4")
        self.cell.log.wait_for("Pending command PDOUT deleted", since=mark)
        wait_until(lambda: self.json("list")[0]["certain"])


class OddGrippersTest(CtlTestCase):
    options = ("--gripper", r"HVA,product=A\tB\x1b[31m\xc3\xa4,serial=1",
               "--gripper", "TLM,serial=7", "--gripper", "TLM,serial=7",
               "--gripper", r"HVA,product=TLM\xe4\xb8\xad,serial=8",
               "--gripper", "HVA,serial=9 ")
    HVA = "A\tB?[31m\u00e4 SN:1"

    def test_names_cannot_control_the_terminal(self):
        rows = self.ctl("list").splitlines()
        self.assertTrue(rows[1].startswith("A?B?[31m\u00e4 SN:1  HVA or MZD"))
        self.assertEqual(rows[0].index("MODEL"), rows[1].index("HVA or MZD"))
        self.assertEqual(self.json("list")[0]["gripper"], self.HVA)
        self.assertIn("A?B?[31m\u00e4 SN:1: done", self.ctl("store", "A\tB"))

    def test_a_duplicate_name_is_marked(self):
        rows = self.ctl("list").splitlines()
        self.assertNotIn("same name", rows[2])
        self.assertTrue(rows[3].endswith("duplicate name: calls reach the first"))
        self.expect_failure(NO_GRIPPER, "2 grippers are named 'TLM SN:7'", "store", "sn:7")
        self.assertEqual(self.ctl("call", "StoreRemanent", "TLM SN:7", "--exact"), "0: done\n")

    def test_characters_of_two_columns_do_not_move_the_next_column(self):
        rows = self.ctl("list").splitlines()
        self.assertTrue(rows[4].startswith("TLM\u4e2d SN:8"))
        self.assertEqual(rows[0].index("MODEL"), rows[4].index("HVA or MZD") + 1)

    def test_a_name_that_the_table_cannot_show_is_marked(self):
        rows = self.ctl("list").splitlines()
        self.assertEqual([row.endswith("  name not as shown: see --json") for row in rows[1:]],
                         [True, False, False, False, True])
        self.assertEqual(self.json("list")[4]["gripper"], "HVA SN:9 ")

    def model(self, *arguments):
        row = self.json("list", *arguments)[0]
        return row["model"], row["modelFrom"]

    def test_answers_tell_the_model_where_the_name_does_not(self):
        self.assertEqual(self.model(), ("HVA or MZD", "answers"))
        self.call("SetForce", self.HVA, 0, 0)
        self.assertEqual(self.model(), ("TLM?", "answers"))
        self.call("SetReferenceDirection", self.HVA, True)
        self.assertEqual(self.model(), ("HVA or MZD", "answers"))
        self.call("SetReferenceDirection", self.HVA, False)
        self.call("SetForce", self.HVA, 0, 50)
        self.assertEqual(self.model("--passive"), ("?", "nothing"))

    def test_a_name_that_contradicts_the_answers_is_ignored(self):
        row = self.json("list")[3]
        self.assertEqual((row["model"], row["modelFrom"]), ("HVA or MZD", "answers"))
        self.assertEqual(self.json("list", "--passive")[3]["model"], "TLM")


class MotionTest(CtlTestCase):
    """The commands that make one call and return a status."""

    options = (*CtlTestCase.options, "--speed", "500")

    def referenced(self, name):
        self.ctl("home", name, "--wait")

    def test_wait_prints_the_position(self):
        self.referenced("HVA")
        with self.condition("part 0 12.5", "part 0 none"):
            self.assertEqual(self.ctl("grip", "HVA", "--wait"),
                             f"{HVA}: done, at rest at 12.50 in state 6\n")
        self.assertEqual(self.ctl("release", "HVA", "--wait"),
                         f"{HVA}: done, at rest at 28.00 in state 4\n")

    def test_wait_prints_flags_and_json(self):
        self.referenced("mzd")
        with self.condition("fault 1 temp-warn on", "fault 1 temp-warn off"):
            self.wait_for_process_data(1, MZD)
            self.assertRegex(self.ctl("release", "mzd", "--wait"),
                             r"^MZD-S SN:100002: done, at rest at 22.00 in state 4, "
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

    def test_rest_without_motion_is_reported(self):
        self.referenced("HVA")
        self.assertTrue(self.json("release", "HVA", "--wait")["changed"])
        self.assertFalse(self.json("release", "HVA", "--wait")["changed"])
        with self.condition("pdin 0 0", "pdin 0 100"):
            self.assertEqual(self.ctl("grip", "HVA", "--wait"),
                             f"{HVA}: done, but nothing changed, at rest at 28.00 in state 4\n")
        self.wait_for_process_data(0, HVA)

    def test_without_wait_the_command_returns_at_once(self):
        self.assertEqual(self.ctl("disable", "TLM"), f"{TLM}: done\n")
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
        for command in (("home", "TLM"), ("holdfast", "on", "HVA")):
            self.expect_failure(NOT_POSSIBLE, "status 3: not supported by its model or its master",
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
        self.expect_failure(NO_GRIPPER, "several grippers match", "grip", "sn:")

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
        self.expect_failure(USAGE, "--within requires --wait", "release", "--within", 0.3)

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
            self.assertEqual(self.ctl("list"), "No grippers found.\n")
            self.assertEqual(self.json("list"), [])
            self.expect_failure(NO_GRIPPER, "no grippers found", "grip")
            mark = self.cell.log.mark()
        self.cell.wait_until_operating(1, since=mark)
        wait_until(lambda: self.call("Disable", "TLM SN:100001") == 0)


class SettingTest(CtlTestCase):
    def parameter(self, number, index, subindex):
        return self.cell.show(number)["parameters"][f"{index}/{subindex}"]

    def test_every_setting_reaches_the_gripper_and_comes_back(self):
        for setting, value, options, index, subindex, stored in (
                ("force", "60", ("--set", 1), 0x61, 3, [60]),
                ("no-part-limit", "-2.0", ("--set", 2), 0x62, 1, [0xff, 0x38]),
                ("release-limit", "21.25", (), 0x60, 2, [0x08, 0x4d]),
                ("override-grip", "80", (), 0x40, 1, [80]),
                ("override-release", "90", (), 0x40, 2, [90]),
                ("reference-direction", "true", (), 0x40, 3, [255]),
                ("led-animation", "2", ("--led", 1), 0x81, 1, [2]),
                ("led-color", "3", (), 0x80, 2, [3]),
                ("led-speed", "40", ("--led", 3), 0x83, 3, [40])):
            with self.subTest(setting=setting):
                self.assertIn(f"{MZD}: {setting}",
                              self.ctl("set", setting, value, "MZD", *options))
                self.assertEqual(self.parameter(1, index, subindex), stored)
                answer = self.json("get", setting, "MZD", *options)
                self.assertEqual((answer["gripper"], answer["setting"], answer["certain"]),
                                 (MZD, setting, True))
                self.assertEqual(answer["value"], json.loads(value))
                self.assertEqual([answer[key] for key in ("set", "led") if key in answer],
                                 list(options[1:]) or [0] * (index >= 0x60))

    def test_values_are_printed_with_their_set_and_gripper(self):
        self.assertEqual(self.ctl("set", "force", 70, "HVA", "--set", 4),
                         f"{HVA}: force of set 4 set to 70\n")
        self.assertEqual(self.ctl("get", "force", "HVA", "--set", 4),
                         f"{HVA}: force of set 4 is 70\n")
        self.assertEqual(self.ctl("get", "no-part-limit", "HVA"),
                         f"{HVA}: no-part-limit of set 0 is 2.00\n")
        self.assertEqual(self.ctl("get", "override-grip", "HVA"), f"{HVA}: override-grip is 100\n")
        for word in ("on", "off"):
            self.assertEqual(self.ctl("set", "reference-direction", word, "MZD"),
                             f"{MZD}: reference-direction set to {word}\n")
            self.assertRegex(self.ctl("get", "reference-direction", "MZD"),
                             f"^{MZD}: reference-direction is {word}\\b")

    def test_the_printed_value_is_the_one_the_gripper_has(self):
        for typed, told in (("12.346", "12.35"), ("-1.996", "-2.00"), ("1e2", "100.00")):
            with self.subTest(typed=typed):
                self.assertEqual(self.ctl("set", "release-limit", typed, "TLM"),
                                 f"{TLM}: release-limit of set 0 set to {told}\n")
                self.assertEqual(self.ctl("get", "release-limit", "TLM"),
                                 f"{TLM}: release-limit of set 0 is {told}\n")

    def test_a_different_value_after_set_is_a_failure(self):
        for getter, setter, answer, arguments, text in (
                ("GetForce", "SetForce", "<int>50</int>", ("force", 60, "--set", 1),
                 "force of set 1 to 60: the gripper reports 50"),
                ("GetNoPartLimit", "SetNoPartLimit", "<double>-1.99</double>",
                 ("no-part-limit", "-2"),
                 "no-part-limit of set 0 to -2.00: the gripper reports -1.99"),
                ("GetReferenceDirection", "SetReferenceDirection", "<boolean>1</boolean>",
                 ("reference-direction", "off"),
                 "reference-direction to off: the gripper reports on"),
                ("GetLEDColor", "SetLEDColor", "<int>0</int>", ("led-color", 3, "--led", 2),
                 "led-color of LED 2 to 3: the gripper reports 0, or cannot be read")):
            answers = {"GetGrippers": GRIPPER, setter: "<int>0</int>", getter: answer}
            with self.subTest(setter=setter), http_server(200, answers) as port:
                self.expect_failure(REFUSED, f"X: failed to set {text}\n", "set", *arguments,
                                    "--port", port)
        answers[getter] = "<string>3</string>"
        with http_server(200, answers) as port:
            self.expect_failure(BAD_ANSWER, "failed to confirm led-color of LED 2: GetLEDColor: "
                                "the reply has an unexpected type", "set", *arguments,
                                "--port", port)

    def set_limit(self, *replies):
        """Sets a limit to 7.25; each request for it gets one of the replies from the master."""
        mark = self.cell.log.mark()
        with self.condition("mute 0 on PARAM[96][1]", "mute 0 off PARAM[96][1]"):
            with ctl.Running("set", "no-part-limit", 7.25, "HVA") as process:
                for count, reply in enumerate(replies, 1):
                    self.cell.log.wait_for(r"New command PARAM\[96\]\[1\]", mark, count)
                    self.cell.command(rf"send 0 {reply}\n")
                status = process.wait_for_end()
        return status, process.output.lines + process.errors.lines

    def test_a_refused_value_is_detected_although_its_status_is_0(self):
        self.assertEqual(
            self.set_limit("FIN PARAM[96][1]",  # late, of a reading before
                           "ERR PARAM[96][1] 44", "PARAM[96][1]=[0,c8]"),
            (REFUSED, [f"tavrikctl: {HVA}: failed to set no-part-limit of set 0 to 7.25: "
                       "the gripper reports 2.00"]))

    def test_late_replies_do_not_fail_a_set(self):
        self.assertEqual(
            self.set_limit("FIN PARAM[96][1]",  # late, of a reading before
                           "FIN PARAM[96][1]", "PARAM[96][1]=[2,d5]"),
            (0, [f"{HVA}: no-part-limit of set 0 set to 7.25"]))

    def test_a_value_that_cannot_be_read_back_is_not_confirmed(self):
        status, lines = self.set_limit("FIN PARAM[96][1]")
        self.assertEqual((status, lines), (NO_ANSWER, [
            f"tavrikctl: failed to confirm no-part-limit of set 0: {HVA}: "
            "its master did not answer within 1 s"]))

    def test_the_led_preset_is_set_and_the_checksum_read(self):
        self.assertEqual(self.ctl("set", "led-preset", 5, "MZD"),
                         f"{MZD}: led-preset set to 5, not confirmed: it cannot be read back\n")
        self.assertEqual(self.cell.show(1)["leds"]["preset"], 5)
        self.expect_failure(USAGE, "led-preset cannot be read", "get", "led-preset", "MZD")
        checksum = int.from_bytes(bytes(self.parameter(2, 3, 4)), "little", signed=True)
        self.assertEqual(self.json("get", "checksum", "TLM")["value"], checksum)
        self.expect_failure(USAGE, "checksum cannot be set", "set", "checksum", 5, "TLM")

    def test_a_value_that_may_be_a_failure_is_marked(self):
        self.assertEqual(self.ctl("get", "force", "TLM"),
                         f"{TLM}: force of set 0 is 0, or the gripper does not have this setting\n")
        self.assertFalse(self.json("get", "led-color", "HVA")["certain"])
        self.assertFalse(self.json("get", "reference-direction", "HVA")["certain"])

    def test_a_late_value_is_rejected(self):
        with self.condition("mute 0 on", "mute 0 off"):
            self.expect_failure(NO_ANSWER, f"{HVA}: its master did not answer within 1 s",
                                "get", "force", "HVA")

    def test_values_that_the_gripper_refuses(self):
        self.expect_failure(NOT_POSSIBLE, "not supported by its model or its master",
                            "set", "force", 60, "TLM")
        with self.condition("error 0 9", "error 0 off"):
            self.expect_failure(REFUSED, "status 9: error code of the gripper's master",
                                "set", "no-part-limit", 1, "HVA")

    def test_invalid_settings_numbers_and_values(self):
        for text, arguments in (
                ("unknown setting 'power'", ("get", "power")),
                ("checksum has no parameter sets: omit --set", ("get", "checksum", "--set", 1)),
                ("force does not belong to an LED: omit --led", ("set", "force", 60, "--led", 1)),
                ("--led", ("get", "led-color", "--led", 128)),
                ("invalid force '256': must be 0 to 255", ("set", "force", 256)),
                ("'much' is not an integer", ("set", "force", "much")),
                ("invalid no-part-limit '400': must be -327.68 to 327.67",
                 ("set", "no-part-limit", 400))):
            with self.subTest(arguments=arguments):
                self.expect_failure(USAGE, text, *arguments)


class CallTest(CtlTestCase):
    options = ("--gripper", "MZD-S")
    DEVICE = "MZD-S SN:100001"

    def test_every_method_is_called_with_its_types(self):
        words = {bool: "on", int: "3", float: "1.5"}
        values = {bool: True, int: 3, float: 1.5}
        for method in METHODS:
            with self.subTest(method=method.name):
                rest = method.parameters[1:]
                device = [self.DEVICE] if method.takes_device() else []
                if method.name == "UpdatePDIN":
                    self.assertEqual(self.json("call", "UpdatePDIN", self.DEVICE), 3)
                    continue
                answer = self.json("call", method.name, *device, *(words[kind] for kind in rest))
                expected = self.call(method.name, *device, *(values[kind] for kind in rest))
                if method.name not in ("GetState", "GetPDINExcerpt", "GetPos"):  # it may move
                    self.assertEqual((type(answer), answer), (type(expected), expected))

    def test_the_methods_of_the_library(self):
        self.assertEqual(self.json("call", "system.listMethods"),
                         self.cell.client().system.listMethods())
        self.assertEqual(self.json("call", "system.methodExist", "Grip"), True)
        self.assertEqual(self.json("call", "system.methodHelp", "Grip"), "")
        self.assertEqual(self.json("call", "system.methodSignature", "Grip"),
                         [["int", "struct", "int"]])
        self.assertEqual(self.json("call", "system.capabilities")["facility"], "xmlrpc-c")
        self.assertEqual(self.json("call", "system.getCapabilities"),
                         self.cell.client().system.getCapabilities())
        calls = [{"methodName": "GetState", "params": ["nobody"]}]
        self.assertEqual(self.json("call", "system.multicall", json.dumps(calls)), [[-1]])
        self.expect_failure(BAD_ANSWER, "system.shutdown: fault 0, This server program is not "
                            "capable of shutting down", "call", "system.shutdown", "now")

    def test_every_method_of_the_daemon_is_in_the_help(self):
        text = self.ctl("call", "--help")
        for name in self.cell.client().system.listMethods():
            self.assertRegex(text, rf"\b{name}\b")

    def test_a_status_is_in_words(self):
        self.assertEqual(self.ctl("call", "Grip", "mzd", 1), "0: done\n")
        with self.condition("error 0 44 PDOUT", "error 0 off"):
            self.expect_failure(REFUSED, "Grip: status 44: error code of the gripper's master",
                                "call", "Grip", "mzd", 1)
            result = ctl.run("call", "Grip", "mzd", 1, "--json")
            self.assertEqual((result.returncode, result.stdout), (REFUSED, "44\n"))

    def test_text_is_printed_plainly_and_in_json_with_quotes(self):
        version = self.call("GetVersion")
        self.assertEqual(self.ctl("call", "GetVersion"), version + "\n")
        self.assertEqual(self.json("call", "GetVersion"), version)

    def test_the_gripper_is_found_by_a_part_unless_exact(self):
        self.assertEqual(self.json("call", "GetGripperInterface", "mzd"), 0)
        self.assertEqual(self.json("call", "GetGripperInterface", "mzd", "--exact"), -1)
        self.assertEqual(self.json("call", "GetGripperInterface", "---"), -2)
        self.expect_failure(NO_GRIPPER, "no gripper matches 'nobody'",
                            "call", "GetPos", "nobody")
        self.expect_failure(NOT_POSSIBLE, "status 3: unknown gripper",
                            "call", "Grip", "nobody", 0, "--exact")

    def test_invalid_calls(self):
        for text, arguments in (
                ("unknown method 'grip'", ("call", "grip")),
                ("wrong number of arguments, usage: call Grip GRIPPER INTEGER",
                 ("call", "Grip", "mzd")),
                ("wrong number of arguments, usage: call GetVersion", ("call", "GetVersion", 1)),
                ("not expected: 4", ("call", "Grip", 1, 2, 3, 4)),
                ("'on' is not an integer", ("call", "Grip", "mzd", "on")),
                ("'1,5' is not a number", ("call", "SetNoPartLimit", "mzd", 0, "1,5")),
                ("'inf' is not a number", ("call", "SetNoPartLimit", "mzd", 0, "inf")),
                ("'?' is not UTF-8", ("call", "GetPos", "\udcff", "--exact")),
                ("'x' is not a JSON array", ("call", "system.multicall", "x")),
                ("': nested too deeply", ("call", "system.multicall", 20000 * "[" + 20000 * "]"))):
            with self.subTest(arguments=arguments):
                self.expect_failure(USAGE, text, *arguments)


class ServerTest(CtlTestCase):
    options = ("--gripper", "HVA")

    def test_both_ports_serve(self):
        for port in PORTS:
            self.assertIn(HVA, self.ctl("--port", port, "list"))
            self.assertIn(HVA, self.ctl("list", "--host", "localhost", "--port", port))

    def test_no_program_listens(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            port = server.getsockname()[1]
        self.expect_failure(NO_DAEMON, f"127.0.0.1:{port} cannot be reached: Connection refused",
                            "list", "--port", port)

    def test_a_server_that_never_answers_is_given_up_in_time(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            port = server.getsockname()[1]
            for command in (["list"], ["grip"], ["get", "force"], ["call", "GetVersion"]):
                with self.subTest(command=command):
                    start = time.monotonic()
                    self.expect_failure(NO_DAEMON, "did not answer within 0.2 s",
                                        *command, "--port", port, "--timeout", 0.2)
                    took = time.monotonic() - start
                    self.assertGreaterEqual(took, 0.2)
                    self.assertLess(took, 2 * SLOWNESS)

    def test_a_server_that_answers_too_slowly_is_given_up_in_time(self):
        """The timeout covers the whole reply, not each byte."""
        with socket.create_server(("127.0.0.1", 0)) as server:
            dripping = threading.Thread(target=drip, args=(server,))
            dripping.start()
            self.expect_failure(NO_DAEMON, "did not answer within 0.5 s",
                                "list", "--port", server.getsockname()[1], "--timeout", 0.5)
            dripping.join()

    def test_a_server_that_is_not_a_daemon(self):
        for status, body, text in (
                (404, b"", "is not a TavrikDaemon: HTTP status 404"),
                (200, b"hello", "GetGrippers: the reply is not XML-RPC"),
                (200, xml_answer("<int>1</int>"), "GetGrippers: the reply has an unexpected type"),
                (200, b" " * 2000000, "is not a TavrikDaemon: the reply is too long")):
            with self.subTest(text=text), http_server(status, body) as port:
                self.expect_failure(BAD_ANSWER, text, "list", "--port", port)

    def test_a_server_that_disconnects_or_speaks_another_protocol(self):
        for answer, status, text in (
                (b"", NO_DAEMON, "did not answer: Server returned nothing"),
                (b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc", NO_DAEMON,
                 "did not answer: Transferred a partial file"),
                (b"SSH-2.0-Server\r\n", BAD_ANSWER, "is not a TavrikDaemon: the reply is not HTTP"),
                (b"HTTP/1.1 200 OK\r\nX: " + 200000 * b"x", BAD_ANSWER,
                 "is not a TavrikDaemon: the reply is too long")):
            with self.subTest(answer=answer[:40]), raw_server(answer) as port:
                self.expect_failure(status, f"127.0.0.1:{port} {text}", "list", "--port", port)

    def test_answers_of_other_types(self):
        values = {"GetGrippers": GRIPPER, "GetForce": "text", "GetNoPartLimit": "<int>1</int>",
                  "GetReferenceDirection": "<int>1</int>", "GetParameterChecksum": "text",
                  "Grip": "text"}
        with http_server(200, values) as port:
            for command in (["get", "force"], ["get", "no-part-limit"], ["grip"],
                            ["get", "reference-direction"], ["get", "checksum"]):
                with self.subTest(command=command):
                    self.expect_failure(BAD_ANSWER, "the reply has an unexpected type",
                                        *command, "--port", port)

    def test_a_gripper_that_goes_while_it_is_listed_is_left_out(self):
        values = {"GetGrippers": GRIPPER, "GetPDINExcerpt": "<int>0</int>",
                  "GetState": "<int>-1</int>"}
        with http_server(200, values) as port:
            self.assertEqual(self.json("list", "--port", port), [])

    def test_a_rest_that_may_be_missing_process_data_is_a_failure(self):
        values = {"GetGrippers": GRIPPER, "Grip": "<int>0</int>", "GetPDINExcerpt": "<int>0</int>",
                  "GetState": "<int>0</int>", "GetPos": "<double>0</double>",
                  "GetOverrideGrip": "<int>0</int>"}
        with http_server(200, values) as port:
            self.expect_failure(NO_PROCESS_DATA,
                                "X: no process data, or at rest at 0.00 in state 0",
                                "grip", "--wait", "--port", port)

    def test_a_malicious_reply_neither_crashes_nor_blocks_it(self):
        entities = (b'<!DOCTYPE x [<!ENTITY a "aaaaaaaaaa">' +
                    b"".join(b'<!ENTITY %c "%s">' % (98 + level, b"&%c;" % (97 + level) * 50)
                             for level in range(8)) +
                    b"]>" + xml_answer("&i;"))
        for body, text in ((xml_answer("<i8>x</i8>"), "the reply is not XML-RPC"),
                           (entities, "the reply may declare XML entities"),
                           (entities.decode().encode("utf-16"),
                            "the reply may declare XML entities")):
            with self.subTest(text=text), http_server(200, body) as port:
                self.expect_failure(BAD_ANSWER, text, "call", "GetVersion", "--port", port)

    def test_host_names_and_addresses(self):
        self.expect_failure(NO_DAEMON, "[::1]:1 cannot be reached", "list", "--host", "::1",
                            "--port", 1)
        self.expect_failure(NO_DAEMON, "nobody.invalid:44221 cannot be reached: "
                            "Couldn't resolve host name", "list", "--host", "nobody.invalid")
        for host in ("", "a b", "a/b", "user@localhost", "localhost?", "localhost:44222"):
            self.expect_failure(USAGE, f"invalid host name '{host}'", "list", "--host", host)

    def test_a_fault_is_one_line(self):
        fault = (b"<methodResponse><fault><value><struct><member><name>faultCode</name><value>"
                 b"<int>-501</int></value></member><member><name>faultString</name><value><string>"
                 b"two\nlines\x7f</string></value></member></struct></value></fault>"
                 b"</methodResponse>")
        with http_server(200, fault) as port:
            self.expect_failure(BAD_ANSWER, "GetVersion: fault -501, two?lines?",
                                "call", "GetVersion", "--port", port)

    def test_proxies_of_the_environment_are_ignored(self):
        dead = "http://127.0.0.1:9/"
        self.assertIn(HVA, self.ctl("list", environment={"http_proxy": dead, "ALL_PROXY": dead}))

    def test_a_daemon_without_grippers_is_not_a_failure(self):
        with http_server(200, xml_answer("<array><data></data></array>")) as port:
            self.assertEqual(self.ctl("list", "--port", port), "No grippers found.\n")


def drip(server):
    """Sends a reply byte by byte until the client disconnects."""
    connection, _ = server.accept()
    with connection:
        try:
            for byte in b"HTTP/1.1 200 OK\r\n" + b"x" * 1000:
                connection.sendall(bytes([byte]))
                time.sleep(0.05)
        except OSError:
            pass


class TerminalTest(CtlTestCase):
    """What depends on the kind of standard output."""

    options = ("--gripper", "HVA")

    def on_terminal(self, *arguments, environment):
        """The output of a command whose standard output is a terminal."""
        master, slave = pty.openpty()
        with open(master, "rb", buffering=0) as terminal:
            with open(slave, "wb") as end:
                subprocess.run(ctl.arguments_of(*arguments), stdout=end, check=True,
                               env={**ctl.CLEAN, **environment}, timeout=60 * SLOWNESS)
                os.write(slave, b"END")
                output = b""
                while not output.endswith(b"END"):
                    output += terminal.read(4096)
        return output

    def test_colours_are_for_terminals_and_can_be_disabled(self):
        with self.condition("fault 0 temp-warn on", "fault 0 temp-warn off"):
            self.wait_for_process_data(0, HVA)
            coloured = self.on_terminal("list", environment={"TERM": "xterm"})
            self.assertIn(b"\x1b[1mGRIPPER\x1b[0m", coloured)
            self.assertIn(b"\x1b[31mtemperature warning\x1b[0m", coloured)
            for environment in ({"TERM": "xterm", "NO_COLOR": "1"}, {"TERM": "dumb"},
                                {"TERM": ""}):
                self.assertNotIn(b"\x1b",
                                 self.on_terminal("list", environment=environment))
            self.assertNotIn("\x1b", self.ctl("list", environment={"TERM": "xterm"}))

    def test_output_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            result = subprocess.run(ctl.arguments_of("list"), stdout=full, stderr=subprocess.PIPE,
                                    text=True, env=ctl.CLEAN, timeout=60 * SLOWNESS)
        self.assertEqual((result.returncode, result.stderr),
                         (FAILED, "tavrikctl: failed to write to standard output\n"))

    def test_a_closed_standard_output_is_a_failure(self):
        """No socket may get its descriptor."""
        for command in ("list", "--help", "--version"):
            with self.subTest(command=command):
                result = ctl.run(command, preexec_fn=lambda: os.close(1))
                self.assertEqual((result.returncode, result.stderr),
                                 (FAILED, "tavrikctl: failed to write to standard output\n"))


class CommandLineTest(CtlTestCase):
    options = ()

    def test_an_invalid_command_line_is_reported_in_one_line(self):
        for text, arguments in (("missing command", ()),
                                ("dance", ("dance",)),
                                ("--loud", ("list", "--loud")),
                                ("extra", ("list", "extra")),
                                ("--port", ("list", "--port", 0)),
                                ("--port", ("list", "--port", 65536)),
                                ("--port: invalid number '044221': leading zero",
                                 ("list", "--port", "044221")),
                                ("--bundle: must not be empty", ("doctor", "--bundle", "")),
                                ("--timeout: invalid time '0': must be", ("list", "--timeout", 0)),
                                ("--timeout", ("list", "--timeout", "soon")),
                                ("--timeout", ("list", "--timeout", "nan")),
                                ("--timeout", ("list", "--timeout", "1e300")),
                                ("--within", ("grip", "--wait", "--within", "nan")),
                                ("?[2J", ("list", "\x1b[2J")),
                                ("SETTING", ("get",)),
                                ("VALUE", ("set", "force")),
                                ("SWITCH", ("holdfast",)),
                                ("METHOD", ("call",))):
            with self.subTest(arguments=arguments):
                self.expect_failure(USAGE, text, *arguments)

    def test_help_lists_every_command_and_every_exit_status(self):
        text = self.ctl("--help")
        self.assertLessEqual(max(map(len, text.splitlines())), 80, text)
        for status in (0, REFUSED, USAGE, NOT_POSSIBLE, NO_DAEMON, NO_ANSWER, BAD_ANSWER,
                       NO_GRIPPER, NOT_AT_REST, FAILED, FAULTY, NOT_SENT, NO_PROCESS_DATA):
            self.assertRegex(text, rf"(?m)^  {status} +[a-z-]")
        for command in ("list", "grip", "release", "home", "disable", "holdfast", "store", "get",
                        "set", "watch", "call", "doctor"):
            self.assertRegex(text, rf"(?m)^  {command} +[A-Z]")
            details = self.ctl(command, "--help")
            self.assertIn("Usage: tavrikctl " + command, details)
            self.assertLessEqual(max(map(len, details.splitlines())), 80, details)

    def test_the_version_is_the_daemons(self):
        self.assertEqual(self.ctl("--version"),
                         "tavrikctl " + self.call("GetVersion").split()[0] + "\n")


class PageTest(CtlTestCase):
    """The sessions and tables of docs/tavrikctl.md."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S")
    TEXT = (pathlib.Path(__file__).resolve().parents[2] / "docs" / "tavrikctl.md").read_text()

    def test_the_sessions_match_the_real_output(self):
        steps = list(ctl.session(self.TEXT))
        self.assertGreater(len(steps), 10)
        for command, expected in steps:
            with self.subTest(command=command):
                if expected is None:
                    self.cell.command(command)
                else:
                    self.assertEqual(ctl.shell(command), expected)

    def test_every_setting_is_listed_with_its_values(self):
        rows = re.findall(r"^  ([a-z-]+) +(\S.*?)  ", self.ctl("set", "--help").partition(
            "\nSettings")[2], re.MULTILINE)
        self.assertIn(("force", "0 to 255"), rows)
        section = self.TEXT.partition("## Settings\n")[2].partition("\n## ")[0]
        self.assertEqual(rows, re.findall(r"^\| `([a-z-]+)` \| (.+?) \|",
                                          section.replace(r"on\|off", "on|off"), re.MULTILINE))

    def test_exactly_all_commands_and_exit_statuses_are_listed(self):
        text = self.ctl("--help")
        commands = text[text.index("Subcommands:"):text.index("Exit status:")]
        listed = self.TEXT[self.TEXT.index("## Commands"):self.TEXT.index("## The list")]
        table = listed[:listed.index("| option |")]
        self.assertEqual(set(re.findall(r"^  ([a-z]+)", commands, re.MULTILINE)),
                         set(re.findall(r"`([a-z]+)(?: .*?)?`(?:,| \|)", table)))
        statuses = re.findall(r"^  (\d+) ", text[text.index("Exit status:"):], re.MULTILINE)
        self.assertEqual(statuses, re.findall(r"^\| (\d+) \|", self.TEXT, re.MULTILINE))


if __name__ == "__main__":
    main()
