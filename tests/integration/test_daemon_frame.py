"""The daemon without masters: start, log lines, both ports, the list of methods."""

import datetime
import re
import socket
import unittest
import xmlrpc.client

from .harness.cell import PORTS, Cell
from .harness.cell_test_case import CellTestCase, main
from .harness.methods import DEVICE_METHODS, METHODS, PLACEHOLDER

UNKNOWN = "HVA SN:999"

REVISION = (r"[0-9a-f]{7} \(changed\), (Mon|Tue|Wed|Thu|Fri|Sat|Sun), \d{1,2} [A-Z][a-z]{2} \d{4} "
            r"\d\d:\d\d:\d\d [+-]\d{4}")
BUILD_DAY = r"[A-Z][a-z]{2} [ \d]\d \d{4}"

TYPE_NAMES = {"i": "int", "d": "double", "b": "boolean", "A": "array", "S": "struct"}

# For every parameter type, a value of a wrong type.
WRONG = {str: 7, int: "7", float: "7.0", bool: "true"}


class StartUpTest(CellTestCase):
    # A time zone that no test machine has.
    ZONE = datetime.timezone(datetime.timedelta(hours=5, minutes=45))

    @classmethod
    def start_cell(cls, *options, **settings):
        return super().start_cell(*options, environment={"TZ": "XXX-5:45"}, **settings)

    def message(self, number):
        return self.cell.log.since(0)[number].split(" ", 2)[2]

    def test_the_banner_comes_first_and_in_order(self):
        self.assertEqual(self.message(0), "Starting TavrikDaemon (2-port)")
        self.assertEqual(self.message(1), "Daemon version: 2.2.4")
        self.assertRegex(self.message(2), f"^Daemon revision: {REVISION}$")
        self.assertRegex(self.message(3), rf"^Daemon build date: {BUILD_DAY} at \d\d:\d\d:\d\d$")

    def test_the_manager_starts_after_the_banner(self):
        self.assertEqual(self.message(4), "Initializing GripperManager")
        self.assertRegex(self.message(5), "^Library revision: .")
        self.assertRegex(self.message(6), r"^Library build date: .+ at \d\d:\d\d:\d\d$")
        self.assertEqual(self.message(7), "GripperManager started")

    def test_each_port_and_the_start_are_logged_once(self):
        rest = [line.split(" ", 2)[2] for line in self.cell.log.since(8)]
        for message in ("Port number: 44221", "Port number: 44222", "TavrikDaemon started"):
            self.assertEqual(rest.count(message), 1, message)

    def test_a_log_line_is_local_time_thread_and_message(self):
        for line in self.cell.log.since(0):
            self.assertRegex(line, r"^\d\d:\d\d:\d\d [1-9]\d* \S")

    def test_the_time_is_that_of_the_local_zone(self):
        time_of_day = self.cell.log.since(0)[0].split()[0]
        now = datetime.datetime.now(self.ZONE)
        logged = now.replace(**dict(zip(("hour", "minute", "second"),
                                        map(int, time_of_day.split(":")))))
        self.assertLess(abs(now - logged) % datetime.timedelta(days=1),
                        datetime.timedelta(minutes=5))

    def test_threads_have_different_ids(self):
        ports = self.cell.log.matching("Port number: ")
        self.assertNotEqual(*(line.split()[1] for line in ports))

    def test_nothing_is_written_to_standard_error(self):
        self.assertEqual(self.cell.errors.since(0), [])


