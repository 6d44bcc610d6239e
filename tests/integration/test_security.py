"""The restrictions of the service and the firewall that the documentation recommends."""

import contextlib
import re
import socket
import subprocess
import unittest

from .harness import own_network
from .harness.cell import PORTS, SLOWNESS, answers
from .harness.cell_test_case import CellTestCase, main
from .harness.pages import ROOT, blocks

SECURITY = ROOT / "docs" / "security.md"
UNIT = ROOT / "packaging" / "debian" / "tavrikdaemon.service"
WEB = ROOT / "docs" / "web.md"
WEB_UNIT = ROOT / "packaging" / "debian" / "tavrikdaemon-web.tavrikweb.service"


class ServiceTest(unittest.TestCase):
    def test_the_exposure_is_as_documented(self):
        for unit, page in ((UNIT, SECURITY), (WEB_UNIT, WEB)):
            report = subprocess.run(["systemd-analyze", "security", "--offline=true", unit],
                                    check=True, capture_output=True, text=True).stdout
            exposure = re.search(rf"Overall exposure level for {unit.name}: ([\d.]+)", report)[1]
            self.assertIn(f"The service has {exposure};", page.read_text())
            self.assertLessEqual(float(exposure), 2.0)


@unittest.skipUnless(own_network.is_own(), "the rules would apply to this host")
class FirewallTest(CellTestCase):
    @classmethod
    def prepare(cls):
        super().prepare()
        [(_, rules, _)] = blocks(SECURITY, "nft")
        subprocess.run(["nft", "-f", "-"], input=rules, check=True, text=True)
        cls.addClassCleanup(subprocess.run, ["nft", "flush", "ruleset"], check=True)

    def test_a_controller_is_served(self):
        for port in PORTS:
            self.assertTrue(answers(port))

    def test_others_are_dropped(self):
        for port in PORTS:
            with self.assertRaises(TimeoutError):
                socket.create_connection(("127.0.0.1", port), 0.5 * SLOWNESS, ("127.0.0.2", 0))

    def test_many_connections_to_one_port_do_not_block_the_other(self):
        with contextlib.ExitStack() as connections:
            with self.assertRaises(TimeoutError):
                for _ in range(25):
                    connections.enter_context(
                        socket.create_connection(("127.0.0.1", PORTS[0]), 0.5 * SLOWNESS))
            self.assertTrue(answers(PORTS[1]))


if __name__ == "__main__":
    main()
