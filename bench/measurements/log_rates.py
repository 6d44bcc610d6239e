"""Measures how many lines per second the daemon logs under each fault.

Usage: scripts/storm --log-rates [SECONDS [NAME...]]: measures all faults, or those named, for
SECONDS (default 3).

The log goes to a file in the folder for temporary files: a slower reader slows the daemon down.
"""

import contextlib
import random
import sys
import tempfile
import time

from tests.integration.harness import broken_output, own_network
from tests.integration.harness.cell import PORTS, Cell, answers, wait_until

GRIPPER = "HVA SN:100001"


def nothing(_cell):
    """a gripper that operates, without calls"""


def unplugged_unnoticed(cell):
    """the tty is gone, udev reports nothing"""
    cell.command("hangup 0")


def unplugged_while_refused(cell):
    """the same, while the gripper refuses to be read in mode 3"""
    refused(cell)
    cell.command("hangup 0")


def refused(cell):
    """the gripper refuses to tell its device information in mode 3"""
    cell.command("error 0 9 DEVINFO")
    cell.command("mode 0 3")


def unanswered(cell):
    """the master answers nothing in mode 3"""
    cell.command("mute 0 on")
    cell.command("mode 0 3")


def silent(cell):
    """the master says nothing at all"""
    cell.command("silent 0 on")


def restarting(cell):
    """the gripper falls back again and again"""
    cell.command("mode 0 5")
    time.sleep(0.25)


def unmarked(cell):
    """100 lines of process data a second without their @"""
    cell.command(r"send 0 PDIN=[1,2,3,4]\n")
    time.sleep(0.01)


def motion(cell):
    """one client calls Grip without a pause"""
    cell.call("Grip", GRIPPER, 1)


def reading(cell):
    """one client calls GetForce without a pause"""
    cell.call("GetForce", GRIPPER, 1)


def position(cell):
    """one client calls GetPos without a pause"""
    cell.call("GetPos", GRIPPER)


def unknown(cell):
    """one client calls GetPos of an unknown gripper without a pause"""
    cell.call("GetPos", "unknown")


# STATES are set once, ACTIONS are repeated.
STATES = (nothing, silent, unplugged_unnoticed, refused, unplugged_while_refused, unanswered)
ACTIONS = (restarting, unmarked, motion, reading, position, unknown)


def sender_of(function):
    """Returns an action: the master sends texts of `function` as fast as the tty accepts them."""
    numbers = random.Random(function.__name__)

    def action(cell):
        cell.command(f"send 0 {function(numbers)}")
    action.__name__ = function.__name__
    action.__doc__ = "the master sends this at full speed, see broken_output.py"
    return action


def measure(fault, repeated, seconds):
    """Returns the log lines per second in a cell with one gripper."""
    with tempfile.NamedTemporaryFile() as log, contextlib.ExitStack() as stack:
        cell = Cell("--gripper", "HVA", stdout=log)
        stack.callback(cell.end_by_force)
        wait_until(lambda: all(answers(port) for port in PORTS))
        # The last request before operate: from then on, the daemon reacts to every other mode.
        wait_until(lambda: "PDOUT?" in cell.show(0)["requests"])
        wait_until(lambda: cell.call("Grip", GRIPPER, 1) == 0)
        fault(cell)
        time.sleep(1)  # until the log rate is constant
        before = count_lines(log.name)
        start = time.monotonic()
        while time.monotonic() < start + seconds:
            if repeated:
                fault(cell)
            else:
                time.sleep(0.01)
        elapsed = time.monotonic() - start
        lines = count_lines(log.name) - before
        cell.close_clients()
        return lines / elapsed


def count_lines(path):
    with open(path, "rb") as file:
        return sum(part.count(b"\n") for part in iter(lambda: file.read(1 << 20), b""))


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 3.0
    faults = [(state, False) for state in STATES] + [(action, True) for action in ACTIONS]
    faults += [(sender_of(kind), True) for kind in broken_output.ALL]
    print("log lines a second")
    for fault, repeated in faults:
        if not sys.argv[2:] or fault.__name__ in sys.argv[2:]:
            rate = measure(fault, repeated, seconds)
            print(f"{rate:8.0f}  {fault.__name__}: {fault.__doc__}", flush=True)


if __name__ == "__main__":
    own_network.enter()
    main()
