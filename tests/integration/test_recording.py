"""Dialogues between the daemon and its masters: recorded, tapped, and played again."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import termios
import threading
import tty
import unittest

from .harness.cell import PATIENCE, PORTS, SANITIZER_REPORT, Cell, Output, answers, wait_until
from .harness.cell_test_case import main, output_on_failure, started
from .test_docs import ROOT, blocks

SIMULATOR = os.environ["TAVRIK_SIMULATOR"]
DAEMON = os.environ["TAVRIK_DAEMON"]
DATA = ROOT / "tests" / "data"
PAGE = ROOT / "docs" / "recording.md"

HVA, MZD = "HVA SN:100001", "MZD-S SN:100002"
FAST = ("--speed", "1000")  # the way is not what is tried

OPERATING = r"Pending command PDOUT deleted \(Status: 0\)"
READY, RELEASED, HOLDING, NO_PART = 8, 4, 6, 7


@contextlib.contextmanager
def running(*options, **settings):
    """A cell whose output is shown when the test fails."""
    cell = Cell(*options, **settings)
    started.append(cell)
    with output_on_failure("cell", cell):
        try:
            yield cell
        finally:
            cell.close_clients()
            cell.end_by_force()


def requests(path, master=0):
    """The requests to a master, as a recording has them."""
    lines = [line.split(" > ", 1) for line in path.read_text().splitlines() if " > " in line]
    return [text for place, text in lines if place.split()[1] == str(master)]


class RecordingTestCase(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))


class Shift:
    """What clients do in a cell of two grippers, with their answers.

    What happens to the cell beside it is asked of the simulator. In a replay it happens by itself.
    """

    def __init__(self, cell, simulated):
        self.cell = cell
        self.simulated = simulated
        self.answers = []

    def happens(self, command):
        if self.simulated:
            self.cell.command(command)

    def ask(self, method, *arguments):
        self.answers.append((method, *arguments, self.cell.call(method, *arguments)))

    def wait_for(self, value, method, *arguments):
        wait_until(lambda: self.cell.call(method, *arguments) == value)
        self.answers.append((method, *arguments, value))

    def work(self):
        self.cell.wait_until_serving()
        self.cell.wait_until_operating(2)
        self.grip_and_release()
        self.read_and_write()
        self.lose_a_master()
        return self.answers

    def grip_and_release(self):
        self.ask("GetGrippers")
        for gripper in (HVA, MZD):
            self.ask("Reference", gripper)
            self.wait_for(READY, "GetState", gripper)
        self.happens("part 0 12.5")
        self.ask("Grip", HVA, 1)
        self.wait_for(HOLDING, "GetState", HVA)
        self.ask("GetPos", HVA)
        self.ask("Release", HVA, 1)
        self.wait_for(RELEASED, "GetState", HVA)
        self.ask("GetPos", HVA)

    def read_and_write(self):
        for gripper in (HVA, MZD):
            self.ask("GetForce", gripper, 2)
            self.ask("SetForce", gripper, 2, 77)
            self.ask("GetForce", gripper, 2)
            self.ask("GetNoPartLimit", gripper, 3)
        self.happens("error 0 44 PARAM[97][3]")
        self.ask("SetForce", HVA, 1, 50)
        self.happens("error 0 off")
        self.happens("fault 1 temp-warn on")
        self.wait_for(True, "GetTempWarn", MZD)

    def lose_a_master(self):
        # The last request before is where the distance to the unplug is counted from.
        self.ask("GetForce", HVA, 2)
        mark = self.cell.log.mark()
        self.happens("unplug 0")
        self.wait_for([MZD], "GetGrippers")
        self.ask("Grip", HVA, 1)
        # A time-out of a second, so that nobody can miss that the other one is away.
        self.happens("mute 1 on PARAM[98][3]")
        self.ask("SetForce", MZD, 2, 10)
        self.happens("mute 1 off PARAM[98][3]")
        self.happens("plug 0")
        self.cell.log.wait_for("Device added$", since=mark)
        self.cell.wait_until_operating(1, since=mark)
        self.wait_for([MZD, HVA], "GetGrippers")
        self.wait_for(28.0, "GetPos", HVA)
        self.ask("GetForce", HVA, 2)


class ReplayTest(RecordingTestCase):
    """One shift of a cell, recorded once for all tests."""

    @classmethod
    def setUpClass(cls):
        cls.recording = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory())) / "a.rec"
        options = (*FAST, "--gripper", "HVA", "--gripper", "MZD-S",
                   "--record", str(cls.recording))
        with running(*options) as cell:
            cls.answers = Shift(cell, simulated=True).work()
            cell.stop()

    def replay(self, *options):
        """The same shift with the recording in place of the cell."""
        with running("--replay", str(self.recording), *options) as cell:
            answers = Shift(cell, simulated=False).work()
            cell.stop()
            for number in range(2):
                count = len(requests(self.recording, number))
                cell.errors.wait_for(f"^pellix-sim: replay {number}: {count} of {count} requests "
                                     "played, deviations: 0$")
        return answers

    def test_the_shift_is_worth_a_replay(self):
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
                         (1, "pellix-sim: error: cannot read /nowhere/a.rec\n"))

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


class Tap:
    """A tap of ttys that the test has in its hands."""

    def __init__(self, test, *ttys, command=()):
        self.path = test.folder / "tap.rec"
        self.process = subprocess.Popen(
            [SIMULATOR, "tap", *ttys, str(self.path), *command],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.output = Output("standard output", self.process.stdout)
        self.errors = Output("standard error", self.process.stderr)
        test.addCleanup(self.end_by_force)

    def end_by_force(self):
        self.process.kill()
        self.process.wait()
        for output in (self.output, self.errors):
            output.reader.join()
        if self.errors.matching(SANITIZER_REPORT):
            raise AssertionError("\n".join(self.errors.since(0)))

    def node(self, count=1, master=0):
        """The node for clients, when it is told for the count-th time."""
        line = self.errors.wait_for(f"is master {master}, for clients /dev/", count=count)
        return line.rpartition(" ")[2]

    def recorded(self, word, master=0):
        """All bytes that went in one direction."""
        parts = re.findall(rf"(?m)^ *[\d.]+ {master} {word} (.*)$", self.path.read_text())
        return b"".join(self.unescape(part) for part in parts)

    @staticmethod
    def unescape(text):
        return text.replace(r"\0", r"\x00").encode().decode("unicode_escape").encode("latin-1")


class Master:
    """The device's end of a tty, behind a link that stays its name when it is plugged in again."""

    def __init__(self, test, name="ttyACM0"):
        self.link = test.folder / name
        self.plug()
        test.addCleanup(self.unplug)

    def plug(self):
        self.end, self.tty = os.openpty()
        self.link.symlink_to(os.ttyname(self.tty))

    def unplug(self):
        if self.end is not None:
            self.link.unlink()
            os.close(self.tty)
            os.close(self.end)
            self.end = None

    def stall(self, on):
        termios.tcflow(self.tty, termios.TCOOFF if on else termios.TCOON)


