"""tavrikctl log: the lines of the daemon, each with its gripper, and calls folded to one."""

import re
import threading

from .harness import ctl
from .harness.cell import PORTS
from .harness.cell_test_case import main
from .harness.ctl import NO_GRIPPER
from .harness.ctl_test_case import HVA, MZD, TLM
from .harness.log_test_case import LogTestCase

NOBODY = "HVA SN:999999"


class CallsTest(LogTestCase):
    """What calls leave in the log, each folded to one line."""

    def test_a_call_is_one_line_with_master_and_gripper(self):
        mark = self.cell.log.mark()
        self.call("Grip", HVA, 1)
        self.call("SetForce", HVA, 1, 60)
        self.call("GetForce", HVA, 1)
        self.call("Release", MZD, 2)
        lines = self.lines_so_far()
        rows = self.rows(self.file(lines))
        self.expect_row(rows, " ", "ttyACM0", HVA, r"Grip  PDOUT=\[3,1\]  0  [<~]1 s")
        self.expect_row(rows, " ", "ttyACM0", HVA, r"SetForce  PARAM\[97\]\[3\]  0  [<~]1 s")
        self.expect_row(rows, " ", "ttyACM0", HVA, r"GetForce  PARAM\[97\]\[3\]=\[3c\]  0  [<~]1 s")
        self.expect_row(rows, " ", "ttyACM1", MZD, r"Release  PDOUT=\[2,2\]  0  [<~]1 s")
        text = "\n".join(rows)
        for thread in {line.split()[1] for line in lines}:
            self.assertNotIn(thread, text)
        self.assertGreater(len(lines) - mark, 4 * 5)
        self.assertEqual(len(self.calls_since(mark)), 4)

    METHODS = (("Reference", MZD), ("Grip", MZD, 3), ("Holdfast", MZD, True),
               ("Holdfast", MZD, False), ("SetLEDPreset", MZD, 3), ("Disable", MZD),
               ("SetNoPartLimit", MZD, 0, 2.5), ("GetNoPartLimit", MZD, 0),
               ("SetReleaseLimit", MZD, 0, 2.5), ("GetReleaseLimit", MZD, 0),
               ("SetOverrideGrip", HVA, 90), ("GetOverrideGrip", HVA),
               ("SetOverrideRelease", HVA, 90), ("GetOverrideRelease", HVA),
               ("SetReferenceDirection", HVA, True), ("GetReferenceDirection", HVA),
               ("SetLEDColor", MZD, 0, 3), ("GetLEDColor", MZD, 0), ("SetLEDSpeed", MZD, 0, 3),
               ("GetLEDSpeed", MZD, 0), ("SetLEDAnimation", MZD, 0, 3),
               ("GetLEDAnimation", MZD, 0), ("StoreRemanent", HVA), ("GetParameterChecksum", HVA),
               ("Release", HVA, 0))

    def test_methods_are_inferred_from_requests(self):
        mark = self.cell.log.mark()
        for call in self.METHODS:
            self.call(*call)
        calls = self.calls_since(mark)
        self.assertEqual([(call["method"], call["gripper"]) for call in calls],
                         [call[:2] for call in self.METHODS])
        self.assertEqual({call["status"] for call in calls}, {0})

    def test_refusals_are_marked_and_have_their_reason(self):
        with self.condition("error 0 6 PDOUT", "error 0 off"):
            self.call("Grip", HVA, 1)
        self.call("Holdfast", HVA, True)
        self.call("GetForce", TLM, 0)
        self.call("Grip", NOBODY, 1)
        rows = self.rows(self.cell_log())
        self.expect_row(rows, "!", "ttyACM0", HVA, "Grip, Release or Disable  PDOUT  6  refused .*")
        self.expect_row(rows, "!", "ttyACM0", HVA, "DEVINFO  3  not supported by its model .*")
        self.expect_row(rows, "!", "ttyACM2", TLM, "DEVINFO  3  not supported by its model .*")
        self.expect_row(rows, "!", "", NOBODY, "Grip  3  no such gripper")

    def test_a_refused_call_is_not_taken_for_the_beginning_of_the_next(self):
        mark = self.cell.log.mark()
        self.call("Holdfast", HVA, True)
        self.call("Grip", HVA, 2)
        self.call("SetLEDColor", HVA, 0, 1)
        self.call("GetOverrideGrip", HVA)
        self.call("GetLEDColor", HVA, 0)
        self.call("Disable", MZD)
        self.assertEqual([(call["method"], call["status"], call["gripper"])
                          for call in self.calls_since(mark)],
                         [(None, 3, HVA), ("Grip", 0, HVA), (None, 3, HVA),
                          ("GetOverrideGrip", 0, HVA), (None, 3, HVA), ("Disable", 0, MZD)])

    def test_a_silent_master_is_marked_with_its_exact_time(self):
        mark = self.cell.log.mark()
        with self.condition("mute 1 on", "mute 1 off"):
            self.assertEqual(self.call("Grip", MZD, 1), 5)
        call, = self.calls_since(mark)
        self.assertEqual((call["method"], call["status"], call["note"], call["gripper"]),
                         ("Grip", 5, "no answer", MZD))
        self.assertRegex(call["request"], r"^PDOUT=\[[\da-f]+,1\]$")
        self.assertTrue(call["exact"] and call["alarming"])
        self.assertGreaterEqual(call["milliseconds"], 1000)

    def test_the_summary_counts_each_gripper(self):
        path = self.cell_log()
        before = {row["gripper"]: row for row in self.objects(path)[-1]["grippers"]}
        self.call("Grip", HVA, 1)
        self.call("Holdfast", HVA, True)
        with self.condition("mute 2 on", "mute 2 off"):
            self.call("Grip", TLM, 1)
        path = self.cell_log()
        summary = self.objects(path)[-1]
        self.assertEqual(summary["kind"], "summary")
        after = {row["gripper"]: row for row in summary["grippers"]}

        def change(gripper, name):
            return after[gripper][name] - before.get(gripper, {}).get(name, 0)
        self.assertEqual([change(HVA, name) for name in ("calls", "refusals", "timeouts")],
                         [2, 1, 0])
        self.assertEqual([change(TLM, name) for name in ("calls", "refusals", "timeouts")],
                         [1, 0, 1])
        text = self.ctl("log", path)
        self.assertRegex(text, rf"(?m)^{TLM}: \d+ calls?, \d+ refused, [1-9]\d* timed out")

    def test_readings_of_sets_that_do_not_exist_are_counted(self):
        mark = self.cell.log.mark()
        for number in range(20, 30):
            self.assertEqual(self.call("GetForce", HVA, number), 0)
            self.assertEqual(self.call("GetNoPartLimit", HVA, number), 0)
        self.call("SetForce", HVA, 30, 50)
        override = self.call("GetOverrideGrip", HVA)
        lines = self.lines_so_far()
        rows = [row.partition(HVA)[2].strip() for row in self.rows(self.file(lines))]
        begin = max(i for i, row in enumerate(rows) if row.startswith("GetForce  PARAM[116][3]  3"))
        self.assertEqual(
            [re.sub("<1 s|~1 s", "T", row) for row in rows[begin:begin + 5]],
            ["GetForce  PARAM[116][3]  3  refused; returned 0  T",
             "GetNoPartLimit  PARAM[116][1]  3  refused; returned 0  T",
             "18 more refused readings like those above",
             "Get/SetForce  PARAM[126][3]  3  refused  T",
             f"GetOverrideGrip  PARAM[64][1]=[{override:x}]  0  T"])
        self.assertNotIn("Parameter 1", "\n".join(rows[begin:]))
        every_row = [row for row in self.rows("-v", self.file(lines)) if "; returned 0" in row]
        self.assertEqual(len(every_row), 20)
        self.assertGreater(len(lines), mark)

    def test_grippers_can_be_selected(self):
        self.call("Grip", HVA, 1)
        self.call("Grip", MZD, 1)
        path = self.cell_log()
        for name in ("mzd", MZD, "100002", "ttyACM1"):
            rows = self.objects(name, path)
            self.assertEqual({row["gripper"] for row in rows if row["kind"] == "call"}, {MZD}, name)
            self.assertEqual([row["gripper"] for row in rows[-1]["grippers"]], [MZD])
        self.expect_failure_after("no gripper in the log matches 'none'", "none", path)

    def expect_failure_after(self, text, *arguments):
        result = ctl.run("log", *arguments)
        self.assertEqual(result.returncode, NO_GRIPPER)
        self.assertIn(text, result.stderr)

    def test_verbose_shows_every_line_with_its_owner(self):
        self.call("GetForce", HVA, 1)
        lines = self.lines_so_far()
        rows = self.rows("-v", self.file(lines))
        text = "\n".join(rows)
        for line in lines:
            message = line.split(" ", 2)[2]
            if "timed out" not in line and not message.startswith("Active command "):
                self.assertIn(message, text)
        self.expect_row(rows, " ", "ttyACM0", HVA, "New command DEVINFO. Active commands: 1")
        self.expect_row(rows, " ", "ttyACM0", HVA, r"Pending command PARAM\[97\]\[3\] deleted .*")
        self.expect_row(rows, " ", "", "daemon", r" +Node: /dev/ttyACM1")
        unknown = [row for row in rows if "  ? 1" in row]
        # Some are of the thread that handles an unplug; they name the tty themselves.
        self.assertEqual([row for row in unknown if "PELLIX handle" not in row
                          and "' not found" not in row and "/dev/tty" not in row], [])

    def test_routine_is_hidden(self):
        rows = self.rows(self.cell_log())
        text = "\n".join(rows)
        for routine in ("Parsing line", "ACK:", "thread active", "Node: ", "New command"):
            self.assertNotIn(routine, text)
        self.expect_row(rows, "*", "", "daemon", "TavrikDaemon started")
        self.expect_row(rows, "*", "ttyACM1", MZD, "OPERATE")


