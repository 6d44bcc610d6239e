#!/usr/bin/env python3
"""grip.py [GRIPPER [URL]]: grips once, tells whether there was a part, and lets go of it.

THE FINGERS MOVE, at first all the way if the gripper needs a reference run. A failure ends the
program with one line and status 1, and leaves the gripper as it is: what it holds stays held.

To adapt: the constants, above all the state codes, which are those of the simulated grippers: the
manual of yours has its own.
"""

import http.client
import sys
import time
import xmlrpc.client

URL = "http://127.0.0.1:44221/RPC2"
SET = 0  # parameter set: limits and force
CALL_TIME = 10  # seconds; a master that hangs delays an answer by several
MOTION_TIME = 10  # seconds

REFERENCE_NEEDED, RELEASED, HOLDING, NO_PART, READY = 1, 4, 6, 7, 8
FAULTS = 0x10 | 0x20  # flags in the byte of the state: fault, temperature fault

STATUS_TEXTS = {
    3: "no such gripper, or its model cannot do this",
    5: "its master does not answer; whether the request was carried out is not known",
    12: "nothing could be sent: look at the plug and power of its master",
    21: "no process data: the gripper is starting, or has lost its cable or power",
}
PASSING = (3, 5, 21)  # may be over a second later


class Failure(Exception):
    pass


class Transport(xmlrpc.client.Transport):
    """HTTP with a bound on every wait; without it, a call may wait for ever."""

    def make_connection(self, host):
        connection = super().make_connection(host)
        connection.timeout = CALL_TIME
        return connection


class Gripper:
    def __init__(self, daemon, name):
        if not name:  # the daemon may take it for a gripper whose name it does not know yet
            raise Failure("the name of the gripper is empty")
        self.daemon = daemon
        self.name = name

    def command(self, method, *arguments):
        """Calls a method that answers a status; repeating a motion does no harm."""
        status = getattr(self.daemon, method)(self.name, *arguments)
        if status in PASSING:
            time.sleep(1)
            status = getattr(self.daemon, method)(self.name, *arguments)
        if status != 0:
            text = STATUS_TEXTS.get(status, "error code of its master")
            raise Failure(f"{method}: status {status}: {text}")

    def read(self):
        """State and position of one moment; state 0: the drive is off, or nothing is known.

        GetPDINExcerpt has both. GetPos may answer 0.0, and the flags false, because of a failure;
        the excerpt is 0 then, which may be over in a moment.
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

        Nothing but a change of the state is a sign of life: a master that falls silent leaves the
        last one standing. So wait for other states than the one before the motion.
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
        raise Failure("holds a part already: take it out before")
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
