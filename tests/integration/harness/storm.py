"""Common parts of the storms: duration, random numbers, resources of a process.

The short form of a storm is one of the daily tests; scripts/storm runs all of them in their long
form. The environment says which:

TAVRIK_STORM_FACTOR  how many times as long as the short form (default 1)
TAVRIK_STORM_SEED    where the random numbers begin (default 1); threads share the processor as
                     they like, so a seed repeats what is done, but not to the microsecond
"""

import functools
import itertools
import os
import random
import sys
from typing import NamedTuple

from .cell import PATIENCE, SLOWNESS, wait_until
from .cell_test_case import CellTestCase

FACTOR = float(os.environ.get("TAVRIK_STORM_FACTOR", "1"))
SEED = os.environ.get("TAVRIK_STORM_SEED", "1")

# Failure values of calls: no link to this gripper, or none in time; timeout of 1 s; the error of a
# master outside of operate; nothing sent; no process data.
NO_LINK, TIMEOUT, WRONG_MODE, NO_COMMAND, NO_PROCESS_DATA = 3, 5, 6, 12, 21

# Memory in KiB that a process may use beyond its baseline: an allocator does not return all memory.
MEMORY_SLACK = 2048

# Sanitizers do not return freed memory and check for leaks themselves.
CHECKS_MEMORY = SLOWNESS == 1


def rounds(short):
    """Returns the number of rounds; `short` is that of the short form."""
    return max(1, round(short * FACTOR))


def repeated(test):
    """Decorator of a test that makes one round."""
    @functools.wraps(test)
    def repeat(self):
        for _ in range(rounds(1)):
            test(self)
    return repeat


def random_numbers(name):
    """Returns a generator of random numbers; each thread has its own, with its own name."""
    return random.Random(f"{SEED} {name}")


class StormTestCase(CellTestCase):
    """Tests that print the settings with which they can be repeated."""

    @classmethod
    def setUpClass(cls):
        print(f"{cls.__name__}: TAVRIK_STORM_FACTOR={FACTOR:g} TAVRIK_STORM_SEED={SEED}",
              file=sys.stderr, flush=True)
        super().setUpClass()


class MastersTestCase(StormTestCase):
    """Four masters with a gripper each. At the end of a test, all masters must work again and the
    daemon must use no more resources than before."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--gripper", "MZD-L", "--gripper", "TLM")
    NAMES = ("HVA SN:100001", "MZD-S SN:100002", "MZD-L SN:100003", "TLM SN:100004")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(len(cls.NAMES))

    def setUp(self):
        self.daemon = self.cell.daemon_pid()
        for number in range(len(self.NAMES)):
            self.wait_until_working(number)
        self.take_baseline()

    def tearDown(self):
        """Checks that all masters work again and that no resources have leaked."""
        for number in range(len(self.NAMES)):
            self.cell.command(f"mute {number} off")
            if not self.cell.show(number)["plugged"]:
                self.cell.command(f"plug {number}")
            self.wait_until_working(number)
        self.assertEqual(sorted(self.call("GetGrippers")), sorted(self.NAMES))
        self.cell.close_clients()
        now = wait_until_back(self.daemon, self.baseline, self.half_open_ttys() - self.half_open)
        print(f"before: {self.baseline}; after: {now}", file=sys.stderr)

    def half_open_ttys(self):
        """Returns how many ttys vanished between open() and tcgetattr(): their descriptors stay."""
        return len(self.cell.errors.matching("tcgetattr"))

    def wait_until_working(self, number, name=None):
        """Waits until a gripper can be called and no earlier request is pending.

        The gripper can be called some milliseconds before the state thread requests PDOUT. A second
        call gets only its own replies if that request, which has the same name, has ended.
        """
        self.settle()
        for _ in range(2):
            wait_until(lambda: self.call("Disable", name or self.NAMES[number]) == 0)
            wait_until(lambda: asked_for_pdout(self.cell.show(number)["requests"]))
            self.wait_until_all_is_handled(number)

    def wait_until_all_is_handled(self, number):
        """Waits until the daemon has handled everything that a master has sent so far."""
        mark = self.cell.log.mark()
        self.cell.command(rf"send {number} HANDLED=\n")
        self.cell.log.wait_for("Active command HANDLED could not be found$", since=mark)

    def settle(self):
        """Waits until the daemon has handled all udev events so far."""
        mark = self.cell.log.mark()
        self.cell.command("event 3 change")
        self.cell.log.wait_for("Unknown udev action: change$", since=mark)

    def take_baseline(self):
        """Records the daemon's resources after all connections and their threads have ended."""
        self.cell.close_clients()
        wait_until_idle(self.daemon, len(self.NAMES))
        self.baseline = resources_of(self.daemon)
        self.half_open = self.half_open_ttys()

    def unplug(self, *numbers):
        for number in numbers:
            self.cell.command(f"unplug {number}")

    def plug_again(self, *numbers):
        for number in numbers:
            self.cell.command(f"mute {number} off")
            self.cell.command(f"plug {number}")
        for number in numbers:
            self.wait_until_working(number)

    def wait_until_gone(self, *numbers):
        self.settle()
        listed = self.call("GetGrippers")
        for number in numbers:
            self.assertNotIn(self.NAMES[number], listed)
            self.assertEqual(self.call("Disable", self.NAMES[number]), NO_LINK)


