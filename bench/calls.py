"""What a call costs: against the bare library, against a tty, while masters stream."""

import time

from figures import Figure, at_least, at_most
from processes import pinned_to_one
from rounds import SETTLING, alternate, column, in_turn
from servers import BARE, DAEMON, Server
from streams import MASTERS, RATE, Readers
from world import PROGRAMS, Cell

BARE_CALL = "bare server of the same library"
BARE_AND_TTY = "bare call + pty hand-over"
CONNECTIONS = 8
LEAST_RATIO = {1: 0.97, 8: 0.98}  # of pinned throughput, by connections


def get_pos(connections, seconds):
    return lambda server: server.load("GetPos", connections, seconds)


def pinned_throughput(plan):
    """Servers, masters and clients on one processor, so that nothing but the work counts."""
    with pinned_to_one(), Server(BARE, masters=1) as bare, Server(DAEMON, masters=1) as daemon:
        for connections, least in LEAST_RATIO.items():
            ours, limit = in_turn(plan.burst_rounds, get_pos(connections, plan.burst), daemon, bare)
            yield Figure(f"GetPos, one processor, best of the repeats, connections: {connections}",
                         "/s", column(ours, "callsPerSecond"), column(limit, "callsPerSecond"),
                         BARE_CALL, at_least(least), sum_up=max)


def cpu_of_get_pos(plan):
    with Server(BARE, masters=1) as bare, Server(DAEMON, masters=1) as daemon:
        ours, limit = in_turn(plan.rounds, get_pos(CONNECTIONS, plan.seconds), daemon, bare)
    yield Figure(f"CPU of a GetPos, {CONNECTIONS} connections", "µs",
                 column(ours, "cpuUs"), column(limit, "cpuUs"), BARE_CALL, at_most(1.03))


def latency_under_stream(plan):
    """The second limit is what reading the lines, by whatever program, takes from the callers."""
    def latency(masters, rate):
        with Server(DAEMON, masters=masters) as daemon:  # there can be one only at a time
            daemon.stream(rate)
            time.sleep(SETTLING)
            return daemon.load("GetPos", CONNECTIONS, plan.seconds)["p99Us"]

    def latency_beside_readers():
        with Readers(MASTERS) as readers:
            readers.stream(RATE)
            return latency(1, 0)
    ours, quiet, beside = alternate(plan.rounds, lambda: latency(MASTERS, RATE),
                                    lambda: latency(1, 0), latency_beside_readers)
    name = f"GetPos p99, {CONNECTIONS} connections, {MASTERS} masters with {RATE} lines/s"
    yield Figure(name, "µs", ours, quiet, "the same, one quiet master", at_most(1.5))
    yield Figure(name, "µs", ours, beside, "one quiet master, plain readers beside")


def grips(plan):
    """A command against what it cannot do without: a call, and a round trip through the tty."""
    with Server(BARE, masters=1) as bare, Server(DAEMON, masters=1) as daemon:
        ours, call, tty = in_turn(
            plan.rounds, lambda server: server.load("Grip", 1, plan.seconds), daemon, bare,
            beside=[lambda: handover(plan.handovers)])
    p50 = [a["p50Us"] + b["p50Us"] for a, b in zip(call, tty)]
    cpu = [a["cpuUs"] + b["cpuNsPerRound"] / 1000 for a, b in zip(call, tty)]
    yield Figure("Grip p50", "µs", column(ours, "p50Us"), p50, BARE_AND_TTY, at_most(1.10))
    yield Figure("CPU of a Grip", "µs", column(ours, "cpuUs"), cpu, BARE_AND_TTY, at_most(1.25))


def handover(rounds):
    with Cell(PROGRAMS / "pty-handover", "--rounds", str(rounds), masters=1) as cell:
        return cell.result()
