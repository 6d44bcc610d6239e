"""The stop of the daemon in every state."""

import contextlib
import http.client
import os
import resource
import signal
import socket
import threading
import time
import unittest
import xmlrpc.client

from .harness.cell import HVA, PORTS, SLOWNESS, answers, wait_until
from .harness.cell_test_case import CellTestCase, main


class StopTestCase(CellTestCase):
    """Every test stops its own daemon."""

    @classmethod
    def setUpClass(cls):
        pass

    def start(self, *options, operating=0, **settings):
        cell = self.start_cell(*options, **settings)
        self.addCleanup(cell.end_by_force)
        cell.wait_until_serving()
        if operating:
            cell.wait_until_operating(operating)
        return cell

    def wait_for_refusal(self):
        """Checks that both ports are closed."""
        for port in PORTS:
            with self.assertRaises(OSError):
                http.client.HTTPConnection("127.0.0.1", port, timeout=5).connect()


class InterruptTest(StopTestCase):
    def test_the_order_of_the_last_lines(self):
        cell = self.start("--gripper", "HVA", operating=1,
                          command=["sh", "-c", 'exec "$TAVRIK_DAEMON" 2>&1'])
        cell.process.send_signal(signal.SIGINT)
        self.assertEqual(cell.wait_for_end(), 0)
        self.wait_for_refusal()
        seen = "\n".join(cell.log.since(0))
        order = ("TavrikDaemon::handler caught CTRL-C\n", " TavrikDaemon stopped\n",
                 " PELLIX 0 removed\n", " SerialConnection: Closed device /dev/ttyACM0\n",
                 " GripperManager stopped\n", "TavrikDaemon::shutdown")
        places = [seen.index(text) for text in order]
        self.assertEqual(places, sorted(places))
        self.assertTrue(seen.endswith("TavrikDaemon::shutdown"))

    def test_without_masters(self):
        cell = self.start()
        start = time.monotonic()
        cell.stop()
        self.assertLess(time.monotonic() - start, 3 * SLOWNESS)

    def test_with_idle_connections(self):
        cell = self.start("--gripper", "HVA", operating=1)
        connections = [cell.new_client(port) for port in PORTS]
        for connection in connections:
            connection.GetVersion()
        start = time.monotonic()
        cell.process.send_signal(signal.SIGINT)
        cell.expect_normal_end()
        self.assertLess(time.monotonic() - start, 5 * SLOWNESS)
        for connection in connections:
            connection("close")()

    def test_while_a_request_waits_for_its_answer(self):
        cell = self.start("--gripper", "HVA", operating=1)
        caller, outcome = start_unanswered_grip(cell)
        start = time.monotonic()
        cell.process.send_signal(signal.SIGINT)
        cell.expect_normal_end()
        self.assertLess(time.monotonic() - start, 6 * SLOWNESS)
        caller.join()
        self.assertIn(outcome[0], (5, 12, None))

    def test_while_a_request_waits_after_a_shortage_of_descriptors(self):
        cell = self.start("--gripper", "HVA", operating=1)
        caller, outcome = start_unanswered_grip(cell)
        mark = cell.log.mark()
        daemon = cell.daemon_pid()
        _, most = resource.prlimit(daemon, resource.RLIMIT_NOFILE)
        resource.prlimit(daemon, resource.RLIMIT_NOFILE, (0, most))
        with socket.create_connection(("127.0.0.1", PORTS[0]), timeout=20 * SLOWNESS):
            cell.log.wait_for("No connection accepted: ", since=mark)
        resource.prlimit(daemon, resource.RLIMIT_NOFILE, (1024, most))
        cell.process.send_signal(signal.SIGINT)
        cell.expect_normal_end()
        caller.join()
        self.assertEqual(outcome, [5])  # the answer, not the end of the connection

    @unittest.skipIf(SLOWNESS > 1, "a sanitizer ends the process that has no address space left")
    def test_while_there_is_no_thread_for_a_connection(self):
        cell = self.start()
        mark = cell.log.mark()
        daemon = cell.daemon_pid()
        # Far below the current size, so that the end of a thread makes no room for another one.
        resource.prlimit(daemon, resource.RLIMIT_AS, (1 << 20, resource.RLIM_INFINITY))
        with contextlib.ExitStack() as clients:
            for port in PORTS * 4:  # new threads reuse the stacks of ended ones
                clients.enter_context(socket.create_connection(("127.0.0.1", port)))
            cell.log.wait_for("No connection accepted: ", since=mark, count=2)
            cell.process.send_signal(signal.SIGINT)
            cell.log.wait_for("Connection closed: no thread for it", since=mark, count=2)
        cell.expect_normal_end()

    def test_while_a_client_reads_a_large_answer_slowly(self):
        cell = self.start()
        calls = [{"methodName": "system.listMethods", "params": []}] * 1900
        body = xmlrpc.client.dumps((calls,), "system.multicall").encode()
        with socket.socket() as client:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
            client.settimeout(20 * SLOWNESS)
            client.connect(("127.0.0.1", PORTS[0]))
            client.sendall(b"POST /RPC2 HTTP/1.1\r\nConnection: close\r\n"
                           b"Content-Length: %d\r\n\r\n" % len(body) + body)
            answer = client.recv(1000)
            cell.process.send_signal(signal.SIGINT)
            cell.errors.wait_for("caught CTRL-C")
            self.assertIsNone(cell.process.poll())
            while part := client.recv(65536):
                time.sleep(0.01)
                answer += part
        self.assertTrue(answer.endswith(b"</methodResponse>\r\n"))
        header, _, content = answer.partition(b"\r\n\r\n")
        self.assertIn(b"Content-length: %d\r\n" % len(content), header)
        self.assertGreater(len(content), 4_300_000)  # more than the kernel holds for the client
        cell.expect_normal_end()

    def test_while_a_master_is_being_initialised(self):
        cell = self.start("--gripper", "HVA", "--gripper", "TLM", "--unplugged", "1", operating=1)
        cell.command("mute 1 on")
        mark = cell.log.mark()
        cell.command("plug 1")
        cell.log.wait_for("Updating ID", since=mark)
        start = time.monotonic()
        cell.stop()
        self.assertLess(time.monotonic() - start, 5 * SLOWNESS)

    def test_while_a_master_is_plugged_and_unplugged(self):
        for action in ("plug", "unplug"):
            with self.subTest(action=action):
                cell = self.start("--gripper", "HVA", "--unplugged", "0")
                mark = cell.log.mark()
                cell.command("plug 0")
                if action == "unplug":
                    cell.log.wait_for("Device added", since=mark)
                    cell.command("unplug 0")
                cell.stop()

    def test_with_eight_masters_every_other_link_is_removed(self):
        options = ["--gripper", "HVA"] * 8
        cell = self.start(*options, operating=8)
        cell.stop()
        self.assertEqual([line.split(" ", 2)[2] for line in cell.log.matching("removed$")],
                         [f"PELLIX {number} removed" for number in range(4)])

    def test_with_a_hung_master(self):
        cell = self.start("--gripper", "HVA", operating=1)
        cell.command("stall 0 on")
        caller = threading.Thread(target=grip, args=(cell,))
        caller.start()
        cell.stop()
        caller.join()

    def test_with_a_silent_master(self):
        cell = self.start("--gripper", "HVA", operating=1)
        cell.command("silent 0 on")
        cell.stop()

    def test_with_two_signals(self):
        cell = self.start("--gripper", "HVA", operating=1)
        daemon = cell.daemon_pid()
        os.kill(daemon, signal.SIGINT)
        cell.errors.wait_for("caught CTRL-C")
        kill_if_there(daemon, signal.SIGINT)
        cell.expect_normal_end()

    def test_with_a_burst_of_signals(self):
        for _ in range(5):
            cell = self.start("--gripper", "HVA", "--gripper", "MZD-S", operating=2)
            daemon = cell.daemon_pid()
            for _ in range(20):
                kill_if_there(daemon, signal.SIGINT)
                time.sleep(0.0005)
            cell.expect_normal_end()

    def test_with_signals_during_the_whole_stop(self):
        cell = self.start("--gripper", "HVA", operating=1)
        daemon = cell.daemon_pid()
        while cell.process.poll() is None:
            kill_if_there(daemon, signal.SIGINT)
            time.sleep(0.001)
        cell.expect_normal_end()

    def test_through_the_simulator(self):
        cell = self.start("--gripper", "HVA", operating=1)
        cell.process.stdin.write(b"int\n")
        cell.process.stdin.flush()
        cell.expect_normal_end()

    def test_no_line_is_mixed_with_another(self):
        cell = self.start("--gripper", "HVA", "--gripper", "TLM", operating=2)
        cell.stop()
        for line in cell.log.since(0):
            self.assertRegex(line, r"^\d\d:\d\d:\d\d \d+ [^\d]")


