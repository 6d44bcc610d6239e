"""Failures of the system: ttys, descriptors, memory, the log, the clock, signals."""

import concurrent.futures
import contextlib
import fcntl
import glob
import http.client
import os
import pty
import resource
import signal
import sys
import tempfile
import termios
import threading
import time
import tty
import unittest
import xmlrpc.client

from .harness.cell import PORTS, SLOWNESS, Cell, answers, wait_until
from .harness.cell_test_case import main
from .harness.storm import (NO_COMMAND, NO_LINK, TIMEOUT, StormTestCase, random_numbers,
                            resources_of, restart_data_link, rounds, wait_until_back)

FIRST, SECOND, THIRD = "HVA SN:100001", "MZD-S SN:100002", "TLM SN:100003"
MEBIBYTE = 1024 * 1024
# By what a shortage shows in the log: udev cannot read about the device, or its tty is not opened;
# its threads, or that of a connection, are not made.
NO_DESCRIPTOR = r"\(No parent dev\)$|Open call failed$"
NO_THREAD = "Failed to initialize PELLIX$|Failed to use new channel"
FAKE_CLOCK = "".join(glob.glob("/usr/lib/*/faketime/libfaketimeMT.so.1"))
TIOCSPTLCK = 0x40045431  # missing in termios

# Without it no tty is too busy for the daemon, nor closed to it.
WITHOUT_PRIVILEGES = ["setpriv", "--inh-caps=-all", "--bounding-set=-all"]


