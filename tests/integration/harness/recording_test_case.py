"""Cells that are recorded or replayed."""

import contextlib
import os
import pathlib
import tempfile
import unittest

from .cell import Cell, wait_until
from .cell_test_case import output_on_failure, started
from .pages import ROOT

SIMULATOR = os.environ["TAVRIK_SIMULATOR"]
DAEMON = os.environ["TAVRIK_DAEMON"]
DATA = ROOT / "tests" / "data"

HVA, MZD = "HVA SN:100001", "MZD-S SN:100002"
FAST = ("--speed", "1000")  # the way is not what is tried

OPERATING = r"Pending command PDOUT deleted \(Status: 0\)"
READY, RELEASED, HOLDING, NO_PART = 8, 4, 6, 7


@contextlib.contextmanager
def running(*options, **settings):
    """A cell whose output is shown when the test fails."""
    cell = Cell(*options, **settings)
    started.append(cell)
    with output_on_failure("cell", cell):
        try:
            yield cell
        finally:
            cell.close_clients()
            cell.end_by_force()


def requests(path, master=0):
    """The requests to a master, as a recording has them."""
    lines = [line.split(" > ", 1) for line in path.read_text().splitlines() if " > " in line]
    return [text for place, text in lines if place.split()[1] == str(master)]


class RecordingTestCase(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))


class Shift:
    """What clients do in a cell of two grippers, with their answers.

    What happens to the cell beside it is asked of the simulator. In a replay it happens by itself.
    """

    def __init__(self, cell, simulated):
        self.cell = cell
        self.simulated = simulated
        self.answers = []

    def happens(self, command):
        if self.simulated:
            self.cell.command(command)

    def ask(self, method, *arguments):
        self.answers.append((method, *arguments, self.cell.call(method, *arguments)))

    def wait_for(self, value, method, *arguments):
        wait_until(lambda: self.cell.call(method, *arguments) == value)
        self.answers.append((method, *arguments, value))

    def work(self):
        self.cell.wait_until_serving()
        self.cell.wait_until_operating(2)
        self.grip_and_release()
        self.read_and_write()
        self.lose_a_master()
        return self.answers

    def grip_and_release(self):
        self.ask("GetGrippers")
        for gripper in (HVA, MZD):
            self.ask("Reference", gripper)
            self.wait_for(READY, "GetState", gripper)
        self.happens("part 0 12.5")
        self.ask("Grip", HVA, 1)
        self.wait_for(HOLDING, "GetState", HVA)
        self.ask("GetPos", HVA)
        self.ask("Release", HVA, 1)
        self.wait_for(RELEASED, "GetState", HVA)
        self.ask("GetPos", HVA)

    def read_and_write(self):
        for gripper in (HVA, MZD):
            self.ask("GetForce", gripper, 2)
            self.ask("SetForce", gripper, 2, 77)
            self.ask("GetForce", gripper, 2)
            self.ask("GetNoPartLimit", gripper, 3)
        self.happens("error 0 44 PARAM[97][3]")
        self.ask("SetForce", HVA, 1, 50)
        self.happens("error 0 off")
        self.happens("fault 1 temp-warn on")
        self.wait_for(True, "GetTempWarn", MZD)

    def lose_a_master(self):
        # The last request before is where the distance to the unplug is counted from.
        self.ask("GetForce", HVA, 2)
        mark = self.cell.log.mark()
        self.happens("unplug 0")
        self.wait_for([MZD], "GetGrippers")
        self.ask("Grip", HVA, 1)
        # A time-out of a second, so that nobody can miss that the other one is away.
        self.happens("mute 1 on PARAM[98][3]")
        self.ask("SetForce", MZD, 2, 10)
        self.happens("mute 1 off PARAM[98][3]")
        self.happens("plug 0")
        self.cell.log.wait_for("Device added$", since=mark)
        self.cell.wait_until_operating(1, since=mark)
        self.wait_for([MZD, HVA], "GetGrippers")
        self.wait_for(28.0, "GetPos", HVA)
        self.ask("GetForce", HVA, 2)
