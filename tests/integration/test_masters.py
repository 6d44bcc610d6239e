"""Masters that answer late, incorrectly or not at all, and the results for callers."""

import threading
import time
import xmlrpc.client

from .harness.cell import HVA, MZD, SLOWNESS, wait_until
from .harness.cell_test_case import CellTestCase, main


class TwoMastersTestCase(CellTestCase):
    """Master 0 misbehaves, which must not affect master 1."""

    options = ("--gripper", "HVA", "--gripper", "MZD-S")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(2)

    def set(self, command, undo):
        """Makes master 0 misbehave for the rest of the test."""
        self.cell.command(command)
        self.addCleanup(self.wait_until_well)
        self.addCleanup(self.cell.command, undo)

    def wait_until_well(self):
        wait_until(lambda: self.call("Grip", HVA, 1) == 0)

    def timed_call(self, *arguments):
        start = time.monotonic()
        return self.call(*arguments), time.monotonic() - start

    def assert_other_goes_on(self):
        answer, elapsed = self.timed_call("Grip", MZD, 1)
        self.assertEqual(answer, 0)
        self.assertLess(elapsed, 0.5 * SLOWNESS)


class AnswerTest(TwoMastersTestCase):
    def test_a_request_without_answer_fails_with_5_after_a_second(self):
        self.set("mute 0 on", "mute 0 off")
        mark = self.cell.log.mark()
        answer, elapsed = self.timed_call("Grip", HVA, 1)
        self.assertEqual(answer, 5)
        self.assertGreaterEqual(elapsed, 0.95)
        self.assertLess(elapsed, 1.5 * SLOWNESS)
        self.cell.log.wait_for(r"Active command PDOUT=\[", since=mark)
        self.cell.log.wait_for(r"^ timed out after 1\d\d\d ms\.$", since=mark)
        self.assert_other_goes_on()

    def test_a_read_without_answer_yields_the_value_of_the_last_one(self):
        self.cell.command("param 0 64 1 2a")
        self.assertEqual(self.call("GetOverrideGrip", HVA), 42)
        self.cell.command("param 0 64 1 2b")
        self.set("mute 0 on", "mute 0 off")
        self.assertEqual(self.call("GetOverrideGrip", HVA), 42)

    def test_a_muted_master_does_not_delay_other_calls(self):
        self.set("mute 0 on", "mute 0 off")
        mark = self.cell.log.mark()
        caller = threading.Thread(target=self.cell.call_apart, args=("StoreRemanent", HVA))
        caller.start()
        self.cell.log.wait_for("New command PARAM", since=mark)
        self.assert_other_goes_on()
        self.assertEqual(self.call("GetGrippers"), [HVA, MZD])
        self.assertTrue(caller.is_alive())
        caller.join()

    def test_a_late_answer_within_a_second_counts(self):
        self.set("delay 0 500", "delay 0 0")
        answer, elapsed = self.timed_call("Grip", HVA, 1)
        self.assertEqual(answer, 0)
        self.assertGreaterEqual(elapsed, 0.5)

    def test_an_answer_after_more_than_a_second_finds_no_command(self):
        self.set("delay 0 1300", "delay 0 0")
        mark = self.cell.log.mark()
        self.assertEqual(self.call("Grip", HVA, 1), 5)
        self.cell.log.wait_for("Active command PDOUT could not be found", since=mark)

    def test_error_codes_reach_the_caller(self):
        self.set("error 0 44", "error 0 off")
        for method, arguments in (("Grip", [1]), ("SetForce", [1, 9]), ("StoreRemanent", [])):
            with self.subTest(method=method):
                self.assertEqual(self.call(method, HVA, *arguments), 44)
        self.assert_other_goes_on()

    def test_an_error_for_one_key_does_not_affect_others(self):
        self.set("error 0 17 PARAM[97][3]", "error 0 off PARAM[97][3]")
        self.assertEqual(self.call("SetForce", HVA, 1, 9), 17)
        self.assertEqual(self.call("SetForce", HVA, 2, 9), 0)

    def test_error_0_is_a_success(self):
        self.set("error 0 0 PDOUT", "error 0 off PDOUT")
        self.assertEqual(self.call("Grip", HVA, 1), 0)

    def test_an_invalid_error_number_leaves_the_request_unanswered(self):
        self.set("mute 0 on", "mute 0 off")
        answers = []
        mark = self.cell.log.mark()
        caller = threading.Thread(
            target=lambda: answers.append(self.cell.call_apart("Grip", HVA, 1)))
        caller.start()
        self.cell.log.wait_for("New command PDOUT", since=mark)
        for text in ("ERR PDOUT abc", "ERR PDOUT 99999999999", "ERR PDOUT", "ERR"):
            self.cell.master_sends(0, text)
        caller.join()
        self.assertEqual(answers, [5])

    def test_an_answer_in_short_pieces_is_lost(self):
        self.set("split 0 3", "split 0 0")
        # The pieces are 1 ms apart: a reader that gets no processor for longer finds whole lines.
        wait_until(lambda: self.call("StoreRemanent", HVA) == 5)
        self.assert_other_goes_on()

    def test_a_query_may_end_with_its_data_line_alone(self):
        self.set("query-end 0 data", "query-end 0 fin")
        self.cell.command("param 0 64 1 55")
        answer, elapsed = self.timed_call("GetOverrideGrip", HVA)
        self.assertEqual(answer, 0x55)
        self.assertLess(elapsed, 0.5 * SLOWNESS)

    def test_without_reports_of_pdout_every_call_starts_from_the_old_bytes(self):
        self.assertEqual(self.call("Holdfast", MZD, False), 0)
        self.assertEqual(self.call("Grip", MZD, 1), 0)
        self.cell.command("report-pdout 1 off")
        self.addCleanup(self.cell.command, "report-pdout 1 on")
        self.assertEqual(self.call("Holdfast", MZD, True), 0)
        self.assertEqual(self.cell.show(1)["pdout"][0] & 0x10, 0x10)
        self.assertEqual(self.call("Grip", MZD, 1), 0)
        self.assertEqual(self.cell.show(1)["pdout"][0] & 0x10, 0)


