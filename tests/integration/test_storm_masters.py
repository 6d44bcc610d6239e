"""A faulty master that sends invalid data at full speed must not affect a correct one."""

import concurrent.futures
import fcntl
import itertools
import statistics
import sys
import threading
import time
import xmlrpc.client

from .harness import broken_output
from .harness.cell import PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import main
from .harness.methods import DEVICE_METHODS
from .harness.storm import (CHECKS_MEMORY, NO_COMMAND, NO_LINK, NO_PROCESS_DATA, TIMEOUT,
                            WRONG_MODE, StormTestCase, random_numbers, resources_of,
                            restart_data_link, rounds, wait_until_back)

BROKEN, CORRECT = "HVA SN:100001", "MZD-S SN:100002"

DURATION = 0.7 * SLOWNESS  # of each storm, in seconds
LONGEST_CALL = 4.0  # seconds: two requests that time out, and a reserve
LONGEST_CORRECT_CALL = 1.5  # seconds: one request that times out, and a reserve
MODE_PERIOD = 0.001  # seconds
# Results for the broken one: from the daemon, from a correct master, from invalid data.
STATUSES = (0, NO_LINK, TIMEOUT, WRONG_MODE, NO_COMMAND, NO_PROCESS_DATA,
            *broken_output.ERROR_CODES)
LOG_ROOM = 1 << 20  # bytes between the daemon and the reader of its log
PEAK_SLACK = 8192  # KiB that the daemon may need during a storm


class BrokenMasterTest(StormTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    @classmethod
    def prepare(cls):
        super().prepare()
        # A full log pipe blocks the threads that log.
        fcntl.fcntl(cls.cell.log.stream, fcntl.F_SETPIPE_SZ, LOG_ROOM)
        cls.cell.wait_until_operating(2)

    def setUp(self):
        self.random = random_numbers(self.id())
        self.daemon = self.cell.daemon_pid()
        self.baseline = resources_of(self.daemon)

    def tearDown(self):
        self.cell.close_clients()
        print(wait_until_back(self.daemon, self.baseline), file=sys.stderr)
        if CHECKS_MEMORY:
            self.assertLess(peak_memory(self.daemon) - self.baseline.memory, PEAK_SLACK)

    def test_broken_output_at_full_speed(self):
        for _ in range(rounds(1)):
            for kind in broken_output.ALL:
                with self.subTest(kind=kind.__name__):
                    self.storm(lambda kind=kind: self.send(kind(self.random)), kind.__name__)

    def test_a_mode_that_changes_a_thousand_times_a_second(self):
        for _ in range(rounds(1)):
            # In order, then at random; first in the mode, then only reporting it.
            codes = itertools.cycle(range(8))
            self.storm(lambda codes=codes: self.change_mode(next(codes)), "modes in order")
            self.storm(lambda: self.change_mode(self.random.randrange(8)), "modes at random")
            self.storm(lambda: self.claim_mode(self.random.choice(broken_output.MODES)),
                       "claimed modes")

    # Behaviour of the broken master

    def send(self, text):
        self.cell.command(f"send 0 {text}")

    def change_mode(self, code):
        self.cell.command(f"mode 0 {code}")
        time.sleep(MODE_PERIOD)

    def claim_mode(self, code):
        self.send(rf"@MODE={code}\n")
        time.sleep(MODE_PERIOD)

    def storm(self, action, name):
        """Repeats `action` while clients call both masters, then restores the broken one."""
        over = threading.Event()
        self.refused = 0
        mark = self.cell.log.mark()
        start = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor() as callers:
            calls = [callers.submit(self.call_correct_master, over),
                     callers.submit(self.call_broken_master, over)]
            try:
                while time.monotonic() < start + DURATION:
                    action()
            finally:
                over.set()
            correct, broken = (call.result() for call in calls)
        rate = (self.cell.log.mark() - mark) / (time.monotonic() - start)
        print(f"{name}: {rate:.0f} log lines/s; {len(correct)} calls to the correct master, median "
              f"{statistics.median(correct) * 1000:.1f} ms, slowest {max(correct) * 1000:.0f} ms; "
              f"{len(broken)} to the broken one, slowest {max(broken) * 1000:.0f} ms",
              file=sys.stderr)
        # A call waits at most 100 ms for the list of links. On a busy processor that is rarely too
        # short.
        given_up = self.cell.log.matching("Timeout while trying to acquire lock", since=mark)
        self.assertLessEqual(self.refused, len(given_up))
        self.assertLess(self.refused, 1 + len(correct) / 100)
        self.assertLess(statistics.median(correct), 0.1 * SLOWNESS)
        self.assertLess(max(correct), LONGEST_CORRECT_CALL * SLOWNESS)
        self.assertLess(max(broken), LONGEST_CALL * SLOWNESS)
        self.restore()
        self.cell.log.forget()
        self.cell.errors.forget("^pellix-sim: ok")  # keeps the output of a sanitizer

    # Results of the calls

    def call_correct_master(self, over):
        """Calls until `over` is set; returns the duration of each call in seconds."""
        random = random_numbers("correct")
        times = []
        with self.cell.new_client(PORTS[1]) as client:
            while not over.is_set():
                number, force = random.randrange(8), random.randrange(1, 256)
                for method, arguments, right, refusal in (
                        ("SetForce", (number, force), (0,), NO_LINK),
                        ("GetForce", (number,), (force,), 0),
                        ("Grip", (number,), (0,), NO_LINK),
                        ("GetPDINExcerpt", (), range(1, 1 << 31), 0)):
                    start = time.monotonic()
                    answer = getattr(client, method)(CORRECT, *arguments)
                    times.append(time.monotonic() - start)
                    if answer == refusal:
                        self.refused += 1
                        break
                    self.assertIn(answer, right, method)
        return times

    def call_broken_master(self, over):
        """Every call must return, and every status must be a possible one."""
        random = random_numbers("broken")
        times = []
        with self.cell.new_client(PORTS[0]) as client:
            while not over.is_set():
                method = random.choice(DEVICE_METHODS)
                start = time.monotonic()
                try:
                    answer = getattr(client, method.name)(*method.sample_arguments(BROKEN))
                    if method.fallback == NO_LINK:
                        self.assertIn(answer, STATUSES, method.name)
                except xmlrpc.client.Fault:
                    pass  # the device information lacks the gripper's id
                times.append(time.monotonic() - start)
        return times

    def restore(self):
        """Restarts the data link and waits until the gripper works again."""
        restart_data_link(self.cell, 0)
        wait_until(lambda: BROKEN in self.call("GetGrippers"))  # queries its name again
        wait_until(lambda: self.call("Grip", BROKEN, 1) == 0)
        self.assertEqual(self.call("SetForce", BROKEN, 3, 77), 0)
        self.assertEqual(self.call("GetForce", BROKEN, 3), 77)


def peak_memory(pid):
    """Returns the peak memory use of a process in KiB."""
    with open(f"/proc/{pid}/status", encoding="utf-8") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmHWM"))


if __name__ == "__main__":
    main()
