"""A master that is silent for a long time. Separate, because the test is slow."""

import time

from .harness.cell import HVA, SLOWNESS, wait_until
from .harness.cell_test_case import CellTestCase, main


class SilenceTest(CellTestCase):
    options = ("--gripper", "HVA")

    def test_a_master_that_is_silent_for_eleven_seconds_is_reopened(self):
        self.cell.wait_until_operating(1)
        self.cell.command("silent 0 on")
        mark = self.cell.log.mark()
        start = time.monotonic()
        self.cell.log.wait_for("SerialConnection: Reopening$", since=mark, timeout=20 * SLOWNESS)
        self.assertGreater(time.monotonic() - start, 10.5)
        self.assertEqual(len(self.cell.log.matching("Parser: No input data$", since=mark)), 11)
        self.cell.log.wait_for("SerialConnection: Initialize device succeeded$", since=mark)
        self.cell.command("silent 0 off")
        wait_until(lambda: self.call("Grip", HVA, 1) == 0)
        self.assertEqual([line.split(" ", 2)[2] for line in
                          self.cell.log.matching("SerialConnection: ", since=mark)],
                         ["SerialConnection: Reopening",
                          "SerialConnection: Closed device /dev/ttyACM0",
                          "SerialConnection: Opening device /dev/ttyACM0",
                          "SerialConnection: Initialize device succeeded"])


if __name__ == "__main__":
    main()
