"""What lines of process data cost."""

from figures import Figure, at_most
from processes import rss_kib
from rounds import in_turn, rates
from servers import DAEMON, Server
from tests.integration.harness.cell import wait_until
from world import PROGRAMS, Cell, ttys

READERS = "plain readers: split and decode"
MASTERS, RATE = 32, 1000  # of a busy cell; lines a second of each master
MILLION = 1_000_000
WARM_UP = 0.2 * MILLION  # lines; what memory has grown by then is no growth


class Readers(Cell):
    """One plain reader for each of the masters."""

    def __init__(self, masters, *options):
        super().__init__(PROGRAMS / "plain-readers", *options, *ttys(masters), masters=masters)
        try:
            self.wait_for("started")
        except BaseException:
            self.end()
            raise

    def expect_right_lines(self):
        """Ends them; a limit that got lines wrong would be none."""
        self.resume()
        wrong = self.interrupt()["wrong"]
        if wrong:
            raise AssertionError(f"plain-readers: {wrong} wrong lines")


def cost_of_lines(rate, seconds):
    """A measure: processor seconds for a million lines that come at this rate."""
    def measure(cell):
        cell.stream(rate)
        cpu, lines = rates(seconds, cell.cpu_seconds, cell.lines)
        cell.stream(0)
        return cpu / lines * MILLION
    return measure


def full_speed(plan):
    with Readers(1) as readers, Server(DAEMON, masters=1) as daemon:
        ours, limit = in_turn(plan.rounds, cost_of_lines("full", plan.seconds), daemon, readers)
        readers.expect_right_lines()
    yield Figure("CPU of a million PDIN lines at full speed", "s", ours, limit, READERS,
                 at_most(2.5))


def busy_cell(plan):
    with Readers(MASTERS) as readers, Readers(MASTERS, "--sleepers") as sleepers, \
            Server(DAEMON, masters=MASTERS) as daemon:
        results = in_turn(plan.rounds, cost_of_lines(RATE, plan.seconds),
                          daemon, readers, sleepers)
        readers.expect_right_lines()
    # In percent of a processor: what a second's lines take of a second.
    ours, limit, sleeping = ([cost * RATE * MASTERS / MILLION * 100 for cost in costs]
                             for costs in results)
    name = f"CPU, {MASTERS} masters with {RATE} lines/s"
    yield Figure(name, "%", ours, limit, READERS, at_most(1.3))
    yield Figure(name, "%", ours, sleeping, "plain readers, two sleepers each")


def memory_growth(plan):
    with Server(DAEMON, masters=1) as daemon:
        def rss_after(lines):
            goal = daemon.lines() + lines
            wait_until(lambda: daemon.lines() >= goal, timeout=600, pause=0.05)
            return rss_kib(daemon.pid)
        daemon.stream("full")
        growth = -rss_after(WARM_UP) + rss_after(plan.million_lines * MILLION)
    yield Figure(f"RSS growth per million PDIN lines, of {plan.million_lines:g} million", "KiB",
                 [growth / plan.million_lines], goal=at_most(3))
