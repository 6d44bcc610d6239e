"""Calls per second against what else one would write."""

from calls import CONNECTIONS, get_pos
from figures import Figure, at_least
from rounds import column, in_turn
from servers import BARE, DAEMON, NODE_PEER, Server, python_peer
from world import PROGRAMS

PYTHON_IS = "threading Python daemon"
NODE_PACKAGES = PROGRAMS / "peers" / "node_modules"  # not there where nothing can be fetched


def peers(plan):
    load = get_pos(CONNECTIONS, plan.seconds)
    yield compare(plan, python_peer(1), 1, "GetPos, 8 connections", PYTHON_IS, at_least(6.5), load)
    yield compare(plan, python_peer(1), 1, "The same, of the bare server", PYTHON_IS, None, load,
                  ours=BARE)
    yield compare(plan, python_peer(CONNECTIONS), CONNECTIONS,
                  "Grip, 8 connections, a gripper each", PYTHON_IS, at_least(1.3),
                  lambda server: server.load_grippers("Grip", plan.seconds))
    yield compare(plan, python_peer(1), 1, "Grip, 1 connection", PYTHON_IS, at_least(1.3),
                  lambda server: server.load("Grip", 1, plan.seconds))
    if NODE_PACKAGES.is_dir():
        yield compare(plan, NODE_PEER, 1, "GetPos, 8 connections", "Node server of constants", None,
                      load)


def compare(plan, peer, masters, name, peer_is, goal, load, ours=DAEMON):
    with Server(peer, masters=masters) as theirs, Server(ours, masters=masters) as server:
        values, limits = in_turn(plan.rounds, load, server, theirs)
    return Figure(name, "/s", column(values, "callsPerSecond"), column(limits, "callsPerSecond"),
                  peer_is, goal)
