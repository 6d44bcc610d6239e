"""pellix-sim tap: recording real masters."""

import os
import pathlib
import re
import signal
import subprocess
import termios
import threading
import tty

from .harness.cell import HVA, PATIENCE, SANITIZER_REPORT, Output, wait_until
from .harness.cell_test_case import main
from .harness.recording_test_case import (DAEMON, FAST, SIMULATOR, RecordingTestCase, Session,
                                          running)


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
        """All bytes that went in one direction, as far as their lines are complete."""
        parts = re.findall(rf"(?m)^ *[\d.]+ {master} {word} (.*)\n", self.path.read_text())
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
            tapped = Session(cell, simulated=True).run()
            cell.stop()
        with running("--replay", str(path)) as cell:
            replayed = Session(cell, simulated=False).run()
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
