"""What the daemon takes while nobody calls and no master says anything."""

import time

from figures import Figure, at_most
from processes import rss_kib, wakeups
from rounds import SETTLING, alternate, in_turn, rates
from servers import BARE, DAEMON, Server
from streams import Readers

MASTERS = (1, 8, 32)


def polls(plan):
    for masters in MASTERS:
        with Readers(masters, "--sleepers") as sleepers, Server(DAEMON, masters=masters) as daemon:
            ours, limit = in_turn(
                plan.rounds,
                lambda cell: rates(plan.seconds, lambda: wakeups(cell.pid))[0] / masters,
                daemon, sleepers)
        yield Figure(f"Wake-ups per second and quiet master, of {masters}", "", ours, limit,
                     "two threads a master sleep 10 ms", at_most(205), goal_for_value=True)


def memory(plan):
    def rss(program, masters):
        with Server(program, masters=masters) as server:
            time.sleep(SETTLING)
            return rss_kib(server.pid)
    few, many = MASTERS[0], MASTERS[-1]
    ours, limit, of_few, of_many = alternate(
        plan.rounds, lambda: rss(DAEMON, 0), lambda: rss(BARE, 0), lambda: rss(DAEMON, few),
        lambda: rss(DAEMON, many))
    yield Figure("RSS without masters", "KiB", ours, limit, "bare server", at_most(1.2))
    yield Figure(f"RSS of each further master, up to {many}", "KiB",
                 [(b - a) / (many - few) for a, b in zip(of_few, of_many)], goal=at_most(40))