class SystemTestCase(StormTestCase):
    """Two masters; the failures affect the first one."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(2)

    def assert_second_served(self):
        for port in PORTS:
            start = time.monotonic()
            self.assertEqual(self.call("Grip", SECOND, 1, port=port), 0)
            self.assertLess(time.monotonic() - start, 0.5 * SLOWNESS)

    def wait_until_first_operates(self):
        wait_until(lambda: self.call("Grip", FIRST, 1) == 0)

    def pull(self):
        """Removes the tty of the first master and its link; udev still lists the device."""
        mark = self.cell.log.mark()
        self.cell.command("hangup 0")
        self.cell.command("event 0 remove")
        self.cell.log.wait_for("PELLIX removed", since=mark)

    def try_to_add(self, number=0):
        """Makes udev report a master; returns the log line with the outcome."""
        mark = self.cell.log.mark()
        self.cell.command(f"event {number} add")
        return self.cell.log.wait_for("Device added$|Failed to add device$", since=mark)


class TtyTest(SystemTestCase):
    """Files that replace a tty."""

    @classmethod
    def start_cell(cls, *options, **settings):
        command = [*WITHOUT_PRIVILEGES, os.environ["TAVRIK_DAEMON"]]
        return super().start_cell(*options, command=command, **settings)

    def setUp(self):
        self.daemon = self.cell.daemon_pid()
        with open(f"/proc/{self.daemon}/environ", encoding="utf-8") as file:
            environment = dict(entry.split("=", 1) for entry in file.read().split("\0") if entry)
        self.node = environment["UMOCKDEV_DIR"] + "/dev/ttyACM0"
        self.assert_second_served()  # over its open connections
        self.descriptors = len(resources_of(self.daemon).descriptors)

    def tearDown(self):
        self.assert_second_served()
        self.wait_until_first_operates()

    def faults(self):
        """Returns, by the error of the daemon: the file that replaces the tty, and whether it can
        be opened."""
        return {"ENOENT": ("/nowhere", False), "ELOOP": (self.node, False),
                "EISDIR": ("/dev", False), "ENOTTY": ("/dev/null", True),
                "EACCES": (self.pty(closed=True), False), "EBUSY": (self.pty(busy=True), False),
                "EIO": (self.pty(locked=True), False)}

    def pty(self, closed=False, busy=False, locked=False):
        master, slave = pty.openpty()
        path = os.ttyname(slave)
        if closed:
            os.chmod(path, 0)
        if busy:
            fcntl.ioctl(slave, termios.TIOCEXCL)
        if locked:
            fcntl.ioctl(master, TIOCSPTLCK, (1).to_bytes(4, sys.byteorder))
        self.addCleanup(os.close, master)
        self.addCleanup(os.close, slave)
        return path

    def put(self, target):
        with contextlib.suppress(FileNotFoundError):
            os.remove(self.node)
        os.symlink(target, self.node)

    def test_a_tty_that_cannot_be_opened_is_skipped(self):
        self.pull()
        opened = 0
        for _ in range(rounds(1)):
            for name, (target, can_be_opened) in self.faults().items():
                with self.subTest(error=name):
                    self.put(target)
                    mark = self.cell.log.mark()
                    self.assertRegex(self.try_to_add(), "Failed to add device$")
                    self.assertEqual(len(self.cell.log.matching("Open call failed$", since=mark)),
                                     0 if can_be_opened else 1)
                    self.assertEqual(self.call("GetGrippers"), [SECOND])
                    self.assertEqual(self.call("Grip", FIRST, 1), NO_LINK)
                    self.assert_second_served()
                    opened += can_be_opened
        # The daemon keeps a file that is not a tty open until it opens that path again.
        self.assertEqual(len(resources_of(self.daemon).descriptors), self.descriptors - 1 + opened)
        self.cell.command("plug 0")

    def test_a_replaced_tty_is_retried_until_it_is_back(self):
        for _ in range(rounds(1)):
            for name, (target, can_be_opened) in self.faults().items():
                with self.subTest(error=name):
                    self.cell.command("hangup 0")
                    self.put(target)
                    mark = self.cell.log.mark()
                    failure = "device succeeded$" if can_be_opened else "Open call failed$"
                    self.cell.log.wait_for(failure, since=mark, count=50)
                    self.assertEqual(self.call("Grip", FIRST, 1), NO_COMMAND)
                    self.assert_second_served()
                    self.assertLessEqual(len(resources_of(self.daemon).descriptors),
                                         self.descriptors)
                    self.plug_again()

    def test_reading_and_writing_fail_with_eio(self):
        for _ in range(rounds(3)):
            self.cell.command("hangup 0")
            master, slave = pty.openpty()
            tty.setraw(slave)
            mark = self.cell.log.mark()
            self.put(os.ttyname(slave))
            # Repeated because the daemon drops input until it has configured the tty.
            wait_until(lambda master=master, mark=mark: os.write(master, b"@MODE=6\n") and
                       self.cell.log.matching("Setting device mode to 6$", since=mark), pause=0.02)
            os.close(master)  # ends a read with EIO
            os.close(slave)
            self.assertEqual(self.call("StoreRemanent", FIRST), NO_COMMAND)
            self.assert_second_served()
            self.plug_again()

    def plug_again(self):
        mark = self.cell.log.mark()
        self.cell.command("plug 0")
        self.cell.log.wait_for("device succeeded$", since=mark)
        # The daemon has kept its link and has not noticed that the gripper lost its power.
        restart_data_link(self.cell, 0)
        self.wait_until_first_operates()


class ShortageTest(SystemTestCase):
    options = (*SystemTestCase.options, "--gripper", "TLM", "--unplugged", "2")

    def setUp(self):
        self.random = random_numbers(self.id())
        self.daemon = self.cell.daemon_pid()
        self.cell.close_clients()
        self.baseline = resources_of(self.daemon)

    def tearDown(self):
        for port in PORTS:
            wait_until(lambda port=port: answers(port))
        self.wait_until_first_operates()
        self.assert_second_served()
        self.cell.close_clients()
        print(wait_until_back(self.daemon, self.baseline), file=sys.stderr)

    def limit(self, kind, value):
        _, most = resource.prlimit(self.daemon, kind)
        resource.prlimit(self.daemon, kind, (value, most))

    @unittest.skipIf(SLOWNESS > 1, "a sanitizer opens pipes to check an object's type")
    def test_a_master_is_plugged_in_without_free_descriptors(self):
        failures = 0
        for spare in (*range(6), *(self.random.randrange(6) for _ in range(rounds(1)))):
            with self.subTest(spare=spare):
                self.assert_second_served()  # its connections are open
                self.pull()
                highest = max(map(int, os.listdir(f"/proc/{self.daemon}/fd")))
                self.limit(resource.RLIMIT_NOFILE, highest + spare)
                mark = self.cell.log.mark()
                self.cell.command("plug 0")
                self.cell.command("event 1 change")
                self.cell.log.wait_for("action change$", since=mark)
                self.assert_second_served()
                failures += len(self.cell.log.matching(NO_DESCRIPTOR, since=mark))
                self.limit(resource.RLIMIT_NOFILE, 1024)
                self.assertRegex(self.try_to_add(), "Device added$")
                self.wait_until_first_operates()
        self.assertGreater(failures, 0, "there was no shortage")

    @unittest.skipIf(SLOWNESS > 1, "a sanitizer ends the process that has no address space left")
    def test_no_address_space_for_threads(self):
        failures = 0
        for spare in (0, 4, 9, 14, 20, 30, *(self.random.randrange(40) for _ in range(rounds(1)))):
            with self.subTest(spare=spare):
                self.pull()
                self.limit(resource.RLIMIT_AS, address_space(self.daemon) + spare * MEBIBYTE)
                mark = self.cell.log.mark()
                # The second one needs more threads than there are kept stacks of the first.
                self.cell.command("plug 0")
                self.cell.command("plug 2")
                self.cell.command("event 1 change")
                for port in PORTS:
                    with contextlib.suppress(OSError, http.client.HTTPException):
                        self.cell.call_apart("Grip", SECOND, 1, port=port)
                self.cell.log.wait_for("action change$", since=mark)
                failures += len(self.cell.log.matching(NO_THREAD, since=mark))
                self.limit(resource.RLIMIT_AS, resource.RLIM_INFINITY)
                for number in (0, 2):
                    self.assertRegex(self.try_to_add(number), "Device added$")
                self.wait_until_first_operates()
                wait_until(lambda: self.call("Grip", THIRD, 1) == 0)
                mark = self.cell.log.mark()
                # The list of links is locked until the monitor thread has removed the link.
                self.cell.command("unplug 2")
                self.cell.command("event 1 change")
                self.cell.log.wait_for("action change$", since=mark)
                for line in ("Parser", "Timeout monitor", "State"):
                    self.assertTrue(self.cell.log.matching(f"{line} thread terminated", since=mark))
                self.assert_second_served()
        self.assertGreater(failures, 0, "there was no shortage")


def address_space(pid):
    """Returns the size of the address space in bytes."""
    with open(f"/proc/{pid}/statm", encoding="utf-8") as file:
        return int(file.read().split()[0]) * resource.getpagesize()


class OwnDaemonTestCase(SystemTestCase):
    """Every test starts its own daemons."""

    @classmethod
    def setUpClass(cls):
        print(cls.__name__, file=sys.stderr)

    def start(self, *options, **settings):
        cell = self.start_cell(*(options or self.options), **settings)
        self.addCleanup(cell.end_by_force)
        return cell


class StartTest(OwnDaemonTestCase):
    @unittest.skipIf(SLOWNESS > 1, "sanitizers reserve terabytes of address space")
    def test_with_little_address_space_it_serves_or_reports_that_it_cannot(self):
        random = random_numbers(self.id())
        served = 0
        for _ in range(rounds(12)):
            limit = random.randrange(20, 240)
            cell = self.start(command=["prlimit", f"--as={limit * MEBIBYTE}",
                                       os.environ["TAVRIK_DAEMON"]])
            wait_until(lambda cell=cell: cell.process.poll() is not None or
                       cell.log.matching("TavrikDaemon started$"))
            if cell.process.poll() is None:
                served += 1
                cell.stop()
            else:
                self.assertNotEqual(cell.wait_for_end(), 0)
        print(f"{served} of {rounds(12)} served", file=sys.stderr)


class LostOutputTest(OwnDaemonTestCase):
    def test_a_log_and_errors_that_cannot_be_written(self):
        for redirection in (">/dev/full", "2>/dev/full", ">/dev/full 2>&1", "2>&-",
                            ">&- 2>&- <&-"):
            with self.subTest(redirection=redirection):
                cell = self.start(command=["sh", "-c", f'exec "$TAVRIK_DAEMON" {redirection}'])
                for port in PORTS:
                    wait_until(lambda port=port: answers(port))
                for device in (FIRST, SECOND):
                    wait_until(lambda device=device, cell=cell: cell.call("Grip", device, 1) == 0)
                cell.close_clients()
                cell.process.send_signal(signal.SIGINT)
                self.assertEqual(cell.wait_for_end(), 0)


@unittest.skipUnless(FAKE_CLOCK, "the package faketime is missing")
class ClockTest(OwnDaemonTestCase):
    """The system clock is changed during requests; no wait depends on it."""

    def setUp(self):
        self.clock = tempfile.NamedTemporaryFile("w", suffix=".clock")
        self.addCleanup(self.clock.close)
        self.set_clock(0)
        # Its own replacement of stat() and that of the simulated devices would wait for each other.
        self.cell = self.start(
            command=["sh", "-c", f'LD_PRELOAD="{FAKE_CLOCK}:$LD_PRELOAD" exec "$TAVRIK_DAEMON"'],
            environment={"FAKETIME_TIMESTAMP_FILE": self.clock.name, "FAKETIME_NO_CACHE": "1",
                         "FAKETIME_DONT_FAKE_MONOTONIC": "1", "NO_FAKE_STAT": "1"})
        self.cell.wait_until_serving()
        self.cell.wait_until_operating(2)

    def tearDown(self):
        self.cell.stop()

    def set_clock(self, offset):
        """Sets the daemon's clock `offset` seconds before or after the true time."""
        self.clock.seek(0)
        self.clock.write(f"{offset:+}\n")
        self.clock.truncate()
        self.clock.flush()

    def call_while_the_clock_is_set(self, offset, *call):
        """Returns result and duration of a call to the first master."""
        mark = self.cell.log.mark()
        start = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor() as caller:
            outcome = caller.submit(self.call, *call)
            self.cell.log.wait_for("New command", since=mark)
            self.set_clock(offset)
            return outcome.result(), time.monotonic() - start

    def test_an_hour_back_and_forth(self):
        for offset in (3600, -3600, 3600, 0) * rounds(1):
            with self.subTest(offset=offset):
                self.cell.command("delay 0 300")
                answer, elapsed = self.call_while_the_clock_is_set(offset, "Grip", FIRST, 1)
                self.assertEqual(answer, 0)
                self.assertGreater(elapsed, 0.29)
                self.cell.command("delay 0 0")
                self.assert_second_served()
                self.assert_log_follows(offset)

    def test_requests_without_answer(self):
        self.cell.command("mute 0 on")
        for offset in (3600, -3600) * rounds(1):
            with self.subTest(offset=offset):
                answer, elapsed = self.call_while_the_clock_is_set(offset, "StoreRemanent", FIRST)
                self.assertEqual(answer, TIMEOUT)
                self.assertGreater(elapsed, 0.95)
                self.assertLess(elapsed, 1.5 * SLOWNESS)
                self.assert_second_served()

    def assert_log_follows(self, offset):
        """Checks that the clock was really changed."""
        mark = self.cell.log.mark()
        self.call("Disable", SECOND)
        text = self.cell.log.wait_for("New command", since=mark).split()[0]
        hours, minutes, seconds = map(int, text.split(":"))
        now = time.localtime(time.time() + offset)
        difference = ((hours - now.tm_hour) * 3600 + (minutes - now.tm_min) * 60 +
                      seconds - now.tm_sec) % 86400
        self.assertLess(min(difference, 86400 - difference), 600)


