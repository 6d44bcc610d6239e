"""How the cost grows with masters, clients and lines: series of points."""

import functools
import statistics

import processes
from calls import CONNECTIONS
from rounds import alternate, rates
from servers import DAEMON, Server
from streams import RATE
from tests.integration.harness.cell import PORTS

MASTERS = (1, 4, 8, 16, 24, 32)
CLIENTS = (1, 2, 4, 8, 15)  # connections on each of the ports; 15 are all that the library serves
LINE_RATES = (0, 100, 1000, 3000, "full")


def growth(plan):
    yield "masters", series(plan, with_masters, MASTERS)
    yield "clients", series(plan, with_clients, CLIENTS)
    yield "lines", series(plan, with_lines, LINE_RATES)


def series(plan, measure, steps):
    """One point for each step: the medians of the repeats."""
    repeats = alternate(plan.series_rounds, *(functools.partial(measure, plan, step)
                                              for step in steps))
    return [{key: median_of(points, key) for key in points[0]} for points in repeats]


def median_of(points, key):
    values = [point[key] for point in points]
    return values[0] if isinstance(values[0], str) else statistics.median(values)


def with_masters(plan, count):
    with Server(DAEMON, masters=count) as daemon:
        point = {"masters": count, "rssKib": processes.rss_kib(daemon.pid),
                 "quietCpuPercent": cpu_percent(plan, daemon)}
        daemon.stream(RATE)
        point["cpuPercent"] = cpu_percent(plan, daemon)
        return point | daemon.load("GetPos", CONNECTIONS, plan.seconds)


def with_clients(plan, count):
    with Server(DAEMON, masters=1) as daemon:
        return {"connectionsPerPort": count} | \
            daemon.load("GetPos", count * len(PORTS), plan.seconds)


def with_lines(plan, rate):
    with Server(DAEMON, masters=1) as daemon:
        daemon.stream(rate)
        cpu, lines = rates(plan.seconds, daemon.cpu_seconds, daemon.lines)
        return {"rate": rate, "linesPerSecond": lines, "cpuPercent": cpu * 100} | \
            daemon.load("GetPos", CONNECTIONS, plan.seconds)


def cpu_percent(plan, daemon):
    return rates(plan.seconds, daemon.cpu_seconds)[0] * 100
