"""The network of the tests themselves: one for each program, or one program at a time."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from .harness import own_network
from .harness.cell import PATIENCE, wait_until
from .harness.cell_test_case import main

ROOT = pathlib.Path(__file__).resolve().parents[2]
IN_NETWORK = (sys.executable, "-m", "tests.integration.harness.own_network")
# A user namespace in which no network namespace can be made.
REFUSED = ("unshare", "-rn", "sh", "-c", 'echo 0 >/proc/sys/user/max_net_namespaces && exec "$@"',
           "sh")


def environment(**variables):
    return {**{name: value for name, value in os.environ.items() if name != own_network.NETWORK},
            **variables}


class OwnNetworkTest(unittest.TestCase):
    @unittest.skipUnless(own_network.is_own(), "the system allows none")
    def test_every_program_has_a_network_of_its_own(self):
        network = "/proc/self/ns/net"
        program = subprocess.run([*IN_NETWORK, "readlink", network], cwd=ROOT, env=environment(),
                                 check=True, capture_output=True, text=True)
        self.assertNotEqual(program.stdout.strip(), os.readlink(network))

    @unittest.skipUnless(own_network.is_own(), "the system may allow no user namespace")
    def test_programs_that_get_none_run_one_after_the_other(self):
        with tempfile.TemporaryDirectory() as folder, self.program(folder) as first:
            self.assertEqual(first.stdout.readline(), "shared\n")
            with self.program(folder) as second:
                wait_until(lambda: re.search(rf"-> FLOCK .* {second.pid} ",
                                             pathlib.Path("/proc/locks").read_text()))
                first.communicate(timeout=PATIENCE)
                self.assertEqual(second.stdout.readline(), "shared\n")
                second.communicate(timeout=PATIENCE)

    @staticmethod
    def program(folder):
        """Says which network it has, and stays there until its standard input ends."""
        return subprocess.Popen(
            [*REFUSED, *IN_NETWORK, "sh", "-c", f"echo ${own_network.NETWORK}; cat"], cwd=ROOT,
            env=environment(TMPDIR=folder), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            text=True)


if __name__ == "__main__":
    main()
