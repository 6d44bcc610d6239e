"""Dialogues between the daemon and its masters: recorded, tapped, and played again."""

import os
import pathlib
import re
import signal
import subprocess
import tempfile

from .harness.cell import HOLDING, HVA, MZD, NO_PART, PATIENCE, PORTS, READY, answers, wait_until
from .harness.cell_test_case import main
from .harness.pages import ROOT, blocks
from .harness.recording_test_case import (DAEMON, DATA, FAST, OPERATING, SIMULATOR,
                                          RecordingTestCase, Session, requests, running)

PAGE = ROOT / "docs" / "recording.md"


class ReplayTest(RecordingTestCase):
    """One session of a cell, recorded once for all tests."""

    @classmethod
    def setUpClass(cls):
        cls.recording = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory())) / "a.rec"
        options = (*FAST, "--gripper", "HVA", "--gripper", "MZD-S",
                   "--record", str(cls.recording))
        with running(*options) as cell:
            cls.answers = Session(cell, simulated=True).run()
            cell.stop()

    def replay(self, *options):
        """The same session with the recording in place of the cell."""
        with running("--replay", str(self.recording), *options) as cell:
            answers = Session(cell, simulated=False).run()
            cell.stop()
            for number in range(2):
                count = len(requests(self.recording, number))
                cell.errors.wait_for(f"^pellix-sim: replay {number}: {count} of {count} requests "
                                     "played, deviations: 0$")
        return answers

    def test_the_recorded_session_covers_every_event(self):
        answers = {answer[:-1]: answer[-1] for answer in self.answers}
        self.assertEqual(answers["SetForce", HVA, 1, 50], 44)
        self.assertEqual(answers["SetForce", MZD, 2, 10], 5)
        self.assertEqual(answers["Grip", HVA, 1], 3)
        self.assertIn(("GetPos", HVA, 12.5), self.answers)
        self.assertEqual(answers["GetForce", MZD, 2], 77)
        text = self.recording.read_text()
        for word in ("plug", "unplug", r"< ERR PARAM\[97\]\[3\] 44", r"< @PDIN=\[\]"):
            self.assertRegex(text, rf"(?m)^ *\d+\.\d{{6}} 0 {word}")

    def test_the_same_calls_have_the_same_answers(self):
        self.assertEqual(self.replay(), self.answers)

    def test_answers_can_come_at_once(self):
        self.assertEqual(self.replay("--at-once"), self.answers)

    def test_a_replay_can_be_recorded(self):
        again = self.folder / "again.rec"
        self.replay("--record", str(again))
        for number in range(2):
            self.assertEqual(requests(again, number), requests(self.recording, number))

    def test_recorded_masters_stand_beside_simulated_ones(self):
        with running("--gripper", "TLM", "--replay", str(self.recording)) as cell:
            cell.wait_until_serving()
            cell.wait_until_operating(3)
            self.assertCountEqual(cell.call("GetGrippers"), ["TLM SN:100001", HVA, MZD])
            self.assertEqual(cell.call("Reference", HVA), 0)
            wait_until(lambda: cell.call("GetState", HVA) == READY)
            cell.stop()

    def test_a_deviation_is_told_and_has_its_status(self):
        with running("--replay", str(self.recording)) as cell:
            cell.wait_until_serving()
            cell.wait_until_operating(2)
            self.assertEqual(cell.call("Disable", HVA), 99)
            told = cell.errors.wait_for(
                r"^pellix-sim: replay 0: deviation: PDOUT=\[0,0\] instead of DEVINFO\? "
                rf"\({self.recording}:\d+\); answered with ERR 99$")
            line = int(re.search(r":(\d+)\)", told)[1])
            self.assertRegex(self.recording.read_text().splitlines()[line - 1],
                             r" 0 > DEVINFO\?\\n$")
            self.assertEqual(cell.call("Reference", HVA), 0)  # goes on as recorded
            wait_until(lambda: cell.call("GetState", HVA) == READY)
            cell.close_clients()
            cell.process.send_signal(signal.SIGINT)
            self.assertEqual(cell.wait_for_end(), 3)
            cell.errors.wait_for(r"^pellix-sim: replay 0: \d+ of \d+ requests played, deviations: 1$")

    def test_a_command_for_a_gripper_is_refused(self):
        with running("--replay", str(self.recording)) as cell:
            with self.assertRaisesRegex(AssertionError, "error: the master replays a recording"):
                cell.command("part 0 12.5")


