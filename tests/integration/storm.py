"""What the storms share: how long they last, their random numbers, what a process holds.

The short form of a storm is one of the daily tests; scripts/storm runs all of them in their long
form. The environment says which:

TAVRIK_STORM_FACTOR  how many times as long as the short form (default 1)
TAVRIK_STORM_SEED    where the random numbers begin (default 1); threads share the processor as
                     they like, so a seed repeats what is done, but not to the microsecond
"""

import os
import random
import sys
from typing import NamedTuple

from cell import PATIENCE, SLOWNESS, wait_until
from cell_test_case import CellTestCase

FACTOR = float(os.environ.get("TAVRIK_STORM_FACTOR", "1"))
SEED = os.environ.get("TAVRIK_STORM_SEED", "1")

# Memory that a process may hold beyond its baseline, in KiB: an allocator does not give all back.
MEMORY_SLACK = 2048

# Sanitizers keep freed memory to themselves, and look for leaks by their own means.
MEMORY_COUNTS = SLOWNESS == 1


def rounds(short):
    """How many rounds to make of what the short form makes `short` rounds of."""
    return max(1, round(short * FACTOR))


def random_numbers(name):
    """A generator of random numbers; each thread has one, under a name of its own."""
    return random.Random(f"{SEED} {name}")


class StormTestCase(CellTestCase):
    """Tests whose output begins with what is needed to repeat them."""

    @classmethod
    def setUpClass(cls):
        print(f"{cls.__name__}: TAVRIK_STORM_FACTOR={FACTOR:g} TAVRIK_STORM_SEED={SEED}",
              file=sys.stderr, flush=True)
        super().setUpClass()


class Holdings(NamedTuple):
    """What a process holds at one moment."""

    threads: int
    descriptors: tuple  # what each one leads to, sorted
    memory: int  # resident, in KiB

    def __str__(self):
        return (f"{self.threads} threads, {len(self.descriptors)} descriptors, "
                f"{self.memory} KiB of memory")


def holdings(pid):
    with open(f"/proc/{pid}/status", encoding="utf-8", errors="replace") as file:
        status = dict(line.split(":", 1) for line in file if ":" in line)
    return Holdings(int(status["Threads"]), tuple(sorted(descriptors(pid))),
                    int(status["VmRSS"].split()[0]))


def descriptors(pid):
    folder = f"/proc/{pid}/fd"
    for number in os.listdir(folder):
        try:
            yield os.readlink(f"{folder}/{number}").partition(":")[0]  # without an inode's number
        except FileNotFoundError:
            pass  # closed since


def wait_until_back(pid, baseline, more_descriptors=0, memory_slack=MEMORY_SLACK,
                    timeout=PATIENCE):
    """Waits until a process holds no more than at its `baseline`; returns what it holds then.

    Descriptors and threads are compared by number, memory within `memory_slack` KiB.
    """
    def is_back():
        now = holdings(pid)
        return (now.threads <= baseline.threads and
                len(now.descriptors) <= len(baseline.descriptors) + more_descriptors and
                (not MEMORY_COUNTS or now.memory <= baseline.memory + memory_slack)) and now
    try:
        return wait_until(is_back, timeout, pause=0.05)
    except AssertionError:
        now = holdings(pid)
        raise AssertionError(
            f"at first: {baseline}; now: {now}; descriptors now: {now.descriptors}") from None
