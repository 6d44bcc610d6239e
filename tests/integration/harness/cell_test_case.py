"""Base of the end-to-end tests: one running daemon for the tests of a class.

A program that imports this is put into a network of its own.
"""

import contextlib
import os
import signal
import sys
import unittest

from . import own_network
from .cell import Cell

LOG_LINES_SHOWN = 150

own_network.enter()
# With this line the time that a test may take begins.
print("Network:", os.environ[own_network.NETWORK], file=sys.stderr, flush=True)


class CellTestCase(unittest.TestCase):
    """Tests against one daemon in one simulated cell, started with `options`."""

    options = ()

    @classmethod
    def setUpClass(cls):
        cell = cls.start_cell(*cls.options)
        with output_on_failure(cls.__name__, cell):
            cls.addClassCleanup(cls.stop_cell, cell)
            cls.prepare()

    @classmethod
    def stop_cell(cls, cell):
        with output_on_failure(cls.__name__, cell):
            cell.stop()

    @classmethod
    def prepare(cls):
        """Waits until the tests can begin."""
        cls.cell.wait_until_serving()

    @classmethod
    def start_cell(cls, *options, **settings):
        cls.cell = Cell(*options, **settings)
        started.append(cls.cell)
        return cls.cell

    @classmethod
    def start_cell_again(cls):
        """After the cell was stopped."""
        cls.addClassCleanup(cls.stop_cell, cls.start_cell(*cls.options))
        cls.cell.wait_until_serving()

    def run(self, result=None):
        problems = problem_count(result)
        super().run(result)
        if problem_count(result) > problems:
            print_output(self.id(), self.cell)
        return result

    def call(self, method, *arguments, **options):
        return self.cell.call(method, *arguments, **options)

    @contextlib.contextmanager
    def condition(self, command, end):
        """Has the simulator carry out `command`, and `end` afterwards."""
        self.cell.command(command)
        try:
            yield
        finally:
            self.cell.command(end)


started = []


def problem_count(result):
    return len(result.failures) + len(result.errors) if result else 0


@contextlib.contextmanager
def output_on_failure(name, cell):
    try:
        yield
    except BaseException:
        print_output(name, cell)
        raise


def print_output(name, cell):
    for output in cell.outputs():
        lines = output.since(max(0, output.mark() - LOG_LINES_SHOWN))
        print(f"--- {name}: {output.name}", *lines, sep="\n", file=sys.stderr)


def overdue(_signal, _frame):
    for cell in started[-1:]:
        print_output("overdue", cell)
    for cell in started:
        cell.end_by_force()
    os._exit(1)


def main():
    """Runs the tests of the calling module."""
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGALRM, overdue)
    # Ahead of ctest's own limit, which would leave the processes of the cell behind.
    signal.alarm(int(os.environ.get("TAVRIK_TIME_LIMIT", "0")))
    unittest.main(verbosity=2)
