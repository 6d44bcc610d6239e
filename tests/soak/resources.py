"""The daemon's use of memory, descriptors and threads."""

import os
import time
from typing import NamedTuple

PERIOD = 1.0  # seconds
WARM_UP = 30.0  # seconds; what is used later counts as growth


class Sample(NamedTuple):
    time: float  # seconds since the start
    rss: int  # KiB
    descriptors: int
    threads: int


class Resources:
    """Samples the daemon's resources once a second."""

    def __init__(self, pid):
        self.pid = pid
        self.start = time.monotonic()
        self.samples = []

    def due(self):
        return self.start + len(self.samples) * PERIOD

    def take(self):
        status = {}
        with open(f"/proc/{self.pid}/status", encoding="ascii") as file:
            for line in file:
                name, _, value = line.partition(":")
                status[name] = value.split()
        descriptors = len(os.listdir(f"/proc/{self.pid}/fd"))
        self.samples.append(Sample(time.monotonic() - self.start, int(status["VmRSS"][0]),
                                   descriptors, int(status["Threads"][0])))

    def after_warm_up(self):
        """The samples after 30 s; in a run of less than a minute, those of the second half."""
        warm = min(WARM_UP, self.samples[-1].time / 2)
        return [sample for sample in self.samples if sample.time >= warm]
