"""tavrikctl against the real daemon in a simulated cell: every command, every status text."""

import json
import os
import pathlib
import re
import subprocess

from .. import sessions
from .harness import ctl
from .harness.cell import SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.ctl import (BAD_ANSWER, FAILED, FAULTY, NOT_AT_REST, NOT_POSSIBLE, NOT_SENT,
                          NO_ANSWER, NO_DAEMON, NO_GRIPPER, NO_PROCESS_DATA, REFUSED, USAGE)
from .harness.ctl_test_case import GRIPPER, HVA, MZD, TLM, CtlTestCase, http_server
from .harness.terminal import output_on_terminal


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
        self.assertIn("all zero: possibly no process data", self.ctl("list"))
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
        self.assertIn("A?B?[31m\u00e4 SN:1: done", self.ctl("store", "A\tB?"))

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

    def test_answers_show_the_model_if_the_name_does_not(self):
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
        self.expect_failure(NOT_POSSIBLE, "not supported by its model (TLM by name), only by HVA and MZD",
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


class TerminalTest(CtlTestCase):
    """What depends on the kind of standard output."""

    options = ("--gripper", "HVA")

    def test_colours_are_for_terminals_and_can_be_disabled(self):
        with self.condition("fault 0 temp-warn on", "fault 0 temp-warn off"):
            self.wait_for_process_data(0, HVA)
            coloured = output_on_terminal("list")
            self.assertIn(b"\x1b[1mGRIPPER\x1b[0m", coloured)
            self.assertIn(b"\x1b[31mtemperature warning\x1b[0m", coloured)
            for environment in ({"NO_COLOR": "1"}, {"TERM": "dumb"}, {"TERM": ""}):
                plain = output_on_terminal("list", environment=environment)
                self.assertIn(b"temperature warning", plain)
                self.assertNotIn(b"\x1b", plain)
            self.assertNotIn("\x1b", self.ctl("list", environment={"TERM": "xterm"}))

    def test_output_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            result = subprocess.run(ctl.arguments_of("list"), stdout=full, stderr=subprocess.PIPE,
                                    text=True, env=ctl.ENVIRONMENT, timeout=60 * SLOWNESS)
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
                        "set", "watch", "call", "doctor", "log"):
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
        steps = list(sessions.session(self.TEXT))
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
