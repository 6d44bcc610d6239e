"""A simulated cell with the daemon running in it: its processes, their output, its ports."""

import errno
import json
import os
import re
import select
import signal
import subprocess
import threading
import time
import xmlrpc.client

PORTS = (44221, 44222)
WEB_PORT = 44280

# Device strings of simulated grippers, if they are the first, second and third of a cell.
HVA, MZD, TLM = "HVA SN:100001", "MZD-S SN:100002", "TLM SN:100003"

# State codes of grippers.
OFF, NEEDS_REFERENCE, REFERENCING, RELEASING, RELEASED = range(5)
GRIPPING, HOLDING, NO_PART, READY = range(5, 9)
FAULT = 15

# Sanitizers slow everything down; upper time bounds grow by this factor.
SLOWNESS = float(os.environ.get("TAVRIK_SLOWNESS", "1"))
PATIENCE = 15.0 * SLOWNESS  # seconds until an awaited condition counts as missing

# Prefix of a command: the kernel kills it when the thread that started it ends, however that ends.
# A daemon that outlives its test would serve the next one.
DIES_WITH_PARENT = ("/usr/bin/setpriv", "--pdeathsig", "KILL", "--")

SANITIZER_REPORT = re.compile(r"(Address|Leak|Thread|UndefinedBehavior)Sanitizer|runtime error:")


class Output:
    """The lines of one output stream of the cell, as they arrive."""

    def __init__(self, name, stream):
        self.name = name
        self.stream = stream
        self.lines = []
        self.partial_line = b""
        self.ended = False
        self.arrived = threading.Condition()
        os.set_blocking(stream.fileno(), False)
        self.reader = threading.Thread(target=self._run, daemon=True)
        self.reader.start()

    def _run(self):
        with self.stream:
            while not self.ended:
                select.select([self.stream], [], [])
                with self.arrived:
                    self._read_available()

    def _read_available(self):
        while not self.ended:
            try:
                data = os.read(self.stream.fileno(), 65536)
            except BlockingIOError:
                break
            except OSError as error:
                if error.errno != errno.EIO:  # of a terminal that its program has left
                    raise
                data = b""
            self.ended = not data
            end = b"\n" if self.ended and self.partial_line else b""
            *lines, self.partial_line = (self.partial_line + data + end).split(b"\n")
            self.lines += [line.decode("utf-8", "backslashreplace") for line in lines]
        self.arrived.notify_all()

    def mark(self):
        """A position after all lines so far, from which a search can start."""
        with self.arrived:
            self._read_available()
            return len(self.lines)

    def since(self, mark):
        """All lines written so far from a mark on."""
        with self.arrived:
            self._read_available()
            return self.lines[mark:]

    def keep_last(self, count):
        """Drops older lines, in programs that run for long; earlier marks are then invalid."""
        with self.arrived:
            del self.lines[:-count]

    def forget(self, pattern=""):
        """Drops every line so far in which `pattern` is found. Earlier marks are then invalid."""
        with self.arrived:
            self.lines = [line for line in self.lines if not re.search(pattern, line)]

    def matching(self, pattern, since=0):
        """Every line from `since` on in which `pattern` is found."""
        return [line for line in self.since(since) if re.search(pattern, line)]

    def wait_for(self, pattern, since=0, count=1, timeout=PATIENCE):
        """Waits until `pattern` was found in `count` lines from `since` on; returns the last."""
        found = []
        with self.arrived:
            for line in self._lines_until(since, time.monotonic() + timeout):
                if re.search(pattern, line):
                    found.append(line)
                    if len(found) == count:
                        return line
        reason = "before its end" if self.ended else f"within {timeout:g} s"
        raise AssertionError(f"{self.name}: {len(found)} of {count} lines with {pattern!r} {reason}")

    def _lines_until(self, position, deadline):
        while True:
            while position < len(self.lines):
                yield self.lines[position]
                position += 1
            left = deadline - time.monotonic()
            if self.ended or left <= 0:
                return
            self.arrived.wait(left)


class Transport(xmlrpc.client.Transport):
    """HTTP with a bound on every wait, so that a daemon that hangs fails a test."""

    def make_connection(self, host):
        connection = super().make_connection(host)
        connection.timeout = 30 * SLOWNESS
        return connection


