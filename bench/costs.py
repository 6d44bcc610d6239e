"""The costs of the daemon besides calls (lines, polling, memory, start, plugging), and how costs
grow with masters, clients and lines."""

import contextlib
import functools
import random
import statistics
import subprocess
import tempfile
import time

from tests.integration.harness.cell import PATIENCE, PORTS, wait_until
from measurements.equal_calls import RawClient
from figures import SETTLING, Figure, alternate, at_most, in_turn, rates
from servers import BARE, DAEMON, OPERATES, Cell, Readers, Server, device, rss_kib, wakeups

MILLION = 1_000_000
MASTERS, RATE = 32, 1000  # of a busy cell; lines per second of each master
READERS = "plain readers: split and decode"


def cost_of_lines(rate, seconds):
    """Returns a measure: processor seconds per million lines at this rate."""
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
    # As percent of a processor.
    ours, limit, sleeping = ([cost * RATE * MASTERS / MILLION * 100 for cost in costs]
                             for costs in results)
    name = f"CPU, {MASTERS} masters with {RATE} lines/s"
    yield Figure(name, "%", ours, limit, READERS, at_most(1.3))
    yield Figure(name, "%", ours, sleeping, "plain readers, two sleepers each")


def polls(plan):
    for masters in (1, 8, MASTERS):
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
    ours, limit, of_one, of_many = alternate(
        plan.rounds, lambda: rss(DAEMON, 0), lambda: rss(BARE, 0), lambda: rss(DAEMON, 1),
        lambda: rss(DAEMON, MASTERS))
    yield Figure("RSS without masters", "KiB", ours, limit, "bare server", at_most(1.2))
    yield Figure(f"RSS of each further master, up to {MASTERS}", "KiB",
                 [(b - a) / (MASTERS - 1) for a, b in zip(of_one, of_many)], goal=at_most(40))


def memory_growth(plan):
    warm_up = 0.2 * MILLION  # lines; growth until then does not count
    with Server(DAEMON, masters=1) as daemon:
        def rss_after(lines):
            goal = daemon.lines() + lines
            wait_until(lambda: daemon.lines() >= goal, timeout=600, pause=0.05)
            return rss_kib(daemon.pid)
        daemon.stream("full")
        growth_in_kib = -rss_after(warm_up) + rss_after(plan.million_lines * MILLION)
    yield Figure(f"RSS growth per million PDIN lines, of {plan.million_lines:g} million", "KiB",
                 [growth_in_kib / plan.million_lines], goal=at_most(3))


def milliseconds_of_start(command, text, environment):
    """The time until `text` is in the output of the command."""
    pause = 50e-6  # seconds; long enough not to disturb the measurement
    with tempfile.NamedTemporaryFile(prefix="bench-") as log, open(log.name, "rb") as output:
        start = time.monotonic()
        server = subprocess.Popen(command, stdout=log, env=environment)
        try:
            seen = b""
            while text not in seen:
                if server.poll() is not None or time.monotonic() > start + PATIENCE:
                    raise AssertionError(f"{command[0]} does not start")
                time.sleep(pause)
                seen += output.read()
            return (time.monotonic() - start) * 1000
        finally:
            server.kill()
            server.wait()


def starting(plan):
    def times(rounds, masters, *servers):
        with Cell("sleep", "infinity", masters=masters) as cell:
            return alternate(rounds, *(
                functools.partial(milliseconds_of_start, program.command, text, cell.environment())
                for program, text in servers))

    masters = 16
    # The texts are written last, when the servers listen or are about to.
    daemon, bare = (DAEMON, b"TavrikDaemon started"), (BARE, b"started")
    ours, limit = times(plan.starts, 0, daemon, bare)
    attached, = times(plan.starts // 3, masters, daemon)
    yield Figure("Start without masters", "ms", ours, limit, "bare server", at_most(1.15))
    base = statistics.median_high(ours)
    yield Figure(f"Start, for each of {masters} masters", "ms",
                 [(time_of_start - base) / masters for time_of_start in attached],
                 goal=at_most(1.5))


def plugging(plan):
    poll = 0.01  # seconds, the daemon's polling period: events come at a random phase of it
    name = device(0).encode()
    added, removed = [], []
    with Server(DAEMON, masters=1) as daemon, \
            contextlib.closing(RawClient(PORTS[0], "GetGrippers")) as client:
        def lists_it():
            client.send()
            return name in client.body()

        def milliseconds_of(event, is_listed):
            time.sleep(random.uniform(poll, 2 * poll))
            mark = daemon.send(f"{event} 0")
            deadline = time.monotonic() + PATIENCE
            while lists_it() != is_listed:
                if time.monotonic() > deadline:
                    raise AssertionError(f"not seen: {event}")
            return (time.monotonic_ns() - daemon.answer(mark)) / 1e6
        for number in range(plan.plugs):
            removed.append(milliseconds_of("unplug", False))
            added.append(milliseconds_of("plug", True))
            daemon.wait_for(OPERATES, count=number + 2)
    yield Figure("\"add\" event to listed by GetGrippers", "ms", added, goal=at_most(2))
    yield Figure("\"remove\" event to gone", "ms", removed, goal=at_most(15))


def growth(plan):
    """Series of points, each with the name of what grows."""
    yield "masters", series(plan, with_masters, (1, 4, 8, 16, 24, 32))
    # Connections on each port; the library serves at most 15.
    yield "clients", series(plan, with_clients, (1, 2, 4, 8, 15))
    yield "lines", series(plan, with_lines, (0, 100, 1000, 3000, "full"))


def series(plan, measure, steps):
    """One point for each step, with the medians of its repeats."""
    repeats = alternate(plan.series_rounds, *(functools.partial(measure, plan, step)
                                              for step in steps))
    return [{key: median_of(points, key) for key in points[0]} for points in repeats]


def median_of(points, key):
    values = [point[key] for point in points]
    return values[0] if isinstance(values[0], str) else statistics.median(values)


def with_masters(plan, count):
    with Server(DAEMON, masters=count) as daemon:
        point = {"masters": count, "rssKib": rss_kib(daemon.pid),
                 "quietCpuPercent": cpu_percent(plan, daemon)}
        daemon.stream(RATE)
        point["cpuPercent"] = cpu_percent(plan, daemon)
        return point | daemon.load("GetPos", 8, plan.seconds)


def with_clients(plan, count):
    with Server(DAEMON, masters=1) as daemon:
        return {"connectionsPerPort": count} | \
            daemon.load("GetPos", count * len(PORTS), plan.seconds)


def with_lines(plan, rate):
    with Server(DAEMON, masters=1) as daemon:
        daemon.stream(rate)
        cpu, lines = rates(plan.seconds, daemon.cpu_seconds, daemon.lines)
        return {"rate": rate, "linesPerSecond": lines, "cpuPercent": cpu * 100} | \
            daemon.load("GetPos", 8, plan.seconds)


def cpu_percent(plan, daemon):
    return rates(plan.seconds, daemon.cpu_seconds)[0] * 100