class PiecewiseTest(CellTestCase):
    """Replies in pieces, as USB delivers them."""

    options = ("--gripper", "MZD-L", "--split", "128")
    GRIPPER = "MZD-L SN:100001"

    def test_a_gripper_starts_and_moves(self):
        self.cell.wait_until_operating(1)
        self.assertEqual(self.call("GetGrippers"), [self.GRIPPER])
        for _ in range(10):
            self.assertEqual(self.call("Grip", self.GRIPPER, 1), 0)
            self.assertEqual(self.call("SetForce", self.GRIPPER, 1, 50), 0)
            self.assertEqual(self.call("GetForce", self.GRIPPER, 1), 50)


class GarbageTest(TwoMastersTestCase):
    LINES = (
        r"\0\0\0", r"\x01\x02\xff\xfe", "=", "==", "[", "no key at all", "ACK", "FIN",
        "ACK nobody", "FIN nobody", "ERR nobody 7", "ACKNOWLEDGED", "@", "@ACK", r"\r",
        "PARAM", "PARAM=", "PARAM[=", "PARAM[][]=[]", "PARAM[1=[1]", "PARAM[a][b]=[zz]",
        "PARAM[99999999999][0]=[1]", "PARAM[1][0]=1", "PARAMETER[1][0]=[1]", "PARAM]1[0]=[1]",
        "PDIN", "PDIN=", "PDIN=[", "PDIN=1,2", "PDIN=[fffffffffffffffffffff]", "PDIN=[,,,,,]",
        "PDDIV=1", "CQ=1", "DQ=1", "MODE=4=3", 'ID="PELLIX"', "DEVINFO=", "DEVINFO=1",
        "UNKNOWN=[1]",
    )

    def test_unusual_lines_are_harmless(self):
        for line in self.LINES:
            with self.subTest(line=line):
                self.cell.master_sends(0, line)
        self.assertEqual(self.call("Grip", HVA, 1), 0)
        self.assert_other_goes_on()

    def test_an_empty_line_is_logged(self):
        mark = self.cell.log.mark()
        self.cell.master_sends(0, "")
        self.cell.log.wait_for("Line length is 0 without eof$", since=mark)

    def test_a_nul_byte_truncates_its_read(self):
        mark = self.cell.log.mark()
        self.cell.master_sends(0, r"UNSEEN\0CUT\n")
        self.assertEqual(self.cell.log.matching("CUT", since=mark), [])

    def test_a_megabyte_without_a_line_feed(self):
        self.cell.command("pdin 0 0")
        self.addCleanup(self.cell.command, "pdin 0 100")
        for _ in range(256):
            self.cell.command("send 0 " + "x" * 4096)
        self.assert_other_goes_on()
        self.cell.master_sends(0, "")
        self.assertEqual(self.call("Grip", HVA, 1), 0)

    def test_impossible_device_information_allocates_no_memory(self):
        peak = self.peak_memory()
        for text in ("[]", "[1,2]", "[0,0,0,4294967295,4294967295]",
                     "[99999999999999999999,0,0,-1,-1,x,y,z]"):
            with self.subTest(text=text):
                # The device information sets the length of empty process data only.
                self.cell.master_sends(0, rf"@MODE=6\nDEVINFO={text}")
                self.assert_other_goes_on()
        self.assertLess(self.peak_memory() - peak, 100_000)
        self.operate_again()

    def operate_again(self):
        """Waits for the last of the daemon's own requests, whose replies garbage could corrupt."""
        mark = self.cell.log.mark()
        self.cell.master_sends(0, "@MODE=2")
        self.cell.log.wait_for("STARTUP$", since=mark)
        self.cell.master_sends(0, r"@MODE=4\n@PDOUT=[0,0]")
        self.cell.wait_until_operating(1, since=mark)

    def peak_memory(self):
        """Returns the daemon's peak memory use in KiB."""
        with open(f"/proc/{self.cell.daemon_pid()}/status", encoding="utf-8") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("VmHWM"))

    def test_device_information_without_a_device_id_is_a_fault(self):
        self.set_device_info("0,0,0,32,16,0,0,31249")
        with self.assertRaises(xmlrpc.client.Fault):
            self.call("Reference", HVA)

    def test_an_unknown_device_passes_no_model_check(self):
        for text in ("0,0,0,32,16,0,0,31249,30", "0,0,0,32,16,0,0,31250,20", "0,0,0,32,16,0,0"):
            with self.subTest(text=text):
                self.set_device_info(text)
                mark = self.cell.log.mark()
                self.assertEqual(self.call("Reference", HVA), 3)
                self.assertEqual(self.call("Holdfast", HVA, True), 3)
                self.assertEqual(self.cell.log.matching("detected", since=mark), [])

    def set_device_info(self, numbers):
        self.cell.command(f"devinfo 0 {numbers}")
        self.addCleanup(self.cell.command, "devinfo 0 0,0,0,32,16,0,0,31249,20")