class OtherSignalTest(StopTestCase):
    def test_an_ignored_interrupt_stays_ignored(self):
        cell = self.start("--gripper", "HVA", operating=1,
                          command=["sh", "-c", 'trap "" INT; exec "$TAVRIK_DAEMON"'])
        for _ in range(3):
            os.kill(cell.daemon_pid(), signal.SIGINT)
            self.assertEqual(cell.call("Grip", HVA, 1), 0)
        self.assertEqual(cell.errors.matching("caught"), [])

    def test_termination_takes_its_default_action(self):
        for number in (signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number.name):
                cell = self.start("--gripper", "HVA", operating=1)
                os.kill(cell.daemon_pid(), number)
                self.assertEqual(cell.wait_for_end(), 128 + number)
                self.assertEqual(cell.log.matching("TavrikDaemon stopped"), [])
                self.assertEqual(cell.errors.matching("TavrikDaemon::shutdown"), [])


class LostOutputTest(StopTestCase):
    """The daemon still serves if it cannot write its log."""

    def start_without_log(self, **settings):
        cell = self.start_cell("--gripper", "HVA", **settings)
        self.addCleanup(cell.end_by_force)
        for port in PORTS:
            wait_until(lambda port=port: answers(port))
        wait_until(lambda: cell.show(0)["requests"][-1:] == ["PDOUT?"])
        wait_until(lambda: cell.call("Grip", HVA, 1) == 0)
        return cell

    def test_a_closed_standard_output(self):
        cell = self.start_without_log(command=["sh", "-c", 'exec "$TAVRIK_DAEMON" >&-'])
        cell.process.send_signal(signal.SIGINT)
        self.assertEqual(cell.wait_for_end(), 0)

    def test_a_pipe_without_a_reader(self):
        reader, writer = os.pipe()
        try:
            cell = self.start_without_log(stdout=writer)
        finally:
            os.close(writer)
        os.close(reader)
        self.assertEqual(cell.call("Grip", HVA, 1), 0)
        cell.stop()


def kill_if_there(pid, number):
    try:
        os.kill(pid, number)
    except ProcessLookupError:
        pass


def start_unanswered_grip(cell):
    """Starts a Grip that the mute master 0 does not answer; returns its thread and a list for the
    result."""
    cell.command("mute 0 on")
    outcome = []
    mark = cell.log.mark()
    caller = threading.Thread(target=lambda: outcome.append(grip(cell)))
    caller.start()
    cell.log.wait_for("New command PDOUT", since=mark)
    return caller, outcome


def grip(cell):
    """Returns the status of a Grip, or None if the connection was lost."""
    try:
        return cell.call_apart("Grip", HVA, 1)
    except (OSError, http.client.HTTPException):
        return None


if __name__ == "__main__":
    main()
