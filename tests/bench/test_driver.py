"""The benchmarks' driver: its figures, its table, and how it measures servers."""

import json
import math
import os
import pathlib
import subprocess
import sys
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BENCH = ROOT / "bench"
sys.path[:0] = [str(ROOT), str(BENCH)]

import costs  # noqa: E402
import figures  # noqa: E402
import publish  # noqa: E402
import servers  # noqa: E402
from tests.integration.harness.cell import wait_until  # noqa: E402
from figures import Figure, at_least, at_most, spread  # noqa: E402


class SpreadTest(unittest.TestCase):
    def test_half_the_interquartile_range_relative_to_the_median(self):
        self.assertAlmostEqual(spread([90, 95, 100, 105, 110]), 0.05)

    def test_one_value_has_no_spread(self):
        self.assertIsNone(spread([7]))
        self.assertIsNone(spread([]))

    def test_of_zeros(self):
        self.assertEqual(spread([0, 0, 0]), 0)


class FigureTest(unittest.TestCase):
    def test_medians_are_compared(self):
        figure = Figure("calls", "/s", [100, 1, 98], [200, 300, 100], "bare", at_least(0.49))
        self.assertEqual((figure.value(), figure.limit(), figure.ratio()), (98, 200, 0.49))
        self.assertTrue(figure.is_met())

    def test_best_of_the_repeats(self):
        figure = Figure("calls", "/s", [95, 1, 98], [100, 7], "bare", at_least(0.99), sum_up=max)
        self.assertEqual(figure.ratio(), 0.98)
        self.assertFalse(figure.is_met())

    def test_goals_are_bounds_from_above_or_below(self):
        for goal, met, missed in ((at_least(4), 4, 3.99), (at_most(1.5), 1.5, 1.51)):
            self.assertTrue(Figure("", "", [met], [1], "", goal).is_met())
            self.assertFalse(Figure("", "", [missed], [1], "", goal).is_met())

    def test_a_goal_may_bound_the_value_itself(self):
        self.assertTrue(Figure("", "", [40], goal=at_most(40)).is_met())
        self.assertFalse(Figure("", "", [206], [200], "", at_most(205), True).is_met())

    def test_without_a_goal_nothing_is_met_or_missed(self):
        self.assertIsNone(Figure("", "", [1], [2], "peer").is_met())


class TableTest(unittest.TestCase):
    FIGURES = [Figure("GetPos", "/s", [12000, 12345, 13000], [24690], "bare", at_least(0.6)),
               Figure("a start", "ms", [1.234], goal=at_most(1.5))]

    def records(self):
        """Records as they are read from run.json."""
        return json.loads(json.dumps([figure.record() for figure in self.FIGURES]))

    def test_text(self):
        title, *rows = figures.as_text(self.records(), judged=True).splitlines()
        self.assertEqual(title.split("  ")[0], "figure")
        self.assertRegex(rows[0], "^GetPos +12,345 /s ±2 % +24,690 /s +bare "
                         r"+0\.500 +≥ 0\.6 +NO$")
        self.assertRegex(rows[1], r"^a start +1\.23 ms +≤ 1\.5 +yes$")

    def test_nothing_is_judged_in_a_quick_run(self):
        for row in figures.as_text(self.records(), judged=False).splitlines()[1:]:
            self.assertNotRegex(row, "NO|yes")

    def test_markdown(self):
        lines = figures.as_markdown(self.records(), judged=True).splitlines()
        self.assertEqual(lines[1], "| --- | ---: | ---: | --- | ---: | ---: | --- |")
        self.assertEqual(lines[3], "| a start | 1.23 ms |  |  |  | ≤ 1.5 | yes |")

    def test_digits(self):
        for number, text in ((123456.7, "123,457"), (99.94, "99.9"), (9.876, "9.88"), (0.5, "0.50"),
                             (0.0123, "0.0123"), (0, "0.00"), (-8.0, "-8.00")):
            self.assertEqual(figures.rounded(number), text)


