"""What a process takes: processor time, memory, wake-ups. All read from outside."""

import contextlib
import os
import pathlib
import re
import time

# Before a command: it dies with this program, even if nobody finds the time to end it.
MORTAL = ("setpriv", "--pdeathsig", "KILL", "--")

CPU_CLOCK = 2  # of a whole process, as the kernel packs it into a clock id


def cpu_clock_of(pid):
    """The id of the clock that counts the processor time of process `pid`."""
    return (~pid << 3) | CPU_CLOCK


def cpu_seconds(pid):
    return time.clock_gettime_ns(cpu_clock_of(pid)) / 1e9


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
