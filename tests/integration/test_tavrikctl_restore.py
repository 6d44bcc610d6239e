"""tavrikctl settings restore: the settings of a file for a gripper, whatever is in the way."""

import json
import re
import signal

from .. import sessions
from .harness import ctl
from .harness.cell import wait_until
from .harness.cell_test_case import main
from .harness.ctl import NOT_AT_REST, NO_ANSWER, NO_GRIPPER, NO_PROCESS_DATA, REFUSED, USAGE
from .harness.ctl_test_case import HVA, MZD, TLM, http_server
from .harness.pages import OPERATION, section
from .harness.settings_test_case import SettingsTestCase
from .harness.terminal import TerminalSession

WIDTHS = (20, 40, 80, 200)


class RestoreTest(SettingsTestCase):
    def test_every_value_of_every_model_returns(self):
        for number, device in enumerate((HVA, MZD, TLM)):
            with self.subTest(device=device):
                self.file = self.folder / f"{number}.json"
                self.change(device)
                self.save(device)
                saved = self.parameters(number)
                for key, value in saved.items():
                    index, subindex = key.split("/")
                    if index != "64" or device != TLM:  # it refuses its overrides
                        other = "0" if key == "64/3" else ",".join("3" for _ in value)
                        self.cell.command(f"param {number} {index} {subindex} {other}")
                self.assertNotEqual(self.parameters(number), saved)
                output = self.ctl("settings", "restore", self.file, device, "--yes", "--store")
                self.assertEqual(self.parameters(number), saved)
                self.assertRegex(output, f"\n{device}: \\d+ settings written and read back, "
                                         f"same as {self.file}, stored\n$")
                self.assertEqual(self.ctl("settings", "diff", self.file, device),
                                 f"{device}: same as {self.file}\n")

    def change(self, device):
        self.call("SetNoPartLimit", device, 3, -327.675)
        self.call("SetReleaseLimit", device, 4, 327.67)
        self.call("SetForce", device, 5, 255)
        self.call("SetOverrideGrip", device, 1)
        self.call("SetReferenceDirection", device, True)
        self.call("SetLEDSpeed", device, 6, 9)

    def test_only_what_differs_is_written_and_read_back(self):
        self.save(HVA)
        self.edit(force=61)
        result, writes = self.writes_during("settings", "restore", self.file, HVA, "--yes")
        self.assertEqual(result.stdout,
                         "SETTING         NOW  NEW\n"
                         "force of set 1   50   61\n"
                         f"{HVA}: 1 setting written and read back, same as {self.file}\n"
                         f"To keep them after power-off: tavrikctl store '{HVA}'\n")
        self.assertEqual((result.returncode, writes), (0, ["PARAM[97][3]"]))
        result, writes = self.writes_during("settings", "restore", self.file, HVA, "--yes")
        self.assertEqual((result.returncode, writes), (0, []))
        self.assertIn(f"{HVA}: already the same as {self.file}\n", result.stdout)
        self.edit(force=50)
        self.ctl("settings", "restore", self.file, HVA, "--yes")

    def test_only_store_survives_a_power_cycle(self):
        self.save(HVA)
        for options, kept in (((), 50), (("--store",), 62)):
            self.edit(force=62)
            self.ctl("settings", "restore", self.file, HVA, "--yes", *options)
            mark = self.cell.log.mark()
            self.cell.command("unplug 0")
            self.cell.log.wait_for("PELLIX removed", since=mark)
            mark = self.cell.log.mark()
            self.cell.command("plug 0")
            self.cell.wait_until_operating(1, since=mark)
            wait_until(lambda: self.call("GetPDINExcerpt", HVA))
            self.assertEqual(self.call("GetForce", HVA, 1), kept)
        self.edit(force=50)
        self.ctl("settings", "restore", self.file, HVA, "--yes", "--store")

    def test_nothing_is_written_without_permission(self):
        self.save(HVA)
        self.edit(force=63)
        self.expect_failure(USAGE, "no terminal to ask for permission: add --yes",
                            "settings", "restore", self.file, HVA)
        for answer in ("n", "", "nope", "\x04"):
            with TerminalSession("settings", "restore", self.file, HVA) as process:
                process.wait_for(r"^Write 1 setting to HVA SN:100001\? \[y/N\]")
                process.type(answer + "\n" * (answer != "\x04"))
                status, lines = process.wait_for_end()
                self.assertEqual(status, REFUSED)
                self.assertEqual(lines[-1].rpartition("tavrikctl: ")[2], "nothing was written")
        self.assertEqual(self.call("GetForce", HVA, 1), 50)

    def test_the_screen_at_every_width(self):
        self.save(HVA)
        self.call("SetForce", HVA, 1, 63)
        for force, columns in enumerate(WIDTHS, 64):
            with self.subTest(columns=columns):
                self.edit(force=force)
                with TerminalSession("settings", "restore", self.file, HVA,
                                     columns=columns) as process:
                    wait_until(lambda process=process: "?" in "".join(process.lines()))
                    process.type("y\n")
                    status, lines = process.wait_for_end()
                    self.assertEqual(status, 0)
                    self.assertRegex(process.output, rb"\rReading \d+ %\r")
                    self.assertRegex(process.output, rb"\rWriting 100 %\r")
                    text = "".join(line.ljust(columns) if len(line) == columns else line + "\n"
                                   for line in lines)
                    self.assertNotIn("%", text)  # it has disappeared
                    table = (f"SETTINGNOWNEWforceofset1{force - 1}{force}" if columns >= 40 else
                             f"SETTINGforceofset1NOW{force - 1}NEW{force}")  # below each other
                    self.assertEqual(text.replace("\n", "").replace(" ", ""), (
                        f"{table}"
                        f"Write1settingto{HVA}?[y/N]y"
                        f"{HVA}:1settingwrittenandreadback,sameas{self.file}"
                        f"Tokeepthemafterpower-off:tavrikctlstore'{HVA}'").replace(" ", ""))
                    if columns >= 40:
                        self.assertEqual(lines[0], "SETTING         NOW  NEW")
        self.edit(force=50)
        self.ctl("settings", "restore", self.file, HVA, "--yes")


