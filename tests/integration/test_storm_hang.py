"""Devices that hang, and the devices that replace them."""

import contextlib
import os
import sys
import termios
import threading
import time

from .harness import storm
from .harness.cell import PORTS, SLOWNESS, wait_until
from .harness.cell_test_case import main

# A call to another master waits only for the lock of the list of links, at most 0.1 s. If it had to
# wait for the hung master, it would take at least a request's timeout of one second.
SHORT_CALL = 0.9 * SLOWNESS

BAD_ARGUMENT = 2  # the master's error for a carriage return in a value

HANGING_TIME = 0.3 * SLOWNESS  # seconds in which calls must reach a master that accepts no bytes


class Watch(threading.Thread):
    """Calls one gripper all the time; nothing may delay the calls or make them fail."""

    # Result of each method, and its result if the list of links is locked for too long.
    CALLS = (("Disable", 0, storm.NO_LINK), ("GetOverrideGrip", 100, 0), ("GetPos", 10.0, 0.0))

    def __init__(self, cell, port, name):
        super().__init__()
        self.client = cell.new_client(port)
        self.name = name
        self.over = False
        self.calls = 0
        self.longest = 0.0
        self.not_found = []
        self.wrong = []

    def run(self):
        with self.client:
            while not self.over:
                for method, right, without_link in self.CALLS:
                    start = time.monotonic()
                    answer = getattr(self.client, method)(self.name)
                    self.longest = max(self.longest, time.monotonic() - start)
                    self.calls += 1
                    if answer == without_link:
                        self.not_found.append(method)
                    elif answer != right:
                        self.wrong.append((method, answer))


