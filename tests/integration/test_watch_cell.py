"""tavrikctl watch of all grippers, on terminals of all sizes, and of one on small terminals."""

import csv
import json
import re

from .harness import ctl
from .harness.cell import wait_until
from .harness.cell_test_case import main
from .harness.ctl import NO_GRIPPER
from .harness.ctl_test_case import HVA, MZD, TLM, CtlTestCase, http_server
from .harness.terminal import watch_session


class WatchTestCase(CtlTestCase):
    def watch(self, *arguments, **options):
        watch = watch_session(*arguments, **options)
        self.addCleanup(watch.__exit__)
        return watch

    def expect_screen(self, watch, expected):
        """Waits until the screen shows these lines; ages below 10 s do not matter."""
        def shown():
            return [re.sub(r"\b\d s", "0 s", line) for line in watch.lines()]
        try:
            wait_until(lambda: shown() == expected)
        except AssertionError:
            self.assertEqual(shown(), expected)


class AllGrippersTest(WatchTestCase):
    WIDE = ["3 grippers                                                       127.0.0.1:44221",
            "",
            "GRIPPER          STATE  POSITION  FLAGS  VALUES  AGE  RANGE SO FAR",
            "HVA SN:100001        1     10.00  none   fresh   0 s  [########################]",
            "MZD-S SN:100002      1     10.00  none   fresh   0 s  [########################]",
            "TLM SN:100003        0     10.00  none   fresh   0 s  [########################]",
            "",
            "q: quit"]

    def test_without_a_name_every_gripper_has_a_row(self):
        self.expect_screen(self.watch(rows=8, columns=80), self.WIDE)

    def test_a_wide_screen_has_longer_bars(self):
        bar = "[" + 144 * "#" + "]"
        self.expect_screen(
            self.watch(rows=8, columns=200),
            ["3 grippers" + 175 * " " + "127.0.0.1:44221"] + self.WIDE[1:3] +
            [line[:line.index("[")] + bar for line in self.WIDE[3:6]] + self.WIDE[6:])

    def test_columns_are_left_out_where_there_is_no_room(self):
        self.expect_screen(self.watch(rows=8, columns=54),
                           ["3 grippers" + 29 * " " + "127.0.0.1:44221"] + self.WIDE[1:2] +
                           [line[:52].rstrip() for line in self.WIDE[2:6]] + self.WIDE[6:])
        self.expect_screen(self.watch(rows=8, columns=40),
                           ["3 grippers               127.0.0.1:44221"] + self.WIDE[1:2] +
                           [line[:39].rstrip() for line in self.WIDE[2:6]] + self.WIDE[6:])

    def test_the_smallest_screen_has_serial_numbers_states_and_positions(self):
        watch = self.watch(rows=6, columns=20)
        self.expect_screen(watch, ["3 grippers",
                                   "",
                                   "100001 1 10.00 none",
                                   "100002 1 10.00 none",
                                   "100003 0 10.00 none",
                                   "q: quit"])
        with self.condition("fault 1 temp-warn on", "fault 1 temp-warn off"):
            self.expect_screen(watch, ["3 grippers",
                                       "",
                                       "100001 1 10.00",
                                       "100002 1 10.00 !",
                                       "100003 0 10.00",
                                       "q: quit"])
            self.assertEqual([watch.colour_of(f"10000{number}") for number in (1, 2, 3)],
                             ["default", "red", "default"])
            watch.set_size(2, 20)
            self.expect_screen(watch, ["100002 1 10.00 !", "2 more"])

    def test_flags_and_frozen_values_are_shown_at_every_width(self):
        with self.condition("fault 0 maintenance on", "fault 0 maintenance off"), \
                self.condition("silent 2 on", "silent 2 off"):
            for columns, flagged, frozen in (
                    (80, "maintenance  fresh   ", r"none         frozen  +\d+ s"),
                    (60, "maintenance  fresh ", r"none         frozen  +\d+ s$"),
                    (45, "10.00  maintenance$", "10.00  frozen$"),
                    (40, "^100001       1     10.00  maintenance$", "^100003 .* frozen$"),
                    (30, "^100001 1 10.00 maintenance$", "^100003 0 10.00 frozen$"),
                    (20, "^100001 1 10.00 !$", "^100003 0 10.00 !$")):
                with (self.subTest(columns=columns),
                      watch_session(rows=8, columns=columns) as watch):
                    watch.wait_for(flagged)
                    watch.wait_for(frozen)

    def test_the_age_of_frozen_values_grows(self):
        watch = self.watch()
        watch.wait_for(r"^MZD-S SN:100002 .* fresh +[01] s ")
        with self.condition("silent 1 on", "silent 1 off"):
            watch.wait_for(r"^MZD-S SN:100002 .* frozen +3 s ")
            watch.wait_for(r"^HVA SN:100001 .* fresh +[01] s ")
        watch.wait_for(r"^MZD-S SN:100002 .* fresh +[01] s ")

    def test_rows_name_the_gripper(self):
        for option, names in (("--json", lambda lines: {json.loads(line)["gripper"]
                                                        for line in lines}),
                              ("--csv", lambda lines: {row["gripper"]
                                                       for row in csv.DictReader(lines)})):
            with self.subTest(option=option), ctl.Running("watch", option) as process:
                process.output.wait_for("fresh", count=9)
                self.assertEqual(names(process.output.lines[:10]), {HVA, MZD, TLM})
        with ctl.Running("watch") as process:
            process.output.wait_for("fresh", count=9)
            self.assertEqual([line[14:46] for line in process.output.lines[:4]],
                             ["GRIPPER          STATE  POSITION",
                              "HVA SN:100001        1     10.00",
                              "MZD-S SN:100002      1     10.00",
                              "TLM SN:100003        0     10.00"])

    def test_two_connections_are_enough_for_all(self):
        """The daemon serves 15 on each port."""
        watch = self.watch("--port", 44222)
        watch.wait_for("^HVA .* fresh ")
        self.assertLessEqual(self.connections(44222), 3)  # one of the start may be left

    @staticmethod
    def connections(port):
        """How many clients are connected to a port, according to the kernel."""
        with open("/proc/net/tcp", encoding="ascii") as table:
            return sum(line.split()[1].endswith(f":{port:04X}") and line.split()[3] == "01"
                       for line in table)

    def test_passive_sends_nothing(self):
        watch = self.watch("--passive")
        before = [self.cell.show(number)["requestCount"] for number in range(3)]
        watch.wait_for(r"^HVA .* unasked +\? ")
        watch.wait_for(r"^TLM .* unasked +\? ")
        self.assertEqual([self.cell.show(number)["requestCount"] for number in range(3)], before)


