"""Calls per second against what else one would write."""

from calls import CONNECTIONS, get_pos
from figures import Figure, at_least
from rounds import column, in_turn
from servers import DAEMON, NODE_PEER, Server, python_peer
from world import PROGRAMS

PYTHON_IS = "threading Python daemon"
NODE_PACKAGES = PROGRAMS / "peers" / "node_modules"  # not there where nothing can be fetched


def peers(plan):
    yield compare(plan, python_peer(1), 1, "GetPos, 8 connections", PYTHON_IS, at_least(4),
                  get_pos(CONNECTIONS, plan.seconds))
    yield compare(plan, python_peer(CONNECTIONS), CONNECTIONS,
                  "Grip, 8 connections, a gripper each", PYTHON_IS, at_least(1.3),
                  lambda server: server.load_grippers("Grip", plan.seconds))
    yield compare(plan, python_peer(1), 1, "Grip, 1 connection", PYTHON_IS, None,
                  lambda server: server.load("Grip", 1, plan.seconds))
    if NODE_PACKAGES.is_dir():
        yield compare(plan, NODE_PEER, 1, "GetPos, 8 connections", "Node server of constants", None,
                      get_pos(CONNECTIONS, plan.seconds))


def compare(plan, peer, masters, name, peer_is, goal, load):
    with Server(peer, masters=masters) as theirs, Server(DAEMON, masters=masters) as daemon:
        ours, limit = in_turn(plan.rounds, load, daemon, theirs)
    return Figure(name, "/s", column(ours, "callsPerSecond"), column(limit, "callsPerSecond"),
                  peer_is, goal)
