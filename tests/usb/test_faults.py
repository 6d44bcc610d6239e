"""What docs/reliability.md says of each fault, on real USB."""

import time

from . import machine
from .machine import (Service, UsbTestCase, call, hva, kernel_says, masters, run, serial_numbers,
                      wait_until, wait_until_listed)

TWO = ("--gripper", "HVA", "--gripper", "HVA")


class FaultTestCase(UsbTestCase):
    """Faults of gripper 0; 1 must not notice."""

    options = TWO

    def setUp(self):
        self.restore(0, 1)
        self.before = self.usb()

    def usb(self):
        """What is halted, and how often faults have taken effect since the simulator's start."""
        return self.simulator.state(0)["usb"]

    def expect_effect(self, name, count=1):
        """Waits until a fault has taken effect `count` times since the test began."""
        wait_until(lambda: self.usb()[name] - self.before[name] >= count, f"{count} {name}")

    def tearDown(self):
        self.assertEqual(call("SetForce", hva(1), 0, 40), 0)

    def answers(self, count):
        """What calls to gripper 0 answer, one after the other."""
        return [call("SetForce", hva(0), 0, 40) for _ in range(count)]

    def expect_recovery(self):
        wait_until(lambda: self.answers(1) == [0], "the gripper answers again")

    def replug(self):
        self.simulator.command("unplug 0")
        wait_until_listed(1)
        self.simulator.command("plug 0")
        return wait_until_listed(0, 1)


class TransferFaultTest(FaultTestCase):
    def test_a_halt_of_the_input_is_cleared_by_the_kernel(self):
        self.simulator.command("usb-halt 0 in")
        self.assertLessEqual(set(self.answers(3)), {0, 5})
        self.expect_effect("haltedTransfers")
        self.expect_effect("clearedHalts")
        self.expect_recovery()

    def test_a_halt_of_the_output_loses_requests(self):
        self.simulator.command("usb-halt 0 out")
        self.assertLessEqual(set(self.answers(2)), {5, 12})
        self.expect_effect("haltedTransfers")
        self.assertTrue(self.usb()["haltedOut"])
        self.replug()
        self.expect_recovery()

    def test_cut_transfers(self):
        """Lines are split between reads."""
        self.simulator.command("pdin 0 0")
        for length in (1, 5, 20):
            self.before = self.usb()
            self.simulator.command(f"usb-cut 0 {length}")
            self.assertLessEqual(set(self.answers(3)), {0, 5})
            self.expect_effect("cutTransfers", 3)
        self.simulator.command("usb-cut 0 0")
        self.simulator.command("pdin 0 10")
        self.expect_recovery()

    def test_a_burst_of_errors(self):
        for count in (1, 20, 200):
            self.before = self.usb()
            self.simulator.command(f"usb-error 0 {count}")
            self.assertLessEqual(set(self.answers(2)), {0, 5, 12})
            self.expect_effect("failedTransfers", count)
            self.expect_recovery()

    def test_a_reset(self):
        is_reset = kernel_says("reset full-speed USB device")
        self.simulator.command("usb-reset 0")
        wait_until(is_reset, "the kernel resets the device")
        self.assertLessEqual(set(self.answers(1)), {0, 3, 5, 12})
        wait_until_listed(0, 1)
        self.expect_recovery()

    def test_a_hung_device(self):
        """The daemon does not write while a write waits: from the second request on, it is 12."""
        self.simulator.command("stall 0 on")
        begin = time.monotonic()
        answers = []
        while 12 not in answers and len(answers) < 2:
            answers += self.answers(1)
        machine.figure(f"a hung device: answers {answers} in {time.monotonic() - begin:.1f} s")
        self.assertLessEqual(set(answers), {5, 12})
        self.assertIn(12, answers)
        self.simulator.command("stall 0 off")
        self.expect_recovery()

    def test_an_unplug_of_a_hung_device(self):
        self.simulator.command("stall 0 on")
        self.assertLessEqual(set(self.answers(1)), {5, 12})
        begin = time.monotonic()
        self.simulator.command("unplug 0")
        wait_until_listed(1)
        machine.figure(f"unplug of a hung device to gone: {time.monotonic() - begin:.2f} s")
        self.simulator.command("plug 0")  # a plugged device is not stalled
        wait_until_listed(0, 1)


