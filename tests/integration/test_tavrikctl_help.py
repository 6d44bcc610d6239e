"""What tavrikctl says: help, errors with the nearest word, and what to do next."""

import re
import socket

from .harness import ctl
from .harness.cell_test_case import main
from .harness.ctl import NOT_POSSIBLE, NO_DAEMON, NO_GRIPPER, USAGE
from .harness.ctl_test_case import GRIPPER, HVA, TLM, CtlTestCase, http_server, xml_answer
from .harness.methods import METHODS


class HelpTest(CtlTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    @classmethod
    def prepare(cls):
        super().prepare()
        for command in ("home", "release"):  # so that a grip moves the fingers
            assert ctl.run(command, HVA, "--wait").returncode == 0

    def commands(self):
        """All commands, also those of a command, such as "cell save"."""
        names = self.parts_of()
        return [*names, *(f"{name} {part}" for name in ("settings", "cell")
                          for part in self.parts_of(name))]

    def parts_of(self, *command):
        listed = re.search(r"(?ms)^Subcommands:\n(.*?)\n\n", self.ctl(*command, "--help"))[1]
        return re.findall(r"(?m)^  ([a-z]+) ", listed)

    def test_every_command_explains_itself(self):
        """What it does, an example, and what can go wrong, on a screen of 80 columns."""
        self.assertGreater(len(self.commands()), 10)
        for command in self.commands():
            with self.subTest(command=command):
                text = self.ctl(*command.split(), "--help")
                self.assertRegex(text, r"(?s)\n\n[A-Z].*\.\n\n"
                                       rf"Example:\n  [^\n]*\btavrikctl {command}\b[^\n]*\n\n"
                                       r"What can go wrong:\n  \S")
                self.assertLessEqual(max(map(len, text.splitlines())), 80, text)

    def test_units_are_named(self):
        for command in ("list", "get", "set", "watch", "call"):
            self.assertRegex(" ".join(self.ctl(command, "--help").split()),
                             "in (?:the unit|the gripper's unit|the gripper's manual)|"
                             "the unit of positions")

    def test_the_examples_can_be_typed(self):
        """Those for this cell; others name another host or run until q is pressed."""
        ran = set()
        for command in self.commands():
            example = re.search(r"(?m)^Example:\n  (.*)$",
                                self.ctl(*command.split(), "--help"))[1]
            if re.match(r"tavrikctl (grip|release|home|disable|holdfast|store|get|set|call) ",
                        example):
                result = ctl.shell(example + "; echo status $?")
                self.assertNotIn("tavrikctl:", result.replace("--exact", ""))
                self.assertTrue(result.endswith("status 0\n"), result)
                ran.add(command)
        self.assertGreater(len(ran), 8)

    def test_help_and_version_work_as_words(self):
        self.assertEqual(self.ctl("help"), self.ctl("--help"))
        self.assertEqual(self.ctl("help", "grip"), self.ctl("grip", "--help"))
        self.assertEqual(self.ctl("version"), self.ctl("--version"))


class NearestTest(CtlTestCase):
    options = ("--gripper", "HVA")

    def test_the_nearest_command_is_named(self):
        for arguments in (("gripp",), ("gripp", HVA, "--wait"), ("help", "gripp"),
                          ("gripp", "--help"), ("--port", 44221, "gripp")):
            with self.subTest(arguments=arguments):
                self.expect_failure(USAGE, "unknown command 'gripp'; did you mean 'grip'?\n",
                                    *arguments)
        self.expect_failure(USAGE, "unknown command 'dance'; see tavrikctl --help\n", "dance")

    def test_the_nearest_command_of_a_command_is_named(self):
        for arguments in (("settings", "sav"), ("settings", "sav", "x.json", HVA),
                          ("help", "settings", "sav"), ("settings", "sav", "--help")):
            with self.subTest(arguments=arguments):
                self.expect_failure(USAGE, "unknown command 'settings sav'; did you mean 'save'?\n",
                                    *arguments)
        self.expect_failure(USAGE, "unknown command 'cell dance'; see tavrikctl cell --help\n",
                            "cell", "dance")
        self.expect_failure(USAGE, "settings: must be followed by show, save, diff or restore; see "
                            "tavrikctl settings --help\n", "settings")

    def test_unknown_options_are_explained(self):
        self.expect_failure(USAGE, "--hold-for is not an option of release, but of: grip\n",
                            "release", HVA, "--wait", "--hold-for", 1)
        self.expect_failure(USAGE, "--hold-for is not an option of home, but of: grip\n",
                            "home", "--wait", "--hold-for=1")
        self.expect_failure(USAGE, "--wait must come after 'grip'\n", "--wait", "grip", HVA)
        self.expect_failure(USAGE, "unknown option '--wiat'; did you mean '--wait'?\n",
                            "grip", HVA, "--wiat")
        self.expect_failure(USAGE, "unknown option '--dance'; see tavrikctl settings save --help\n",
                            "settings", "save", "x.json", HVA, "--dance")
        self.expect_failure(USAGE, f"unexpected argument '{HVA}'; see tavrikctl list --help\n",
                            "list", HVA)

    def test_the_nearest_setting_is_named_and_all_are_listed(self):
        self.expect_failure(USAGE, "unknown setting 'forces'; did you mean 'force'? settings: "
                            "force, no-part-limit, ", "get", "forces")
        self.expect_failure(USAGE, "unknown setting 'x'; settings: force, ", "set", "x", 1)

    def test_the_nearest_method_is_named(self):
        self.expect_failure(USAGE, "unknown method 'getpos'; did you mean 'GetPos'?\n",
                            "call", "getpos", HVA)
        self.expect_failure(USAGE, "unknown method 'dance'; see tavrikctl call --help\n",
                            "call", "dance")

    def test_a_name_with_a_blank_must_be_quoted(self):
        for arguments in (("grip", "HVA", "SN:100001"), ("get", "force", "HVA", "SN:100001"),
                          ("watch", "HVA", "SN:100001", "--json")):
            with self.subTest(arguments=arguments):
                self.expect_failure(USAGE, "unexpected argument 'SN:100001'; quote a name that "
                                    "contains blanks: 'HVA SN:100001'\n", *arguments)
        self.expect_failure(USAGE, "unexpected argument 'SN:1'; quote a name that contains blanks: "
                            "'cell'\\''s SN:1'\n", "grip", "cell's", "SN:1")
        self.expect_failure(USAGE, "usage: call GetPos GRIPPER; quote a GRIPPER that contains "
                            "blanks\n", "call", "GetPos", "HVA", "SN:100001")
        self.assertFalse(self.cell.log.matching("PDOUT=.3"))

    def test_a_name_with_a_blank_must_be_quoted_for_the_log(self):
        for options in ((), ("-f",), ("/dev/null",)):
            with self.subTest(options=options):
                self.expect_failure(USAGE, "FILE: 'SN:100001' does not exist; quote a name "
                                    "that contains blanks: 'HVA SN:100001'; see tavrikctl log "
                                    "--help\n", "log", "HVA", "SN:100001", *options)


class AdviceTest(CtlTestCase):
    options = ()

    def test_without_a_daemon_the_doctor_is_suggested(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            port = server.getsockname()[1]
        for command in (["list"], ["grip", "HVA"], ["get", "force"], ["set", "force", 1],
                        ["call", "GetVersion"], ["watch"]):
            with self.subTest(command=command):
                self.expect_failure(NO_DAEMON, "; run 'tavrikctl doctor' to find out why\n",
                                    *command, "--port", port)
        self.expect_failure(NO_DAEMON, "; run 'tavrikctl doctor --host localhost' to find out why",
                            "list", "--port", port, "--host", "localhost")

    def test_without_a_gripper_the_doctor_is_suggested(self):
        advice = "o grippers found; run 'tavrikctl doctor' to find out why"
        self.assertEqual(self.ctl("list"), f"N{advice}.\n")
        self.expect_failure(NO_GRIPPER, f"n{advice}\n", "grip")
        with http_server(200, xml_answer("<array><data></data></array>")) as port:
            self.assertEqual(self.ctl("list", "--port", port, "--host", "localhost"),
                             f"N{advice.replace('doctor', 'doctor --host localhost')}.\n")


class StatusThreeTest(CtlTestCase):
    """The reasons of status 3 that further readings can tell apart."""

    NEEDED = {"HVA": "HVA and MZD", "MZD": "MZD"}

    def test_the_wrong_model(self):
        words = {str: TLM, int: 1, float: 1.5, bool: "on"}
        checked = [method for method in METHODS if method.check and method.fallback == 3]
        self.assertGreater(len(checked), 10)
        for method in checked:
            with self.subTest(method=method.name):
                self.expect_failure(
                    NOT_POSSIBLE, f"{method.name}: status 3: not supported by its model (TLM by "
                    f"name), only by {self.NEEDED[method.check]}\n",
                    "call", method.name, *(words[kind] for kind in method.parameters))
        self.expect_failure(NOT_POSSIBLE, f"{HVA}: status 3: not supported by its model (HVA by "
                            "name), only by MZD\n", "holdfast", "on", HVA)

    def test_a_gripper_that_is_not_plugged_in(self):
        self.expect_failure(NOT_POSSIBLE, "Grip: status 3: not plugged in\n",
                            "call", "Grip", "HVA SN:9", 0, "--exact")

    def test_an_error_3_of_the_master(self):
        with self.condition("error 0 3 PDOUT", "error 0 off"):
            for command in (("grip", HVA), ("home", HVA), ("call", "Disable", HVA)):
                self.expect_failure(NOT_POSSIBLE, "status 3: error 3 of its master, or the daemon "
                                    "was briefly busy: try again\n", *command)

    def test_a_busy_list(self):
        values = {"GetGrippers": GRIPPER, "Grip": "<int>3</int>",
                  "GetGripperInterface": "<int>-1</int>"}
        with http_server(200, values) as port:
            self.expect_failure(NOT_POSSIBLE, "X: status 3: the daemon is busy with another "
                                "master: try again\n", "grip", "--port", port)


if __name__ == "__main__":
    main()
