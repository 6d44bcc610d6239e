"""What was measured, summed up and held against its limit and its goal."""

import statistics
from typing import NamedTuple


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
