"""tavrikctl: how soon it reports the end of a motion."""

import statistics
import time

from .harness import ctl
from .harness.cell import SLOWNESS
from .harness.cell_test_case import main
from .harness.ctl_test_case import HVA, CtlTestCase


class PromptnessTest(CtlTestCase):
    """Side by side: when the simulated gripper is there, and when tavrikctl says so."""

    options = ("--gripper", "HVA")
    LIMIT = 0.05 * SLOWNESS  # seconds

    def delay(self, command, state):
        """Seconds from the last moment at which the motion had not ended to the report."""
        with ctl.Running(command, HVA, "--wait") as process:
            end = time.monotonic()
            while True:
                before = time.monotonic()
                if self.cell.show(0)["stateName"] == state:
                    break
                end = before
            process.output.wait_for(f"^{HVA}: ")
            return time.monotonic() - end

    def test_the_end_is_reported_within_50_ms(self):
        self.ctl("home", HVA, "--wait")
        delays = []
        for _ in range(4):
            delays += [self.delay("grip", "no part"), self.delay("release", "released")]
        print("Delays in ms:", *(round(1000 * delay) for delay in delays))
        self.assertLess(statistics.median(delays), self.LIMIT)


if __name__ == "__main__":
    main()