class Cell:
    """pellix-sim with the daemon as its command. Output is read from the start.

    `options` go to pellix-sim; `command` replaces the daemon's own command line; `stdout`
    replaces the pipe from which the log is read.
    """

    def __init__(self, *options, command=None, environment=None, stdout=subprocess.PIPE):
        self.simulator = os.environ["TAVRIK_SIMULATOR"]
        self.daemon = os.environ["TAVRIK_DAEMON"]
        self.clients = {}
        self.ended = False
        self.markers = 0
        self.commands = threading.Lock()
        # A group of its own, so that all its processes can be killed together; but not a session,
        # because the kernel may give each session an equal share of the processors.
        self.process = subprocess.Popen(
            [*DIES_WITH_PARENT, self.simulator, *options, "--", *(command or [self.daemon])],
            env={**os.environ, **(environment or {})},
            stdin=subprocess.PIPE, stdout=stdout, stderr=subprocess.PIPE,
            process_group=0)
        self.log = Output("standard output", self.process.stdout) if self.process.stdout else None
        self.errors = Output("standard error", self.process.stderr)

    # The simulator

    def command(self, text):
        """Has the simulator carry out one command and waits until it has taken effect."""
        reply = self._ask(text)
        if not reply.startswith("pellix-sim: ok"):
            raise AssertionError(f"{text!r}: {reply}")

    def show(self, number):
        """What master `number` and its gripper are doing."""
        return json.loads(self._ask(f"show {number} --json").removeprefix("pellix-sim: state "))

    def master_sends(self, number, text):
        """Has master `number` send a line; returns when the daemon has handled it.

        A marker line with a key of its own follows, for which the daemon logs that it knows no such
        command: then the text has been handled. The line is repeated because a NUL drops the rest
        of its read.
        """
        self.markers += 1
        key = f"MARK{self.markers}"
        self.command(rf"send {number} {text}\n")
        wait_until(lambda: self.command(rf"send {number} {key}=\n") or
                   self.log.matching(f"Active command {key} could not be found"), pause=0.02)

    def _ask(self, text):
        with self.commands:
            mark = self.errors.mark()
            self.process.stdin.write(text.encode() + b"\n")
            self.process.stdin.flush()
            # A replayed recording gives commands of its own.
            return self.errors.wait_for(
                rf"^pellix-sim: (ok {re.escape(text)}$|state |usage: |error: )", since=mark)

    # The daemon

    def client(self, port=PORTS[0]):
        """The main thread's client of a port; one connection, kept until the cell stops."""
        if port not in self.clients:
            self.clients[port] = self.new_client(port)
        return self.clients[port]

    @staticmethod
    def new_client(port=PORTS[0]):
        return xmlrpc.client.ServerProxy(f"http://127.0.0.1:{port}/RPC2", transport=Transport())

    def call(self, method, *arguments, port=PORTS[0]):
        return getattr(self.client(port), method)(*arguments)

    def call_apart(self, method, *arguments, port=PORTS[0]):
        """A call on a connection of its own, for any thread."""
        with self.new_client(port) as client:
            return getattr(client, method)(*arguments)

    def wait_until_serving(self):
        self.log.wait_for("TavrikDaemon started")
        for port in PORTS:
            self.log.wait_for(f"Port number: {port}$")
        for port in PORTS:
            wait_until(lambda port=port: answers(port))
        # What is plugged before the monitor thread listens is not seen until it is plugged again.
        wait_until(lambda: has_udev_monitor() or self.log.matching("Can't create udev monitor"))

    def wait_until_operating(self, count, since=0):
        """Waits until `count` grippers have reached process data exchange since the start, or since
        a mark in the log; meanwhile, no client may make a request with the key PDOUT."""
        self.log.wait_for(r"Pending command PDOUT deleted \(Status: 0\)", since, count)
        # Handled late, it would finish the next request for PDOUT.
        self.log.wait_for("FIN:PDOUT$", since, count)

    def daemon_pid(self):
        """The process id of the daemon, the simulator's only child."""
        children = [int(pid) for pid in os.listdir("/proc")
                    if pid.isdigit() and parent_of(pid) == self.process.pid]
        if len(children) != 1:
            raise AssertionError(f"children of the simulator: {children}")
        return children[0]

    def close_clients(self):
        for client in self.clients.values():
            client("close")()
        self.clients.clear()

    def stop(self, timeout=PATIENCE):
        """Stops the daemon by SIGINT; checks its exit status and its last log lines."""
        self.close_clients()
        self.process.send_signal(signal.SIGINT)
        self.expect_normal_end(timeout)

    def expect_normal_end(self, timeout=PATIENCE):
        status = self.wait_for_end(timeout)
        if status != 0:
            raise AssertionError(f"exit status {status}")
        for line in ("TavrikDaemon::handler caught CTRL-C", "TavrikDaemon::shutdown"):
            self.errors.wait_for(f"^{line}$")
        if self.log:
            self.log.wait_for(r"\d TavrikDaemon stopped$")
            self.log.wait_for(r"\d GripperManager stopped$")

    def wait_for_end(self, timeout=PATIENCE):
        """Waits for the end of the cell; ends it by force and fails if it does not come."""
        try:
            return self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"still running after {timeout:g} s") from None
        finally:
            self.end_by_force()

    def end_by_force(self):
        """Ends what is left of the cell and fails on a sanitizer's report."""
        if self.ended:
            return
        self.ended = True
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()
        self.process.stdin.close()
        for output in self.outputs():
            output.reader.join()
        reports = self.errors.matching(SANITIZER_REPORT)
        if reports:
            raise AssertionError(f"sanitizer report: {reports[0]}")

    def outputs(self):
        return [output for output in (self.log, self.errors) if output]


def parent_of(pid):
    """The parent of process `pid`, None when it is gone."""
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
            return int(file.read().rpartition(")")[2].split()[1])
    except (FileNotFoundError, ProcessLookupError):
        return None


def answers(port):
    """Whether the daemon serves on `port`."""
    try:
        with Cell.new_client(port) as client:
            return client.GetVersion().startswith("2.2.4 (")
    except OSError:
        return False


def has_udev_monitor():
    """Whether a daemon in this network listens to the events of its cell."""
    with open("/proc/net/unix", encoding="utf-8") as sockets:
        return any(re.search(r"/pellix-sim\.\w+/event\d+$", line) for line in sockets)


def wait_until(condition, timeout=PATIENCE, pause=0.01):
    """Polls `condition` until it is true; returns its value."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"condition not met in {timeout:g} s")
        time.sleep(pause)
