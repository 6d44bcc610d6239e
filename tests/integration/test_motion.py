"""Moving grippers: the effects of calls on fingers, parts and settings, seen through calls."""

from .harness.cell import (FAULT, GRIPPING, HOLDING, HVA, MZD, NEEDS_REFERENCE, NO_PART, OFF,
                           READY, RELEASED, TLM, wait_until)
from .harness.cell_test_case import CellTestCase, main

# Positions after a release with parameter set 0.
OPEN = {HVA: 28.0, MZD: 22.0, TLM: 18.0}


class MotionTest(CellTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--gripper", "TLM")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(3)
        cls.state_at_start = [wait_until(lambda: cls.cell.call("GetPDINExcerpt", gripper))
                              and cls.cell.call("GetState", gripper) for gripper in (HVA, MZD, TLM)]
        for gripper in (HVA, MZD):
            cls.cell.call("Reference", gripper)
        for gripper in (HVA, MZD):
            cls.wait_for_state(gripper, READY)

    @classmethod
    def wait_for_state(cls, gripper, state):
        wait_until(lambda: cls.cell.call("GetState", gripper) == state)

    def carry_out(self, method, gripper, *arguments):
        self.assertEqual(self.call(method, gripper, *arguments), 0)

    def put_part(self, number, width):
        self.cell.command(f"part {number} {width}")
        self.addCleanup(self.cell.command, f"part {number} none")

    def open(self, gripper):
        self.carry_out("Release", gripper, 0)
        # The state alone may still be that of an earlier release.
        wait_until(lambda: self.call("GetPos", gripper) == OPEN[gripper])
        self.wait_for_state(gripper, RELEASED)

    def test_a_reference_run_is_needed_after_power_up(self):
        self.assertEqual(self.state_at_start, [NEEDS_REFERENCE, NEEDS_REFERENCE, OFF])

    def test_the_reference_run_ends_at_the_chosen_stop(self):
        for inwards, stop in ((True, 0.0), (False, 30.0)):
            self.open(HVA)
            self.carry_out("SetReferenceDirection", HVA, inwards)
            self.carry_out("Reference", HVA)
            self.wait_for_state(HVA, READY)
            self.assertEqual(self.call("GetPos", HVA), stop)

    def test_a_part_is_gripped_held_and_released(self):
        for number, gripper in enumerate((HVA, MZD, TLM)):
            with self.subTest(gripper=gripper):
                self.open(gripper)
                self.put_part(number, 12.5)
                self.carry_out("Grip", gripper, 0)
                self.wait_for_state(gripper, HOLDING)
                self.assertEqual(self.call("GetPos", gripper), 12.5)
                self.open(gripper)
                self.assertGreater(self.call("GetPos", gripper), 12.5)

    def test_the_fingers_move_at_the_configured_speed(self):
        self.open(HVA)
        self.carry_out("SetOverrideGrip", HVA, 50)
        self.addCleanup(self.carry_out, "SetOverrideGrip", HVA, 100)
        self.carry_out("Grip", HVA, 0)
        positions = []
        while self.call("GetState", HVA) in (RELEASED, GRIPPING):
            positions.append(self.call("GetPos", HVA))
        self.assertEqual(positions, sorted(positions, reverse=True))
        self.assertGreater(len(set(positions)), 10)

    def test_without_a_part_the_fingers_stop_at_the_limit(self):
        self.carry_out("SetNoPartLimit", HVA, 3, 7.25)
        self.open(HVA)
        self.carry_out("Grip", HVA, 3)
        self.wait_for_state(HVA, NO_PART)
        self.assertEqual(self.call("GetPos", HVA), 7.25)

    def test_releasing_stops_at_the_limit_of_its_set(self):
        self.carry_out("Grip", HVA, 0)
        self.wait_for_state(HVA, NO_PART)
        self.carry_out("SetReleaseLimit", HVA, 4, 15.5)
        self.carry_out("Release", HVA, 4)
        self.wait_for_state(HVA, RELEASED)
        self.assertEqual(self.call("GetPos", HVA), 15.5)

    def test_a_disabled_gripper_is_off(self):
        for gripper in (HVA, MZD, TLM):
            self.open(gripper)
            self.carry_out("Disable", gripper)
            self.wait_for_state(gripper, OFF)

    def test_holdfast_holds_without_the_drive(self):
        self.open(MZD)
        self.put_part(1, 10)
        self.carry_out("Grip", MZD, 0)
        self.wait_for_state(MZD, HOLDING)
        self.carry_out("Holdfast", MZD, True)
        self.carry_out("Disable", MZD)
        self.assertEqual(self.cell.show(1)["state"], HOLDING)
        self.carry_out("Holdfast", MZD, False)
        self.wait_for_state(MZD, OFF)

    def test_faults_are_reported_and_stop_the_drive(self):
        flags = {"fault": "GetFault", "temp-fault": "GetTempFault",
                 "temp-warn": "GetTempWarn", "maintenance": "GetMaintenance"}
        for name, getter in flags.items():
            with self.subTest(flag=name):
                self.open(HVA)
                self.cell.command(f"fault 0 {name} on")
                wait_until(lambda: self.call(getter, HVA))
                self.assertEqual([other for other in flags.values() if self.call(other, HVA)],
                                 [getter])
                stops = name in ("fault", "temp-fault")
                self.wait_for_state(HVA, FAULT if stops else RELEASED)
                self.cell.command(f"fault 0 {name} off")
                wait_until(lambda: not self.call(getter, HVA))

    def test_the_checksum_follows_the_parameters(self):
        self.carry_out("SetForce", HVA, 1, 40)
        before = self.call("GetParameterChecksum", HVA)
        self.carry_out("SetForce", HVA, 1, 41)
        self.assertNotEqual(self.call("GetParameterChecksum", HVA), before)
        self.carry_out("SetForce", HVA, 1, 40)
        self.assertEqual(self.call("GetParameterChecksum", HVA), before)

    def test_stored_settings_survive_an_unplug(self):
        self.carry_out("SetLEDColor", MZD, 2, 5)
        self.carry_out("StoreRemanent", MZD)
        self.carry_out("SetLEDColor", MZD, 2, 6)
        mark = self.cell.log.mark()
        self.cell.command("unplug 1")
        self.cell.log.wait_for("PELLIX removed", since=mark)
        mark = self.cell.log.mark()
        self.cell.command("plug 1")
        self.cell.log.wait_for("Pending command PDOUT deleted", since=mark)
        self.assertEqual(self.call("GetLEDColor", MZD, 2), 5)
        self.carry_out("Reference", MZD)
        self.wait_for_state(MZD, READY)

    def test_the_led_preset_reaches_the_ring(self):
        for preset in (3, 0):
            self.carry_out("SetLEDPreset", MZD, preset)
            self.assertEqual(self.cell.show(1)["leds"]["preset"], preset)


if __name__ == "__main__":
    main()