class PlugFaultTest(FaultTestCase):
    def setUp(self):
        super().setUp()
        self.simulator.command("unplug 0")
        wait_until_listed(1)

    def expect_plug(self, timeout=machine.PATIENCE):
        begin = time.monotonic()
        self.simulator.command("plug 0")
        wait_until_listed(0, 1, timeout=timeout)
        return time.monotonic() - begin

    def expect_none(self, is_refused):
        """The master is refused, and found when it is whole again."""
        self.simulator.command("plug 0")
        wait_until(is_refused, "the kernel or the daemon refuses it", pause=0.5)
        self.assertEqual(machine.grippers(), {hva(1)})
        self.simulator.command("unplug 0")

    def test_late_answers_to_control_requests(self):
        self.simulator.command("usb-control 0 200")
        seconds = self.expect_plug()
        self.simulator.command("usb-control 0 0")
        self.expect_effect("lateControls")
        self.assertGreater(seconds, 1)
        machine.figure(f"control requests answered after 200 ms: listed after {seconds:.1f} s")

    def test_control_requests_that_are_never_answered(self):
        """The kernel gives each up after 5 s, while it opens the tty for the daemon."""
        self.expect_plug()
        Service.control("stop")
        self.simulator.command("usb-control 0 ignore")
        begin = time.monotonic()
        Service.control("start")
        wait_until_listed(0, 1)
        seconds = time.monotonic() - begin
        self.simulator.command("usb-control 0 0")
        self.expect_effect("ignoredControls")
        machine.figure(f"control requests never answered: start to listed {seconds:.1f} s")
        self.assertGreater(seconds, 5)

    def test_refused_control_requests(self):
        self.simulator.command("usb-control 0 refuse")
        self.expect_none(kernel_says("unable to enumerate USB device"))
        self.simulator.command("usb-control 0 0")
        self.expect_plug()

    def test_control_requests_that_are_refused_by_a_device_in_use(self):
        self.expect_plug()
        self.expect_recovery()
        self.simulator.command("usb-control 0 refuse")
        machine.run("lsusb", "-v", "-d", "0483:5740", check=False)
        self.expect_effect("refusedControls")
        self.assertEqual(self.answers(3), [0, 0, 0])
        self.simulator.command("usb-control 0 0")

    def test_an_unplug_while_the_kernel_waits_for_another_device(self):
        """While it asks a device for its descriptors, it removes no other device of the hub."""
        self.simulator.command("usb-control 0 ignore")
        self.simulator.command("plug 0")
        self.expect_effect("ignoredControls")
        self.assertEqual(self.simulator.try_command("unplug 1"),
                         "pellix-sim: error: the kernel has not removed the device within 5 s: "
                         "unplug it again")
        self.assertIn(call("SetForce", hva(1), 0, 40), {5, 12})
        self.simulator.command("usb-control 0 0")
        wait_until(lambda: "ok" in self.simulator.try_command("unplug 1"), "the device is removed")
        wait_until_listed(0)
        self.simulator.command("plug 1")
        wait_until_listed(0, 1)

    def test_wrong_and_missing_texts(self):
        for texts in (("manufacturer", "Other"), ("product", "STM32"), ("manufacturer", ""),
                      ("product", "")):
            with self.subTest(texts=texts):
                name, text = texts
                self.simulator.command(f"usb-text 0 {name} {text}".strip())
                self.expect_none(lambda: self.doctor_finds("not a master: "
                                 f"{name} is {'missing' if not text else chr(34) + text + chr(34)}"))
                right = {"manufacturer": "Zentrova", "product": "PELLIX"}[name]
                self.simulator.command(f"usb-text 0 {name} {right}")
        self.expect_plug()

    @staticmethod
    def doctor_finds(text):
        return text in machine.run("tavrikctl", "doctor", check=False)

    def test_a_missing_serial_number(self):
        self.simulator.command("usb-text 0 serial")
        self.expect_plug()
        self.assertEqual(serial_numbers(), {None, "PX1001"})
        self.simulator.command("usb-text 0 serial PX1000")
        self.replug()

    def test_a_cut_descriptor(self):
        def is_added_without_tty():
            if not (is_cut() and len(machine.devices()) == 2):
                return False
            run("udevadm", "settle")
            return len(masters()) == 1
        self.simulator.command("usb-descriptor 0 4")
        self.expect_none(kernel_says("can't read configurations"))
        self.simulator.command("usb-descriptor 0 20")
        is_cut = kernel_says("descriptor too short")
        self.expect_none(is_added_without_tty)
        self.simulator.command("usb-descriptor 0 all")
        self.expect_plug()
