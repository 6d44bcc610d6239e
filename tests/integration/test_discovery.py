"""Discovery of masters at start and by hot-plug, and the names of grippers."""

import threading
import time

from .harness.cell import SLOWNESS, wait_until
from .harness.cell_test_case import CellTestCase, main

TTY = "/dev/ttyACM"


def messages(lines):
    return [line.split(" ", 2)[2] for line in lines]


class StartUpScanTest(CellTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    def main_thread_messages(self):
        log = self.cell.log
        thread = log.since(0)[0].split()[1]
        return messages(log.matching(rf"^\S+ {thread} "))

    def test_masters_that_are_attached_at_start_are_reported_and_listed(self):
        report = self.main_thread_messages()
        for number in range(2):
            at = report.index(f"   Node: {TTY}{number}")
            serial = report[at + 5]
            self.assertRegex(serial, "^  SN: .")
            self.assertEqual(report[at:at + 8],
                             [f"   Node: {TTY}{number}", "   Subsystem: tty",
                              "  VID/PID: 0483 5740", "  Manufacturer: Zentrova",
                              "  Product: PELLIX", serial,
                              "Found PELLIX compatible device", "PELLIX detected"])
        self.assertEqual(self.call("GetGrippers"), ["HVA SN:100001", "MZD-S SN:100002"])

    def test_the_masters_are_added_before_the_manager_has_started(self):
        report = self.main_thread_messages()
        self.assertLess(report.index(f"   Node: {TTY}1"), report.index("GripperManager started"))

    def test_a_gripper_is_brought_to_operate_once(self):
        self.cell.wait_until_operating(2)
        for number in range(2):
            requests = self.cell.show(number)["requests"]
            self.assertEqual(requests[0], "ID?")
            self.assertEqual(requests.count("OPERATE()"), 1, requests)
            self.assertEqual(requests[-1], "PDOUT?")

    def test_calls_reach_their_own_gripper_alone(self):
        self.cell.wait_until_operating(2)
        others = self.cell.show(0)["requests"]
        self.assertEqual(self.call("Disable", "MZD-S SN:100002"), 0)
        self.assertEqual(self.cell.show(0)["requests"], others)

    def test_a_name_must_match_exactly(self):
        for name in ("hva SN:100001", "HVA SN:100001 ", "HVA SN:10000", "HVA", ""):
            with self.subTest(name=name):
                mark = self.cell.log.mark()
                self.assertEqual(self.call("GetGripperInterface", name), -1)
                self.cell.log.wait_for(f"Device '{name}' not found$", since=mark)

    def test_an_unknown_uevent_is_reported_and_changes_nothing(self):
        mark = self.cell.log.mark()
        self.cell.command("event 0 change")
        self.cell.log.wait_for("Unknown udev action: change$", since=mark)
        self.assertEqual(messages(self.cell.log.matching("action", since=mark)),
                         ["Got Device with action change", "Unknown udev action: change"])
        self.assertEqual(self.call("GetGripperInterface", "HVA SN:100001"), 0)

    def test_a_second_add_creates_no_second_link(self):
        mark = self.cell.log.mark()
        self.cell.command("event 0 add")
        self.cell.log.wait_for("Got Device with action add", since=mark)
        self.cell.command("event 0 change")
        self.cell.log.wait_for("Unknown udev action", since=mark)
        self.assertEqual(self.cell.log.matching("Opening device|Closed device", since=mark), [])
        self.assertEqual(self.call("GetGrippers"), ["HVA SN:100001", "MZD-S SN:100002"])
        self.assertEqual(self.call("GetGripperInterface", "HVA SN:100001"), 0)


class HotPlugTest(CellTestCase):
    options = ("--gripper", "HVA", "--gripper", "MZD-L", "--unplugged", "1")
    HVA, MZD = "HVA SN:100001", "MZD-L SN:100002"

    def tearDown(self):
        if self.cell.show(1)["plugged"]:
            self.unplug()

    def listed(self):
        return self.call("GetGrippers")

    def plug(self):
        mark = self.cell.log.mark()
        self.cell.command("plug 1")
        self.cell.log.wait_for("Device added$", since=mark)
        wait_until(lambda: self.listed() == [self.HVA, self.MZD])
        return mark

    def unplug(self):
        mark = self.cell.log.mark()
        self.cell.command("unplug 1")
        self.cell.log.wait_for(f"Removing {TTY}1$", since=mark)
        wait_until(lambda: self.listed() == [self.HVA])
        return mark

    def test_plug_unplug_and_replug(self):
        for round_trip in range(3):
            with self.subTest(round_trip=round_trip):
                mark = self.plug()
                self.cell.log.wait_for("Pending command PDOUT deleted", since=mark)
                self.assertEqual(self.call("Grip", self.MZD, 1), 0)
                mark = self.unplug()
                self.cell.log.wait_for(f"PELLIX removed: {TTY}1$", since=mark)
                self.assertEqual(self.call("Grip", self.MZD, 1), 3)
                self.assertEqual(self.call("Grip", self.HVA, 1), 0)

    def test_removing_a_node_that_has_no_link_changes_nothing(self):
        mark = self.cell.log.mark()
        self.cell.command("event 1 remove")
        self.cell.log.wait_for(f"Removing {TTY}1$", since=mark)
        self.assertEqual(self.listed(), [self.HVA])
        self.assertEqual(self.cell.log.matching("PELLIX removed", since=mark), [])

    def test_a_call_in_progress_survives_an_unplug(self):
        self.plug()
        self.cell.command("mute 1 on")
        answers = []
        mark = self.cell.log.mark()
        caller = threading.Thread(target=lambda: answers.append(
            self.cell.call_apart("StoreRemanent", self.MZD)))
        caller.start()
        self.cell.log.wait_for(r"New command PARAM\[2\]\[0\]", since=mark)
        self.unplug()
        caller.join()
        self.cell.command("mute 1 off")
        self.assertEqual(answers, [5])

    def test_a_master_that_vanishes_before_its_remove_event(self):
        self.plug()
        mark = self.cell.log.mark()
        self.cell.command("hangup 1")
        self.cell.log.wait_for("Parser: No input data", since=mark, count=11)
        self.assertNotEqual(self.call("Grip", self.MZD, 1), 0)
        self.assertEqual(self.call("Grip", self.HVA, 1), 0)
        self.cell.command("event 1 remove")
        self.cell.log.wait_for(f"PELLIX removed: {TTY}1$", since=mark)
        self.assertEqual(self.listed(), [self.HVA])

    def test_a_silent_master_is_removed_within_a_second_or_so(self):
        self.plug()
        self.cell.command("delay 0 100")
        self.addCleanup(self.cell.command, "delay 0 0")
        self.cell.command("silent 1 on")
        self.addCleanup(self.cell.command, "silent 1 off")
        mark = self.cell.log.mark()
        self.cell.log.wait_for("Input timeout", since=mark)
        # The call takes a tenth of a second. By then the parser is in its next read of a second,
        # and the registry has to wait for it.
        self.assertEqual(self.call("Grip", self.HVA, 1), 0)
        start = time.monotonic()
        self.cell.command("event 1 remove")
        self.cell.log.wait_for(f"PELLIX removed: {TTY}1$", since=mark)
        self.assertEqual(self.call("Grip", self.HVA, 1), 3)
        self.cell.log.wait_for("Timeout while trying to acquire lock within 100 ms$", since=mark)
        wait_until(lambda: self.call("Grip", self.HVA, 1) == 0)
        self.assertLess(time.monotonic() - start, 2 * SLOWNESS)


class StartingMasterTest(CellTestCase):
    """Masters that do not answer when the daemon finds them."""

    options = ("--gripper", "HVA", "--unplugged", "0", "--gripper", "TLM")
    HVA, TLM = "HVA SN:100001", "TLM SN:100002"

    def plug(self):
        mark = self.cell.log.mark()
        self.cell.command("plug 0")
        self.addCleanup(self.unplug)
        return mark

    def unplug(self):
        mark = self.cell.log.mark()
        self.cell.command("unplug 0")
        self.cell.log.wait_for(f"Removing {TTY}0$", since=mark)

    def test_a_mute_master_is_given_up_after_five_attempts(self):
        self.cell.command("mute 0 on")
        self.addCleanup(self.cell.command, "mute 0 off")
        mark = self.plug()
        self.cell.log.wait_for("Updating ID$", since=mark)
        self.assertEqual(self.call("GetGrippers"), [self.TLM])  # does not wait for the mute master
        self.cell.log.wait_for("Failed to add device$", since=mark)
        attempts = messages(self.cell.log.matching("update ID|Retrying|initialize new", since=mark))
        self.assertEqual(attempts, [text for attempt in range(5) for text in (
            "Failed to update ID: 5", f"Retrying ({attempt})...")] + [
                "Failed (finally) to update ID: 5", "Failed to initialize new device: 5"])

    def test_a_master_that_answers_late_is_added_by_a_retry(self):
        self.cell.command("mute 0 on")
        mark = self.plug()
        self.cell.log.wait_for(r"Retrying \(0\)", since=mark)
        self.cell.command("mute 0 off")
        self.cell.log.wait_for("Device added$", since=mark)
        self.assertIn(self.HVA, self.call("GetGrippers"))

    def test_a_master_that_rejects_parameter_reads_is_not_added(self):
        self.cell.command("error 0 33 PARAM[19][0]")
        self.addCleanup(self.cell.command, "error 0 off PARAM[19][0]")
        mark = self.plug()
        self.cell.log.wait_for("Failed to initialize new device: 33$", since=mark)
        self.cell.log.wait_for("Failed to add device$", since=mark)
        requests = self.cell.show(0)["requests"]
        self.assertEqual([text for text in requests if text.startswith("PARAM")][-5:],
                         ["PARAM[19][0]?"] * 5)


class MasterNameTest(CellTestCase):
    options = ("--gripper", "HVA,id=MARROK-7", "--gripper", "TLM,id=OTHER",
               "--gripper", 'MZD-S,id="PELLIX"')

    def test_the_other_product_name_is_supported(self):
        self.assertEqual(self.call("GetGripperInterface", "HVA SN:100001"), 0)

    def test_quotes_around_the_name_are_removed(self):
        self.assertEqual(self.call("GetGripperInterface", "MZD-S SN:100003"), 0)

    def test_any_other_master_is_queried_until_its_name_matches(self):
        self.cell.wait_until_operating(3)
        for _ in range(2):
            mark = self.cell.log.mark()
            self.assertEqual(self.call("GetGrippers"), ["HVA SN:100001", "MZD-S SN:100003"])
            self.cell.log.wait_for("Invalid device ID$", since=mark)
            self.assertEqual(self.cell.show(1)["requests"][-1], "ID?")
        self.assertEqual(self.call("GetGripperInterface", "TLM SN:100002"), -1)
        self.cell.command("id 1 PELLIX")
        self.call("GetGrippers")
        wait_until(lambda: "TLM SN:100002" in self.call("GetGrippers"))


class OddNameTest(CellTestCase):
    """Serial numbers that are invalid in XML must not make the list of grippers unreadable."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S", "--unplugged", "1")

    # Serial number of the master, and its text for clients.
    NAMES = (
        (b"4711\0\0", "MZD-S SN:4711"),
        (b"", "MZD-S"),
        (b"a\0b\x01\x1f\x7fc", None),
        (b"tab\tline\nend", "MZD-S SN:tab\tline\nend"),
        (b"return\r", "MZD-S SN:return?"),
        (b"<&\"'>", "MZD-S SN:<&\"'>"),
        ("grün €".encode(), "MZD-S SN:grün €"),
        (b"\xff\xfe\xc3", "MZD-S SN:???"),
        ("😀".encode(), None),
        (b"\xed\xa0\x80", None),
        (b"\xef\xbf\xbf", None),
    )

    def test_every_name_is_listed_and_can_be_used(self):
        for serial, name in self.NAMES:
            with self.subTest(serial=serial):
                self.cell.command("param 1 21 0 " + ",".join(f"{byte:x}" for byte in serial))
                mark = self.cell.log.mark()
                self.cell.command("plug 1")
                self.cell.log.wait_for("Device added$", since=mark)
                listed = self.call("GetGrippers")
                self.assertEqual(listed[0], "HVA SN:100001")
                self.assertEqual(len(listed), 2)
                if name is not None:
                    self.assertEqual(listed[1], name)
                self.assertEqual(self.call("GetGripperInterface", listed[1]), 0)
                self.cell.command("unplug 1")
                self.cell.log.wait_for(f"PELLIX removed: {TTY}1$", since=mark)


class FreshTtyTest(CellTestCase):
    """A tty with the kernel's default settings, echo and line mode, on which the master sends."""

    options = ("--gripper", "HVA", "--cooked")

    def test_a_retry_follows_the_first_request_which_the_echo_corrupts(self):
        plugs = 1
        self.cell.wait_until_operating(plugs)
        while not self.cell.log.matching("Retrying"):
            self.assertLess(plugs, 20)
            self.cell.command("unplug 0")  # the daemon opened the tty before the first line
            self.cell.command("plug 0")
            plugs += 1
            self.cell.wait_until_operating(plugs)
        self.assertEqual(messages(self.cell.log.matching("update ID|Retrying")),
                         ["Failed to update ID: 5", "Retrying (0)..."])
        self.assertTrue(self.cell.show(0)["raw"])
        self.assertEqual(self.call("GetGrippers"), ["HVA SN:100001"])
        self.assertEqual(self.call("Grip", "HVA SN:100001", 1), 0)


if __name__ == "__main__":
    main()
