"""Cells that are recorded or replayed."""

import contextlib
import os
import pathlib
import tempfile
import unittest

from .cell import HOLDING, HVA, MZD, READY, RELEASED, Cell, wait_until
from .cell_test_case import output_on_failure, started
from .pages import ROOT

SIMULATOR = os.environ["TAVRIK_SIMULATOR"]
DAEMON = os.environ["TAVRIK_DAEMON"]
DATA = ROOT / "tests" / "data"

FAST = ("--speed", "1000")  # motions are not what these tests are about

OPERATING = r"Pending command PDOUT deleted \(Status: 0\)"


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


class Session:
    """What clients do in a cell of two grippers, with their answers.

    The simulator is told to change the cell; in a replay, the recording does it.
    """

    def __init__(self, cell, simulated):
        self.cell = cell
        self.simulated = simulated
        self.answers = []

    def simulate(self, command):
        if self.simulated:
            self.cell.command(command)

    def call(self, method, *arguments):
        self.answers.append((method, *arguments, self.cell.call(method, *arguments)))

    def wait_for(self, value, method, *arguments):
        wait_until(lambda: self.cell.call(method, *arguments) == value)
        self.answers.append((method, *arguments, value))

    def run(self):
        self.cell.wait_until_serving()
        self.cell.wait_until_operating(2)
        self.grip_and_release()
        self.read_and_write()
        self.lose_a_master()
        return self.answers

    def grip_and_release(self):
        self.call("GetGrippers")
        for gripper in (HVA, MZD):
            self.call("Reference", gripper)
            self.wait_for(READY, "GetState", gripper)
        self.simulate("part 0 12.5")
        self.call("Grip", HVA, 1)
        self.wait_for(HOLDING, "GetState", HVA)
        self.call("GetPos", HVA)
        self.call("Release", HVA, 1)
        self.wait_for(RELEASED, "GetState", HVA)
        self.call("GetPos", HVA)

    def read_and_write(self):
        for gripper in (HVA, MZD):
            self.call("GetForce", gripper, 2)
            self.call("SetForce", gripper, 2, 77)
            self.call("GetForce", gripper, 2)
            self.call("GetNoPartLimit", gripper, 3)
        self.simulate("error 0 44 PARAM[97][3]")
        self.call("SetForce", HVA, 1, 50)
        self.simulate("error 0 off")
        self.simulate("fault 1 temp-warn on")
        self.wait_for(True, "GetTempWarn", MZD)

    def lose_a_master(self):
        # The recording times the unplug from the last request before it.
        self.call("GetForce", HVA, 2)
        mark = self.cell.log.mark()
        self.simulate("unplug 0")
        self.wait_for([MZD], "GetGrippers")
        self.call("Grip", HVA, 1)
        # The timeout of 1 s keeps the other one unplugged for long enough to be noticed.
        self.simulate("mute 1 on PARAM[98][3]")
        self.call("SetForce", MZD, 2, 10)
        self.simulate("mute 1 off PARAM[98][3]")
        self.simulate("plug 0")
        self.cell.log.wait_for("Device added$", since=mark)
        self.cell.wait_until_operating(1, since=mark)
        self.wait_for([MZD, HVA], "GetGrippers")
        self.wait_for(28.0, "GetPos", HVA)
        self.call("GetForce", HVA, 2)
