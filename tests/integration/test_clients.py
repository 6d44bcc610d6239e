"""Misbehaving clients, many clients, and their effect on the other port."""

import contextlib
import os
import resource
import socket
import struct
import threading
import unittest
import xmlrpc.client

from .harness.cell import HVA, PORTS, SLOWNESS, answers, wait_until
from .harness.cell_test_case import CellTestCase, main
from .harness.storm import wait_until_idle

REQUEST = xmlrpc.client.dumps((HVA,), "GetPos").encode()


def http_request(body, length=None, path="/RPC2"):
    head = (f"POST {path} HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n"
            f"Content-Length: {len(body) if length is None else length}\r\n\r\n")
    return head.encode() + body


def connect(port):
    return socket.create_connection(("127.0.0.1", port), timeout=20 * SLOWNESS)


def reset(connection):
    """Closes a connection with a reset."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


class ClientTestCase(CellTestCase):
    options = ("--gripper", "HVA", "--gripper", "TLM")

    @classmethod
    def prepare(cls):
        super().prepare()
        cls.cell.wait_until_operating(2)

    def tearDown(self):
        # Whatever a client did, both ports still serve.
        self.cell.close_clients()
        for port in PORTS:
            wait_until(lambda port=port: answers(port))

    def answer_to(self, data, port=PORTS[0]):
        """Sends `data` and returns everything that the daemon sends until it closes."""
        with connect(port) as connection:
            connection.sendall(data)
            connection.shutdown(socket.SHUT_WR)
            answer = b""
            while part := connection.recv(65536):
                answer += part
            return answer


class ClientTest(ClientTestCase):
    def test_malformed_xml_is_a_fault(self):
        for body in (b"<", b"<methodCall>", b"<methodCall></methodCall>", b"\0\0\0",
                     REQUEST.replace(b"</params>", b""), b"<a><b></a></b>",
                     REQUEST.replace(HVA.encode(), b"\xff\xfe"),
                     REQUEST.replace(b"GetPos", b"")):
            with self.subTest(body=body):
                answer = self.answer_to(http_request(body))
                self.assertIn(b"<fault>", answer)
        self.assertNotIn(b"<fault>", self.answer_to(http_request(REQUEST)))

    def test_malformed_http_is_rejected(self):
        for data in (http_request(b""), b"\r\n\r\n", b"GET / HTTP/1.1\r\n\r\n", b"NONSENSE\r\n\r\n",
                     b"POST /RPC2 HTTP/1.1\r\n\r\n", b"\0" * 1000 + b"\r\n\r\n",
                     http_request(REQUEST, length=-1), http_request(REQUEST, length="many"),
                     http_request(REQUEST, path="/elsewhere"),
                     b"POST /RPC2 HTTP/1.1\r\n" + b"X: y\r\n" * 10000 + b"\r\n"):
            with self.subTest(data=data[:60]):
                try:
                    answer = self.answer_to(data)
                except OSError:  # the daemon may close before it has received everything
                    continue
                self.assertNotIn(b"200 OK", answer)

    def test_a_huge_body_is_rejected(self):
        for port in PORTS:
            try:
                answer = self.answer_to(http_request(b"x" * 2_000_000), port)
            except OSError:
                continue
            self.assertNotIn(b"<methodResponse>\r\n<params>", answer)

    def test_a_client_that_disconnects_before_its_answer(self):
        self.cell.command("delay 0 300")
        self.addCleanup(self.cell.command, "delay 0 0")
        body = xmlrpc.client.dumps((HVA,), "StoreRemanent").encode()
        for _ in range(5):
            mark = self.cell.log.mark()
            connection = connect(PORTS[0])
            connection.sendall(http_request(body))
            self.cell.log.wait_for("New command PARAM", since=mark)
            reset(connection)
            self.cell.log.wait_for("Pending command PARAM", since=mark)

    def test_a_client_that_disconnects_within_its_request(self):
        data = http_request(REQUEST)
        for length in range(0, len(data), 25):
            connection = connect(PORTS[0])
            connection.sendall(data[:length])
            reset(connection)

    def test_many_connections_in_a_row(self):
        for number in range(200):
            with self.cell.new_client(PORTS[number % 2]) as client:
                self.assertEqual(client.GetGripperInterface(HVA), 0)

    def test_more_connections_than_the_server_takes_at_once(self):
        # Fifteen are served at once; the rest wait until one of them ends.
        connections = [connect(PORTS[0]) for _ in range(20)]
        try:
            self.assertEqual(self.call("GetGripperInterface", HVA, port=PORTS[1]), 0)
        finally:
            for connection in connections:
                connection.close()

    def test_an_unfinished_request_does_not_delay_others(self):
        with connect(PORTS[0]) as connection:
            connection.sendall(http_request(REQUEST)[:-10])
            for port in PORTS:
                self.assertEqual(self.call("GetGripperInterface", HVA, port=port), 0)

    def test_clients_on_both_ports_call_both_grippers_at_once(self):
        failures = []

        def work(port, device):
            with self.cell.new_client(port) as client:
                for number in range(50):
                    if client.GetPDINExcerpt(device) < 0 or client.GetGripperInterface(device):
                        failures.append((port, device, number))

        callers = [threading.Thread(target=work, args=(port, device))
                   for port in PORTS for device in (HVA, "TLM SN:100002") for _ in range(2)]
        for caller in callers:
            caller.start()
        for caller in callers:
            caller.join()
        self.assertEqual(failures, [])

    def test_commands_on_both_ports_to_different_grippers_all_succeed(self):
        results = []

        def work(port, device):
            with self.cell.new_client(port) as client:
                results.extend(client.Grip(device, number % 4) for number in range(50))

        callers = [threading.Thread(target=work, args=pair)
                   for pair in zip(PORTS, (HVA, "TLM SN:100002"))]
        for caller in callers:
            caller.start()
        for caller in callers:
            caller.join()
        self.assertEqual(results, [0] * 100)


class ShortageTest(ClientTestCase):
    """A port without free descriptors, or without address space for the thread of a connection."""

    REFUSAL = "No connection accepted: .*Trying again$"
    DESCRIPTORS_PER_CONNECTION = 3  # its socket and a pipe

    @classmethod
    def prepare(cls):
        super().prepare()
        daemon = cls.cell.daemon_pid()
        wait_until_idle(daemon, links=2)
        cls.idle = len(descriptors(daemon))

    def test_a_port_that_ran_out_of_descriptors_answers_again(self):
        for port in PORTS:
            for spare in (0, 1, 2):
                with self.subTest(port=port, spare=spare), self.cell.new_client(port) as served, \
                        contextlib.ExitStack() as connections:
                    self.assertEqual(served.GetGripperInterface(HVA), 0)
                    mark = self.cell.log.mark()
                    with self.shortage_of_descriptors(spare, connected=1):
                        for _ in range(3):
                            connections.enter_context(connect(port))
                        self.cell.log.wait_for(self.REFUSAL, since=mark)
                        # Open connections are still served.
                        self.assertEqual(served.GetGripperInterface(HVA), 0)
                    wait_until(lambda port=port: answers(port))
                    # A shortage is reported once, however long it lasts.
                    self.assertEqual(len(self.cell.log.matching(self.REFUSAL, since=mark)), 1)

    def test_a_client_that_came_during_a_shortage_is_answered_after_it(self):
        for port in PORTS:
            with self.subTest(port=port):
                mark = self.cell.log.mark()
                with self.shortage_of_descriptors(0):
                    client = connect(port)
                    self.cell.log.wait_for(self.REFUSAL, since=mark)
                with client:
                    client.sendall(http_request(REQUEST))
                    self.assertTrue(client.recv(65536).startswith(b"HTTP/1.1 200 OK\r\n"))

    @unittest.skipIf(SLOWNESS > 1, "a sanitizer ends the process that has no address space left")
    def test_a_client_waits_until_there_is_room_for_its_thread(self):
        pid = self.cell.daemon_pid()
        for port in PORTS:
            with self.subTest(port=port), contextlib.ExitStack() as clients:
                mark = self.cell.log.mark()
                # New threads reuse the stacks of ended ones.
                limit(pid, resource.RLIMIT_AS, address_space(pid))
                try:
                    waiting = [clients.enter_context(connect(port)) for _ in range(6)]
                    for client in waiting:
                        client.sendall(http_request(REQUEST))
                    self.cell.log.wait_for(self.REFUSAL, since=mark)
                finally:
                    limit(pid, resource.RLIMIT_AS, resource.RLIM_INFINITY)
                for client in waiting:
                    self.assertTrue(client.recv(65536).startswith(b"HTTP/1.1 200 OK\r\n"))

    def test_no_more_connections_are_served_after_a_shortage(self):
        port = PORTS[0]
        with contextlib.ExitStack() as clients:
            def served():
                client = clients.enter_context(connect(port))
                client.settimeout(0.5 * SLOWNESS)
                client.sendall(http_request(REQUEST))
                try:
                    return client.recv(65536).startswith(b"HTTP/1.1 200 OK\r\n")
                except TimeoutError:
                    return False
            self.assertEqual([served() for _ in range(10)], [True] * 10)
            mark = self.cell.log.mark()
            with self.shortage_of_descriptors(0, connected=10):
                self.assertFalse(served())  # it would be one connection too many
                self.cell.log.wait_for(self.REFUSAL, since=mark)
            self.assertEqual([served() for _ in range(6)], [True] * 4 + [False] * 2)

    @contextlib.contextmanager
    def shortage_of_descriptors(self, spare, connected=0):
        """Limits the daemon to `spare` descriptors more than the `connected` clients need.

        Waits first until the connections of earlier clients are closed, because their descriptors
        would be free as well.
        """
        pid = self.cell.daemon_pid()
        needed = self.idle + connected * self.DESCRIPTORS_PER_CONNECTION
        wait_until(lambda: len(descriptors(pid)) == needed)
        limit_descriptors(pid, spare)
        try:
            yield
        finally:
            limit_descriptors(pid, 1000)


def descriptors(pid):
    return set(map(int, os.listdir(f"/proc/{pid}/fd")))


def limit_descriptors(pid, spare):
    """Limits process `pid` to `spare` descriptors more than it has open."""
    free = sorted(set(range(2000)) - descriptors(pid))
    limit(pid, resource.RLIMIT_NOFILE, free[spare])


def address_space(pid):
    """Returns the size of the address space in bytes."""
    with open(f"/proc/{pid}/status", encoding="utf-8") as status:
        return next(int(line.split()[1]) * 1024 for line in status if line.startswith("VmSize:"))


def limit(pid, kind, value):
    _, most = resource.prlimit(pid, kind)
    resource.prlimit(pid, kind, (value, most))


class NestedRequestTest(ClientTestCase):
    def test_nested_elements_do_not_exhaust_the_stack(self):
        for depth in (100, 3000, 30000):
            for body in (b"<a>" * depth, b"<a>" * depth + b"</a>" * depth):
                with self.subTest(depth=depth, closed=b"/" in body):
                    answer = self.answer_to(http_request(body))
                    self.assertNotEqual(answer, b"")
                    self.assertNotIn(b"<params>", answer)


if __name__ == "__main__":
    main()