def asked_for_pdout(requests):
    """Whether the state thread has asked for PDOUT since it has last switched to operate.

    A master's last `requests` do not show that any more when both are long ago.
    """
    operate = [place for place, request in enumerate(requests) if request == "OPERATE()"]
    return not operate or "PDOUT?" in requests[operate[-1]:]


class Resources(NamedTuple):
    """The resources of a process at one moment."""

    threads: int
    descriptors: tuple  # target of each one, sorted
    memory: int  # resident, in KiB

    def __str__(self):
        return (f"{self.threads} threads, {len(self.descriptors)} descriptors, "
                f"{self.memory} KiB of memory")


def resources_of(pid):
    with open(f"/proc/{pid}/status", encoding="utf-8", errors="replace") as file:
        status = dict(line.split(":", 1) for line in file if ":" in line)
    return Resources(int(status["Threads"]), tuple(sorted(descriptors(pid))),
                    int(status["VmRSS"].split()[0]))


def wait_until_idle(pid, links=0):
    """Waits until the threads of all connections to a daemon have ended.

    The others are main, two servers and the monitor, and three for each of the `links`.
    """
    threads = 4 + 3 * links + sanitizer_threads(pid)
    wait_until(lambda: resources_of(pid).threads == threads)


def sanitizer_threads(pid):
    """Returns the number of the sanitizer's own threads: the thread sanitizer has one."""
    with open(f"/proc/{pid}/maps", encoding="utf-8", errors="replace") as file:
        return 1 if "/libtsan." in file.read() else 0


def descriptors(pid):
    folder = f"/proc/{pid}/fd"
    for number in os.listdir(folder):
        try:
            yield os.readlink(f"{folder}/{number}").partition(":")[0]  # without an inode's number
        except FileNotFoundError:
            pass  # closed in the meantime


def wait_until_back(pid, baseline, more_descriptors=0, memory_slack=MEMORY_SLACK,
                    timeout=PATIENCE):
    """Waits until a process holds no more than at its `baseline`; returns what it holds then.

    Descriptors and threads are compared by number, memory within `memory_slack` KiB.
    """
    def is_back():
        now = resources_of(pid)
        return (now.threads <= baseline.threads and
                len(now.descriptors) <= len(baseline.descriptors) + more_descriptors and
                (not CHECKS_MEMORY or now.memory <= baseline.memory + memory_slack)) and now
    try:
        return wait_until(is_back, timeout, pause=0.05)
    except AssertionError:
        now = resources_of(pid)
        raise AssertionError(
            f"at first: {baseline}; now: {now}; descriptors now: {now.descriptors}") from None


def restart_data_link(cell, number):
    """Makes a gripper lose its power and start again, whatever mode the daemon had stored."""
    mark = cell.log.mark()
    codes = itertools.cycle((1, 7))
    # Repeated because the daemon checks the mode only every 10 ms, if it is not busy, and drops
    # input while it opens a tty.
    wait_until(lambda: cell.command(f"mode {number} {next(codes)}") or
               cell.log.matching(r"\d POWERFAULT$", since=mark), pause=0.05)
    cell.command(f"mode {number} 3")
    cell.log.wait_for(r"\d Switching to OPERATE$", since=mark)
