"""Runs the C++ client program against a daemon with one prepared gripper."""

import os
import subprocess

from .harness.cell import SLOWNESS
from .harness.cell_test_case import CellTestCase, main


class CppClientTest(CellTestCase):
    options = ("--gripper", "HVA", "--pdin-hz", "0")

    def test_the_cpp_client_gets_every_type(self):
        self.cell.wait_until_operating(1)
        self.cell.master_sends(0, "@PDIN=[9,c4,0,a3]")
        # After a failed read, the daemon returns the stored value.
        self.cell.command("error 0 9 PARAM[3][4]")
        self.cell.master_sends(0, "@PARAM[3][4]=[0,0,0,80]")
        program = subprocess.run([os.environ["TAVRIK_CPP_CLIENT"]], capture_output=True,
                                 text=True, timeout=60 * SLOWNESS)
        self.assertEqual(program.returncode, 0, program.stdout + program.stderr)
        self.assertIn("[  PASSED  ] 18 tests.", program.stdout)


if __name__ == "__main__":
    main()
