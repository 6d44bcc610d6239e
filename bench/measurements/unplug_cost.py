"""Measures how an unplug of a master with a pending request affects that request and the calls to
another master.

Usage: scripts/storm --unplug-cost [ROUNDS]: makes ROUNDS unplugs for each kind of request (default 100).

There are two kinds of request: that of a call, and that of the link's own state thread. In each
round, a client calls another gripper without a pause; "undisturbed" are its calls before the
unplug.
"""

import statistics
import sys
import threading
import time

from tests.integration.harness import own_network
from tests.integration.harness.cell import PORTS, Cell, wait_until

UNPLUGGED, OTHER = "HVA SN:100001", "MZD-S SN:100002"
UNDISTURBED_TIME = 0.2  # seconds


class OtherCalls(threading.Thread):
    """Calls the other gripper until stopped; records start, end and status of each call."""

    def __init__(self, cell):
        super().__init__()
        self.client = cell.new_client(PORTS[1])
        self.over = False
        self.calls = []

    def run(self):
        with self.client:
            while not self.over:
                start = time.monotonic()
                status = self.client.Disable(OTHER)
                self.calls.append((start, time.monotonic(), status))

    def longest(self, since, until):
        return max(end - start for start, end, _ in self.calls if end > since and start < until)

    def refused(self):
        return [(start, end) for start, end, status in self.calls if status != 0]

    def longest_without_success(self, since, until):
        ends = [since] + [end for _, end, status in self.calls if status == 0 and end > since]
        return max((later - earlier for earlier, later in zip(ends, ends[1:]) if earlier < until),
                   default=0.0)


class Measurement:
    """The rounds of one kind of request; times in seconds."""

    def __init__(self, name, begin):
        self.name = name
        self.begin = begin  # starts an unanswered request; returns a wait for its end
        self.undisturbed = []
        self.longest = []
        self.without_success = []
        self.refused = 0
        self.answered_after = []

    def measure_round(self, cell):
        others = OtherCalls(cell)
        others.start()
        time.sleep(UNDISTURBED_TIME)
        wait_for_end = self.begin(cell)
        mark = cell.log.mark()
        start = time.monotonic()
        cell.command("unplug 0")
        answered = wait_for_end(mark)
        cell.log.wait_for("Closed device /dev/ttyACM0", since=mark)
        end = time.monotonic()
        others.over = True
        others.join()
        self.undisturbed.append(others.longest(0, start))
        self.longest.append(others.longest(start, end))
        self.without_success.append(others.longest_without_success(start, end))
        self.refused += len(others.refused())
        self.answered_after.append(answered - start)
        cell.command("mute 0 off")
        cell.command("plug 0")
        wait_until(lambda: cell.call("Disable", UNPLUGGED) == 0)

    def row(self):
        columns = (self.undisturbed, self.longest, self.without_success, self.answered_after)
        times = "".join(f"{statistics.median(column) * 1000:9.1f} {max(column) * 1000:8.1f}"
                        for column in columns)
        return f"{self.name:20}{times}{self.refused:9}"


def begin_call(cell):
    """Starts a call whose request the master does not answer."""
    cell.command("mute 0 on PARAM[2][0]")
    ends = []

    def call():
        cell.call_apart("StoreRemanent", UNPLUGGED)
        ends.append(time.monotonic())
    caller = threading.Thread(target=call)
    caller.start()
    wait_until(lambda: cell.show(0)["requests"][-1] == "PARAM[2][0]=[e0]", pause=0.001)

    def wait_for_end(_mark):
        caller.join()
        return ends[0]
    return wait_for_end


def begin_state_request(cell):
    """Makes the state thread read the gripper again, with a request that is not answered."""
    cell.command("mute 0 on DEVINFO")
    cell.command("mode 0 3")
    wait_until(lambda: cell.show(0)["requests"][-1] == "DEVINFO?", pause=0.001)

    def wait_for_end(mark):
        cell.log.wait_for("Pending command DEVINFO deleted", since=mark)
        return time.monotonic()
    return wait_for_end


def main(rounds=100):
    own_network.enter()
    cell = Cell("--gripper", "HVA", "--gripper", "MZD-S")
    measurements = (Measurement("request of a call", begin_call),
                    Measurement("of the state thread", begin_state_request))
    try:
        cell.wait_until_serving()
        cell.wait_until_operating(2)
        print(f"{rounds} rounds each; median and worst in ms\n"
              "unplugged during     a call to another: undisturbed,  during it,"
              "  until one succeeds | the request ends after | calls refused")
        for measurement in measurements:
            for _ in range(rounds):
                measurement.measure_round(cell)
            print(measurement.row(), flush=True)
        cell.stop()
    finally:
        cell.end_by_force()


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))
