#!/usr/bin/env python3
"""A short tour of a simulated cell with one HVA and one MZD-S: shows every call and its answer.

The exit status is 0 if every answer and the daemon's exit status were as expected.
scripts/demo --tour builds the programs and runs it.
"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from tests.integration.harness import own_network  # noqa: E402
from tests.integration.harness.cell import (HOLDING, HVA, MZD, READY, RELEASED,  # noqa: E402
                                            Cell, wait_until)

PART = 12.5
ANYTHING = object()


class Tour:
    def __init__(self, cell):
        self.cell = cell
        self.wrong = 0

    def step(self, title):
        print(f"\n{title}", flush=True)

    def report(self, done, answer, right):
        print(f"  {done:<46} -> {answer}{'' if right else '   WRONG'}", flush=True)
        self.wrong += not right

    def call(self, method, *arguments, expected=0):
        """Calls a method and shows it with its answer; returns the answer."""
        answer = self.cell.call(method, *arguments)
        text = f"{method}({', '.join(map(repr, arguments))})"
        self.report(text, repr(answer), expected is ANYTHING or answer == expected)
        return answer

    def simulate(self, command, line=None):
        """Sends a command to the simulator and waits for `line` in the log."""
        mark = self.cell.log.mark()
        self.cell.command(command)
        if line:
            self.cell.log.wait_for(line, since=mark)
        print(f"  [{command}]", flush=True)

    def watch(self, gripper, state, position):
        """Shows the position until the gripper has reached `state`."""
        seen = []

        def arrived():
            done = self.cell.call("GetState", gripper) == state
            seen.append(self.cell.call("GetPos", gripper))
            return done

        wait_until(arrived, pause=0.1)
        path = " ".join(f"{value:g}" for value in dict.fromkeys(seen))
        self.report(f"GetPos({gripper!r}) until it stops", path, seen[-1] == position)

    def run(self):
        self.step("Version and list of grippers")
        self.call("GetVersion", expected=ANYTHING)
        self.call("GetGrippers", expected=[HVA, MZD])

        self.step("Make a reference run, so that the HVA knows where its fingers are")
        self.call("Reference", HVA)
        self.watch(HVA, READY, 30.0)

        self.step("Set the force of parameter set 1 and read it back")
        self.call("SetForce", HVA, 1, 60)
        self.call("GetForce", HVA, 1, expected=60)

        self.step(f"Insert a part of {PART} mm and grip it")
        self.simulate(f"part 0 {PART}")
        self.call("Grip", HVA, 1)
        self.watch(HVA, HOLDING, PART)
        self.call("GetState", HVA, expected=HOLDING)

        self.step("Set the LED ring of the MZD; an HVA has none")
        self.call("SetLEDColor", MZD, 0, 3)
        self.call("GetLEDColor", MZD, 0, expected=3)
        self.call("SetLEDPreset", MZD, 5)
        self.call("SetLEDColor", HVA, 0, 3, expected=3)

        self.step("Unplug the MZD and plug it in again")
        self.simulate("unplug 1", "PELLIX removed")
        self.call("GetGrippers", expected=[HVA])
        self.call("Grip", MZD, 1, expected=3)
        self.simulate("plug 1", "Device added")
        self.call("GetGrippers", expected=[HVA, MZD])

        self.step("Release the part")
        self.call("Release", HVA, 1)
        self.watch(HVA, RELEASED, 28.0)

    def stop(self):
        self.step("Ctrl-C")
        self.cell.stop()
        self.report("exit status of the daemon", 0, True)


def main():
    own_network.enter()
    cell = Cell("--gripper", "HVA", "--gripper", "MZD-S")
    tour = Tour(cell)
    try:
        cell.wait_until_serving()
        cell.wait_until_operating(2)
        tour.run()
        tour.stop()
    except Exception as error:
        print(f"\nThe tour failed: {error}\nThe last lines of the log:", *cell.log.since(0)[-40:],
              *cell.errors.since(0)[-10:], sep="\n  ")
        tour.wrong += 1
    finally:
        cell.end_by_force()
    print("\nEvery answer was as expected." if not tour.wrong else f"\nWrong: {tour.wrong}")
    return 1 if tour.wrong else 0


if __name__ == "__main__":
    sys.exit(main())