class ReportTest(RecordingTestCase):
    def test_a_fault_from_the_field(self):
        gripper = "HVA SN:4711"
        report = DATA / "fallback.rec"
        with running("--replay", str(report)) as cell:
            cell.wait_until_serving()
            cell.wait_until_operating(1)
            wait_until(lambda: cell.call("GetPos", gripper) == 30.0)
            mark = cell.log.mark()
            self.assertEqual(cell.call("Grip", gripper, 0), 6)
            cell.log.wait_for("FALLBACK: Waiting and Restarting$", since=mark)
            cell.wait_until_operating(1, since=mark)
            self.assertEqual(cell.call("GetPos", gripper), 30.0)
            self.assertEqual(cell.call("Grip", gripper, 0), 0)
            wait_until(lambda: cell.call("GetState", gripper) == HOLDING)
            self.assertEqual(cell.call("GetPos", gripper), 12.5)
            cell.errors.wait_for("^pellix-sim: replay 0: .*fallback.rec has ended$")
            cell.stop()
            count = len(requests(report))
            cell.errors.wait_for(f"^pellix-sim: replay 0: {count} of {count} requests played, "
                                 "deviations: 0$")


class PageTest(RecordingTestCase):
    """The sessions of the page, typed in a cell with one gripper."""

    PROGRAMS = os.pathsep.join(str(pathlib.Path(path).parent) for path in (SIMULATOR, DAEMON))

    @classmethod
    def setUpClass(cls):
        text = "".join(text for _, text, _ in blocks(PAGE, "console"))
        parts = re.split(r"(?m)^[#$] (.*)\n", text.replace("^C", ""))
        cls.sessions = dict(zip(parts[1::2], parts[2::2], strict=True))
        examples = [text for _, text, _ in blocks(PAGE, "")]
        cls.deviations = next(text for text in examples if "deviation" in text)
        cls.recording = next(text for text in examples if text.startswith("pellix-recording"))

    def play(self, start, work=None):
        """Types the command of the page that begins so; checks what it says.

        @return its status
        """
        command, = (command for command in self.sessions if command.startswith(start))
        shell = f"cd {self.folder}; PATH={self.PROGRAMS}:$PATH; exec {command}"
        with running(*FAST, "--gripper", "HVA", command=["sh", "-c", shell]) as cell:
            if work:
                work(cell)
                cell.close_clients()
                cell.process.send_signal(signal.SIGINT)
            status = cell.wait_for_end()
            said = "\n".join(cell.errors.since(0)) + "\n"
        return status, said, self.sessions[command]

    @staticmethod
    def without_numbers(text):
        """What is another one each time: the ptys, and how often the master has streamed."""
        return re.sub(r"(/dev/pts/|field.rec:)\d+", r"\1N", text)

    def expect_session(self, start, work=None):
        status, said, expected = self.play(start, work)
        self.assertEqual(self.without_numbers(said), self.without_numbers(expected))
        return status

    def wait_until_operating(self, name):
        log = self.folder / name
        wait_until(log.exists)
        for pattern in ("TavrikDaemon started", OPERATING, r"(?m)FIN:PDOUT$"):
            wait_until(lambda: re.search(pattern, log.read_text()))
        wait_until(lambda: answers(PORTS[0]))

    def grip(self, cell):
        self.assertEqual(cell.call("Reference", HVA), 0)
        wait_until(lambda: cell.call("GetState", HVA) == READY)
        self.assertEqual(cell.call("Grip", HVA, 1), 0)
        wait_until(lambda: cell.call("GetState", HVA) == NO_PART)

    def in_the_cell(self, cell):
        self.wait_until_operating("field.log")
        self.grip(cell)

    def at_the_desk(self, cell):
        self.wait_until_operating("log")
        self.grip(cell)
        cell.errors.wait_for("field.rec has ended$")

    def with_other_calls(self, cell):
        self.wait_until_operating("log")
        self.assertEqual(cell.call("Release", HVA, 1), 99)
        self.grip(cell)
        self.assertEqual(cell.call("Release", HVA, 1), 99)

    def test_from_a_cell_to_a_test(self):
        self.assertEqual(self.expect_session("pellix-sim tap /dev/ttyACM0 field.rec",
                                             self.in_the_cell), 0)
        self.assertEqual(self.expect_session("pellix-sim --replay field.rec", self.at_the_desk), 0)
        (self.folder / "log").unlink()
        status, said, _ = self.play("pellix-sim --replay field.rec", self.with_other_calls)
        self.assertEqual(status, 3)
        told = "".join(line + "\n" for line in said.splitlines() if "deviation" in line)
        self.assertEqual(self.without_numbers(told), self.without_numbers(self.deviations))

    def test_a_tap_for_other_clients(self):
        def read(cell):
            node = cell.errors.wait_for("for clients /dev/").rpartition(" ")[2]
            with open(node, "rb") as client:
                self.assertEqual(client.readline(), b"@PDIN=[]\n")

        self.assertEqual(self.expect_session("pellix-sim tap /dev/ttyACM0 terminal.rec", read), 0)

    def test_the_example_is_a_recording(self):
        path = self.folder / "page.rec"
        path.write_text(self.recording)
        run = subprocess.run([SIMULATOR, "--replay", str(path), "--", "sh", "-c",
                              "exec 3<>/dev/ttyACM0; for key in ID MODE; do echo $key? >&3; "
                              "head -n 3 <&3; done; cat <&3"],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True,
                             timeout=PATIENCE)
        self.assertEqual(run.stdout, "ACK ID\nID=PELLIX\nFIN ID\n"
                                     "ACK MODE\nMODE=3\nFIN MODE\n@PDIN=[]\n")
        self.assertIn("2 of 2 requests played, deviations: 0\n", run.stderr)

    def test_a_broken_file(self):
        lines = self.recording.splitlines(keepends=True)
        lines[5:7] = reversed(lines[5:7])
        (self.folder / "broken.rec").write_text("".join(lines))
        self.assertEqual(self.expect_session("pellix-sim --replay broken.rec"), 1)


