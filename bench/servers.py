"""What is measured: programs in cells of fast simulated masters, the calls that they get, and what
they take of the machine."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import tempfile
import time
from typing import NamedTuple

from tests.integration.harness.cell import DIES_WITH_PARENT, PATIENCE, PORTS, Output, wait_until

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"
PROGRAMS = BUILD / "bench"
PYTHON = "/usr/bin/python3"

OPERATES = "Pending command PDOUT deleted (Status: 0)"  # in the daemon's log, once for each master
POSITION = "25.0"  # that every master tells
SETTLING_RATE = 100  # lines a second
LINES_TO_SETTLE = 5  # of each master, until all of them have told their position

# Arguments for bench-load: what a method takes behind the device string, and what it answers.
CALLS = {"GetPos": ("--expect", POSITION), "Grip": ("--int", "1", "--expect", "0")}

journal = []  # what every load of this run told, for its file


def cpu_seconds(pid):
    """Processor time of a whole process, read by the id that the kernel gives to its clock."""
    return time.clock_gettime_ns((~pid << 3) | 2) / 1e9


def rss_kib(pid):
    return number_in(pathlib.Path(f"/proc/{pid}/status"), "VmRSS")


def wakeups(pid):
    """How often the threads of `pid` have gone to sleep of their own accord."""
    threads = list(pathlib.Path(f"/proc/{pid}/task").glob("*/status"))
    if not threads:
        raise AssertionError(f"process {pid} has ended")
    return sum(number_in(status, "voluntary_ctxt_switches") for status in threads)


def number_in(status, name):
    return int(re.search(rf"^{name}:\s+(\d+)", status.read_text(), re.MULTILINE)[1])


@contextlib.contextmanager
def pinned_to_one():
    """Processes that are started inside run on one processor, all on the same."""
    before = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {max(before)})  # the first ones have the machine's own work
    try:
        yield
    finally:
        os.sched_setaffinity(0, before)


def listens(port):
    """Whether there is a server; asks it nothing."""
    with socket.socket() as attempt:
        return attempt.connect_ex(("127.0.0.1", port)) == 0


def device(number):
    """The device string of the gripper behind master `number`."""
    return f"HVA SN:B{number:02}"


def ttys(count):
    return [f"/dev/ttyACM{number}" for number in range(count)]


class Cell:
    """bench-cell with a command in it, whose output goes to a file. Ends with its `with` block."""

    def __init__(self, *command, masters=0, fin_file=None):
        self.pid = None  # of the command
        self.masters = masters
        self.output = tempfile.NamedTemporaryFile(prefix="bench-")
        options = ["--masters", str(masters), *(["--fin-file", fin_file] if fin_file else [])]
        # A session of its own: Ctrl-C is for the driver, which then ends everything in order.
        self.process = subprocess.Popen(
            [*DIES_WITH_PARENT, PROGRAMS / "bench-cell", *options, "--", *command],
            stdin=subprocess.PIPE, stdout=self.output, stderr=subprocess.PIPE, bufsize=0,
            start_new_session=True)
        try:
            self.errors = Output("bench-cell", self.process.stderr)
            self.pid = int(self.errors.wait_for(r"^bench-cell: pid \d+$").split()[-1])
            self.wait_until_ready()
        except BaseException:
            self.end()
            raise

    def wait_until_ready(self):
        """For programs that take a moment."""

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

    def environment(self):
        """That of the command: programs that are started with it see the same masters."""
        def read():
            entries = pathlib.Path(f"/proc/{self.pid}/environ").read_text().split("\0")
            return dict(entry.split("=", 1) for entry in entries if "=" in entry)
        wait_until(lambda: "UMOCKDEV_DIR" in read())  # not there until it has begun to run
        return read()

    def cpu_seconds(self):
        """Processor time that the command has taken."""
        return cpu_seconds(self.pid)

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
        enough = self.lines() + self.masters * LINES_TO_SETTLE
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


class Readers(Cell):
    """One plain reader for each of the masters."""

    def __init__(self, masters, *options):
        super().__init__(PROGRAMS / "plain-readers", *options, *ttys(masters), masters=masters)

    def wait_until_ready(self):
        self.wait_for("started")

    def expect_right_lines(self):
        """Ends them; a limit that got lines wrong would be none."""
        self.resume()
        self.process.send_signal(signal.SIGINT)
        wrong = self.result()["wrong"]
        if wrong:
            raise AssertionError(f"plain-readers: {wrong} wrong lines")


class Program(NamedTuple):
    """What serves, on which ports."""
    command: tuple
    ports: tuple


DAEMON = Program((BUILD / "daemon" / "TavrikDaemon",), PORTS)
BARE = Program((PROGRAMS / "bare-server", "44231", "44232"), (44231, 44232))
PLAIN = Program((PROGRAMS / "plain-server", "44233", "44234"), (44233, 44234))
# The daemon without its one send for each answer; on the same ports.
NINE_SENDS = Program((PROGRAMS / "nine-sends-daemon",), PORTS)
NODE_PEER = Program(("node", PROGRAMS / "peers" / "node_server.js", "44251"), (44251,))


def python_peer(masters):
    return Program((PYTHON, ROOT / "bench" / "peers" / "python_daemon.py", "44241,44242",
                    *ttys(masters)), (44241, 44242))


class Server(Cell):
    """A program that serves in a cell of quiet masters; ready when the object is."""

    def __init__(self, program, masters=0, **options):
        self.program = program
        super().__init__(*program.command, masters=masters, **options)

    def wait_until_ready(self):
        wait_until(lambda: self.has_ended() or all(map(listens, self.program.ports)), pause=0.005)
        if self.has_ended():
            raise AssertionError(f"{self.program.command} does not start: {self.errors.since(0)}")
        if self.program in (DAEMON, NINE_SENDS):
            self.wait_for(OPERATES, count=self.masters)
        if self.masters:
            self.settle()

    def load(self, method, connections, seconds, fin_file=None):
        """Calls for gripper 0 on so many connections, spread over the ports.

        Returns what bench-load tells and "cpuUs", the server's processor time for a call. With the
        fin_file of its masters, latencies are those from FIN to the last byte of the answer sent.
        """
        before = self.cpu_seconds()
        result, = results_of(
            load_command(self.program.ports, method, 0, connections, seconds, fin_file))
        calls = result["warmUpCalls"] + result["calls"]
        result["cpuUs"] = (self.cpu_seconds() - before) / calls * 1e6
        journal.append({"server": str(self.program.command[0]), "masters": self.masters,
                        "method": method, "connections": connections, **result})
        return result

    def load_grippers(self, method, seconds):
        """Calls for all grippers, on a connection for each: equal commands of several clients for
        one gripper may be taken for one another. Returns the calls per second of all.
        """
        ports = self.program.ports
        results = results_of(
            *(load_command([ports[number % len(ports)]], method, number, 1, seconds)
              for number in range(self.masters)))
        return {"callsPerSecond": sum(result["callsPerSecond"] for result in results)}


def load_command(ports, method, gripper, connections, seconds, fin_file=None):
    return [*DIES_WITH_PARENT, PROGRAMS / "bench-load", "--ports", ",".join(map(str, ports)),
            "--connections", str(connections), "--seconds", str(seconds),
            "--method", method, "--device", device(gripper), *CALLS[method],
            *(["--fin-file", fin_file] if fin_file else [])]


def results_of(*commands):
    """Runs the loads side by side; returns what each of them tells."""
    with contextlib.ExitStack() as stack:
        loads = []
        for words in commands:
            load = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            loads.append(stack.enter_context(load))
            stack.callback(load.kill)
        return [result_of(load) for load in loads]


def result_of(load):
    output, errors = load.communicate(timeout=60)
    if load.returncode != 0:
        raise AssertionError(f"{load.args}: {errors.decode() or load.returncode}")
    return json.loads(output)
