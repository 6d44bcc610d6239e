"""The plan of a run, and its figures: values compared with their limits and goals, as a table. The
goals themselves stand beside the measurements in calls.py, costs.py and web.py."""

import functools
import statistics
import time
from typing import NamedTuple

SETTLING = 0.2  # seconds until a change of load has taken effect


class Plan(NamedTuple):
    """Durations in seconds and numbers of repeats of a run."""
    rounds: int
    seconds: float  # of one measurement
    burst_rounds: int
    burst: float  # short, so that some bursts are not disturbed by other programs
    handovers: int
    starts: int
    plugs: int
    million_lines: float  # while memory is measured
    series_rounds: int  # of each point of a growth series


FULL = Plan(rounds=11, seconds=1.0, burst_rounds=24, burst=0.4, handovers=20000, starts=60, plugs=40,
            million_lines=10.0, series_rounds=3)
QUICK = Plan(rounds=1, seconds=0.5, burst_rounds=2, burst=0.2, handovers=1000, starts=3, plugs=3,
             million_lines=0.2, series_rounds=1)


def alternate(rounds, *measures):
    """Takes the measures in turn, A B A B. Returns the results of each."""
    return list(zip(*([measure() for measure in measures] for _ in range(rounds))))


def in_turn(rounds, measure, *cells, beside=()):
    """The same for one measure of several cells, of which only the measured one is running.

    `beside` are measures that need none of the cells. They are taken after each round.
    """
    def alone(cell):
        with cell.running():
            return measure(cell)
    for cell in cells:
        cell.pause()
    return alternate(rounds, *(functools.partial(alone, cell) for cell in cells), *beside)


def rates(seconds, *counters):
    """The growth of the counters per second, measured for `seconds` after settling."""
    time.sleep(SETTLING)
    start, before = time.monotonic(), [counter() for counter in counters]
    time.sleep(seconds)
    after = [counter() for counter in counters]
    elapsed = time.monotonic() - start
    return [(end - begin) / elapsed for begin, end in zip(before, after)]


def column(results, name):
    return [result[name] for result in results]


def spread(values):
    """Half the interquartile range, relative to the median. None for a single value."""
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

    `values` are those of the repeats, `limits` those measured in turn with them; `sum_up` makes
    each of them one number. With `goal_for_value`, the goal bounds the value even beside a limit.
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
        """None if there is no goal."""
        if self.goal is None:
            return None
        judges_value = self.goal_for_value or not self.limits
        return self.goal.is_met_by(self.value() if judges_value else self.ratio())

    def record(self):
        """The record in run.json, from which the table is made."""
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
    """The rows of the table for the records in run.json. A quick run is not `judged`."""
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
    """A number with its spread, if any, such as "12.3 ms ±4 %". Empty for None."""
    if number is None:
        return ""
    text = f"{rounded(number)} {unit}".rstrip()
    return text if spread_of_it is None else f"{text} ±{spread_of_it * 100:.0f} %"


def rounded(number):
    """Three significant digits, or the whole integer part."""
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