class BrokenFileTest(RecordingTestCase):
    HEADER = "pellix-recording 1\n"
    PLUGGED = HEADER + "0 0 plug\n"

    def run_simulator(self, *options):
        return subprocess.run([SIMULATOR, *options, "--", "true"], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=PATIENCE)

    def test_file_line_and_reason_are_told(self):
        broken = {
            "": "1: not a recording: the first line must be 'pellix-recording 1'",
            "# a note\n": "1: not a recording: the first line must be 'pellix-recording 1'",
            "pellix-recording 2\n":
                "1: not a recording: the first line must be 'pellix-recording 1'",
            self.HEADER: "2: the recording has no events",
            self.PLUGGED + "x 0 unplug\n": "3: invalid number 'x'",
            self.PLUGGED + "-1 0 unplug\n":
                "3: invalid time '-1': expected seconds, at most a year",
            self.PLUGGED + "1\n": "3: missing master",
            self.PLUGGED + "1 a unplug\n": "3: invalid number 'a'",
            self.PLUGGED + "1 1000 plug\n": "3: invalid number '1000': the maximum is 999",
            self.PLUGGED + "1 0\n": "3: missing event",
            self.PLUGGED + "1 0 ID?\n":
                "3: invalid event 'ID?': expected >, <, plug, unplug or hangup",
            self.PLUGGED + "1 0 >\n": "3: missing bytes after >",
            self.PLUGGED + "1 0 > ID?\\m\n": "3: unknown escape '\\m'",
            self.PLUGGED + "1 0 unplug now\n": "3: unexpected argument 'now'",
            self.PLUGGED + "\n2 0 < A\\n\n# why\n1 0 < B\\n\n":
                "6: the time is before that of line 4",
            self.PLUGGED + "1 0 plug\n": "3: the master is already plugged in",
            self.PLUGGED + "1 1 > A\\n\n": "3: the master is not plugged in",
        }
        path = self.folder / "broken.rec"
        for text, reason in broken.items():
            with self.subTest(reason=reason, text=text):
                path.write_text(text)
                run = self.run_simulator("--replay", str(path))
                self.assertEqual(run.stderr, f"pellix-sim: error: {path}:{reason}\n")
                self.assertEqual(run.returncode, 1)

    def test_a_file_that_is_not_there(self):
        run = self.run_simulator("--replay", "/nowhere/a.rec")
        self.assertEqual((run.returncode, run.stderr),
                         (1, "pellix-sim: error: cannot read /nowhere/a.rec: "
                             "No such file or directory\n"))

    def test_a_recording_is_not_overwritten(self):
        path = self.folder / "a.rec"
        path.write_text("evidence")
        run = self.run_simulator("--record", str(path))
        self.assertEqual((run.returncode, run.stderr),
                         (1, f"pellix-sim: error: cannot create {path}: File exists\n"))
        self.assertEqual(path.read_text(), "evidence")

    def test_a_recording_without_room_is_told(self):
        path = self.folder / "a.rec"
        run = subprocess.run(["prlimit", "--fsize=200", SIMULATOR, "--gripper", "TLM",
                              "--record", str(path), "--", "sh", "-c",
                              "exec 3<>/dev/ttyACM0; head -n 20 <&3"],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True,
                             timeout=PATIENCE)
        self.assertEqual((run.returncode, run.stderr), (
            1, f"pellix-sim: error: cannot write {path}: No space left on device; "
            "the recording ends here\n"))
        self.assertTrue(path.read_text().endswith("\n"))
        self.assertLessEqual(len(path.read_text()), 200)


if __name__ == "__main__":
    main()
