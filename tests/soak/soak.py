#!/usr/bin/env python3
"""Runs the daemon with eight simulated grippers and four clients, and checks it.

Usage: soak.py [MINUTES [SEED]]. scripts/soak builds the programs and runs it.

Checks every answer, compares every command that returned 0 with the requests that the simulator
received, and samples the daemon's memory, descriptors and threads once a second. The exit status is
0 if every check passes.
"""

import multiprocessing
import multiprocessing.connection
import pathlib
import random
import signal
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

import client  # noqa: E402
from gripper import STROKES  # noqa: E402
from report import Report  # noqa: E402
from resources import Resources  # noqa: E402
from tests.integration.harness import own_network  # noqa: E402
from tests.integration.harness.cell import PORTS, Cell, wait_until  # noqa: E402

MODELS = tuple(STROKES) * 2
# Port and grippers of each client, which gets grippers of two models.
CLIENTS = ((PORTS[0], (0, 6)), (PORTS[0], (1, 7)), (PORTS[1], (2, 4)), (PORTS[1], (3, 5)))
SPEED = 200  # mm/s; a motion takes about a tenth of a second, so that there are many
LINES_KEPT = 2000  # of the daemon's log


class Soak:
    def __init__(self, minutes, seed):
        self.seconds = minutes * 60
        self.seed = seed
        options = [word for model in MODELS for word in ("--gripper", model)]
        self.cell = Cell(*options, "--speed", str(SPEED), "--pdin-hz", "100")
        self.tally = client.Tally()
        self.resources = None

    def run(self):
        self.cell.wait_until_serving()
        self.cell.wait_until_operating(len(MODELS))
        devices = self.cell.call("GetGrippers")
        for device in devices:
            wait_until(lambda device=device: self.cell.call("GetPDINExcerpt", device))
        self.cell.close_clients()
        clients = self.start_clients(devices)
        self.resources = Resources(self.cell.daemon_pid())
        self.watch(set(clients))
        self.resources.take()
        for pipe, process in clients.items():
            pipe.close()
            process.join()

    def start_clients(self, devices):
        """Starts a process for each client: threads would not run in parallel."""
        deadline = time.monotonic() + self.seconds
        context = multiprocessing.get_context("spawn")
        clients = {}
        for port, numbers in CLIENTS:
            pipe, far_end = context.Pipe()
            seed = f"{self.seed}/{port}/{numbers}"
            clients[pipe] = context.Process(
                target=client.run, args=(far_end, port, numbers, devices, seed, deadline),
                daemon=True)
            clients[pipe].start()
            far_end.close()
        return clients

    def watch(self, working):
        """Samples the daemon and serves the `working` clients until all of them have ended."""
        while working:
            wait = max(0.0, self.resources.due() - time.monotonic())
            for pipe in multiprocessing.connection.wait(working, wait):
                if not self.serve(pipe):
                    working.remove(pipe)
            if time.monotonic() >= self.resources.due():
                self.resources.take()
                for output in self.cell.outputs():
                    output.keep_last(LINES_KEPT)

    def serve(self, pipe):
        """Passes a client's request on to the simulator; returns false if the client has ended."""
        try:
            request, argument = pipe.recv()
        except EOFError:
            self.tally.problems.append("a client has died")
            return False
        if request == "done":
            self.tally.add(argument)
            return False
        pipe.send(getattr(self.cell, request)(argument))
        return True


def main():
    own_network.enter()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # the cell must not outlive this program
    minutes = float(sys.argv[1]) if len(sys.argv) > 1 else 2.0
    seed = sys.argv[2] if len(sys.argv) > 2 else str(random.randrange(10**6))
    print(f"{len(MODELS)} grippers, {len(CLIENTS)} clients, {minutes:g} min, seed {seed}",
          flush=True)
    soak = Soak(minutes, seed)
    try:
        soak.run()
        soak.cell.stop()
    except BaseException:
        print("The last lines of the log:", *soak.cell.log.since(0)[-60:],
              *soak.cell.errors.since(0)[-10:], sep="\n  ")
        raise
    finally:
        soak.cell.end_by_force()
    return 0 if Report(soak.tally, len(CLIENTS), soak.resources).show() else 1


if __name__ == "__main__":
    sys.exit(main())
