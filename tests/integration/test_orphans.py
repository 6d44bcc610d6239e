"""The tests themselves: nothing that they start outlives them, however they end."""

import os
import pathlib
import subprocess
import sys
import unittest

from .harness.cell import PATIENCE, parent_of, wait_until
from .harness.cell_test_case import main

ROOT = pathlib.Path(__file__).resolve().parents[2]
# Tells what it has started, once the whole cell is shown by the browser.
PROGRAM = """
import sys, time
from tests.integration.harness.{module} import {base}
class Test({base}):
    def test(self):
        print("ready", flush=True)
        sys.stdin.read()
Test.setUpClass()
test = Test("test")
test.setUp()
test.test()
"""


def descendants(pid):
    """All processes that `pid` and its children have started."""
    processes = [int(name) for name in os.listdir("/proc") if name.isdigit()]
    children = [each for each in processes if parent_of(each) == pid]
    return children + [each for child in children for each in descendants(child)]


def is_running(pid):
    try:
        return "\nState:\tZ" not in pathlib.Path(f"/proc/{pid}/status").read_text()
    except (FileNotFoundError, ProcessLookupError):
        return False


class OrphanTest(unittest.TestCase):
    def expect_no_orphans(self, module, base, least):
        with subprocess.Popen([sys.executable, "-c", PROGRAM.format(module=module, base=base)],
                              cwd=ROOT, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL) as program:
            try:
                self.assertEqual(program.stdout.readline(), b"ready\n")
                started = descendants(program.pid)
                self.assertGreaterEqual(len(started), least)
            finally:
                program.kill()
        wait_until(lambda: not [pid for pid in started if is_running(pid)], PATIENCE)

    def test_a_cell_ends_with_its_test(self):
        self.expect_no_orphans("web", "WebTestCase", 3)

    def test_a_browser_ends_with_its_test(self):
        self.expect_no_orphans("browser", "BrowserTestCase", 6)


if __name__ == "__main__":
    main()
