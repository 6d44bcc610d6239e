"""How long the daemon takes to start."""

import json
import pathlib

from figures import Figure, at_most
from servers import BARE, DAEMON, PYTHON
from world import Cell

STARTER = pathlib.Path(__file__).resolve().parent / "starter.py"
MASTERS = 16
# What is written at last: the servers listen then, or are about to.
SERVERS = (DAEMON, "TavrikDaemon started"), (BARE, "started")


def starts(rounds, servers, masters):
    """Milliseconds of each round, by server."""
    commands = [[[str(word) for word in program.command], text] for program, text in servers]
    with Cell(PYTHON, STARTER, str(rounds), json.dumps(commands), masters=masters) as cell:
        return cell.result()


def starting(plan):
    alone, bare = starts(plan.starts, SERVERS, 0)
    attached, = starts(plan.starts // 3, SERVERS[:1], MASTERS)
    yield Figure("Start without masters", "ms", alone, bare, "bare server", at_most(1.15))
    base = sorted(alone)[len(alone) // 2]
    yield Figure(f"Start, for each of {MASTERS} masters", "ms",
                 [(time - base) / MASTERS for time in attached], goal=at_most(1.5))
