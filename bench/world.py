"""Cells of fast simulated masters, with a command in them."""

import contextlib
import json
import os
import pathlib
import signal
import subprocess
import tempfile

import processes
from tests.integration.harness.cell import PATIENCE, Output, wait_until

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"
PROGRAMS = BUILD / "bench"

POSITION = "25.0"  # that every master tells
SETTLING_RATE = 100  # lines a second
LINES_TO_SETTLE = 5  # of each master, until all of them have told their position


def device(number):
    """The device string of the gripper behind master `number`."""
    return f"HVA SN:B{number:02}"


def ttys(count):
    return [f"/dev/ttyACM{number}" for number in range(count)]


class Cell:
    """bench-cell with a command in it, whose output goes to a file. Ends with its `with` block."""

    def __init__(self, *command, masters=0, unplugged=False, fin_file=None):
        self.pid = None  # of the command
        self.plugged = 0 if unplugged else masters
        self.output = tempfile.NamedTemporaryFile(prefix="bench-")
        options = ["--masters", str(masters), "--rate", "0", *["--unplugged"] * unplugged,
                   *(["--fin-file", fin_file] if fin_file else [])]
        # A session of its own: Ctrl-C is for the driver, which then ends everything in order.
        self.process = subprocess.Popen(
            [*processes.MORTAL, PROGRAMS / "bench-cell", *options, "--", *command],
            stdin=subprocess.PIPE, stdout=self.output, stderr=subprocess.PIPE, bufsize=0,
            start_new_session=True)
        try:
            self.errors = Output("bench-cell", self.process.stderr)
            self.pid = int(self.errors.wait_for(r"^bench-cell: pid \d+$").split()[-1])
        except BaseException:
            self.end()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def end(self):
        """SIGTERM, not SIGINT: the orderly end of a server with many quiet masters takes long."""
        self.resume()
        self.process.terminate()
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()  # the command dies with it
            self.process.wait()
        self.process.stdin.close()
        self.output.close()

    # The command

    def text(self):
        """What the command has written to its standard output."""
        return pathlib.Path(self.output.name).read_text(errors="replace")

    def wait_for(self, text, count=1):
        wait_until(lambda: self.text().count(text) >= count or self.has_ended(), pause=0.005)
        if self.text().count(text) < count:
            raise AssertionError(f"ended without {text!r}: {self.errors.since(0)}")

    def has_ended(self):
        return self.process.poll() is not None

    def result(self):
        """Waits for the end of the command; returns the JSON of its last line."""
        status = self.process.wait(PATIENCE)
        if status != 0:
            raise AssertionError(f"exit status {status}: {self.errors.since(0)}")
        return json.loads(self.text().splitlines()[-1])

    def interrupt(self):
        """Ends the command by SIGINT; returns the JSON of its last line."""
        self.process.send_signal(signal.SIGINT)
        return self.result()

    # The masters

    def send(self, text):
        """Gives bench-cell a command without waiting; returns what `answer` waits for."""
        mark = self.errors.mark()
        self.process.stdin.write(text.encode() + b"\n")
        return mark

    def answer(self, mark):
        """The number that bench-cell answered, None if it just said ok."""
        line = self.errors.wait_for("^bench-cell: (ok|error)", since=mark)
        if "error" in line:
            raise AssertionError(line)
        words = line.split()[2:]
        return int(words[0]) if words else None

    def ask(self, text):
        return self.answer(self.send(text))

    def stream(self, rate):
        """Has every master send `rate` lines of process data a second, or "full"."""
        self.ask(f"rate {rate}")

    def lines(self):
        """Lines of process data that all masters have sent so far."""
        return self.ask("lines")

    def settle(self):
        """Waits until every master has told its position; they are quiet then."""
        enough = self.lines() + self.plugged * LINES_TO_SETTLE
        self.stream(SETTLING_RATE)
        wait_until(lambda: self.lines() >= enough)
        self.stream(0)

    # Both of them

    def pause(self):
        """Stops them, so that they take nothing from what is measured beside them."""
        self._signal(signal.SIGSTOP)

    def resume(self):
        self._signal(signal.SIGCONT)

    def _signal(self, number):
        """One that has ended meanwhile is found out elsewhere."""
        for pid in (self.process.pid, self.pid):
            if pid and not self.has_ended():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, number)

    @contextlib.contextmanager
    def running(self):
        """The only time in which a paused cell runs; it is still there at the end."""
        self.resume()
        try:
            yield
        finally:
            self.pause()
        if self.has_ended():
            raise AssertionError(f"the command has ended: {self.errors.since(0)}")

    def cpu_seconds(self):
        """Processor time that the command has taken."""
        return processes.cpu_seconds(self.pid)