class InterruptTest(OwnDaemonTestCase):
    # Seconds after the first line: during the start, or later.
    LATEST = (0.02 * SLOWNESS, 0.4 * SLOWNESS)
    LONGEST_STOP = 6.0 * SLOWNESS  # seconds: a request's timeout, the library's 2 s, and a reserve

    TROUBLES = ("", "mute 0 on", "silent 0 on", "stall 0 on", "unplug 1", "unplug 1\nplug 1", "")

    def setUp(self):
        self.random = random_numbers(self.id())
        self.outcomes = dict.fromkeys(("killed at the start", "second needed", "stopped"), 0)
        self.longest = 0.0

    def test_at_random_moments(self):
        for number in range(rounds(25)):
            # With clients, the library needs 2 s to stop.
            with self.subTest(number=number), calls_on_both_ports(number % 6 == 0):
                self.interrupt()
        print(f"{self.outcomes}, slowest stop {self.longest:.2f} s", file=sys.stderr)
        self.assertGreater(self.outcomes["stopped"], rounds(25) / 3)

    def interrupt(self):
        cell = self.start()
        cell.log.wait_for("Starting TavrikDaemon")
        time.sleep(self.random.uniform(0, self.random.choice(self.LATEST)))
        trouble = self.random.choice(self.TROUBLES)
        if trouble:
            cell.process.stdin.write(trouble.encode() + b"\n")
            cell.process.stdin.flush()
            time.sleep(self.random.uniform(0, 0.03))
        ready = bool(cell.log.matching("TavrikDaemon started$"))
        start = time.monotonic()
        for _ in range(self.random.choice((1, 1, 20))):
            cell.process.send_signal(signal.SIGINT)  # the simulator passes it on at once
            time.sleep(0.0005)
        if not ready:
            # A signal before this line may be lost.
            wait_until(lambda: cell.process.poll() is not None or
                       cell.log.matching("TavrikDaemon started$"))
            start = time.monotonic()
            cell.process.send_signal(signal.SIGINT)
        status = cell.wait_for_end()
        elapsed = time.monotonic() - start
        if status == 128 + signal.SIGINT:
            # Killed, because the handler was not installed yet.
            self.assertEqual(cell.log.matching("Port number"), [])
            self.outcomes["killed at the start"] += 1
            return
        cell.expect_normal_end()
        self.assertLess(elapsed, self.LONGEST_STOP)
        self.longest = max(self.longest, elapsed)
        self.outcomes["stopped" if ready else "second needed"] += 1


@contextlib.contextmanager
def calls_on_both_ports(wanted):
    """If `wanted`, runs a client on each port that calls even if the port is closed."""
    over = threading.Event()
    with concurrent.futures.ThreadPoolExecutor() as callers:
        calls = [callers.submit(call_until, over, *pair)
                 for pair in zip(PORTS, (FIRST, SECOND)) if wanted]
        try:
            yield
        finally:
            over.set()
    for call in calls:
        call.result()


def call_until(over, port, device):
    while not over.is_set():
        try:
            with Cell.new_client(port) as client:
                client.Grip(device, 1)
        except (OSError, http.client.HTTPException, xmlrpc.client.ProtocolError):
            time.sleep(0.01)


if __name__ == "__main__":
    main()