class MethodListTest(CellTestCase):
    def test_both_ports_list_the_same_methods(self):
        for port in PORTS:
            listed = self.call("system.listMethods", port=port)
            ours = [name for name in listed if not name.startswith("system.")]
            self.assertCountEqual(ours, [method.name for method in METHODS])

    def test_signatures_are_as_registered(self):
        for port in PORTS:
            for method in METHODS:
                result, parameters = method.signature.split(":")
                types = [TYPE_NAMES[letter] for letter in result + parameters]
                with self.subTest(method=method.name, port=port):
                    self.assertEqual(self.call("system.methodSignature", method.name, port=port),
                                     [types])

    def test_no_method_has_a_help_text(self):
        for port in PORTS:
            for method in METHODS:
                with self.subTest(method=method.name, port=port):
                    self.assertEqual(self.call("system.methodHelp", method.name, port=port), "")

    def test_the_version_names_revision_and_build(self):
        for port in PORTS:
            self.assertRegex(self.call("GetVersion", port=port),
                             rf"^2\.2\.4 \({REVISION}, build date: {BUILD_DAY} \d\d:\d\d:\d\d\)$")

    def test_without_masters_no_gripper_is_listed(self):
        for port in PORTS:
            self.assertEqual(self.call("GetGrippers", port=port), [])

    def test_an_unknown_method_is_a_fault(self):
        for port in PORTS:
            with self.assertRaises(xmlrpc.client.Fault):
                self.call("Squeeze", UNKNOWN, port=port)


class DeviceLookupTest(CellTestCase):
    def expect_silence(self, mark):
        """Makes a failed lookup and checks that only this one was logged since `mark`."""
        self.call("GetGripperInterface", "end of test")
        self.cell.log.wait_for("GetGripperInterface: Failed", since=mark)
        self.assertEqual(len(self.cell.log.since(mark)), 2, self.cell.log.since(mark))

    def test_the_placeholder_is_answered_without_a_log_line(self):
        mark = self.cell.log.mark()
        for method in DEVICE_METHODS:
            fallback = -2 if method.name == "GetGripperInterface" else method.fallback
            with self.subTest(method=method.name):
                answer = self.call(method.name, *method.sample_arguments(PLACEHOLDER))
                self.assertEqual((type(answer), answer), (type(fallback), fallback))
        self.expect_silence(mark)

    def test_an_unknown_device_is_answered_with_the_fallback_and_logged(self):
        for method in DEVICE_METHODS:
            if method.name == "UpdatePDIN":
                continue
            mark = self.cell.log.mark()
            with self.subTest(method=method.name):
                answer = self.call(method.name, *method.sample_arguments(UNKNOWN))
                self.assertEqual((type(answer), answer), (type(method.fallback), method.fallback))
                self.cell.log.wait_for(
                    rf"\d {method.logged_name()}: Failed to get PELLIX handle$", since=mark)
                self.assertEqual([line.split(" ", 2)[2] for line in self.cell.log.since(mark)],
                                 [f"Device '{UNKNOWN}' not found",
                                  f"{method.logged_name()}: Failed to get PELLIX handle"])

    def test_update_pdin_answers_3_for_any_device_and_looks_nothing_up(self):
        mark = self.cell.log.mark()
        for device in (UNKNOWN, PLACEHOLDER, ""):
            self.assertEqual(self.call("UpdatePDIN", device), 3)
        self.expect_silence(mark)

    def test_wrong_parameters_are_faults_before_any_lookup(self):
        mark = self.cell.log.mark()
        for method in METHODS:
            right = method.sample_arguments(UNKNOWN)
            calls = {f"wrong type at {at}": [*right[:at], WRONG[kind], *right[at + 1:]]
                     for at, kind in enumerate(method.parameters)}
            calls["surplus"] = [*right, 1]
            if right:
                calls["missing"] = right[:-1]
                calls["none"] = []
            for name, arguments in calls.items():
                with self.subTest(method=method.name, parameters=name):
                    with self.assertRaises(xmlrpc.client.Fault):
                        self.call(method.name, *arguments)
        self.expect_silence(mark)


class PortTakenTest(unittest.TestCase):
    def test_an_occupied_port_ends_the_daemon_abnormally(self):
        for port in PORTS:
            with self.subTest(port=port), socket.create_server(("127.0.0.1", port)):
                cell = Cell()
                self.assertNotIn(cell.wait_for_end(), (0, 1))
                self.assertEqual(cell.log.matching("TavrikDaemon stopped"), [])


if __name__ == "__main__":
    main()