class ChangingCellTest(WatchTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--gripper", "TLM", "--gripper", "TLM",
               "--unplugged", "3")

    @classmethod
    def prepare(cls):
        cls.cell.wait_until_serving()
        cls.cell.wait_until_operating(3)

    def test_a_motion_moves_its_bar_only(self):
        watch = self.watch()
        watch.wait_for(r"^TLM .* 10\.00 .*\[#+\]$")
        self.ctl("release", "TLM")
        watch.wait_for(r"^TLM .* 18\.00 .*\[#+\]$")
        with self.condition("part 2 9", "part 2 none"):
            self.ctl("grip", "TLM")
            watch.wait_for(r"^TLM .* 9\.00 .*\[#{12} {12}\]$")
            watch.wait_for(r"^HVA .* 10\.00 .*\[#{24}\]$")
            self.ctl("release", "TLM")
            watch.wait_for(r"^TLM .* 18\.00 ")

    def test_an_unplugged_gripper_keeps_its_row_and_a_reason(self):
        watch = self.watch(columns=60)
        watch.wait_for("^HVA .* fresh ")
        with self.condition("unplug 1", "plug 1"):
            watch.wait_for(r"^MZD-S SN:100002      - +-  -      none +\d+ s$")
            watch.wait_for(f"^{MZD}: no longer known to the daemon$")
            self.assertEqual(watch.colour_of(MZD), "red")
        watch.wait_for("^MZD-S .* fresh ")

    def test_a_gripper_that_is_plugged_in_gets_a_row(self):
        watch = self.watch()
        watch.wait_for("^3 grippers ")
        self.cell.command("plug 3")
        watch.wait_for("^4 grippers ")
        watch.wait_for("^TLM SN:100004 .* fresh ")
        self.cell.command("unplug 3")


