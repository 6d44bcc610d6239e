"""How often and in which order things are measured, and what becomes of it: figures held against
their limits and goals, and the table of them."""

import functools
import statistics
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


def rates(seconds, *counters):
    """How much the counters grow in a second, seen over `seconds` after some settling."""
    time.sleep(SETTLING)
    start, before = time.monotonic(), [counter() for counter in counters]
    time.sleep(seconds)
    after = [counter() for counter in counters]
    elapsed = time.monotonic() - start
    return [(end - begin) / elapsed for begin, end in zip(before, after)]


def column(results, name):
    return [result[name] for result in results]


def spread(values):
    """Half the distance between the quartiles, as a part of the median. Of one value, None."""
    if len(values) < 2:
        return None
    median = statistics.median(values)
    if median == 0:
        return 0.0
    low, _, high = statistics.quantiles(values, n=4, method="inclusive")
    return (high - low) / 2 / abs(median)


class Goal(NamedTuple):
    """A bound for a figure's ratio to its limit or, without a limit, for the figure itself."""
    bound: float
    at_least: bool = False

    def is_met_by(self, number):
        return number >= self.bound if self.at_least else number <= self.bound


def at_least(bound):
    return Goal(bound, at_least=True)


def at_most(bound):
    return Goal(bound)


class Figure(NamedTuple):
    """One row of the table.

    `values` are those of the repeats, `limits` what was measured in turn with them, `sum_up` makes
    one number of them. `goal_for_value`: the goal bounds the value although there is a limit.
    """
    name: str
    unit: str
    values: list
    limits: list = ()
    limit_is: str = ""
    goal: Goal = None
    goal_for_value: bool = False
    sum_up: callable = statistics.median

    def value(self):
        return self.sum_up(self.values)

    def limit(self):
        return self.sum_up(self.limits) if self.limits else None

    def ratio(self):
        return self.value() / self.limit() if self.limits else None

    def is_met(self):
        """None when there is no goal."""
        if self.goal is None:
            return None
        judges_value = self.goal_for_value or not self.limits
        return self.goal.is_met_by(self.value() if judges_value else self.ratio())

    def record(self):
        """For the run's file; the table is made of these."""
        return {"figure": self.name, "unit": self.unit,
                "value": self.value(), "valueSpread": spread(self.values),
                "limit": self.limit(), "limitSpread": spread(self.limits),
                "limitIs": self.limit_is, "ratio": self.ratio(),
                "goal": self.goal and self.goal._asdict(), "met": self.is_met(),
                "values": list(self.values), "limits": list(self.limits)}


TITLES = ("figure", "value", "limit", "what the limit is", "ratio", "goal", "met?")
NUMERIC = (1, 2, 4, 5)  # columns, aligned to the right
MET = {True: "yes", False: "NO", None: ""}


def rows(records, judged):
    """The cells of the table, of the records of a run's file. A quick run is not `judged`."""
    for record in records:
        unit, goal = record["unit"], record["goal"]
        yield (record["figure"],
               quantity(record["value"], unit, record["valueSpread"]),
               quantity(record["limit"], unit, record["limitSpread"]),
               record["limitIs"],
               "" if record["ratio"] is None else f"{record['ratio']:.3f}",
               f"{'≥' if goal['at_least'] else '≤'} {goal['bound']:g}" if goal else "",
               MET[record["met"]] if judged else "")


def quantity(number, unit, spread_of_it):
    """With its spread if it has one, such as "12.3 ms ±4 %"; nothing of None."""
    if number is None:
        return ""
    text = f"{rounded(number)} {unit}".rstrip()
    return text if spread_of_it is None else f"{text} ±{spread_of_it * 100:.0f} %"


def rounded(number):
    """Three digits, or all before the point."""
    size = abs(number)
    decimals = 0 if size >= 100 else 1 if size >= 10 else 2 if size >= 0.1 or size == 0 else 4
    return f"{number:,.{decimals}f}"


def as_text(records, judged):
    table = [TITLES, *rows(records, judged)]
    widths = [max(map(len, cells)) for cells in zip(*table)]
    return "\n".join(
        "  ".join(cell.rjust(width) if number in NUMERIC else cell.ljust(width)
                  for number, (cell, width) in enumerate(zip(row, widths))).rstrip()
        for row in table)


def as_markdown(records, judged):
    marks = ["---:" if number in NUMERIC else "---" for number in range(len(TITLES))]
    return markdown([TITLES, marks, *rows(records, judged)])


def markdown(table):
    return "\n".join(f"| {' | '.join(row)} |" for row in table)
