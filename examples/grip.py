#!/usr/bin/env python3
"""grip.py [GRIPPER [URL]]: grips once, reports whether there was a part, and releases it.

THE FINGERS MOVE, over their whole stroke if the gripper needs a reference run. On a failure, the
program prints one line and exits with status 1. It does not release a part that the gripper holds.

Adapt the constants, in particular the state codes, which are those of the simulated grippers.
Take yours from the manual of the gripper.
"""

import http.client
import sys
import time
import xmlrpc.client

URL = "http://127.0.0.1:44221/RPC2"
SET = 0  # parameter set: limits and force
CALL_TIME = 10  # seconds; a hung master delays an answer by several seconds
MOTION_TIME = 10  # seconds

REFERENCE_NEEDED, RELEASED, HOLDING, NO_PART, READY = 1, 4, 6, 7, 8
FAULTS = 0x10 | 0x20  # flags in the state byte: fault, temperature fault

STATUS_TEXTS = {
    3: "no such gripper, or not supported by its model",
    5: "its master does not answer; the command may or may not have been carried out",
    12: "nothing could be sent: check the plug and power of its master",
    21: "no process data: the gripper is starting, or has lost its cable or power",
}
PASSING = (3, 5, 21)  # a second attempt one second later may succeed


class Failure(Exception):
    pass


class Transport(xmlrpc.client.Transport):
    """HTTP with a timeout; without it, a call may wait forever."""

    def make_connection(self, host):
        connection = super().make_connection(host)
        connection.timeout = CALL_TIME
        return connection


class Gripper:
    def __init__(self, daemon, name):
        if not name:  # the daemon could use a gripper whose name it has not read yet
            raise Failure("the name of the gripper is empty")
        self.daemon = daemon
        self.name = name

    def command(self, method, *arguments):
        """Calls a method that returns a status. Repeats it once, which is safe for a motion."""
        status = getattr(self.daemon, method)(self.name, *arguments)
        if status in PASSING:
            time.sleep(1)
            status = getattr(self.daemon, method)(self.name, *arguments)
        if status != 0:
            text = STATUS_TEXTS.get(status, "error code of its master")
            raise Failure(f"{method}: status {status}: {text}")

    def read(self):
        """Reads state and position together, with GetPDINExcerpt.

        State 0: the drive is off or there is no process data. GetPos can also return 0.0 because of
        a failure, and GetFault false. The excerpt is then 0, so this reads it again after a second.
        """
        excerpt = self.daemon.GetPDINExcerpt(self.name)
        if excerpt == 0:
            time.sleep(1)
            excerpt = self.daemon.GetPDINExcerpt(self.name)
        state, position = excerpt >> 16 & 0xF, (excerpt & 0xFF) << 8 | excerpt >> 8 & 0xFF
        if excerpt >> 16 & FAULTS:
            raise Failure(f"reports a fault, in state {state}")
        return state, (position - 0x10000 if position & 0x8000 else position) / 100

    def wait_for(self, *states):
        """Waits for the end of a motion; returns state and position.

        If the master stops answering, the state does not change. So wait only for states that
        differ from the one before the motion.
        """
        deadline = time.monotonic() + MOTION_TIME
        while True:
            state, position = self.read()
            if state in states:
                return state, position
            if time.monotonic() > deadline:
                raise Failure(f"still in state {state} after {MOTION_TIME} s")
            time.sleep(0.05)


def find_gripper(daemon):
    grippers = daemon.GetGrippers()
    if len(grippers) != 1:
        raise Failure(f"name one of these grippers: {grippers}")
    return grippers[0]


def cycle(gripper):
    state, _ = gripper.read()
    if state == HOLDING:
        raise Failure("already holds a part: remove it first")
    if state == REFERENCE_NEEDED:
        gripper.command("Home")
        gripper.wait_for(READY)
    gripper.command("Release", SET)
    gripper.wait_for(RELEASED)

    gripper.command("Grip", SET)
    state, position = gripper.wait_for(HOLDING, NO_PART)
    if state == HOLDING:
        print(f"{gripper.name}: part held at {position:.2f}")
    else:
        print(f"{gripper.name}: no part, closed to {position:.2f}")

    gripper.command("Release", SET)
    gripper.wait_for(RELEASED)
    print(f"{gripper.name}: released")


def main(name="", url=URL):
    try:
        with xmlrpc.client.ServerProxy(url, transport=Transport()) as daemon:
            name = name or find_gripper(daemon)
            cycle(Gripper(daemon, name))
    except (Failure, OSError, http.client.HTTPException, xmlrpc.client.Error) as error:
        sys.exit(f"{name or url}: {error}")


if __name__ == "__main__":
    main(*sys.argv[1:])
