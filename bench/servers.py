"""The programs that are measured, in cells of fast simulated masters; the load on them, and their
use of the machine."""

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
POSITION = "25.0"  # of every gripper
# Until the daemon has the position of every gripper.
SETTLING_RATE = 100  # lines per second
LINES_TO_SETTLE = 5  # of each master

# Arguments of bench-load: the parameter after the device string, and the expected answer.
CALLS = {"GetPos": ("--expect", POSITION), "Grip": ("--int", "1", "--expect", "0")}

journal = []  # the results of every load, for run.json


def cpu_seconds(pid):
    """Processor time of a process, from its CPU clock."""
    return time.clock_gettime_ns((~pid << 3) | 2) / 1e9


def rss_kib(pid):
    return number_in(pathlib.Path(f"/proc/{pid}/status"), "VmRSS")


def wakeups(pid):
    """The number of voluntary context switches of all threads of `pid`."""
    threads = list(pathlib.Path(f"/proc/{pid}/task").glob("*/status"))
    if not threads:
        raise AssertionError(f"process {pid} has ended")
    return sum(number_in(status, "voluntary_ctxt_switches") for status in threads)


def number_in(status, name):
    return int(re.search(rf"^{name}:\s+(\d+)", status.read_text(), re.MULTILINE)[1])


@contextlib.contextmanager
def pinned_to_one():
    """Processes that are started inside share one processor."""
    before = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {max(before)})  # the first ones serve interrupts
    try:
        yield
    finally:
        os.sched_setaffinity(0, before)


def listens(port):
    """Whether a server listens on the port; sends it nothing."""
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
        # In a session of its own: Ctrl-C reaches only the driver, which then ends all in order.
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
        """Overridden for programs that are not ready at once."""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def end(self):
        """Uses SIGTERM: after SIGINT, a server with many quiet masters takes long to stop."""
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
        """The standard output of the command so far."""
        return pathlib.Path(self.output.name).read_text(errors="replace")

    def wait_for(self, text, count=1):
        wait_until(lambda: self.text().count(text) >= count or self.has_ended(), pause=0.005)
        if self.text().count(text) < count:
            raise AssertionError(f"ended without {text!r}: {self.errors.since(0)}")

    def has_ended(self):
        return self.process.poll() is not None

    def result(self):
        """Waits for the end of the command. Returns the JSON of its last line."""
        status = self.process.wait(PATIENCE)
        if status != 0:
            raise AssertionError(f"exit status {status}: {self.errors.since(0)}")
        return json.loads(self.text().splitlines()[-1])

    def environment(self):
        """The environment of the command: programs started with it see the same masters."""
        def read():
            entries = pathlib.Path(f"/proc/{self.pid}/environ").read_text().split("\0")
            return dict(entry.split("=", 1) for entry in entries if "=" in entry)
        wait_until(lambda: "UMOCKDEV_DIR" in read())  # missing until the command is executed
        return read()

    def cpu_seconds(self):
        """Processor time of the command so far."""
        return cpu_seconds(self.pid)

    # The masters

    def send(self, text):
        """Sends bench-cell a command. Returns the argument for answer()."""
        mark = self.errors.mark()
        self.process.stdin.write(text.encode() + b"\n")
        return mark

    def answer(self, mark):
        """The number in bench-cell's answer; None for a plain "ok"."""
        line = self.errors.wait_for("^bench-cell: (ok|error)", since=mark)
        if "error" in line:
            raise AssertionError(line)
        words = line.split()[2:]
        return int(words[0]) if words else None

    def ask(self, text):
        return self.answer(self.send(text))

    def stream(self, rate):
        """Has every master send `rate` lines of process data per second, or "full"."""
        self.ask(f"rate {rate}")

    def lines(self):
        """The number of lines of process data that all masters have sent so far."""
        return self.ask("lines")

    def settle(self):
        """Waits until every master has sent its position, then stops the streams."""
        enough = self.lines() + self.masters * LINES_TO_SETTLE
        self.stream(SETTLING_RATE)
        wait_until(lambda: self.lines() >= enough)
        self.stream(0)

    # Command and masters

    def pause(self):
        """Suspends them, so that they do not disturb the measurement of another cell."""
        self._signal(signal.SIGSTOP)

    def resume(self):
        self._signal(signal.SIGCONT)

    def _signal(self, number):
        """Ignores a process that has ended, which running() reports."""
        for pid in (self.process.pid, self.pid):
            if pid and not self.has_ended():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, number)

    @contextlib.contextmanager
    def running(self):
        """Lets a paused cell run. Fails if its command has ended."""
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
        """Ends the readers. Fails if they found wrong lines: the limit would be invalid."""
        self.resume()
        self.process.send_signal(signal.SIGINT)
        wrong = self.result()["wrong"]
        if wrong:
            raise AssertionError(f"plain-readers: {wrong} wrong lines")


class Program(NamedTuple):
    """A server and its ports."""
    command: tuple
    ports: tuple


DAEMON = Program((BUILD / "daemon" / "TavrikDaemon",), PORTS)
BARE = Program((PROGRAMS / "bare-server", "44231", "44232"), (44231, 44232))
PLAIN = Program((PROGRAMS / "plain-server", "44233", "44234"), (44233, 44234))
# The daemon with the library's own nine sends per answer, on the same ports.
NINE_SENDS = Program((PROGRAMS / "nine-sends-daemon",), PORTS)
NODE_PEER = Program(("node", PROGRAMS / "peers" / "node_server.js", "44251"), (44251,))


def python_peer(masters):
    return Program((PYTHON, ROOT / "bench" / "peers" / "python_daemon.py", "44241,44242",
                    *ttys(masters)), (44241, 44242))


class Server(Cell):
    """A server in a cell of quiet masters. It is ready once it is constructed."""

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
        """Calls for gripper 0 on this number of connections, spread over the ports.

        Returns the results of bench-load and "cpuUs", the server's processor time per call. With
        the fin_file of the masters, latencies begin at FIN and end at the last byte of the answer.
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
        """Calls for all grippers, each on its own connection: equal commands of several clients
        for one gripper may be mistaken for each other. Returns the calls per second of all.
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
    """Runs the loads side by side. Returns the results of each."""
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