class RoundsTest(unittest.TestCase):
    def test_measures_take_turns(self):
        order = []
        results = figures.alternate(2, lambda: order.append("A") or len(order),
                                   lambda: order.append("B") or -len(order))
        self.assertEqual("".join(order), "ABAB")
        self.assertEqual(results, [(1, 3), (-2, -4)])

    def test_rates_are_those_of_a_second(self):
        clock, nothing = figures.rates(0.1, time.monotonic, lambda: 5)
        self.assertTrue(math.isclose(clock, 1, rel_tol=0.1))
        self.assertEqual(nothing, 0)


class GrowthTest(unittest.TestCase):
    def test_a_point_is_the_median_of_its_repeats(self):
        measured = [7, 1, 2]
        plan = figures.QUICK._replace(series_rounds=3)
        points = costs.series(plan, lambda _, step: {"rate": step, "p50Us": measured.pop(0)},
                               ["full"])
        self.assertEqual(points, [{"rate": "full", "p50Us": 2}])


class ProcessesTest(unittest.TestCase):
    def start(self, *command):
        process = subprocess.Popen(command, stdout=subprocess.PIPE)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def test_processor_time(self):
        busy = self.start("sh", "-c", "while :; do :; done")
        wait_until(lambda: servers.cpu_seconds(busy.pid) > 0.1)
        idle = self.start("sleep", "100")
        self.assertLess(servers.cpu_seconds(idle.pid), 0.1)

    def test_wakeups_of_all_threads(self):
        threads = self.start(sys.executable, "-c", "import threading, time\n"
                             "def doze():\n    while True: time.sleep(0.01)\n"
                             "threading.Thread(target=doze).start()\nprint(1, flush=True)\n"
                             "time.sleep(100)")
        threads.stdout.readline()
        before = servers.wakeups(threads.pid)
        wait_until(lambda: servers.wakeups(threads.pid) >= before + 10)

    def test_a_process_that_has_ended_has_no_wakeups(self):
        ended = self.start("true")
        ended.wait()
        with self.assertRaises(AssertionError):
            servers.wakeups(ended.pid)

    def test_memory(self):
        large = self.start(sys.executable, "-c", "block = bytes(range(256)) * 200_000\n"
                           "print(1, flush=True)\nimport time; time.sleep(100)")
        large.stdout.readline()
        self.assertGreater(servers.rss_kib(large.pid), 50_000)

    def test_pinned_children(self):
        before = os.sched_getaffinity(0)
        with servers.pinned_to_one():
            child = subprocess.run(["nproc"], stdout=subprocess.PIPE, check=True)
        self.assertEqual(child.stdout.strip(), b"1")
        self.assertEqual(os.sched_getaffinity(0), before)


class StartTest(unittest.TestCase):
    def test_times_until_the_text_is_there(self):
        for wait in 0.2, 0:
            script = f"sleep {wait}; echo is ready now; exec sleep 100"
            taken = costs.milliseconds_of_start(["sh", "-c", script], b"ready", os.environ)
            self.assertGreaterEqual(taken, wait * 1000)
        self.assertLess(taken, 200)

    def test_a_server_that_ends_instead(self):
        with self.assertRaisesRegex(AssertionError, "true does not start"):
            costs.milliseconds_of_start(["true"], b"ready", os.environ)


class PageTest(unittest.TestCase):
    PAGE = "before\n<!-- figures -->\nold\n<!-- end of figures -->\nafter\n"

    def test_text_between_marks_is_replaced(self):
        page = publish.page_with(self.PAGE, "figures", r"new \1")
        self.assertEqual(page, self.PAGE.replace("old", r"new \1"))

    def test_a_page_without_the_marks(self):
        with self.assertRaises(SystemExit):
            publish.page_with(self.PAGE, "other", "new")


if __name__ == "__main__":
    unittest.main(verbosity=2)