def read_exactly(descriptor, size):
    """Waits for so many bytes; fewer only if the other side hangs up."""
    data = b""
    while len(data) < size:
        part = os.read(descriptor, size - len(data))
        if not part:
            break
        data += part
    return data


EVERY_BYTE = bytes(range(256))


class TapTest(RecordingTestCase):
    def setUp(self):
        super().setUp()
        self.master = Master(self)

    def open(self, node):
        client = os.open(node, os.O_RDWR | os.O_NOCTTY)
        self.addCleanup(os.close, client)
        return client

    def tap(self, *ttys, **settings):
        return Tap(self, *(ttys or [str(self.master.link)]), **settings)

    def expect_passage(self, client, master=None):
        master = master or self.master
        os.write(client, b"ID?\n")
        self.assertEqual(read_exactly(master.end, 4), b"ID?\n")
        os.write(master.end, b"FIN ID\n")
        self.assertEqual(read_exactly(client, 7), b"FIN ID\n")

    def test_every_byte_goes_through_both_ways_and_into_the_file(self):
        tap = self.tap()
        client = self.open(tap.node())
        os.write(client, EVERY_BYTE)
        self.assertEqual(read_exactly(self.master.end, 256), EVERY_BYTE)
        os.write(self.master.end, EVERY_BYTE)
        self.assertEqual(read_exactly(client, 256), EVERY_BYTE)
        wait_until(lambda: tap.recorded("<") == EVERY_BYTE)
        self.assertEqual(tap.recorded(">"), EVERY_BYTE)
        self.assertTrue(tap.path.read_text().isascii())

    def test_the_settings_of_the_tty_are_as_before_in_the_end(self):
        before = termios.tcgetattr(self.master.tty)
        tap = self.tap()
        tap.node()
        self.assertFalse(termios.tcgetattr(self.master.tty)[tty.LFLAG] &
                         (termios.ECHO | termios.ICANON))
        tap.process.terminate()
        self.assertEqual(tap.process.wait(PATIENCE), 0)
        self.assertEqual(termios.tcgetattr(self.master.tty), before)

    def test_signals_end_it_and_hang_up(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number):
                tap = self.tap()
                client = self.open(tap.node())
                self.expect_passage(client)
                tap.process.send_signal(number)
                self.assertEqual(tap.process.wait(PATIENCE), 0)
                self.assertEqual(os.read(client, 10), b"")
                tap.path.unlink()

    def test_the_client_may_hang_up_and_come_again(self):
        tap = self.tap()
        for _ in range(3):
            client = os.open(tap.node(), os.O_RDWR | os.O_NOCTTY)
            self.expect_passage(client)
            os.write(client, b"last words\n")
            os.close(client)
            self.assertEqual(read_exactly(self.master.end, 11), b"last words\n")
        self.assertIsNone(tap.process.poll())

    def test_the_master_may_hang_up_and_come_again(self):
        tap = self.tap()
        client = self.open(tap.node())
        self.expect_passage(client)
        self.master.unplug()
        self.assertEqual(os.read(client, 10), b"")
        tap.errors.wait_for(f"^pellix-sim: tap: {self.master.link} has hung up; "
                            "waiting for its return$")
        self.master.plug()
        self.expect_passage(self.open(tap.node(count=2)))
        tap.process.terminate()
        tap.process.wait(PATIENCE)
        words = re.findall(r"(?m)^ *[\d.]+ 0 (\S+)", tap.path.read_text())
        self.assertEqual(words, ["plug", ">", "<", "unplug", "plug", ">", "<"])

    def pour(self, source, data):
        """Writes on a thread of its own. Returns when no more is taken for now."""
        progress = [0]

        def write():
            while progress[0] < len(data):
                progress[0] += os.write(source, data[progress[0]:progress[0] + 1000])

        thread = threading.Thread(target=write, daemon=True)
        thread.start()
        last, since = -1, 0
        while since < 20:
            since = since + 1 if progress[0] == last else 0
            last = progress[0]
            thread.join(0.01)
        self.assertLess(last, len(data), "nothing holds the writer back")
        return thread

    def test_nothing_is_lost_while_the_client_does_not_read(self):
        tap = self.tap()
        client = self.open(tap.node())
        data = EVERY_BYTE * 2000
        self.expect_passage(client)
        writer = self.pour(self.master.end, data)
        self.assertEqual(read_exactly(client, len(data)), data)
        writer.join(PATIENCE)
        wait_until(lambda: tap.recorded("<") == b"FIN ID\n" + data)

    def test_nothing_is_lost_while_the_master_takes_nothing(self):
        tap = self.tap()
        client = self.open(tap.node())
        data = EVERY_BYTE * 2000
        self.master.stall(True)
        writer = self.pour(client, data)
        self.master.stall(False)
        self.assertEqual(read_exactly(self.master.end, len(data)), data)
        writer.join(PATIENCE)
        wait_until(lambda: tap.recorded(">") == data)

    def test_two_masters_in_one_recording(self):
        other = Master(self, "ttyACM1")
        tap = self.tap(str(self.master.link), str(other.link))
        self.expect_passage(self.open(tap.node(master=0)))
        self.expect_passage(self.open(tap.node(master=1)), other)
        wait_until(lambda: tap.recorded("<", master=1) == b"FIN ID\n")
        self.assertEqual(tap.recorded(">", master=0), b"ID?\n")

    def test_the_command_finds_the_master_and_its_status_counts(self):
        tap = self.tap(command=["--", "sh", "-c", "exec 3<>/dev/ttyACM0; echo ready; head -n 1 <&3; "
                                "printf 'last words' >&3; exit 7"])
        tap.output.wait_for("^ready$")
        os.write(self.master.end, b"hello\n")
        tap.output.wait_for("^hello$")
        self.assertEqual(tap.process.wait(PATIENCE), 7)
        self.assertEqual(read_exactly(self.master.end, 10), b"last words")
        self.assertEqual(tap.recorded(">"), b"last words")

    def test_what_cannot_be_tapped(self):
        for arguments, status, reason in (
                (["tap"], 2, "usage: tap needs a TTY and a FILE; see pellix-sim --help"),
                (["tap", "/dev/none", "a.rec"], 1,
                 "error: cannot tap /dev/none: No such file or directory"),
                (["tap", "/dev/null", "a.rec"], 1,
                 "error: cannot tap /dev/null: Inappropriate ioctl for device"),
                (["tap", str(self.master.link), "/nowhere/a.rec"], 1,
                 "error: cannot create /nowhere/a.rec: No such file or directory")):
            with self.subTest(arguments=arguments):
                run = subprocess.run([SIMULATOR, *arguments], cwd=self.folder, capture_output=True,
                                     text=True, timeout=PATIENCE)
                self.assertEqual((run.returncode, run.stderr), (status, f"pellix-sim: {reason}\n"))
                self.assertFalse((self.folder / "a.rec").exists())

    def test_a_killed_tap_leaves_a_whole_file_and_no_command(self):
        tap = self.tap(command=["--", "sh", "-c", "exec 3<>/dev/ttyACM0; echo $$; cat <&3"])
        pid = int(tap.output.wait_for(r"^\d+$"))
        os.write(self.master.end, b"hello\n")
        wait_until(lambda: tap.path.read_text().endswith(r" 0 < hello\n" + "\n"))
        tap.process.kill()
        tap.process.wait(PATIENCE)
        wait_until(lambda: not pathlib.Path(f"/proc/{pid}").exists())