class ModeTest(TwoMastersTestCase):
    def set_mode(self, code):
        mark = self.cell.log.mark()
        self.cell.command(f"mode 0 {code}")
        self.cell.log.wait_for(f"Setting device mode to {code}$", since=mark)
        return mark

    def wait_until_operating_again(self, mark):
        self.cell.wait_until_operating(1, since=mark)
        self.assertEqual(self.call("GetGrippers"), [HVA, MZD])
        self.assertEqual(self.call("Grip", HVA, 1), 0)

    def test_a_fallback_is_answered_with_one_restart(self):
        mark = self.set_mode(5)
        self.cell.log.wait_for("FALLBACK: Waiting and Restarting$", since=mark)
        self.wait_until_operating_again(mark)
        self.assertEqual(len(self.cell.log.matching("New command RESTART", since=mark)), 1)

    def test_a_power_fault_clears_the_device(self):
        mark = self.set_mode(7)
        self.cell.log.wait_for(r"\d POWERFAULT$", since=mark)
        self.assertEqual(self.call("GetGrippers"), [MZD])
        self.cell.log.wait_for(r"Device string is empty \(but device connected\)$", since=mark)
        self.assertEqual(self.call("Grip", HVA, 1), 3)
        mark = self.set_mode(3)
        self.wait_until_operating_again(mark)

    def test_a_new_device_is_read_before_it_operates(self):
        mark = self.set_mode(1)
        self.cell.log.wait_for(r"\d ESTABCOMM$", since=mark)
        self.assertEqual(self.call("GetGrippers"), [MZD])
        self.set_mode(2)
        self.cell.log.wait_for(r"\d STARTUP$", since=mark)
        self.set_mode(3)
        self.cell.log.wait_for(r"\d Switching to OPERATE$", since=mark)
        self.wait_until_operating_again(mark)
        sent = [line.split()[4].rstrip(".") for line in
                self.cell.log.matching("New command", since=mark)]
        self.assertEqual(sent[:5],
                         ["DEVINFO", "PARAM[19][0]", "PARAM[21][0]", "OPERATE", "PDOUT"])

    def test_process_data_are_valid_only_in_operate(self):
        wait_until(lambda: self.call("GetPDINExcerpt", HVA) != 0)
        self.cell.command("pdin 0 0")
        self.addCleanup(self.cell.command, "pdin 0 100")
        mark = self.set_mode(2)
        self.cell.log.wait_for(r"\d STARTUP$", since=mark)
        self.assertEqual(self.call("GetPDINExcerpt", HVA), 0)
        self.cell.log.wait_for("PDIN length mismatch: 0$", since=mark)
        self.assertEqual(self.call("Grip", HVA, 1), 21)
        mark = self.set_mode(4)
        self.wait_until_operating_again(mark)


class HungDeviceTest(TwoMastersTestCase):
    """A device that is plugged in but accepts no more bytes."""

    def test_calls_fail_and_other_calls_continue(self):
        self.set("stall 0 on", "stall 0 off")
        for _ in range(2):
            answers = []
            caller = threading.Thread(
                target=lambda: answers.append(self.cell.call_apart("Grip", HVA, 1)))
            start = time.monotonic()
            caller.start()
            self.assert_other_goes_on()
            self.assertEqual(self.call("GetGrippers"), [HVA, MZD])
            caller.join()
            self.assertEqual(answers, [12])
            self.assertLess(time.monotonic() - start, 4 * SLOWNESS)


if __name__ == "__main__":
    main()