class FailureTest(SettingsTestCase):
    """Grippers, masters and people that are in the way."""

    def table_of(self, result):
        """The rows of the last table, each with single blanks."""
        lines = result.stdout.splitlines()
        start = max(index for index, line in enumerate(lines) if line.startswith("SETTING"))
        return [" ".join(line.split()) for line in lines[start + 1:]]

    def test_refused_values_are_listed_and_the_others_written(self):
        self.save(TLM)
        self.edit(override_grip=80, no_part_limit=3.5)
        result = ctl.run("settings", "restore", self.file, TLM, "--yes", "--store")
        self.assertEqual(result.returncode, REFUSED)
        self.assertEqual(self.table_of(result), ["override-grip 80 refused: status 3",
                                                 "no-part-limit of set 1 3.50 written"])
        self.assertEqual(result.stderr, f"tavrikctl: {TLM}: 1 setting differs from {self.file}; "
                                        "nothing was stored\n")
        self.assertEqual(self.call("GetNoPartLimit", TLM, 1), 3.5)
        self.call("SetNoPartLimit", TLM, 1, 2.0)

    def test_an_error_of_the_master_is_a_refusal(self):
        self.save(HVA)
        self.edit(force=60)
        with self.condition("error 0 44 PARAM[97][3]", "error 0 off PARAM[97][3]"):
            result = ctl.run("settings", "restore", self.file, HVA, "--yes")
        self.assertEqual((result.returncode, self.table_of(result)),
                         (REFUSED, ["force of set 1 60 refused: status 44"]))

    def test_a_value_that_is_silently_ignored_is_found(self):
        self.save(TLM)
        content = json.loads(self.file.read_text())
        content["sets"] = content["sets"][:2]
        content["gripper"] = "TLM SN:1"
        content["sets"][1]["no-part-limit"] = 7.25
        self.file.write_text(json.dumps(content))
        values = {"GetGrippers": "<array><data><value>TLM SN:1</value></data></array>",
                  "GetPDINExcerpt": "<int>65536</int>",
                  "GetParameterChecksum": "<ex:i8>1</ex:i8>",
                  "GetNoPartLimit": "<double>0.0</double>",
                  "GetReleaseLimit": "<double>18.0</double>", "SetNoPartLimit": "<int>0</int>",
                  "SetReleaseLimit": "<int>0</int>", "GetOverrideGrip": "<int>100</int>",
                  "GetOverrideRelease": "<int>100</int>", "GetForce": "<int>0</int>",
                  "GetReferenceDirection": "<boolean>0</boolean>",
                  **{f"GetLED{name}": "<int>0</int>" for name in ("Animation", "Color", "Speed")}}
        with http_server(200, values) as port:
            result = ctl.run("settings", "restore", self.file, "--yes", "--port", port)
        self.assertEqual(result.returncode, REFUSED, result)
        self.assertIn("no-part-limit of set 1 7.25 not accepted: is 0.00", self.table_of(result))
        self.assertEqual(self.table_of(result)[0],
                         "no-part-limit of set 0 2.00 not accepted: is 0.00")

    def restoring(self, **values):
        """A restore on a terminal that has asked for permission."""
        self.save(HVA)
        self.edit(**values)
        process = self.enterContext(TerminalSession("settings", "restore", self.file, HVA))
        process.wait_for(r"\[y/N\]")
        return process

    def test_a_broken_connection_is_reported_and_a_second_restore_finishes(self):
        process = self.restoring(force=71, no_part_limit=4.0, release_limit=20.0)
        with self.condition("mute 0 on PARAM[97][1]", "mute 0 off PARAM[97][1]"):
            process.type("y\n")
            status, lines = process.wait_for_end()
        start = next(index for index, line in enumerate(lines) if line.endswith("RESULT"))
        self.assertEqual(status, NO_ANSWER, lines)
        self.assertEqual([" ".join(line.split()) for line in lines[start + 1:]], [
            "force of set 1 71 written",
            "no-part-limit of set 1 4.00 possibly written",
            "release-limit of set 1 20.00 not written",
            "To finish, repeat the command: it writes what still differs.",
            *self.wrapped(f"tavrikctl: {HVA}: status 5: the gripper's master did not answer within "
                          "1 s, or reported error 5; the command may or may not have been carried "
                          "out")])
        self.assertEqual(self.call("GetForce", HVA, 1), 71)
        result, writes = self.writes_during("settings", "restore", self.file, HVA, "--yes")
        self.assertEqual((result.returncode, writes),
                         (0, ["PARAM[97][1]", "PARAM[97][2]"]))
        self.put_back()

    def test_ctrl_c_lists_what_was_written(self):
        process = self.restoring(force=75, no_part_limit=4.0, release_limit=20.0)
        with self.condition("delay 0 300", "delay 0 0"):
            process.type("y\n")
            wait_until(lambda: self.parameters(0)["97/3"] == [75])
            process.process.send_signal(signal.SIGINT)
            status, lines = process.wait_for_end()
        rows = [" ".join(line.split()) for line in lines]
        self.assertEqual(status, -signal.SIGINT, lines)
        self.assertIn("force of set 1 75 written", rows)
        self.assertIn("release-limit of set 1 20.00 not written", rows)
        self.assertIn("To finish, repeat the command: it writes what still differs.", rows)
        self.ctl("settings", "restore", self.file, HVA, "--yes")
        self.put_back()

    @staticmethod
    def wrapped(text, columns=80):
        return [text[start:start + columns].strip() for start in range(0, len(text), columns)]

    def put_back(self):
        self.edit(force=50, no_part_limit=2.0, release_limit=28.0)
        self.ctl("settings", "restore", self.file, HVA, "--yes")

    def test_an_unplugged_master_ends_a_restore(self):
        process = self.restoring(force=72)
        mark = self.cell.log.mark()
        self.cell.command("unplug 0")
        self.cell.log.wait_for("PELLIX removed", since=mark)
        process.type("y\n")
        status, lines = process.wait_for_end()
        self.assertEqual(status, NO_GRIPPER)
        self.assertIn("force of set 1   72  not written", lines)
        mark = self.cell.log.mark()
        self.cell.command("plug 0")
        self.cell.wait_until_operating(1, since=mark)
        wait_until(lambda: self.call("GetPDINExcerpt", HVA))

    def test_the_settings_of_another_client_are_not_overwritten(self):
        process = self.restoring(force=73)
        self.call("SetForce", HVA, 2, 74)
        process.type("y\n")
        status, lines = process.wait_for_end()
        self.assertEqual(status, NOT_AT_REST)
        self.assertIn("another client changes its settings", "".join(lines))
        self.assertEqual(self.call("GetForce", HVA, 1), 50)
        self.call("SetForce", HVA, 2, 50)

    def test_a_master_that_falls_silent_ends_the_reading(self):
        with self.condition("mute 0 on PARAM[100][2]", "mute 0 off PARAM[100][2]"):
            self.expect_failure(NO_ANSWER, f"{HVA}: its master did not answer within 1 s",
                                "settings", "save", self.file, HVA)
        self.assertFalse(self.file.exists())

    def test_a_lost_reply_is_asked_for_again(self):
        key = "PARAM[100][2]"
        mark = self.cell.log.mark()
        self.cell.command(f"mute 0 on {key}")
        with ctl.Running("settings", "save", self.file, HVA) as process:
            wait_until(lambda: self.cell.show(0)["requests"][-1] == f"{key}?")
            self.cell.command(f"mute 0 off {key}")
            self.assertEqual(process.wait_for_end(), 0, process.errors.lines)
        self.cell.log.wait_for(re.escape(f"New command {key}"), since=mark, count=2)
        self.assertEqual(json.loads(self.file.read_text())["sets"][4]["release-limit"], 28.0)

    def test_without_process_data_zeros_are_rejected(self):
        mark = self.cell.log.mark()
        self.cell.command("mode 0 2")
        self.cell.log.wait_for("STARTUP$", since=mark)
        wait_until(lambda: not self.call("GetPDINExcerpt", HVA))
        self.expect_failure(NO_PROCESS_DATA, f"{HVA}: no process data, or at 0.00 in state 0",
                            "settings", "save", self.file, HVA)
        self.assertFalse(self.file.exists())
        self.cell.command("mode 0 4")
        self.cell.log.wait_for("Pending command PDOUT deleted", since=mark)
        wait_until(lambda: self.call("GetPDINExcerpt", HVA))