class WideCharactersTest(WatchTestCase):
    options = ("--gripper", r"HVA,product=\xe4\xb8\xad\xe6\x96\x87\xc3\xa4", "--gripper", "MZD-S")

    def test_columns_are_straight_in_every_locale(self):
        for locale in ("C", "POSIX", "C.UTF-8"):
            with self.subTest(locale=locale):
                watch = self.watch(environment={"LC_ALL": locale, "LANG": locale})
                watch.wait_for("^\u4e2d\u6587\u00e4 SN:100001 .* fresh ")
                watch.wait_for("^MZD-S SN:100002 .* fresh ")
                self.assertEqual([line[:23].rstrip()
                                  for line in watch.columns_from("POSITION")[2:5]],
                                 ["POSITION  FLAGS  VALUES",
                                  "   10.00  none   fresh",
                                  "   10.00  none   fresh"])

    def test_the_title_of_one_gripper_is_straight(self):
        for locale in ("C", "C.UTF-8"):
            with self.subTest(locale=locale):
                watch = self.watch("SN:100001", columns=60, environment={"LC_ALL": locale})
                watch.wait_for("^\u4e2d\u6587\u00e4 SN:100001 .* 127.0.0.1:44221$")
                self.assertEqual(watch.cells()[0].index("127.0.0.1:44221"), 60 - 15)


class OneGripperTest(WatchTestCase):
    """One gripper on screens of all sizes."""

    options = ("--gripper", "HVA")

    def test_nothing_is_cut_on_the_smallest_screen(self):
        watch = self.watch(rows=6, columns=20)
        self.expect_screen(watch, ["HVA SN:100001",
                                   "10.00 in state 1",
                                   "values fresh",
                                   "flags none",
                                   "",
                                   "0.00 [#######] 10.00"])
        with self.condition("fault 0 fault on", "fault 0 fault off"), \
                self.condition("fault 0 temp-warn on", "fault 0 temp-warn off"):
            self.expect_screen(watch, ["HVA SN:100001",
                                       "10.00 in state 15",
                                       "values fresh",
                                       "flags fault,",
                                       "temperature warning",
                                       ""])

    def test_the_server_is_left_out_on_a_narrow_screen(self):
        for columns, title in ((20, "HVA SN:100001"),
                               (40, "HVA SN:100001            127.0.0.1:44221"),
                               (80, "HVA SN:100001" + 52 * " " + "127.0.0.1:44221"),
                               (200, "HVA SN:100001" + 172 * " " + "127.0.0.1:44221")):
            with self.subTest(columns=columns):
                watch = self.watch(columns=columns)
                watch.wait_for("fresh")
                self.assertEqual(watch.lines()[0], title)

    def test_a_long_reason_is_wrapped(self):
        watch = self.watch(rows=12, columns=44)
        watch.wait_for("^values    fresh$")
        with self.condition("silent 0 on", "silent 0 off"):
            lines = watch.wait_for("^values    frozen: the master has not")
            self.assertRegex(lines[5], r"^          answered for \d+ s$")


class NoGripperTest(WatchTestCase):
    options = ()

    def test_there_must_be_a_gripper_at_the_start(self):
        self.expect_failure(NO_GRIPPER, "no grippers found", "watch")

    def test_values_are_old_while_the_daemon_does_not_answer(self):
        names = "".join(f"<value>{name}</value>" for name in "AB")
        values = {"GetGrippers": f"<array><data>{names}</data></array>",
                  "GetPDINExcerpt": "<int>262145</int>", "GetOverrideGrip": "<int>1</int>"}
        for arguments in ((), ("A",)):
            with self.subTest(arguments=arguments), \
                    http_server(200, values, answers=12) as port, \
                    watch_session(*arguments, "--port", port, "--timeout", 600) as watch:
                watch.wait_for(r"old: the daemon has not answered for [4-9] s$" if arguments else
                               r"^A .* old +[4-9] s ")


if __name__ == "__main__":
    main()