class ClientsTest(LogTestCase):
    """Calls of several clients at once, whose lines are mixed."""

    def robot(self, gripper, number, port):
        with self.cell.new_client(port) as client:
            for _ in range(40):
                client.Grip(gripper, number)
                client.GetForce(gripper, number)
                client.Release(gripper, number)
                client.GetNoPartLimit(gripper, number)

    def test_no_call_gets_a_wrong_gripper(self):
        mark = self.cell.log.mark()
        robots = {HVA: 5, MZD: 6, TLM: 7}  # the parameter set of each is in its requests
        threads = [threading.Thread(target=self.robot, args=(gripper, number, PORTS[number % 2]))
                   for gripper, number in robots.items()]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        calls = self.calls_since(mark)
        self.assertEqual(len(calls), 3 * 4 * 40)
        sure = [call for call in calls if call["gripper"]]
        self.assertGreater(len(sure), len(calls) / 4)
        for call in sure:
            with self.subTest(call=call):
                number = re.search(r"PDOUT=\[\w+,(\d)\]|PARAM\[(\d+)\]", call["request"])
                if number:
                    shown = int(number[1]) if number[1] else int(number[2]) - 0x60
                    self.assertEqual(shown, robots[call["gripper"]])
        for call in calls:
            if not call["gripper"]:
                self.assertGreaterEqual(len(call["candidates"]), 2, call)
                self.assertIn("thread", call)

    def test_what_cannot_be_assigned_is_shown_with_its_thread(self):
        lines = self.lines_so_far()
        thread = "140000000000001"
        lines += [f"12:00:00 {thread} New command PARAM[5][0]. Active commands: 1",
                  f"12:00:00 {thread} Pending command PARAM[5][0] deleted (Status: 0)."]
        rows = self.rows(self.file(lines))
        self.expect_row(rows, " ", "", f"? {thread}", r"PARAM\[5\]\[0\]  0  [<~]1 s")

    def test_a_log_that_begins_in_the_middle_shows_unknown_grippers(self):
        mark = self.cell.log.mark()
        self.call("Grip", HVA, 1)
        self.call("GetForce", HVA, 1)
        calls = self.calls(self.cell.log.since(mark))
        self.assertEqual([call["method"] for call in calls], ["Grip", "GetForce"])
        self.assertEqual({(call["master"], call["gripper"]) for call in calls}, {(None, None)})