class MovingTest(SettingsTestCase):
    options = ("--gripper", "TLM,serial=100003", "--speed", "0.2")

    def test_a_gripper_that_moves_is_left_alone(self):
        self.save(TLM)
        self.edit(no_part_limit=5.0)
        self.call("Release", TLM, 0)
        wait_until(lambda: self.call("GetState", TLM) == 3)
        for arguments in (("show",), ("save", self.folder / "new"), ("diff", self.file),
                          ("restore", self.file, "--yes")):
            with self.subTest(arguments=arguments):
                self.expect_failure(NOT_AT_REST, f"{TLM}: is moving, now at 1", "settings",
                                    *arguments)
        self.assertEqual(self.call("GetState", TLM), 3)  # still
        self.assertEqual(self.call("GetNoPartLimit", TLM, 1), 2.0)
        self.assertFalse((self.folder / "new").exists())

    def test_a_motion_while_the_question_waits_is_noticed(self):
        self.call("Disable", TLM)
        wait_until(lambda: self.call("GetState", TLM) == 0)
        self.save(TLM)
        self.edit(no_part_limit=5.0)
        with TerminalSession("settings", "restore", self.file) as process:
            process.wait_for(r"\[y/N\]")
            self.call("Grip", TLM, 0)
            wait_until(lambda: self.call("GetState", TLM) == 5)
            process.type("y\n")
            status, lines = process.wait_for_end()
        self.assertEqual(status, NOT_AT_REST)
        self.assertIn("no-part-limit of set 1  5.00  not written", lines)
        self.assertEqual(self.call("GetNoPartLimit", TLM, 1), 2.0)


