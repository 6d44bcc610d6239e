"""How long and how often things are measured, and in which order."""

import functools
import time
from typing import NamedTuple

SETTLING = 0.2  # seconds until a change of load has passed


class Plan(NamedTuple):
    """Of a run. Times in seconds; counts are those of the repeats."""
    rounds: int
    seconds: float  # of one measurement
    burst_rounds: int
    burst: float  # seconds; short, so that some of them are left alone by the machine's other work
    handovers: int
    starts: int
    plugs: int
    million_lines: float  # while memory is watched
    series_rounds: int  # of each point of the growth


FULL = Plan(rounds=11, seconds=1.0, burst_rounds=24, burst=0.4, handovers=20000, starts=60, plugs=40,
            million_lines=10.0, series_rounds=3)
QUICK = Plan(rounds=1, seconds=0.5, burst_rounds=2, burst=0.2, handovers=1000, starts=3, plugs=3,
             million_lines=0.2, series_rounds=1)


def alternate(rounds, *measures):
    """Takes the measures in turn, A B A B; returns the results of each."""
    return list(zip(*([measure() for measure in measures] for _ in range(rounds))))


def in_turn(rounds, measure, *cells, beside=()):
    """The same with one measure of several cells: all but the measured one stand still.

    `beside`: measures that need none of them, taken after each round.
    """
    def alone(cell):
        with cell.running():
            return measure(cell)
    for cell in cells:
        cell.pause()
    return alternate(rounds, *(functools.partial(alone, cell) for cell in cells), *beside)


def column(results, name):
    return [result[name] for result in results]


def rates(seconds, *counters):
    """How much the counters grow in a second, seen over `seconds` after some settling."""
    time.sleep(SETTLING)
    start, before = time.monotonic(), [counter() for counter in counters]
    time.sleep(seconds)
    after = [counter() for counter in counters]
    elapsed = time.monotonic() - start
    return [(end - begin) / elapsed for begin, end in zip(before, after)]