class FaultsTest(LogTestCase):
    """Plugging, reopening, silence, restarts."""

    def test_plugging_is_marked(self):
        mark = self.cell.log.mark()
        plugged = len(self.cell.log.matching("Device added"))
        unplugged = len(self.cell.log.matching("PELLIX removed"))
        self.cell.command("unplug 0")
        self.cell.log.wait_for("PELLIX removed: /dev/ttyACM0", since=mark)
        mark = self.cell.log.mark()
        self.cell.command("plug 0")
        self.cell.log.wait_for("Device added", since=mark)
        self.cell.wait_until_operating(1, since=mark)
        self.call("Grip", HVA, 1)
        path = self.cell_log()
        rows = self.rows(path)
        self.expect_row(rows, "*", "ttyACM0", HVA, "PELLIX removed: /dev/ttyACM0")
        self.expect_row(rows, "*", "ttyACM0", HVA, "Device added")
        self.expect_row(rows[rows.index(next(row for row in rows if "Device added" in row)):],
                        " ", "ttyACM0", HVA, r"Grip  PDOUT=\[3,1\]  0  [<~]1 s")
        summary = self.objects(path)[-1]
        self.assertEqual((summary["plugged"], summary["unplugged"]),
                         (1 + plugged, 1 + unplugged))

    def test_repeated_lines_are_counted(self):
        mark = self.cell.log.mark()
        self.cell.command("hangup 2")
        self.addCleanup(self.cell.command, "plug 2")
        self.cell.log.wait_for("SerialConnection: Reopening", since=mark, count=20)
        rows = self.rows(self.cell_log())
        # A line that is repeated only once is shown twice if a line of another kind follows.
        self.assertLess(len([row for row in rows if "Reopening" in row]), 5)
        self.expect_row(rows, "*", "ttyACM2", TLM, "SerialConnection: Reopening")
        self.expect_row(rows, "!", "ttyACM2", TLM, "Input timeout")
        self.expect_row(rows, "!", "ttyACM2", TLM, r"\d+ more lines like those above")
        self.assertGreaterEqual(self.objects(self.cell_log())[-1]["reopened"], 20)

    def test_a_restart_forgets_the_threads(self):
        lines = self.lines_so_far()
        again = [line.replace("ttyACM0", "ttyACM8").replace("ttyACM1", "ttyACM0")
                 for line in lines]
        rows = self.objects(self.file(lines + again))
        self.assertEqual(rows[-1]["starts"], 2)
        second = rows[[row.get("text", "").startswith("Starting") for row in rows].index(True, 1):]
        masters = {row["gripper"]: row["master"] for row in second
                   if row["kind"] == "event" and row["gripper"]}
        self.assertEqual(masters[HVA], "/dev/ttyACM8")


if __name__ == "__main__":
    main()