class HangTest(storm.MastersTestCase):
    """Master 0 hangs, master 1 keeps the monitor thread busy in some tests; clients call the other
    masters all the time."""

    HVA = storm.MastersTestCase.NAMES[0]
    WATCHED = storm.MastersTestCase.NAMES[2:]
    # Master 4 shows the gripper of master 0 under another node.
    options = (*storm.MastersTestCase.options, "--gripper", "HVA,serial=100001", "--unplugged", "4")

    @classmethod
    def prepare(cls):
        super().prepare()
        for name in cls.WATCHED:  # the first process data arrive some milliseconds after operate
            wait_until(lambda name=name: cls.cell.call("GetPos", name) == 10.0)

    def tearDown(self):
        if self.cell.show(4)["plugged"]:
            self.unplug(4)
        super().tearDown()

    @contextlib.contextmanager
    def others_watched(self):
        mark = self.cell.log.mark()
        watches = [Watch(self.cell, port, name) for port, name in zip(PORTS, self.WATCHED)]
        for watch in watches:
            watch.start()
        try:
            yield
        finally:
            for watch in watches:
                watch.over = True
            for watch in watches:
                watch.join()
        self.judge(watches, len(self.cell.log.matching("Timeout while trying to acquire", mark)))

    def judge(self, watches, lock_timeouts):
        calls = sum(watch.calls for watch in watches)
        longest = max(watch.longest for watch in watches)
        not_found = [method for watch in watches for method in watch.not_found]
        print(f"{calls} calls for others, {len(not_found)} of them without the link, "
              f"the longest of {longest * 1000:.0f} ms", file=sys.stderr)
        self.assertGreater(calls, 0)
        self.assertEqual([watch.wrong for watch in watches], [[], []])
        self.assertLessEqual(len(not_found), lock_timeouts, not_found)
        self.assertLess(longest, SHORT_CALL)

    def call_beside(self, method, *arguments):
        """Starts a call to the hung gripper; returns a function that waits for its answer."""
        answers = []

        def call():
            start = time.monotonic()
            answer = self.cell.call_apart(method, self.HVA, *arguments)
            answers.append((answer, time.monotonic() - start))
        caller = threading.Thread(target=call)
        caller.start()

        def answer_and_time():
            caller.join()
            return answers[0]
        return answer_and_time

    def assert_it_works(self):
        self.assertEqual(self.call("SetForce", self.HVA, 1, 33), 0)
        self.assertEqual(self.call("GetForce", self.HVA, 1), 33)
        self.assertEqual(self.call("Grip", self.HVA, 1), 0)
        self.assertEqual(self.cell.show(0)["pdout"], [3, 1])

    # The device accepts no more bytes

    @storm.repeated
    def test_a_master_that_accepts_no_bytes_for_a_moment(self):
        with self.others_watched():
            self.cell.command("stall 0 on")
            answer = self.call_beside("Grip", 1)
            time.sleep(HANGING_TIME)
            self.cell.command("stall 0 off")
            status, elapsed = answer()
            self.assertEqual(status, 0)
            self.assertGreaterEqual(elapsed, 0.5 * HANGING_TIME)
            self.assert_it_works()

    @storm.repeated
    def test_a_master_that_accepts_no_bytes_and_is_unplugged(self):
        with self.others_watched():
            self.cell.command("stall 0 on")
            answers = [self.call_beside("Grip", 1), self.call_beside("SetOverrideGrip", 50)]
            time.sleep(HANGING_TIME)
            self.unplug(0)
            for answer in answers:
                status, elapsed = answer()
                self.assertEqual(status, storm.NO_COMMAND)
                self.assertLess(elapsed, 2.9 * SLOWNESS)
            self.wait_until_gone(0)
            self.plug_again(0)
            self.assert_it_works()

    # The device sends process data, but answers late or never

    @storm.repeated
    def test_a_master_that_streams_but_never_answers(self):
        with self.others_watched():
            self.cell.command("mute 0 on")
            answers = [self.call_beside("Grip", 1), self.call_beside("SetNoPartLimit", 1, 3.0)]
            for answer in answers:
                self.assertEqual(answer()[0], storm.TIMEOUT)
            self.cell.command("mute 0 off")
            self.assert_it_works()

    @storm.repeated
    def test_a_master_that_answers_after_the_timeout(self):
        with self.others_watched():
            self.cell.command("delay 0 1300")
            mark = self.cell.log.mark()
            self.assertEqual(self.call("StoreRemanent", self.HVA), storm.TIMEOUT)
            self.assertEqual(self.call("Grip", self.HVA, 1), storm.TIMEOUT)
            self.cell.command("delay 0 0")
            for key in (r"PARAM\[2\]\[0\]", "PDOUT"):
                self.cell.log.wait_for(f"FIN:{key}$", since=mark)
            self.assert_it_works()

    # Another program changes the settings of its tty

    @storm.repeated
    def test_a_master_whose_tty_is_reset(self):
        with self.others_watched():
            self.spoil_settings()
            self.assertIn(self.call("Grip", self.HVA, 1), (BAD_ARGUMENT, storm.TIMEOUT))
            self.unplug(0)
            self.wait_until_gone(0)
            self.plug_again(0)
            self.assertTrue(self.cell.show(0)["raw"])
            self.assert_it_works()

    @storm.repeated
    def test_a_master_whose_tty_is_reset_and_that_falls_silent(self):
        """In line mode, only the unplug ends a read."""
        with self.others_watched():
            self.spoil_settings()
            self.cell.command("silent 0 on")
            self.assertEqual(self.call("Grip", self.HVA, 1), storm.TIMEOUT)
            self.unplug(0)
            self.wait_until_gone(0)
            self.cell.command("silent 0 off")
            self.plug_again(0)
            self.assert_it_works()

    def spoil_settings(self):
        tty = os.open(self.cell.show(0)["tty"], os.O_RDWR | os.O_NOCTTY)
        try:
            settings = termios.tcgetattr(tty)
            settings[0] |= termios.ICRNL
            settings[1] |= termios.OPOST | termios.ONLCR
            settings[3] |= termios.ICANON | termios.ECHO
            termios.tcsetattr(tty, termios.TCSANOW, settings)
        finally:
            os.close(tty)
        self.assertFalse(self.cell.show(0)["raw"])

    # Another device replaces it while the monitor thread is busy with another master

    @contextlib.contextmanager
    def monitor_busy(self):
        """Makes the monitor thread wait for a master that does not answer."""
        self.unplug(1)
        self.settle()
        self.cell.command("mute 1 on")
        mark = self.cell.log.mark()
        self.cell.command("plug 1")
        self.cell.log.wait_for("Updating ID$", since=mark)
        yield
        self.unplug(1)
        self.assertEqual(self.cell.log.matching("Failed to add device", since=mark), [])
        self.cell.log.wait_for("Failed to add device$", since=mark)
        self.settle()
        self.plug_again(1)

    @storm.repeated
    def test_a_gripper_that_another_one_replaces(self):
        other = "HVA SN:7"
        with self.others_watched():
            with self.monitor_busy():
                self.unplug(0)
                self.cell.command("param 0 21 0 37")
                self.cell.command("param 0 97 3 7")
                mark = self.cell.log.mark()
                self.cell.command("plug 0")
                # The old link opens the new device.
                self.cell.log.wait_for("Initialize device succeeded", since=mark)
            self.wait_until_working(0, other)
            self.assertEqual(self.call("Grip", self.HVA, 1), storm.NO_LINK)
            self.assertEqual(self.call("GetForce", other, 1), 7)
            self.assertEqual(self.call("Grip", other, 1), 0)
            self.unplug(0)
            self.cell.command("param 0 21 0 31,30,30,30,30,31")
            self.plug_again(0)
            self.assert_it_works()

    @storm.repeated
    def test_a_master_that_comes_back_under_another_node(self):
        with self.others_watched():
            self.unplug(0)
            self.cell.command("plug 4")
            self.wait_until_working(4, self.HVA)
            self.assertEqual(self.call("Grip", self.HVA, 1), 0)
            self.assertEqual(self.cell.show(4)["pdout"], [3, 1])
            self.unplug(4)
            self.wait_until_gone(0)
            self.plug_again(0)
            self.assert_it_works()

    @storm.repeated
    def test_a_master_that_comes_back_under_another_node_before_it_is_missed(self):
        with self.others_watched():
            with self.monitor_busy():
                self.unplug(0)
                self.cell.command("plug 4")
                self.assertIn(self.call("Grip", self.HVA, 1), (storm.TIMEOUT, storm.NO_COMMAND))
            self.wait_until_working(4, self.HVA)
            self.assertEqual(self.call("Grip", self.HVA, 1), 0)
            self.assertEqual(self.cell.show(4)["pdout"], [3, 1])
            self.unplug(4)
            self.wait_until_gone(0)
            self.plug_again(0)
            self.assert_it_works()


if __name__ == "__main__":
    main()
