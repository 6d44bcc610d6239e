"""What is called: the daemon, the bare server that is its limit, the peers. And the calls."""

import socket
from typing import NamedTuple

import loads
from tests.integration.harness.cell import PORTS, wait_until
from world import BUILD, PROGRAMS, ROOT, Cell, ttys

PEERS = ROOT / "bench" / "peers"
PYTHON = "/usr/bin/python3"
OPERATES = "Pending command PDOUT deleted (Status: 0)"  # in the daemon's log, once for each master


class Program(NamedTuple):
    """What serves, on which ports; whether it has masters behind it."""
    command: tuple
    ports: tuple
    has_masters: bool


DAEMON = Program((BUILD / "daemon" / "TavrikDaemon",), PORTS, True)
BARE = Program((PROGRAMS / "bare-server", "44231", "44232"), (44231, 44232), False)
PLAIN = Program((PROGRAMS / "plain-server", "44233", "44234"), (44233, 44234), False)
# The daemon without its one send for each answer; on the same ports.
NINE_SENDS = Program((PROGRAMS / "nine-sends-daemon",), PORTS, True)
NODE_PEER = Program(("node", PROGRAMS / "peers" / "node_server.js", "44251"), (44251,), False)


def python_peer(masters):
    return Program((PYTHON, PEERS / "python_daemon.py", "44241,44242", *ttys(masters)),
                   (44241, 44242), True)


class Server(Cell):
    """A program that serves in a cell of quiet masters; ready when the object is."""

    def __init__(self, program, masters=0, **options):
        super().__init__(*program.command, masters=masters, **options)
        self.program = program
        try:
            self._wait_until_ready()
        except BaseException:
            self.end()
            raise

    def _wait_until_ready(self):
        wait_until(lambda: self.has_ended() or all(map(listens, self.program.ports)), pause=0.005)
        if self.has_ended():
            raise AssertionError(f"{self.program.command} does not start: {self.errors.since(0)}")
        if self.program in (DAEMON, NINE_SENDS):
            self.wait_for(OPERATES, count=self.plugged)
        if self.program.has_masters and self.plugged:
            self.settle()

    def load(self, method, connections, seconds, fin_file=None):
        """Calls for gripper 0 on so many connections, spread over the ports.

        Returns what bench-load tells and "cpuUs", the server's processor time for a call. With the
        fin_file of its masters, latencies are those from FIN to the last byte of the answer sent.
        """
        before = self.cpu_seconds()
        result, = loads.results_of(
            loads.command(self.program.ports, method, 0, connections, seconds, fin_file))
        calls = result["warmUpCalls"] + result["calls"]
        result["cpuUs"] = (self.cpu_seconds() - before) / calls * 1e6
        journal.append({"server": str(self.program.command[0]), "masters": self.plugged,
                        "method": method, "connections": connections, **result})
        return result

    def load_grippers(self, method, seconds):
        """Calls for all grippers, on a connection for each: equal commands of several clients for
        one gripper may be taken for one another. Returns the calls per second of all.
        """
        ports = self.program.ports
        results = loads.results_of(
            *(loads.command([ports[number % len(ports)]], method, number, 1, seconds)
              for number in range(self.plugged)))
        return {"callsPerSecond": sum(result["callsPerSecond"] for result in results)}


journal = []  # what every load of this run told, for its file


def listens(port):
    """Whether there is a server; asks it nothing."""
    with socket.socket() as attempt:
        return attempt.connect_ex(("127.0.0.1", port)) == 0
