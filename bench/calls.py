"""The cost of a call, compared with the bare library, a plain server, a bare tty and simple other
implementations; also while masters stream."""

import tempfile
import time
from functools import partial

from costs import RATE, MASTERS
from figures import SETTLING, Figure, alternate, at_least, at_most, column, in_turn
from servers import (BARE, DAEMON, NINE_SENDS, NODE_PEER, PLAIN, PROGRAMS, Cell, Readers, Server,
                     pinned_to_one, python_peer, ttys)

CONNECTIONS = 8
BARE_CALL = "bare server of the same library"
PLAIN_CALL = "plain TCP server"
BARE_AND_TTY = "bare call + pty hand-over"
WITH_NINE_SENDS = "the same daemon, nine sends"
PYTHON_DAEMON = "threading Python daemon"


def get_pos(connections, seconds):
    return lambda server: server.load("GetPos", connections, seconds)


def two_processors(plan):
    """Server and clients on separate processors, if there are two."""
    with Server(BARE, masters=1) as bare, Server(PLAIN, masters=1) as plain, \
            Server(DAEMON, masters=1) as daemon:
        one, many = (in_turn(plan.rounds, get_pos(connections, plan.seconds), daemon, bare, plain)
                     for connections in (1, CONNECTIONS))
    throughput = "GetPos, two processors, connections: "
    cpu = f"CPU of a GetPos, {CONNECTIONS} connections"
    for name, unit, key, results, goal in (
            (f"{throughput}1", "/s", "callsPerSecond", one, at_least(1.6)),
            (f"{throughput}{CONNECTIONS}", "/s", "callsPerSecond", many, at_least(1.5)),
            ("GetPos p50, 1 connection", "µs", "p50Us", one, at_most(0.65)),
            (f"GetPos p99, {CONNECTIONS} connections", "µs", "p99Us", many, at_most(0.7)),
            (cpu, "µs", "cpuUs", many, at_most(0.7))):
        ours, limit, least = (column(result, key) for result in results)
        yield Figure(name, unit, ours, limit, BARE_CALL, goal)
        if unit == "/s" or name == cpu:
            yield Figure(name, unit, ours, least, PLAIN_CALL)


def one_processor(plan):
    """Server, master and clients on one processor, so that only the work counts."""
    with pinned_to_one(), Server(BARE, masters=1) as bare, Server(DAEMON, masters=1) as daemon:
        for connections, least in ((1, 1.8), (CONNECTIONS, 1.5)):
            ours, limit = in_turn(plan.burst_rounds, get_pos(connections, plan.burst), daemon, bare)
            yield Figure(f"GetPos, one processor, best of the repeats, connections: {connections}",
                         "/s", column(ours, "callsPerSecond"), column(limit, "callsPerSecond"),
                         BARE_CALL, at_least(least), sum_up=max)


def latency_under_stream(plan):
    """The second limit shows how much any program that reads these lines delays the callers."""
    def latency(masters, rate):
        with Server(DAEMON, masters=masters) as daemon:  # only one fits on its ports
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
    """A command compared with its minimum: a call, and a round trip through the tty."""
    def handover():
        with Cell(PROGRAMS / "pty-handover", *ttys(1), str(plan.handovers), masters=1) as cell:
            return cell.result()
    with Server(BARE, masters=1) as bare, Server(DAEMON, masters=1) as daemon:
        ours, call, tty = in_turn(plan.rounds, lambda server: server.load("Grip", 1, plan.seconds),
                                  daemon, bare, beside=[handover])
    for name, key, goal in (("Grip p50", "p50Us", 1.10), ("CPU of a Grip", "cpuUs", 1.15)):
        limit = [a[key] + b[key] for a, b in zip(call, tty)]
        yield Figure(name, "µs", column(ours, key), limit, BARE_AND_TTY, at_most(goal))


def grips_against_nine_sends(plan):
    """Both daemons use the same ports, so each measurement starts its own."""
    def grip(program):
        with Server(program, masters=1) as server:
            return server.load("Grip", 1, plan.seconds)

    def grip_from_fin(program):
        with tempfile.NamedTemporaryFile(prefix="bench-") as fin, \
                Server(program, masters=1, fin_file=fin.name) as server:
            return server.load("Grip", 1, plan.seconds, fin.name)

    def compare(measure):
        return alternate(plan.rounds, partial(measure, DAEMON), partial(measure, NINE_SENDS))

    with pinned_to_one():
        pinned = compare(grip)
    free = compare(grip)
    for name, unit, key, results, goal in (
            ("Grip, one processor", "/s", "callsPerSecond", pinned, at_least(1.3)),
            ("Grip, FIN to the last byte sent", "µs", "p50Us", compare(grip_from_fin),
             at_most(0.6)),
            ("Grip, two processors", "/s", "callsPerSecond", free, None),
            ("Grip p50", "µs", "p50Us", free, None)):
        ours, limit = (column(result, key) for result in results)
        yield Figure(name, unit, ours, limit, WITH_NINE_SENDS, goal)


def peers(plan):
    """Compared with simple servers that one could write instead."""
    def compare(name, load, goal, peer=python_peer(1), peer_is=PYTHON_DAEMON, ours=DAEMON,
                masters=1):
        with Server(peer, masters=masters) as theirs, Server(ours, masters=masters) as server:
            values, limits = in_turn(plan.rounds, load, server, theirs)
        return Figure(name, "/s", column(values, "callsPerSecond"),
                      column(limits, "callsPerSecond"), peer_is, goal)

    load = get_pos(CONNECTIONS, plan.seconds)
    yield compare("GetPos, 8 connections", load, at_least(6.5))
    yield compare("The same, of the bare server", load, None, ours=BARE)
    yield compare("Grip, 8 connections, a gripper each",
                  lambda server: server.load_grippers("Grip", plan.seconds), at_least(1.3),
                  python_peer(CONNECTIONS), masters=CONNECTIONS)
    yield compare("Grip, 1 connection", lambda server: server.load("Grip", 1, plan.seconds),
                  at_least(1.3))
    if (PROGRAMS / "peers" / "node_modules").is_dir():  # missing if npm cannot fetch them
        yield compare("GetPos, 8 connections", load, None, NODE_PEER, "Node server of constants")
