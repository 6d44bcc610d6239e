"""The restrictions that the documentation recommends: they hold, and the daemon works in them."""

import contextlib
import os
import re
import socket
import subprocess
import tempfile
import unittest

import own_network
from cell import PORTS, SLOWNESS, answers
from cell_test_case import CellTestCase, main
from test_docs import OPERATION, ROOT, blocks

SECURITY = ROOT / "docs" / "security.md"


def recipe(page, language):
    """The only block of a language on a page."""
    [(_, text, _)] = blocks(page, language)
    return text


class ServiceTest(unittest.TestCase):
    def exposure(self, unit):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "tavrik.service")
            with open(path, "w") as file:
                file.write(unit)
            report = subprocess.run(["systemd-analyze", "security", "--offline=true", path],
                                    check=True, capture_output=True, text=True).stdout
        return re.search(r"Overall exposure level for tavrik.service: ([\d.]+)", report)[1]

    def test_the_exposure_is_as_documented(self):
        unit = recipe(OPERATION, "ini")
        before, after = re.search(r"has (\d+\.\d), with these restrictions it has (\d+\.\d)",
                                  re.sub(r"\s+", " ", SECURITY.read_text())).groups()
        self.assertEqual(self.exposure(unit), before)
        self.assertEqual(self.exposure(unit + recipe(SECURITY, "ini")), after)
        self.assertLess(float(after), 2)


@unittest.skipUnless(own_network.ENTERED in os.environ, "the rules would apply to this host")
class FirewallTest(CellTestCase):
    @classmethod
    def prepare(cls):
        super().prepare()
        subprocess.run(["nft", "-f", "-"], input=recipe(SECURITY, "nft"), check=True, text=True)
        cls.addClassCleanup(subprocess.run, ["nft", "flush", "ruleset"], check=True)

    def test_a_controller_is_served(self):
        for port in PORTS:
            self.assertTrue(answers(port))

    def test_others_are_dropped(self):
        for port in PORTS:
            with self.assertRaises(TimeoutError):
                socket.create_connection(("127.0.0.1", port), 0.5 * SLOWNESS, ("127.0.0.2", 0))

    def test_a_crowd_on_one_port_leaves_the_other_alone(self):
        with contextlib.ExitStack() as connections:
            with self.assertRaises(TimeoutError):
                for _ in range(25):
                    connections.enter_context(
                        socket.create_connection(("127.0.0.1", PORTS[0]), 0.5 * SLOWNESS))
            self.assertTrue(answers(PORTS[1]))


if __name__ == "__main__":
    main()
