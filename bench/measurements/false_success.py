"""Measures how often a refused request returns 0 because the FIN of the previous request, which has
the same key, comes late: a reply ends the oldest request with its key.

Usage: scripts/storm --false-success [TRIES]: makes TRIES tries for each row (default 300).

There is one client and one gripper. Each try reads a setting and sets another value, which the
master refuses with 4; or it grips and then releases, which the master refuses with 44. "FIN" is the
time in ms from the data line of the first call to its FIN; "pause" is the time in ms between the
calls. "Found" counts the false 0 that were detected by reading the setting back.
"""

import collections
import re
import sys
import time

from tests.integration.harness import own_network
from tests.integration.harness.cell import PORTS, Cell

from .equal_calls import RawClient

GRIPPER = "HVA SN:100001"
WHOLE = 0  # bytes of a piece; 0: replies are not split


class Measurement:
    """The tries of one row, in their own cell."""

    def __init__(self, late, pause, tries):
        self.late = late  # ms, like the pause
        self.pause = pause
        self.tries = tries
        self.statuses = collections.Counter()
        self.found = "-"
        self.cell = Cell("--gripper", "HVA", "--pdin-hz", "0")
        try:
            self.cell.wait_until_serving()
            self.cell.wait_until_operating(1)
            self.prepare()
            for _ in range(tries):
                self.try_once()
            self.cell.close_clients()
        finally:
            self.cell.end_by_force()

    @staticmethod
    def client(method, *numbers):
        return RawClient(PORTS[0], method, GRIPPER, *numbers)

    def sleep(self):
        """Makes the client's pause; without one, makes no system call."""
        if self.pause:
            time.sleep(self.pause / 1000)

    def row(self):
        others = self.tries - self.statuses[0] - self.statuses[self.CODE]
        return (f"{self.NAME:30} {self.late:3} {self.pause:5} {self.tries:6} {self.statuses[0]:9} "
                f"{self.statuses[self.CODE]:8} {others:7} {self.found:>6}")


class Limit(Measurement):
    """The parameter is one byte longer than the value that is set, so that it is refused. The
    simulator splits its reply after the data line."""

    NAME = "GetNoPartLimit, SetNoPartLimit"
    CODE = 4
    PARAMETER = "96 1 0,c8,0"
    ANSWER = "ACK PARAM[96][1]\nPARAM[96][1]=[0,c8,0]\n"
    METHODS = ("GetNoPartLimit", "SetNoPartLimit")
    VALUE = 7.25

    def prepare(self):
        self.found = 0
        self.cell.command(f"param 0 {self.PARAMETER}")
        self.cell.command(f"split 0 {len(self.ANSWER) if self.late else WHOLE}")
        self.getter, self.setter = (self.client(method, *numbers) for method, numbers in
                                    zip(self.METHODS, ((0,), (0, self.VALUE))))

    def try_once(self):
        self.getter.send()
        self.getter.answer()
        self.sleep()
        self.setter.send()
        status = self.setter.status()
        self.statuses[status] += 1
        self.settle()
        self.getter.send()
        value = float(self.getter.answer())
        self.found += status == 0 and value != self.VALUE
        self.settle()

    def settle(self):
        """Waits until no late reply is pending: the master answers requests in turn."""
        self.cell.call("GetOverrideGrip", GRIPPER)


class Force(Limit):
    """The same with methods that check the model, which is a request with another key."""

    NAME = "GetForce, SetForce"
    PARAMETER = "96 3 0,32"
    ANSWER = "ACK PARAM[96][3]\nPARAM[96][3]=[0,32]\n"
    METHODS = ("GetForce", "SetForce")
    VALUE = 60


class Motion(Measurement):
    """The test sends the master's replies, so that it can delay the FIN."""

    NAME = "Grip, Release"
    CODE = 44
    KEY, VALUE = "PDOUT", "[3,0]"
    CALLS = (("Grip", 0), ("Release", 0))

    def prepare(self):
        self.cell.command(f"mute 0 on {self.KEY}")
        self.first, self.second = (self.client(*call) for call in self.CALLS)

    def try_once(self):
        mark = self.cell.log.mark()
        data, end = rf"ACK {self.KEY}\n{self.KEY}={self.VALUE}\n", rf"FIN {self.KEY}\n"
        request = f"New command {re.escape(self.KEY)}"
        self.first.send()
        self.cell.log.wait_for(request, since=mark)
        if self.late:
            self.type(f"send 0 {data}", f"wait {self.late}", f"send 0 {end}")
        else:
            self.type(f"send 0 {data}{end}")
        self.first.answer()
        self.sleep()
        self.second.send()
        self.cell.log.wait_for(request, since=mark, count=2)
        # After the FIN, because a master executes one request after the other.
        self.type(f"wait {self.late + 2}", rf"send 0 ERR {self.KEY} {self.CODE}\n")
        self.statuses[self.second.status()] += 1
        self.cell.log.wait_for("ERR:", since=mark)

    def type(self, *lines):
        self.cell.process.stdin.write("".join(line + "\n" for line in lines).encode())
        self.cell.process.stdin.flush()


class LimitByHand(Motion):
    NAME = Limit.NAME
    CODE = Limit.CODE
    KEY, VALUE = "PARAM[96][1]", "[0,c8]"
    CALLS = (("GetNoPartLimit", 0), ("SetNoPartLimit", 0, Limit.VALUE))


ROWS = ((Limit, 0, 0), (Limit, 1, 0), (Limit, 1, 2), (LimitByHand, 4, 0), (Force, 1, 0),
        (Motion, 0, 0), (Motion, 4, 0), (Motion, 4, 8))


def main(tries=300):
    own_network.enter()
    print("calls                          FIN pause  tries  answer 0  refused  others  found")
    for kind, late, pause in ROWS:
        print(kind(late, pause, tries).row(), flush=True)


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))