class ReplacementTest(SettingsTestCase):
    """docs/operation.md: a gripper is exchanged as its session says."""

    options = ("--gripper", "HVA", "--gripper", "HVA,serial=100009", "--unplugged", "1")
    NEW = "HVA SN:100009"
    STEPS = list(sessions.session(section(OPERATION, "## Exchange a gripper")))

    def test_the_new_gripper_works_like_the_old_one(self):
        self.call("SetForce", HVA, 0, 80)
        self.call("SetNoPartLimit", HVA, 1, -1.5)
        self.call("SetOverrideRelease", HVA, 40)
        self.call("StoreRemanent", HVA)
        old = self.parameters(0)
        self.assertGreater(len(self.STEPS), 5)
        for command, expected in self.STEPS:
            with self.subTest(command=command):
                if expected is None:
                    self.simulate(command)
                else:
                    self.assertEqual(ctl.shell(command, cwd=self.folder), expected)
        self.assertEqual(self.parameters(1), old)

    def simulate(self, command):
        mark = self.cell.log.mark()
        self.cell.command(command)
        if command.startswith("unplug"):
            self.cell.log.wait_for("PELLIX removed", since=mark)
        else:
            self.cell.wait_until_operating(1, since=mark)
            wait_until(lambda: self.call("GetPDINExcerpt", self.NEW))


if __name__ == "__main__":
    main()