class FieldTest(RecordingTestCase):
    """From a tap in a cell, here a simulated one, to a test."""

    def test_what_was_tapped_can_be_played(self):
        path = self.folder / "field.rec"
        tap = [SIMULATOR, "tap", "/dev/ttyACM0", "/dev/ttyACM1", str(path), "--", DAEMON]
        with running(*FAST, "--gripper", "HVA", "--gripper", "MZD-S", command=tap) as cell:
            tapped = Shift(cell, simulated=True).work()
            cell.stop()
        with running("--replay", str(path)) as cell:
            replayed = Shift(cell, simulated=False).work()
            cell.stop()
            cell.errors.wait_for("^pellix-sim: replay .*, deviations: 0$", count=2)
        self.assertEqual(replayed, tapped)

    def test_a_hung_master_is_seen_through_a_tap(self):
        path = self.folder / "field.rec"
        tap = [SIMULATOR, "tap", "/dev/ttyACM0", str(path), "--", DAEMON]
        with running("--gripper", "HVA", command=tap) as cell:
            cell.wait_until_serving()
            cell.wait_until_operating(1)
            cell.command("stall 0 on")
            # The first write is still taken, by the tap.
            self.assertEqual(cell.call("SetForce", HVA, 1, 22), 12)
            cell.command("stall 0 off")
            wait_until(lambda: cell.call("SetForce", HVA, 1, 23) == 0)
            cell.stop()


if __name__ == "__main__":
    main()
